#include "deflate/deflate_decoder.h"

#include <string.h>

#include <algorithm>

#include "deflate/code_lengths.h"
#include "deflate/deflate_stream.h"

namespace zebz {
namespace {

// Small enough for a processor's caches, and large beside the window that is moved to its front
// whenever it is full.
constexpr size_t bufferSize = size_t{256} << 10;

enum BlockKind : uint32_t { blockStored = 0, blockFixed = 1, blockDynamic = 2 };

}  // namespace

DeflateDecoder::DeflateDecoder()
    : tables_(std::make_unique<ZebInflateState>()), buffer_(bufferSize) {}

void DeflateDecoder::restart(Bytes history) {
  std::copy(history.begin(), history.end(), buffer_.begin());
  passedOn_ = end_ = history.size();
}

void DeflateDecoder::decode(BufferedSource& source, ByteSink& sink) {
  BitSource bits(source);
  try {
    decodeBlocks(bits, sink);
  } catch (const DataError&) {
    passOn(sink);
    throw;
  }
  passOn(sink);
}

void DeflateDecoder::decodeBlocks(BitSource& bits, ByteSink& sink) {
  bool isLast = false;
  while (!isLast) {
    isLast = bits.take(1) != 0;
    switch (bits.take(2)) {
      case blockStored:
        copyStored(bits.alignedSource(), sink);
        break;
      case blockFixed:
        tables_->tableKind = zebInflateTablesFixed;
        decodeSymbols(bits, sink);
        break;
      case blockDynamic:
        buildTables(bits);
        decodeSymbols(bits, sink);
        break;
      default:
        failDeflateFormat();
    }
  }
  bits.alignedSource();
}

void DeflateDecoder::copyStored(BufferedSource& source, ByteSink& sink) {
  size_t left = source.takeLittleEndian16();
  if ((source.takeLittleEndian16() ^ left) != 0xFFFF) failDeflateFormat();
  while (left > 0) {
    if (end_ == buffer_.size()) makeRoom(sink);
    if (!source.fill()) failUnexpectedEnd();
    const size_t count = std::min({left, source.unread().size(), buffer_.size() - end_});
    memcpy(buffer_.data() + end_, source.unread().data(), count);
    source.skip(count);
    end_ += count;
    left -= count;
  }
}

void DeflateDecoder::buildTables(BitSource& bits) {
  const CodeLengths codes = readCodeLengths(bits);
  if (zebsInflateBuildHuffTable(codes.lengths.data(), codes.litLenCount, codes.distanceCount,
                                tables_.get()) != zebOk) {
    failDeflateFormat();
  }
}

// The buffer begins with the oldest byte that a match may refer to, or with one that is out of
// reach: the library refuses the distances that the format forbids.
void DeflateDecoder::decodeSymbols(BitSource& bits, ByteSink& sink) {
  tables_->history = buffer_.data();
  tables_->historySize = static_cast<uint32_t>(buffer_.size());
  ZebInflateMode mode = zebInflateAtSymbol;
  for (;;) {
    const uint32_t index = static_cast<uint32_t>(end_);
    uint8_t* dst = buffer_.data() + end_;
    uint32_t room = static_cast<uint32_t>(buffer_.size() - end_);
    const ZebStatus status =
        bits.lendTo([&](const uint8_t** src, uint32_t* srcLen, uint32_t* held, uint32_t* count) {
          return zebsInflate_8u(src, srcLen, held, count, index, &dst, &room, index, &mode,
                                tables_.get());
        });
    end_ = buffer_.size() - room;
    if (status == zebErrBadData) failDeflateFormat();
    expectNoError(status);
    if (mode == zebInflateBlockDone) break;
    if (room == 0) {
      makeRoom(sink);
    } else {
      bits.readOn();
    }
  }
  bits.giveBack();
}

void DeflateDecoder::passOn(ByteSink& sink) {
  sink.write(Bytes(buffer_).subspan(passedOn_, end_ - passedOn_));
  passedOn_ = end_;
}

void DeflateDecoder::makeRoom(ByteSink& sink) {
  passOn(sink);
  const size_t kept = std::min(end_, deflateWindow);
  memmove(buffer_.data(), buffer_.data() + end_ - kept, kept);
  passedOn_ = end_ = kept;
}

}  // namespace zebz
