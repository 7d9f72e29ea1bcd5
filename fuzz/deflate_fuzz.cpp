// The deflate encoder. Hostile pairs through the block writers: the same bytes under every kernel
// tier and in any rooms. Real source through match finder and writers: zlib inflates it again.

#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <memory>
#include <vector>

#include "fuzz.h"
#include "kernels/tier.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Pairs = std::vector<ZebLZ77Pair>;
using zebdc::fuzz::Input;

class Encoder {
 public:
  // Rooms come from a generator that roomSeed starts; with 0 they are large.
  Encoder(int level, uint32_t roomSeed) : rooms_(roomSeed) {
    FUZZ_CHECK(zebsEncodeLZ77InitAlloc_8u(level, zebLZ77ChecksumNone, &record_) == zebOk);
  }
  ~Encoder() { zebsLZ77Free_8u(record_); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  ZebLZ77State_8u* record() const { return record_; }
  const Bytes& output() const { return output_; }

  // Calls write(ppDst, pDstLen) until it no longer asks for room.
  template <class Write>
  ZebStatus write(Write write) {
    for (;;) {
      const int size = nextRoom();
      const std::unique_ptr<uint8_t[]> room(new uint8_t[static_cast<size_t>(size)]);
      uint8_t* dst = room.get();
      int dstLen = size;
      const ZebStatus status = write(&dst, &dstLen);
      FUZZ_CHECK(status >= 0 && dst - room.get() == size - dstLen);
      output_.insert(output_.end(), room.get(), dst);
      if (status != zebWarnDstFull) return status;
      FUZZ_CHECK(dstLen == 0);
    }
  }

  ZebStatus writePairs(ZebLZ77HuffMode mode, Pairs pairs, int flush) {
    ZebLZ77Pair* next = pairs.data();
    int left = static_cast<int>(pairs.size());
    const auto writer =
        mode == zebLZ77HuffFixed ? zebsEncodeLZ77FixedHuff_8u : zebsEncodeLZ77DynamicHuff_8u;
    const ZebStatus status = write([&](uint8_t** ppDst, int* pDstLen) {
      return writer(&next, &left, ppDst, pDstLen, flush, record_);
    });
    FUZZ_CHECK(left == 0);
    return status;
  }

  ZebStatus writeStored(std::span<const uint8_t> source, int flush) {
    const uint8_t nothing = 0;
    const uint8_t* src = source.empty() ? &nothing : source.data();
    int left = static_cast<int>(source.size());
    const ZebStatus status = write([&](uint8_t** ppDst, int* pDstLen) {
      return zebsEncodeLZ77StoredBlock_8u(&src, &left, ppDst, pDstLen, flush, record_);
    });
    FUZZ_CHECK(left == 0);
    return status;
  }

  ZebLZ77HuffMode select(const Pairs& pairs) {
    const ZebLZ77Pair nothing = {};
    ZebLZ77HuffMode mode = -1;
    FUZZ_CHECK(zebsEncodeLZ77SelectHuffMode_8u(pairs.empty() ? &nothing : pairs.data(),
                                               static_cast<int>(pairs.size()), &mode,
                                               record_) == zebOk);
    FUZZ_CHECK(mode >= zebLZ77HuffFixed && mode <= zebLZ77HuffStored);
    return mode;
  }

 private:
  int nextRoom() {
    if (rooms_ == 0) return 1 << 20;
    rooms_ = rooms_ * 1664525 + 1013904223;
    return static_cast<int>((rooms_ >> 20) % ((rooms_ >> 16 & 7) == 0 ? 900 : 20));
  }

  ZebLZ77State_8u* record_ = nullptr;
  uint32_t rooms_;
  Bytes output_;
};

struct Block {
  size_t writer;  // 0 fixed, 1 dynamic, 2 stored, 3 as select says
  int flush;
  Pairs pairs;
  std::span<const uint8_t> bytes;
};

std::vector<Block> takeBlocks(Input& input) {
  std::vector<Block> blocks;
  while (!input.empty() && blocks.size() < 50) {
    Block block = {input.takeBelow(4), static_cast<int>(input.takeBelow(4)), {}, {}};
    const size_t repetitions = 1 + input.takeBelow(60);
    block.bytes = input.takeBytes(input.takeBelow(300));
    Pairs seed(block.bytes.size() / sizeof(ZebLZ77Pair));
    if (!seed.empty()) memcpy(seed.data(), block.bytes.data(), seed.size() * sizeof seed[0]);
    for (size_t i = 0; i < repetitions; ++i) {
      block.pairs.insert(block.pairs.end(), seed.begin(), seed.end());
    }
    blocks.push_back(std::move(block));
  }
  return blocks;
}

Bytes writeBlocks(const std::vector<Block>& blocks, uint32_t roomSeed) {
  Encoder encoder(zebLZ77LevelFast, roomSeed);
  for (const Block& block : blocks) {
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, encoder.record());
    const ZebLZ77HuffMode mode =
        block.writer < 3 ? static_cast<ZebLZ77HuffMode>(block.writer) : encoder.select(block.pairs);
    if (mode == zebLZ77HuffStored) {
      encoder.writeStored(block.bytes, block.flush);
    } else {
      encoder.writePairs(mode, block.pairs, block.flush);
    }
  }
  // Brings out the bits that wait for a next block: how many depends on the rooms.
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, encoder.record());
  encoder.writePairs(zebLZ77HuffFixed, {}, zebLZ77FlushFinal);
  return encoder.output();
}

void checkHostilePairs(Input& input) {
  const uint32_t roomSeed = input.takeWord();
  const std::vector<Block> blocks = takeBlocks(input);
  zebdc::kernels::activeTier = 0;
  const Bytes expected = writeBlocks(blocks, 0);
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    FUZZ_CHECK(writeBlocks(blocks, 0) == expected);
    FUZZ_CHECK(writeBlocks(blocks, roomSeed | 1) == expected);
  }
}

// One round: the source is matched and written in as many blocks as it takes.
void compressRound(Encoder& encoder, std::span<const uint8_t> source, int flush, int pairsRoom) {
  const uint8_t nothing = 0;
  const uint8_t* src = source.empty() ? &nothing : source.data();
  int left = static_cast<int>(source.size());
  do {
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, encoder.record());
    const uint8_t* const begin = src;
    Pairs pairs(static_cast<size_t>(pairsRoom));
    ZebLZ77Pair* next = pairs.data();
    int room = pairsRoom;
    FUZZ_CHECK(zebsEncodeLZ77_8u(&src, &left, &next, &room, flush, encoder.record()) >= 0);
    pairs.resize(pairs.size() - static_cast<size_t>(room));
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, encoder.record());
    const ZebLZ77HuffMode mode = encoder.select(pairs);
    const bool isLast = flush == zebLZ77FlushFinal && left == 0;
    const ZebStatus status =
        mode == zebLZ77HuffStored
            ? encoder.writeStored({begin, src}, isLast ? zebLZ77FlushFinal : zebLZ77FlushNone)
            : encoder.writePairs(mode, pairs, flush);
    FUZZ_CHECK(status == (isLast ? zebWarnFinalBlockDone : zebOk));
  } while (left > 0);
}

bool inflatesTo(const Bytes& stream, const Bytes& source) {
  z_stream z = {};
  Bytes back(source.size() + 1);
  FUZZ_CHECK(inflateInit2(&z, -15) == Z_OK);
  z.next_in = const_cast<uint8_t*>(stream.data());
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = back.data();
  z.avail_out = static_cast<uInt>(back.size());
  const bool complete = inflate(&z, Z_FINISH) == Z_STREAM_END && z.avail_in == 0;
  const size_t size = back.size() - z.avail_out;
  inflateEnd(&z);
  return complete && size == source.size() &&
         std::equal(source.begin(), source.end(), back.begin());
}

void checkRoundTrip(Input& input) {
  const int level = static_cast<int>(input.takeBelow(3));
  const uint32_t roomSeed = input.takeWord();
  const size_t pairsRoom = 1 + input.takeBelow(2000);
  const size_t piece = 1 + input.takeBelow(3000);
  const uint32_t flushes = input.takeWord();
  const size_t repetitions = 1 + input.takeBelow(20);
  const auto seed = input.rest();
  Bytes source;
  for (size_t i = 0; i < repetitions; ++i) source.insert(source.end(), seed.begin(), seed.end());

  zebdc::kernels::activeTier = zebdc::kernels::bestTierOfThisMachine();
  Encoder encoder(level, roomSeed);
  for (size_t at = 0, round = 0; at < source.size(); at += piece, ++round) {
    const size_t size = std::min(piece, source.size() - at);
    compressRound(encoder, std::span(source).subspan(at, size),
                  static_cast<int>((flushes >> (round % 16 * 2) & 3) % 3),
                  static_cast<int>(pairsRoom));
  }
  compressRound(encoder, {}, zebLZ77FlushFinal, static_cast<int>(pairsRoom));
  FUZZ_CHECK(inflatesTo(encoder.output(), source));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  if (input.takeBelow(2) == 0) {
    checkHostilePairs(input);
  } else {
    checkRoundTrip(input);
  }
  return 0;
}
