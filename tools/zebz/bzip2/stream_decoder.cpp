// A stream does not say where its blocks begin. So that several can be decoded at a time, each
// place that has a block magic is a candidate, and candidates are decoded on their own, before it
// is known whether they are blocks. Then the stream is followed from block to block: a candidate
// that lies where a block has to begin is that block, one inside another block is no block at all.
// Being decoded from the whole input and not only up to the next candidate, a block is never cut by
// a magic that happens to be inside it.
#include "bzip2/stream_decoder.h"

#include "bzip2/block_decoder.h"
#include "bzip2/block_scanner.h"
#include "bzip2/bzip2_format.h"
#include "stream/ordered_pieces.h"

namespace zebz {
namespace {

struct Candidate {
  bool isBlock = false;  // or only a sign of how far the search has come
  uint64_t firstBit = 0;
  ChunkSpan span;
  bool reachesEnd = false;  // of the input
  DecodedBlock decoded;
};

bool isLevelDigit(uint8_t byte) {
  return byte >= '0' + bzip2LowestLevel && byte <= '0' + bzip2HighestLevel;
}

[[noreturn]] void failFormat() {
  throw DataError("invalid compressed data--format violated");
}

// Follows the streams and writes the data of their blocks.
class StreamFollower {
 public:
  StreamFollower(ChunkedInput& input, ByteSink& sink, int level)
      : input_(input), sink_(sink), level_(level), position_(8 * input.end()) {}

  // In bits: where the next block has to be, or the end of the stream.
  uint64_t position() const { return position_; }

  // Whether the last stream has ended.
  bool isDone() const { return isDone_; }

  // Candidates come in the order of the input, and all that it has.
  void take(const Candidate& candidate) {
    if (candidate.isBlock && candidate.firstBit < position_) return;
    passStreamEnds();
    if (isDone_ || !candidate.isBlock || candidate.firstBit != position_) return;
    writeBlock(candidate);
  }

  DecodeResult finish() {
    passStreamEnds();
    if (!isDone_) failUnexpectedEnd();
    result_.compressedSize = position_ / 8;
    return result_;
  }

 private:
  // Up to the next block, or behind the last stream.
  void passStreamEnds() {
    while (!isDone_) {
      const uint64_t magic = bits(bzip2MagicBits);
      if (magic == bzip2BlockMagic) return;
      if (magic != bzip2EndMagic) failFormat();
      position_ += bzip2MagicBits;
      result_.check = static_cast<uint32_t>(bits(bzip2CrcBits));
      if (result_.check != streamCrc_) {
        throw DataError("invalid compressed data--stream crc error");
      }
      position_ = (position_ + bzip2CrcBits + 7) / 8 * 8;
      startStream();
    }
  }

  void startStream() {
    const uint64_t start = position_ / 8;
    isDone_ = !input_.readUpTo(start + bzip2HeaderSize) ||
              !isLevelDigit(input_.byteAt(start + bzip2Signature.size()));
    for (size_t i = 0; i < bzip2Signature.size() && !isDone_; ++i) {
      isDone_ = input_.byteAt(start + i) != static_cast<uint8_t>(bzip2Signature[i]);
    }
    if (isDone_) return;
    level_ = input_.byteAt(start + bzip2Signature.size()) - '0';
    streamCrc_ = 0;
    position_ += 8 * bzip2HeaderSize;
  }

  void writeBlock(const Candidate& candidate) {
    const DecodedBlock& block = candidate.decoded;
    if (block.outcome == DecodedBlock::Outcome::cut && candidate.reachesEnd) failUnexpectedEnd();
    if (block.outcome == DecodedBlock::Outcome::randomised) {
      throw DataError("has a randomised block -- not supported");
    }
    if (block.outcome != DecodedBlock::Outcome::whole ||
        block.textLength > bzip2TextLimit(level_)) {
      failFormat();
    }
    const Bytes data = expander_.expand({block.text.data(), block.textLength});
    uint32_t crc = 0;
    expectNoError(zebsCRC32_BZ2_8u(data.data(), static_cast<int>(data.size()), &crc));
    if (crc != block.crc) throw DataError("invalid compressed data--crc error");
    sink_.write(data);
    result_.size += data.size();
    streamCrc_ = combineBzip2Crc(streamCrc_, crc);
    position_ += block.bits;
  }

  // The next bits, at most 48.
  uint64_t bits(int count) {
    const uint64_t endBit = position_ + static_cast<uint64_t>(count);
    if (!input_.readUpTo((endBit + 7) / 8)) failUnexpectedEnd();
    uint64_t field = 0;
    for (uint64_t byte = position_ / 8; 8 * byte < endBit; ++byte) {
      field = field << 8 | input_.byteAt(byte);
    }
    return field >> (-endBit % 8) & ((uint64_t{1} << count) - 1);
  }

  ChunkedInput& input_;
  ByteSink& sink_;
  int level_;
  uint64_t position_;
  bool isDone_ = false;
  uint32_t streamCrc_ = 0;
  Bzip2TextExpander expander_;
  DecodeResult result_;
};

// Looks for candidates where no block has been decoded yet.
class CandidateFinder {
 public:
  CandidateFinder(ChunkedInput& input, const StreamFollower& follower)
      : input_(input), follower_(follower), scanner_(input.end()), lastFound_(input.end()) {}

  // False at the end of the input, or when the last stream is known to have ended.
  bool operator()(Candidate& candidate) {
    while (!follower_.isDone()) {
      const uint64_t reached = follower_.position() / 8;
      scanner_.skipTo(reached);
      input_.dropBefore(reached);
      if (const std::optional<uint64_t> found = scanner_.next(input_)) {
        if (*found < follower_.position()) continue;
        takeAt(*found, candidate);
        return true;
      }
      if (!input_.readOn()) return false;
      if (scanner_.position() > lastFound_ + bzip2LongestBlock) {
        candidate.isBlock = false;
        lastFound_ = scanner_.position();
        return true;
      }
    }
    return false;
  }

 private:
  void takeAt(uint64_t firstBit, Candidate& candidate) {
    const uint64_t start = firstBit / 8;
    const uint64_t limit = start + bzip2LongestBlock;
    candidate.isBlock = true;
    candidate.firstBit = firstBit;
    candidate.reachesEnd = !input_.readUpTo(limit);
    candidate.span = input_.span(start, std::min(limit, input_.end()));
    lastFound_ = start;
  }

  ChunkedInput& input_;
  const StreamFollower& follower_;
  BlockScanner scanner_;
  uint64_t lastFound_;  // or the last sign given
};

// What follows the last stream.
DecodeResult::Rest restFrom(uint64_t position, const ChunkedInput& input, BufferedSource& source) {
  using Rest = DecodeResult::Rest;
  bool hasRest = false;
  for (; position < input.end(); ++position) {
    if (input.byteAt(position) != 0) return Rest::garbage;
    hasRest = true;
  }
  const Rest rest = skipRest(source);
  return hasRest && rest == Rest::none ? Rest::zeros : rest;
}

}  // namespace

int takeBzip2Header(BufferedSource& source) {
  for (const char expected : bzip2Signature) {
    if (source.takeByte() != static_cast<uint8_t>(expected)) return 0;
  }
  const uint8_t digit = source.takeByte();
  return isLevelDigit(digit) ? digit - '0' : 0;
}

DecodeResult decodeBzip2(int firstLevel, unsigned threads, BufferedSource& source, ByteSink& sink) {
  ChunkedInput input(source);
  StreamFollower follower(input, sink, firstLevel);
  processInOrder<Candidate>(
      threads, CandidateFinder(input, follower),
      [] {
        return [decoder = Bzip2BlockDecoder()](Candidate& candidate) mutable {
          if (!candidate.isBlock) return;
          const int firstBit = static_cast<int>(candidate.firstBit % 8);
          decoder.decode(candidate.span, firstBit, candidate.decoded);
          candidate.span = {};
        };
      },
      [&](const Candidate& candidate) { follower.take(candidate); });
  DecodeResult result = follower.finish();
  result.rest = restFrom(result.compressedSize, input, source);
  return result;
}

}  // namespace zebz
