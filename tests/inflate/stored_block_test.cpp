// Stored blocks, to bytes and to pairs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include "inflate/drivers.h"
#include "inflate/streams.h"

namespace zebdc::inflate {
namespace {

using test::BitWriter;
using test::Bytes;
using test::Decoder;
using test::GuardedBuffer;

// One call: what it answered, wrote and left.
struct Outcome {
  ZebStatus status;
  Bytes output;
  int srcLeft;
};

Outcome storedBlock(Decoder& decoder, const Bytes& source, size_t room) {
  const GuardedBuffer input(source);
  const GuardedBuffer output(room);
  const uint8_t* src = input.data();
  uint8_t* dst = output.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room);
  const ZebStatus status =
      zebsDecodeLZ77StoredBlock_8u(&src, &srcLen, &dst, &dstLen, decoder.record());
  EXPECT_EQ(src + srcLen, input.end());
  EXPECT_EQ(dst + dstLen, output.end());
  return {status, Bytes(output.data(), dst), srcLen};
}

struct PairsOutcome {
  ZebStatus status;
  Bytes literals;
  int srcLeft;
};

PairsOutcome storedPairs(Decoder& decoder, const Bytes& source, size_t room) {
  const GuardedBuffer input(source);
  const GuardedBuffer output(room * sizeof(ZebLZ77Pair));
  const uint8_t* src = input.data();
  ZebLZ77Pair* pairs = output.as<ZebLZ77Pair>();
  int srcLen = static_cast<int>(source.size());
  int pairsLen = static_cast<int>(room);
  const ZebStatus status =
      zebsDecodeLZ77StoredHuff_8u(&src, &srcLen, &pairs, &pairsLen, decoder.record());
  EXPECT_EQ(src + srcLen, input.end());
  PairsOutcome outcome = {status, {}, srcLen};
  for (const ZebLZ77Pair* pair = output.as<ZebLZ77Pair>(); pair != pairs; ++pair) {
    EXPECT_EQ(pair->offset, 0);
    outcome.literals.push_back(static_cast<uint8_t>(pair->length));
  }
  EXPECT_EQ(outcome.literals.size() + static_cast<size_t>(pairsLen), room);
  return outcome;
}

// Arms the record for a stored block as GetBlockType does, with further bits in hand.
void arm(Decoder& decoder, bool final, uint64_t bits = 0, int bitCount = 5) {
  decoder.state().blockState = storedAlign;
  decoder.state().blockKind = zebLZ77BlockStored;
  decoder.state().finalBlock = final;
  decoder.state().bitBuffer = bits;
  decoder.state().bitCount = bitCount;
}

TEST(StoredBlock, EmptyBlockEndsAtOnce) {
  for (const bool final : {false, true}) {
    Decoder decoder;
    arm(decoder, final);
    const Outcome outcome = storedBlock(decoder, {0, 0, 0xFF, 0xFF, 9}, 1);
    EXPECT_EQ(outcome.status, final ? zebWarnFinalBlockDone : zebOk);
    EXPECT_EQ(outcome.srcLeft, 1);
    EXPECT_EQ(decoder.state().blockState, betweenBlocks);
  }
}

TEST(StoredBlock, CopiesAndEntersTheHistory) {
  Decoder decoder;
  arm(decoder, false);
  const Outcome outcome = storedBlock(decoder, {3, 0, 0xFC, 0xFF, 'a', 'b', 'c', 'd'}, 10);
  EXPECT_EQ(outcome.status, zebOk);
  EXPECT_EQ(outcome.output, test::fromText("abc"));
  EXPECT_EQ(outcome.srcLeft, 1);
  EXPECT_EQ(decoder.state().windowPos, 3);
  EXPECT_EQ(memcmp(decoder.state().window, "abc", 3), 0);
}

TEST(StoredBlock, WrongComplementIsRefusedAndStaysInHand) {
  Decoder decoder;
  arm(decoder, false);
  EXPECT_EQ(storedBlock(decoder, {3, 0, 0xFD, 0xFF, 'a'}, 10).srcLeft, 1);
  EXPECT_EQ(storedBlock(decoder, {'a'}, 10).status, zebErrSize);
  EXPECT_EQ(decoder.state().bitCount, 32);
  EXPECT_EQ(decoder.state().blockState, storedLength);
}

TEST(StoredBlock, LengthMayComeByteByByte) {
  Decoder decoder;
  arm(decoder, true);
  for (const uint8_t byte : {2, 0, 0xFD}) {
    EXPECT_EQ(storedBlock(decoder, {byte}, 9).status, zebWarnSrcExhausted);
    EXPECT_EQ(decoder.state().blockState, storedLength);
  }
  EXPECT_EQ(storedBlock(decoder, {0xFF}, 9).status, zebWarnSrcExhausted);
  EXPECT_EQ(decoder.state().blockState, storedCopy);
  EXPECT_EQ(storedBlock(decoder, {'x', 'y', 'z'}, 1).status, zebWarnDstFull);
  const Outcome outcome = storedBlock(decoder, {'y', 'z'}, 1);
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.output, test::fromText("y"));
  EXPECT_EQ(outcome.srcLeft, 1);
}

TEST(StoredBlock, RoomThatEndsWithTheBlockCompletesIt) {
  Decoder decoder;
  arm(decoder, false);
  EXPECT_EQ(storedBlock(decoder, {2, 0, 0xFD, 0xFF, 'a', 'b'}, 2).status, zebOk);
}

TEST(StoredBlock, NoRoomComesBeforeThePhase) {
  Decoder decoder;
  EXPECT_EQ(storedBlock(decoder, {1}, 0).status, zebWarnDstFull);
  EXPECT_EQ(storedBlock(decoder, {1}, 1).status, zebErrGeneral);
  for (const uint32_t state : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 12u}) {
    decoder.state().blockState = state;
    EXPECT_EQ(storedBlock(decoder, {1}, 1).status, zebErrGeneral) << state;
    EXPECT_EQ(decoder.state().blockState, state);
  }
}

// Five bits of padding, then LEN, NLEN and bytes of the block that are already in hand.
TEST(StoredBlock, BytesInHandComeOutButStayOutOfTheHistory) {
  Decoder decoder;
  const uint64_t bits = (uint64_t{'b'} << 40 | uint64_t{'a'} << 32 | 0xFFFB0004) << 5 | 0x1F;
  arm(decoder, true, bits, 53);
  EXPECT_EQ(storedBlock(decoder, {}, 1).output, test::fromText("a"));
  EXPECT_EQ(decoder.state().blockState, storedHeldBytes);
  EXPECT_EQ(decoder.state().storedRemaining, 2);
  const Outcome outcome = storedBlock(decoder, {'c', 'd', 'e'}, 9);
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.output, test::fromText("bcd"));
  EXPECT_EQ(outcome.srcLeft, 1);
  EXPECT_EQ(decoder.state().windowPos, 2);
  EXPECT_EQ(memcmp(decoder.state().window, "cd", 2), 0);
}

TEST(StoredBlock, ShortBlockLeavesTheRestInHand) {
  for (int length = 1; length <= 3; ++length) {
    Decoder decoder;
    const uint64_t lengths =
        static_cast<uint64_t>(length) | (~static_cast<uint64_t>(length) << 16 & 0xFFFF0000);
    arm(decoder, false, uint64_t{0x04030201} << 32 | lengths, 64);
    const Outcome outcome = storedBlock(decoder, {}, 9);
    EXPECT_EQ(outcome.status, zebOk);
    EXPECT_EQ(outcome.output.size(), static_cast<size_t>(length));
    EXPECT_EQ(decoder.state().storedRemaining, 0);
    EXPECT_EQ(decoder.state().bitCount, 32 - 8 * length);
    EXPECT_EQ(decoder.state().bitBuffer, 0x04030201u >> 8 * length);
  }
}

TEST(StoredBlock, FinalShortBlockGivesTheRestBack) {
  Decoder decoder;
  arm(decoder, true, 0, 0);
  // The first call takes LEN alone; then the block and a trailer come with bytes in hand.
  decoder.state().bitBuffer = uint64_t{0xBBAA} << 40 | uint64_t{'x'} << 32 | 0xFFFE0001;
  decoder.state().bitCount = 56;
  const uint8_t memory[4] = {0xAA, 0xBB, 1, 2};
  const uint8_t* src = memory + 2;
  int srcLen = 2;
  uint8_t byte = 0;
  uint8_t* dst = &byte;
  int dstLen = 1;
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &srcLen, &dst, &dstLen, decoder.record()),
            zebWarnFinalBlockDone);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(src, memory);
  EXPECT_EQ(srcLen, 4);
  EXPECT_EQ(decoder.state().bitCount, 0);
}

TEST(StoredBlock, HistoryWrapsAndLongCopiesFillIt) {
  Decoder decoder;
  const Bytes content = test::randomBytes(65535, 3);
  BitWriter out;
  test::storedBlock(out, false, content);
  Bytes block = out.finished();
  block.erase(block.begin());
  arm(decoder, false);
  DecoderState& s = decoder.state();
  // 20000 bytes, then 20000 that wrap, then the rest, which is less than the history.
  EXPECT_EQ(storedBlock(decoder, block, 20000).status, zebWarnDstFull);
  EXPECT_EQ(s.windowPos, 20000);
  block.erase(block.begin(), block.begin() + 20004);
  EXPECT_EQ(storedBlock(decoder, block, 20000).status, zebWarnDstFull);
  EXPECT_EQ(s.windowPos, 40000 - 32768);
  EXPECT_EQ(memcmp(s.window, content.data() + 32768, 40000 - 32768), 0);
  EXPECT_EQ(memcmp(s.window + 20000, content.data() + 20000, 12768), 0);

  arm(decoder, false, 0, 0);
  block = out.finished();
  block.erase(block.begin());
  EXPECT_EQ(storedBlock(decoder, block, 65535).status, zebOk);
  EXPECT_EQ(s.windowPos, 0);
  EXPECT_EQ(memcmp(s.window, content.data() + 65535 - 32768, 32768), 0);
}

TEST(StoredBlock, ChecksItsArguments) {
  Decoder decoder;
  ZebLZ77State_8u* const record = decoder.record();
  const uint8_t byte = 0;
  uint8_t room = 0;
  const uint8_t* src = &byte;
  const uint8_t* noSrc = nullptr;
  uint8_t* dst = &room;
  uint8_t* noDst = nullptr;
  int one = 1;
  int zero = 0;
  int negative = -1;
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(nullptr, &negative, &dst, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, nullptr, &dst, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &negative, nullptr, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &negative, &dst, nullptr, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &negative, &dst, &one, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&noSrc, &negative, &dst, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &one, &noDst, &zero, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &negative, &dst, &zero, record), zebErrSize);
  EXPECT_EQ(zebsDecodeLZ77StoredBlock_8u(&src, &one, &dst, &negative, record), zebErrSize);
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(dst, &room);
}

// To pairs ----------------------------------------------------------------------------------------

TEST(StoredHuff, ReadsHeaderLengthAndBytes) {
  for (const bool final : {false, true}) {
    Decoder decoder;
    BitWriter out;
    test::storedBlock(out, final, test::fromText("stored"));
    Bytes block = out.finished();
    block.push_back(7);
    const PairsOutcome outcome = storedPairs(decoder, block, 100);
    EXPECT_EQ(outcome.status, final ? zebWarnFinalBlockDone : zebOk);
    EXPECT_EQ(outcome.literals, test::fromText("stored"));
    EXPECT_EQ(outcome.srcLeft, 1);
    EXPECT_EQ(decoder.state().blockState, betweenBlocks);
    EXPECT_EQ(decoder.state().blockKind, uint32_t{zebLZ77BlockStored});
    EXPECT_EQ(decoder.state().streamEnded, 0u);
    EXPECT_EQ(decoder.state().windowPos, 0);
  }
}

TEST(StoredHuff, EmptyBlockNeedsNoPairs) {
  Decoder decoder;
  EXPECT_EQ(storedPairs(decoder, {0, 0, 0, 0xFF, 0xFF}, 0).status, zebOk);
  EXPECT_EQ(storedPairs(decoder, {1, 0, 0, 0xFF, 0xFF}, 0).status, zebWarnFinalBlockDone);
}

TEST(StoredHuff, NonFinalHeaderLeavesFinalAsItWas) {
  Decoder decoder;
  decoder.state().finalBlock = 1;
  EXPECT_EQ(storedPairs(decoder, {0, 0, 0, 0xFF, 0xFF}, 1).status, zebWarnFinalBlockDone);
}

TEST(StoredHuff, OtherKindsAreRefusedWithTheirBitsInHand) {
  for (const uint8_t header : {0b010, 0b011, 0b100, 0b101, 0b110, 0b111}) {
    Decoder decoder;
    EXPECT_EQ(storedPairs(decoder, {header}, 1).status, zebErrGeneral);
    EXPECT_EQ(decoder.state().bitBuffer, header);
    EXPECT_EQ(decoder.state().bitCount, 8);
    EXPECT_EQ(storedPairs(decoder, {}, 1).status, zebErrGeneral);
    EXPECT_EQ(decoder.state().blockState, betweenBlocks);
  }
}

TEST(StoredHuff, StopsAndGoesOnAnywhere) {
  const Bytes content = test::randomBytes(300, 1);
  BitWriter out;
  test::storedBlock(out, true, content);
  const Bytes& block = out.finished();
  test::Random random(5);
  for (int round = 0; round < 50; ++round) {
    Decoder decoder;
    Bytes literals;
    size_t position = 0;
    ZebStatus status = zebOk;
    while (status != zebWarnFinalBlockDone) {
      const size_t count = std::min(test::below(random, 8), block.size() - position);
      const size_t room = test::below(random, 8);
      const auto piece = block.begin() + static_cast<ptrdiff_t>(position);
      const PairsOutcome outcome =
          storedPairs(decoder, Bytes(piece, piece + static_cast<ptrdiff_t>(count)), room);
      status = outcome.status;
      position += count - static_cast<size_t>(outcome.srcLeft);
      literals.insert(literals.end(), outcome.literals.begin(), outcome.literals.end());
      if (status == zebWarnSrcExhausted) {
        EXPECT_EQ(outcome.srcLeft, 0);
      } else if (status == zebWarnDstFull) {
        EXPECT_EQ(outcome.literals.size(), room);
      } else {
        ASSERT_EQ(status, zebWarnFinalBlockDone);
      }
    }
    EXPECT_EQ(literals, content);
    EXPECT_EQ(position, block.size());
  }
}

TEST(StoredHuff, BytesInHandComeFirst) {
  Decoder decoder;
  decoder.state().bitBuffer = (uint64_t{'b'} << 40 | uint64_t{'a'} << 32 | 0xFFFC0003) << 8;
  decoder.state().bitCount = 56;
  const PairsOutcome outcome = storedPairs(decoder, {'c', 'd'}, 9);
  EXPECT_EQ(outcome.status, zebOk);
  EXPECT_EQ(outcome.literals, test::fromText("abc"));
  EXPECT_EQ(outcome.srcLeft, 1);
}

TEST(StoredHuff, WrongComplementIsRefused) {
  Decoder decoder;
  const PairsOutcome outcome = storedPairs(decoder, {0, 1, 0, 0xFF, 0xFF, 9}, 1);
  EXPECT_EQ(outcome.status, zebErrSize);
  EXPECT_EQ(outcome.srcLeft, 1);
}

TEST(StoredHuff, ChecksItsArguments) {
  Decoder decoder;
  ZebLZ77State_8u* const record = decoder.record();
  const uint8_t byte = 0;
  ZebLZ77Pair pair = {};
  const uint8_t* src = &byte;
  const uint8_t* noSrc = nullptr;
  ZebLZ77Pair* pairs = &pair;
  ZebLZ77Pair* noPairs = nullptr;
  int one = 1;
  int negative = -1;
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(nullptr, &negative, &pairs, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, nullptr, &pairs, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &negative, nullptr, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &negative, &pairs, nullptr, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &negative, &pairs, &one, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&noSrc, &negative, &pairs, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &negative, &noPairs, &one, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &negative, &pairs, &one, record), zebErrSize);
  EXPECT_EQ(zebsDecodeLZ77StoredHuff_8u(&src, &one, &pairs, &negative, record), zebErrSize);
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(pairs, &pair);
}

}  // namespace
}  // namespace zebdc::inflate
