// Blocks under the fixed codes, byte by byte as RFC 1951 has them.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include "deflate/block_encoder.h"
#include "deflate/plain_deflate.h"

namespace zebdc::deflate {
namespace {

using test::BitString;
using test::BlockEncoder;
using test::Bytes;
using test::GuardedBuffer;
using test::Pairs;
using test::Random;
using test::rooms;

constexpr auto fixedWriter = zebsEncodeLZ77FixedHuff_8u;
constexpr uint64_t markerBits = 0xFFFF0000;

Pairs literals(std::string_view text) {
  Pairs pairs;
  for (const char c : text) pairs.push_back({static_cast<uint8_t>(c), 0});
  return pairs;
}

// Every literal, every length and every distance symbol at both its ends.
Pairs everySymbol() {
  Pairs pairs;
  for (int byte = 0; byte < 256; ++byte) pairs.push_back({static_cast<uint16_t>(byte), 0});
  for (int length = 3; length <= 258; ++length) pairs.push_back({static_cast<uint16_t>(length), 1});
  for (int power = 1; power <= 32768; power *= 2) {
    for (const int distance : {power, power + 1, power + power / 2, power + power / 2 + 1}) {
      if (distance <= 32768) pairs.push_back({3, static_cast<uint16_t>(distance)});
    }
  }
  return pairs;
}

BitString fixedBlock(const Pairs& pairs, bool isFinal) {
  BitString out;
  out.put(isFinal ? 3 : 2, 3);
  test::putPairs(out, pairs, test::fixedBlockCodes());
  return out;
}

TEST(FixedWriter, WritesEverySymbolOfTheFixedCodes) {
  const Pairs pairs = everySymbol();
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, pairs, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), fixedBlock(pairs, true).bytes());
  EXPECT_EQ(encoder.state().blockPhase, phaseStreamEnd);
}

TEST(FixedWriter, KnownStream) {
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, literals("a"), zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), (Bytes{0x4B, 0x04, 0x00}));
}

TEST(FixedWriter, BlockWithoutFlushKeepsItsLastBitsForTheNext) {
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, literals("a"), zebLZ77FlushNone), zebOk);
  EXPECT_EQ(encoder.output().size(), 2u);  // 3 + 8 + 7 bits
  EXPECT_EQ(encoder.state().bitCount, 2);
  EXPECT_EQ(encoder.state().blockPhase, phaseBlockEnd);
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, literals("b"), zebLZ77FlushFinal), zebWarnFinalBlockDone);

  BitString expected = fixedBlock(literals("a"), false);
  expected.put(3, 3);
  test::putPairs(expected, literals("b"), test::fixedBlockCodes());
  EXPECT_EQ(encoder.output(), expected.bytes());
}

TEST(FixedWriter, SyncAndFullFlushAppendAnEmptyStoredBlock) {
  for (const int flush : {zebLZ77FlushSync, zebLZ77FlushFull}) {
    for (size_t size = 0; size < 9; ++size) {
      const Pairs pairs = literals(std::string(size, 'x') + "\xFF");  // 8 and 9 bits
      BlockEncoder encoder;
      encoder.beginBlock();
      EXPECT_EQ(encoder.write(fixedWriter, pairs, flush), zebOk);
      BitString expected = fixedBlock(pairs, false);
      expected.put(0, 3);
      expected.padToByte();
      expected.put(markerBits, 32);
      EXPECT_EQ(encoder.output(), expected.bytes());
      EXPECT_EQ(encoder.state().blockPhase, phaseBlockEnd);
      EXPECT_EQ(encoder.state().storedPhase, 0);
      EXPECT_EQ(encoder.state().bitCount, 0);
    }
  }
}

TEST(FixedWriter, FlushWithoutPairsAfterSetStatusWritesAnEmptyBlockAndTheMarker) {
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, {}, zebLZ77FlushSync), zebOk);
  BitString expected = fixedBlock({}, false);
  expected.put(0, 3);
  expected.padToByte();
  expected.put(markerBits, 32);
  EXPECT_EQ(encoder.output(), expected.bytes());
}

TEST(FixedWriter, FlushWithoutPairsBehindABlockWritesNothing) {
  for (const int flush : {zebLZ77FlushNone, zebLZ77FlushSync, zebLZ77FlushFull}) {
    BlockEncoder encoder;
    encoder.beginBlock();
    encoder.write(fixedWriter, literals("a"), zebLZ77FlushNone);
    const Bytes before = encoder.output();
    EXPECT_EQ(encoder.write(fixedWriter, {}, flush), zebOk);
    EXPECT_EQ(encoder.output(), before);
    EXPECT_EQ(encoder.state().bitCount, 2);
    EXPECT_EQ(encoder.state().blockPhase, phaseBlockEnd);
  }
}

TEST(FixedWriter, FinalFlushWithoutPairsBehindABlockPads) {
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.write(fixedWriter, literals("a"), zebLZ77FlushNone);
  EXPECT_EQ(encoder.write(fixedWriter, {}, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output().size(), 3u);
  EXPECT_EQ(encoder.state().blockPhase, phaseStreamEnd);
}

TEST(FixedWriter, FinalFlushWithoutPairsButSourceLeftPadsAndAnswersOk) {
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.write(fixedWriter, literals("a"), zebLZ77FlushNone);
  encoder.state().callSrcLen = 1;
  EXPECT_EQ(encoder.write(fixedWriter, {}, zebLZ77FlushFinal), zebOk);
  EXPECT_EQ(encoder.output().size(), 3u);
}

TEST(FixedWriter, FinalFlushWithSourceLeftIsAnOrdinaryBlock) {
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.state().callSrcLen = 5;
  EXPECT_EQ(encoder.write(fixedWriter, literals("a"), zebLZ77FlushFinal), zebOk);
  EXPECT_EQ(encoder.state().blockPhase, phaseBlockEnd);
  EXPECT_EQ(encoder.state().bitCount, 2);
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, literals("b"), zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(test::inflateWithZlib(encoder.output()), test::fromText("ab"));
}

TEST(FixedWriter, RoomOfZeroKeepsTheHeaderForTheNextCall) {
  const Pairs pairs = literals("a");
  std::span<const ZebLZ77Pair> left = pairs;
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.call(fixedWriter, left, 0, zebLZ77FlushFinal), zebWarnDstFull);
  EXPECT_EQ(left.size(), 1u);
  EXPECT_EQ(encoder.state().blockPhase, phasePartial);
  EXPECT_EQ(encoder.write(fixedWriter, pairs, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), fixedBlock(pairs, true).bytes());
}

TEST(FixedWriter, RoomOfZeroKeepsTheHeaderOfAnEmptyBlockToo) {
  std::span<const ZebLZ77Pair> none;
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.call(fixedWriter, none, 0, zebLZ77FlushFinal), zebWarnDstFull);
  EXPECT_EQ(encoder.write(fixedWriter, {}, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), (Bytes{0x03, 0x00}));
}

TEST(FixedWriter, LastPairOfABlockThatGoesOnNeedsNoRoomForItsBits) {
  const Pairs pairs = {{'a', 0}, {227 + 15, 24577}};  // 8 + 13 + 18 bits
  std::span<const ZebLZ77Pair> left = pairs;
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.state().callSrcLen = 1;
  EXPECT_EQ(encoder.call(fixedWriter, left, 1, zebLZ77FlushFinal), zebWarnDstFull);
  EXPECT_EQ(left.size(), 1u);
  EXPECT_EQ(encoder.call(fixedWriter, left, 1, zebLZ77FlushFinal), zebOk);
  EXPECT_TRUE(left.empty());
  EXPECT_EQ(encoder.state().bitCount, 3 + 8 + 13 + 18 + 7 - 16);
  encoder.beginBlock();
  EXPECT_EQ(encoder.write(fixedWriter, literals("z"), zebLZ77FlushFinal, rooms(1)),
            zebWarnFinalBlockDone);
  BitString expected = fixedBlock(pairs, false);
  expected.put(3, 3);
  test::putPairs(expected, literals("z"), test::fixedBlockCodes());
  EXPECT_EQ(encoder.output(), expected.bytes());
}

TEST(FixedWriter, MarkerAndPaddingCutByTheRoomGoOn) {
  for (const int flush : {zebLZ77FlushSync, zebLZ77FlushFinal}) {
    BlockEncoder whole;
    whole.beginBlock();
    const ZebStatus status = whole.write(fixedWriter, literals("abc"), flush);
    for (int room = 1; room <= static_cast<int>(whole.output().size()); ++room) {
      BlockEncoder encoder;
      encoder.beginBlock();
      EXPECT_EQ(encoder.write(fixedWriter, literals("abc"), flush, rooms(room)), status);
      EXPECT_EQ(encoder.output(), whole.output()) << room;
    }
  }
}

// The marker is finished whatever the flush of the later calls.
TEST(FixedWriter, MarkerCutByTheRoomIsFinishedUnderAnyFlush) {
  for (const int flush : {zebLZ77FlushNone, zebLZ77FlushSync, zebLZ77FlushFinal}) {
    BlockEncoder encoder;
    encoder.beginBlock();
    const Pairs pairs = literals("a");
    std::span<const ZebLZ77Pair> left = pairs;
    EXPECT_EQ(encoder.call(fixedWriter, left, 4, zebLZ77FlushSync), zebWarnDstFull);
    EXPECT_EQ(encoder.call(fixedWriter, left, 10, flush), zebOk);
    EXPECT_EQ(encoder.output(), (Bytes{0x4A, 0x04, 0x00, 0x00, 0x00, 0xFF, 0xFF}));
  }
}

TEST(FixedWriter, LeavesTheSecondBitBuffer) {
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.state().altBitsActive = 1;
  std::span<const ZebLZ77Pair> none;
  encoder.call(fixedWriter, none, 0, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().altBitsActive, 1u);
  encoder.write(fixedWriter, {}, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().altBitsActive, 0u);
}

// The checks that both writers of pairs make, in their order.
class PairWriterChecks : public testing::TestWithParam<test::PairWriter> {};

TEST_P(PairWriterChecks, NullPointersComeFirst) {
  const test::PairWriter writer = GetParam();
  BlockEncoder encoder;
  encoder.beginBlock();
  const int32_t phase = encoder.state().blockPhase;
  ZebLZ77Pair pair = {'a', 0};
  ZebLZ77Pair* pairs = &pair;
  uint8_t byte = 0xEE;
  uint8_t* dst = &byte;
  int pairsLen = -1;
  int dstLen = -1;
  EXPECT_EQ(writer(nullptr, &pairsLen, &dst, &dstLen, 0, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(writer(&pairs, nullptr, &dst, &dstLen, 0, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(writer(&pairs, &pairsLen, nullptr, &dstLen, 0, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(writer(&pairs, &pairsLen, &dst, nullptr, 0, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(writer(&pairs, &pairsLen, &dst, &dstLen, 0, nullptr), zebErrNullPtr);
  uint8_t* nullDst = nullptr;
  EXPECT_EQ(writer(&pairs, &pairsLen, &nullDst, &dstLen, 0, encoder.record()), zebErrNullPtr);
  ZebLZ77Pair* nullPairs = nullptr;
  pairsLen = 1;
  dstLen = 0;
  EXPECT_EQ(writer(&nullPairs, &pairsLen, &dst, &dstLen, 0, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(encoder.state().blockPhase, phase);
  EXPECT_EQ(byte, 0xEE);
}

TEST_P(PairWriterChecks, NullPairsServeWhereThereAreNone) {
  BlockEncoder encoder;
  encoder.beginBlock();
  ZebLZ77Pair* pairs = nullptr;
  int pairsLen = 0;
  const GuardedBuffer room(100);
  uint8_t* dst = room.data();
  int dstLen = 100;
  EXPECT_EQ(GetParam()(&pairs, &pairsLen, &dst, &dstLen, zebLZ77FlushNone, encoder.record()),
            zebOk);
  EXPECT_EQ(pairs, nullptr);
}

TEST_P(PairWriterChecks, NegativeCountsAreRefused) {
  BlockEncoder encoder;
  encoder.beginBlock();
  ZebLZ77Pair pair = {'a', 0};
  ZebLZ77Pair* pairs = &pair;
  uint8_t byte = 0xEE;
  uint8_t* dst = &byte;
  int pairsLen = 1;
  int dstLen = -1;
  EXPECT_EQ(GetParam()(&pairs, &pairsLen, &dst, &dstLen, 0, encoder.record()), zebErrSize);
  pairsLen = -1;
  dstLen = 0;
  EXPECT_EQ(GetParam()(&pairs, &pairsLen, &dst, &dstLen, 0, encoder.record()), zebErrSize);
  EXPECT_EQ(encoder.state().blockPhase, phaseBlockBegin);
  EXPECT_EQ(pairs, &pair);
  EXPECT_EQ(dst, &byte);
}

INSTANTIATE_TEST_SUITE_P(, PairWriterChecks,
                         testing::Values(zebsEncodeLZ77FixedHuff_8u, zebsEncodeLZ77DynamicHuff_8u),
                         [](const auto& parameter) {
                           return parameter.index == 0 ? "FixedHuff" : "DynamicHuff";
                         });

}  // namespace
}  // namespace zebdc::deflate
