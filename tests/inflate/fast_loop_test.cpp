// The fast loops leave the record and the cursors exactly as decoding symbol by symbol does, which
// is what happens in pieces below their margins.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>

#include "inflate/drivers.h"
#include "inflate/streams.h"
#include "kernels/inflate_block.h"

namespace zebdc::inflate {
namespace {

using test::Bytes;
using test::Decoder;
using test::zlibDeflate;

constexpr size_t smallRoom = kernels::inflateBytesMargin - 1;
constexpr size_t smallPairs = kernels::inflatePairsMargin - 1;
constexpr size_t smallSource = kernels::inflateSourceMargin - 1;

// One decoding of a stream of Huffman blocks as far as a limit of source or of room, in calls of
// limited size.
struct Decoding {
  Decoding(const Bytes& source, bool fixed) : stream(source), fixedBlocks(fixed) {}

  // Decodes until the status is neither "source exhausted" nor "room full", or a limit is reached.
  void toBytes(size_t sourceLimit, size_t sourceStep, size_t roomLimit, size_t roomStep) {
    while (true) {
      const size_t source = std::min(sourceStep, sourceLimit - position);
      const size_t room = std::min(roomStep, roomLimit - output.size());
      if (room == 0) break;
      const uint8_t* src = stream.data() + position;
      int srcLen = static_cast<int>(source);
      const size_t before = output.size();
      output.resize(before + room);
      uint8_t* dst = output.data() + before;
      int dstLen = static_cast<int>(room);
      const auto decode =
          fixedBlocks ? zebsDecodeLZ77FixedHuffFull_8u : zebsDecodeLZ77DynamicHuffFull_8u;
      status = decode(&src, &srcLen, &dst, &dstLen, 0, decoder.record());
      output.resize(output.size() - static_cast<size_t>(dstLen));
      position += source - static_cast<size_t>(srcLen);
      if (status == zebWarnSrcExhausted && position == sourceLimit) break;
      if (status != zebWarnSrcExhausted && status != zebWarnDstFull) break;
    }
  }

  void toPairs(size_t sourceLimit, size_t sourceStep, size_t roomLimit, size_t roomStep) {
    while (true) {
      const size_t source = std::min(sourceStep, sourceLimit - position);
      const size_t room = std::min(roomStep, roomLimit - pairs.size());
      if (room == 0) break;
      const uint8_t* src = stream.data() + position;
      int srcLen = static_cast<int>(source);
      const size_t before = pairs.size();
      pairs.resize(before + room);
      ZebLZ77Pair* dst = pairs.data() + before;
      int dstLen = static_cast<int>(room);
      const auto decode = fixedBlocks ? zebsDecodeLZ77FixedHuff_8u : zebsDecodeLZ77DynamicHuff_8u;
      status = decode(&src, &srcLen, &dst, &dstLen, 0, decoder.record());
      pairs.resize(pairs.size() - static_cast<size_t>(dstLen));
      position += source - static_cast<size_t>(srcLen);
      if (status == zebWarnSrcExhausted && position == sourceLimit) break;
      if (status != zebWarnSrcExhausted && status != zebWarnDstFull) break;
    }
  }

  // The circular history in a line, oldest byte first, without what was never written.
  Bytes history() const {
    const DecoderState& s = decoder.state();
    Bytes line(s.window + s.windowPos, s.window + historyBytes);
    line.insert(line.end(), s.window, s.window + s.windowPos);
    const size_t valid = std::min(line.size(), output.size());
    return Bytes(line.end() - static_cast<ptrdiff_t>(valid), line.end());
  }

  const Bytes& stream;
  bool fixedBlocks;
  Decoder decoder;
  Bytes output;
  std::vector<ZebLZ77Pair> pairs;
  size_t position = 0;
  ZebStatus status = zebOk;
};

void expectSameState(const Decoding& fast, const Decoding& careful) {
  const DecoderState& a = fast.decoder.state();
  const DecoderState& b = careful.decoder.state();
  EXPECT_EQ(fast.status, careful.status);
  EXPECT_EQ(fast.position, careful.position);
  EXPECT_EQ(a.bitBuffer, b.bitBuffer);
  EXPECT_EQ(a.bitCount, b.bitCount);
  EXPECT_EQ(a.blockState, b.blockState);
  EXPECT_EQ(a.finalBlock, b.finalBlock);
  EXPECT_EQ(a.streamEnded, b.streamEnded);
  EXPECT_EQ(a.pendingLength, b.pendingLength);
  if (a.pendingLength > 0) {
    EXPECT_EQ(a.pendingDistance, b.pendingDistance);
  }
}

struct Stream {
  Bytes content;
  Bytes bytes;
  bool fixedBlocks;
};

std::vector<Stream> streams() {
  std::vector<Stream> all;
  Bytes mixed;
  for (const test::NamedBytes& input : test::oneOfEachKind(20000)) {
    mixed.insert(mixed.end(), input.bytes.begin(), input.bytes.end());
  }
  all.push_back({mixed, zlibDeflate(mixed, {.strategy = Z_FIXED}), true});
  const Bytes text = test::textLike(100000, 1);
  all.push_back({text, zlibDeflate(text, {.level = 9, .memLevel = 9}), false});
  const Bytes skewed = test::skewed(60000, 2, 60);
  all.push_back({skewed, zlibDeflate(skewed, {.memLevel = 9}), false});
  const Bytes binary = test::binaryLike(60000, 3);
  all.push_back({binary, zlibDeflate(binary, {.level = 9, .memLevel = 9}), false});
  return all;
}

TEST(FastLoops, BytesStopAtTheEndOfTheRoomAsSymbolBySymbol) {
  test::Random random(1);
  for (const Stream& stream : streams()) {
    for (int round = 0; round < 12; ++round) {
      const size_t all = stream.bytes.size();
      const size_t room = 1 + test::below(random, std::min<size_t>(stream.content.size(), 50000));
      Decoding fast(stream.bytes, stream.fixedBlocks);
      fast.toBytes(all, all, room, room);
      Decoding careful(stream.bytes, stream.fixedBlocks);
      careful.toBytes(all, all, room, smallRoom);
      expectSameState(fast, careful);
      ASSERT_TRUE(fast.output == careful.output);
      if (fast.status != zebWarnFinalBlockDone) {
        ASSERT_TRUE(fast.history() == careful.history());
      }
    }
  }
}

TEST(FastLoops, BytesStopAtTheEndOfTheSourceAsSymbolBySymbol) {
  test::Random random(2);
  for (const Stream& stream : streams()) {
    for (int round = 0; round < 12; ++round) {
      const size_t source = 1 + test::below(random, stream.bytes.size());
      Decoding fast(stream.bytes, stream.fixedBlocks);
      fast.toBytes(source, source, 200000, 200000);
      Decoding careful(stream.bytes, stream.fixedBlocks);
      careful.toBytes(source, smallSource, 200000, 10000);
      expectSameState(fast, careful);
      ASSERT_TRUE(fast.output == careful.output);
      if (fast.status != zebWarnFinalBlockDone) {
        ASSERT_TRUE(fast.history() == careful.history());
      }
    }
  }
}

bool samePairs(const std::vector<ZebLZ77Pair>& a, const std::vector<ZebLZ77Pair>& b) {
  return a.size() == b.size() && memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0;
}

TEST(FastLoops, PairsStopAsSymbolBySymbol) {
  test::Random random(3);
  for (const Stream& stream : streams()) {
    for (int round = 0; round < 12; ++round) {
      const size_t all = stream.bytes.size();
      const size_t room = 1 + test::below(random, 20000);
      Decoding fast(stream.bytes, stream.fixedBlocks);
      fast.toPairs(all, all, room, room);
      Decoding careful(stream.bytes, stream.fixedBlocks);
      careful.toPairs(all, all, room, smallPairs);
      expectSameState(fast, careful);
      ASSERT_TRUE(samePairs(fast.pairs, careful.pairs));

      const size_t source = 1 + test::below(random, all);
      Decoding fastSource(stream.bytes, stream.fixedBlocks);
      fastSource.toPairs(source, source, 200000, 200000);
      Decoding carefulSource(stream.bytes, stream.fixedBlocks);
      carefulSource.toPairs(source, smallSource, 200000, 100);
      expectSameState(fastSource, carefulSource);
      ASSERT_TRUE(samePairs(fastSource.pairs, carefulSource.pairs));
    }
  }
}

// Rooms of every size around the margins and the history's size, one after another.
TEST(FastLoops, HistoryIsRightAfterRoomsOfAnySize) {
  const Bytes content = test::textLike(600000, 5);
  const Bytes stream = zlibDeflate(content, {.level = 9});
  test::Random random(4);
  for (int round = 0; round < 10; ++round) {
    Decoder decoder;
    test::Cuts cuts = test::wholeStream(0);
    cuts.room = [&] {
      const size_t around[] = {300, 1000, 5000, 32768, 33000, 65536};
      return around[test::below(random, 6)] + test::below(random, 10);
    };
    const test::Decoded decoded = decodeOnePass(decoder, stream, cuts);
    EXPECT_EQ(decoded.status, zebWarnFinalBlockDone);
    ASSERT_TRUE(decoded.output == content);
  }
}

}  // namespace
}  // namespace zebdc::inflate
