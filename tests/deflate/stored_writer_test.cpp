// Stored blocks and the trailer.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include "deflate/block_encoder.h"
#include "deflate/plain_deflate.h"

namespace zebdc::deflate {
namespace {

using test::below;
using test::BlockEncoder;
using test::Bytes;
using test::randomBytes;
using test::rooms;

// LEN, NLEN and the bytes.
Bytes storedBody(std::span<const uint8_t> source) {
  const uint32_t length = static_cast<uint32_t>(source.size());
  test::BitString out;
  out.put(length, 16);
  out.put(~length & 0xFFFF, 16);
  for (const uint8_t byte : source) out.put(byte, 8);
  return out.bytes();
}

Bytes storedBlocks(std::span<const uint8_t> source, uint8_t header) {
  Bytes out;
  do {
    const auto part = source.first(std::min<size_t>(source.size(), 65535));
    out.push_back(header);
    const Bytes body = storedBody(part);
    out.insert(out.end(), body.begin(), body.end());
    source = source.subspan(part.size());
  } while (!source.empty());
  return out;
}

TEST(StoredWriter, SplitsLongSources) {
  const Bytes source = randomBytes(70000, 1);
  BlockEncoder encoder;
  EXPECT_EQ(encoder.writeStored(source, zebLZ77FlushNone), zebOk);
  EXPECT_EQ(encoder.output().size(), 70000u + 2 * 5);
  EXPECT_EQ(encoder.output(), storedBlocks(source, 0));
  EXPECT_EQ(encoder.state().storedPhase, 0);
}

TEST(StoredWriter, EveryBlockUnderTheFinalFlushIsMarkedFinal) {
  const Bytes source = randomBytes(70000, 2);
  BlockEncoder encoder;
  EXPECT_EQ(encoder.writeStored(source, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), storedBlocks(source, 1));
  EXPECT_EQ(encoder.state().blockPhase, phaseStreamEnd);
}

TEST(StoredWriter, AStreamEndsWithItsLastBytesUnderTheFinalFlush) {
  const Bytes source = randomBytes(200000, 3);
  BlockEncoder encoder;
  const std::span<const uint8_t> all = source;
  EXPECT_EQ(encoder.writeStored(all.first(200000 - 65535), zebLZ77FlushNone), zebOk);
  EXPECT_EQ(encoder.writeStored(all.last(65535), zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(test::inflateWithZlib(encoder.output()), source);
}

TEST(StoredWriter, NoSourceMakesAnEmptyBlock) {
  BlockEncoder encoder;
  EXPECT_EQ(encoder.writeStored({}, zebLZ77FlushSync), zebOk);
  EXPECT_EQ(encoder.writeStored({}, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(encoder.output(), (Bytes{0, 0, 0, 0xFF, 0xFF, 1, 0, 0, 0xFF, 0xFF}));
}

TEST(StoredWriter, HeaderFollowsTheBitsInHand) {
  for (int inHand = 0; inHand <= 62; ++inHand) {
    BlockEncoder encoder;
    encoder.state().bitBuffer = (uint64_t{1} << inHand) - 1;
    encoder.state().bitCount = inHand;
    const Bytes source = {1, 2, 3};
    EXPECT_EQ(encoder.writeStored(source, zebLZ77FlushFinal, rooms(1)), zebWarnFinalBlockDone);
    test::BitString expected;
    expected.put((uint64_t{1} << inHand) - 1, inHand);
    expected.put(1, 3);
    expected.padToByte();
    for (const uint8_t byte : storedBody(source)) expected.put(byte, 8);
    EXPECT_EQ(encoder.output(), expected.bytes());
    EXPECT_EQ(encoder.state().bitCount, 0);
    EXPECT_EQ(encoder.state().altBitCount, 0);
  }
}

TEST(StoredWriter, AnyRoomGivesTheSameBytes) {
  const Bytes source = randomBytes(66000, 4);
  test::Random random(5);
  for (int round = 0; round < 20; ++round) {
    BlockEncoder encoder;
    const auto nextRoom = round < 2 ? test::smallRooms(random) : test::anyRooms(random);
    EXPECT_EQ(encoder.writeStored(source, zebLZ77FlushNone, nextRoom), zebOk);
    EXPECT_EQ(encoder.output(), storedBlocks(source, 0));
  }
}

TEST(StoredWriter, RoomThatEndsWithTheLastByteIsEnough) {
  const Bytes source = randomBytes(100, 6);
  std::span<const uint8_t> left = source;
  BlockEncoder encoder;
  EXPECT_EQ(encoder.callStored(left, 105, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  left = source;
  BlockEncoder shorter;
  EXPECT_EQ(shorter.callStored(left, 104, zebLZ77FlushFinal), zebWarnDstFull);
  EXPECT_EQ(left.size(), 1u);
}

TEST(StoredWriter, RoomThatEndsBetweenTwoBlocks) {
  const Bytes source = randomBytes(65536, 7);
  std::span<const uint8_t> left = source;
  BlockEncoder encoder;
  EXPECT_EQ(encoder.callStored(left, 65540, zebLZ77FlushNone), zebWarnDstFull);
  EXPECT_EQ(left.size(), 1u);
  EXPECT_EQ(encoder.callStored(left, 6, zebLZ77FlushNone), zebOk);
  EXPECT_EQ(encoder.output(), storedBlocks(source, 0));
}

TEST(StoredWriter, PendingBitsAreSavedInBothBuffers) {
  for (const uint32_t alternate : {0u, 1u}) {
    BlockEncoder encoder;
    EncoderState& state = encoder.state();
    state.bitBuffer = state.altBitBuffer = 0x3FFFF;
    state.bitCount = state.altBitCount = 18;
    state.altBitsActive = alternate;
    const Bytes source = {7};
    std::span<const uint8_t> left = source;
    EXPECT_EQ(encoder.callStored(left, 1, zebLZ77FlushNone), zebWarnDstFull);
    EXPECT_EQ(state.bitCount, 10);
    EXPECT_EQ(state.altBitCount, 10);
    EXPECT_EQ(state.bitBuffer, 0x3FFu);
    EXPECT_EQ(state.altBitBuffer, 0x3FFu);
    EXPECT_EQ(encoder.callStored(left, 100, zebLZ77FlushNone), zebOk);
    EXPECT_EQ(encoder.output(), (Bytes{0xFF, 0xFF, 0x03, 1, 0, 0xFE, 0xFF, 7}));
    EXPECT_EQ(state.altBitsActive, 0u);
  }
}

TEST(StoredWriter, ContinuesFromTheBufferThatIsInUse) {
  for (const uint32_t alternate : {0u, 1u}) {
    BlockEncoder encoder;
    EncoderState& state = encoder.state();
    state.bitBuffer = 0x11;
    state.altBitBuffer = 0x22;
    state.bitCount = state.altBitCount = 8;
    state.altBitsActive = alternate;
    encoder.writeStored({}, zebLZ77FlushNone);
    EXPECT_EQ(encoder.output()[0], alternate != 0 ? 0x22 : 0x11);
  }
}

TEST(StoredWriter, SourceThatEndsBeforeItsBlockIsContinued) {
  const Bytes source = randomBytes(1000, 8);
  const std::span<const uint8_t> all = source;
  BlockEncoder encoder;
  std::span<const uint8_t> left = all;
  EXPECT_EQ(encoder.callStored(left, 5 + 300, zebLZ77FlushNone), zebWarnDstFull);
  left = all.subspan(300, 100);
  EXPECT_EQ(encoder.callStored(left, 5000, zebLZ77FlushNone), zebOk);
  left = all.subspan(400);
  EXPECT_EQ(encoder.callStored(left, 5000, zebLZ77FlushNone), zebOk);
  EXPECT_EQ(encoder.output(), storedBlocks(source, 0));
}

TEST(StoredWriter, NullPointersThenCountsThenRoom) {
  BlockEncoder encoder;
  const uint8_t byte = 0;
  const uint8_t* src = &byte;
  uint8_t out = 0xEE;
  uint8_t* dst = &out;
  int srcLen = -1;
  int dstLen = -1;
  const auto stored = zebsEncodeLZ77StoredBlock_8u;
  ZebLZ77State_8u* const record = encoder.record();
  EXPECT_EQ(stored(nullptr, &srcLen, &dst, &dstLen, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, nullptr, &dst, &dstLen, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, &srcLen, nullptr, &dstLen, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, &srcLen, &dst, nullptr, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, &srcLen, &dst, &dstLen, 0, nullptr), zebErrNullPtr);
  const uint8_t* nullSrc = nullptr;
  uint8_t* nullDst = nullptr;
  EXPECT_EQ(stored(&nullSrc, &srcLen, &dst, &dstLen, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, &srcLen, &nullDst, &dstLen, 0, record), zebErrNullPtr);
  EXPECT_EQ(stored(&src, &srcLen, &dst, &dstLen, 0, record), zebErrSize);
  srcLen = 1;
  EXPECT_EQ(stored(&src, &srcLen, &dst, &dstLen, 0, record), zebErrSize);
  srcLen = -1;
  dstLen = 0;
  EXPECT_EQ(stored(&src, &srcLen, &dst, &dstLen, 0, record), zebErrSize);
  srcLen = 1;
  EXPECT_EQ(stored(&src, &srcLen, &dst, &dstLen, 0, record), zebWarnDstFull);
  EXPECT_EQ(encoder.state().storedPhase, 0);
  EXPECT_EQ(out, 0xEE);
}

class Trailer : public testing::Test {
 protected:
  static void finish(BlockEncoder& encoder, uint32_t checksum, int32_t position) {
    encoder.beginBlock();
    encoder.write(zebsEncodeLZ77FixedHuff_8u, {}, zebLZ77FlushFinal);
    encoder.output().clear();
    encoder.state().checksum = checksum;
    encoder.state().windowPos = position;
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusFinal, encoder.record());
  }
};

TEST_F(Trailer, LayoutFollowsTheKind) {
  struct Case {
    int kind;
    uint32_t checksum;
    Bytes expected;
  };
  for (const Case& c : {Case{zebLZ77ChecksumAdler32, 0x01020304, {1, 2, 3, 4}},
                        Case{zebLZ77ChecksumCRC32, 0x01020304, {4, 3, 2, 1, 8, 7, 6, 5}},
                        Case{zebLZ77ChecksumNone, 0, {0, 0, 0, 0, 8, 7, 6, 5}}}) {
    BlockEncoder encoder(zebLZ77LevelFast, c.kind);
    finish(encoder, c.checksum, 0x05060708);
    EXPECT_EQ(encoder.writeTrailer(), zebOk);
    EXPECT_EQ(encoder.output(), c.expected);
    EXPECT_EQ(encoder.state().blockPhase, phaseStreamEnd);
    EXPECT_EQ(encoder.state().trailerWritten, 0);
  }
}

TEST_F(Trailer, TwoRoomsOfTwoThenNothingLeft) {
  BlockEncoder encoder(zebLZ77LevelFast, zebLZ77ChecksumAdler32);
  finish(encoder, 0x01020304, 0);
  EXPECT_EQ(encoder.callFlush(2), zebWarnDstFull);
  EXPECT_EQ(encoder.state().blockPhase, phasePartial);
  EXPECT_EQ(encoder.state().trailerWritten, 2);
  EXPECT_EQ(encoder.callFlush(2), zebWarnDstFull);
  EXPECT_EQ(encoder.output(), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(encoder.callFlush(2), zebOk);
  EXPECT_EQ(encoder.output(), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(encoder.state().trailerWritten, 0);
  EXPECT_EQ(encoder.state().blockPhase, phaseStreamEnd);
}

TEST_F(Trailer, OneByteAtATimeGivesTheSameBytes) {
  BlockEncoder encoder(zebLZ77LevelFast, zebLZ77ChecksumCRC32);
  finish(encoder, 0xAABBCCDD, 0x12345678);
  EXPECT_EQ(encoder.callFlush(1), zebWarnDstFull);
  encoder.state().checksum = 0;  // what is being written was settled by the first call
  EXPECT_EQ(encoder.writeTrailer(rooms(1)), zebOk);
  EXPECT_EQ(encoder.output(), (Bytes{0xDD, 0xCC, 0xBB, 0xAA, 0x78, 0x56, 0x34, 0x12}));
}

TEST_F(Trailer, ClearsOneByteBehindItselfWhereThereIsRoom) {
  BlockEncoder encoder(zebLZ77LevelFast, zebLZ77ChecksumAdler32);
  finish(encoder, 0x01020304, 0);
  Bytes room(7, 0xEE);
  uint8_t* dst = room.data();
  int dstLen = 7;
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, &dstLen, encoder.record()), zebOk);
  EXPECT_EQ(dst, room.data() + 4);
  EXPECT_EQ(dstLen, 3);
  EXPECT_EQ(room, (Bytes{1, 2, 3, 4, 0, 0xEE, 0xEE}));
}

TEST_F(Trailer, RoomOfZeroWritesNothing) {
  BlockEncoder encoder(zebLZ77LevelFast, zebLZ77ChecksumAdler32);
  finish(encoder, 0x01020304, 0);
  EXPECT_EQ(encoder.callFlush(0), zebWarnDstFull);
  EXPECT_EQ(encoder.writeTrailer(), zebOk);
  EXPECT_EQ(encoder.output(), (Bytes{1, 2, 3, 4}));
}

TEST_F(Trailer, ChecksComeInOrder) {
  BlockEncoder encoder(zebLZ77LevelFast, 9);
  uint8_t byte = 0xEE;
  uint8_t* dst = &byte;
  uint8_t* nullDst = nullptr;
  int dstLen = -1;
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(nullptr, &dstLen, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, nullptr, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, &dstLen, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&nullDst, &dstLen, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, &dstLen, encoder.record()), zebErrSize);
  dstLen = 1;
  for (const int status : {0, 1, 2, 4}) {
    encoder.state().deflateStatus = status;
    EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, &dstLen, encoder.record()), zebErrGeneral);
  }
  finish(encoder, 1, 1);
  EXPECT_EQ(zebsEncodeLZ77Flush_8u(&dst, &dstLen, encoder.record()), zebErrGeneral);
  EXPECT_EQ(dstLen, 1);
  EXPECT_EQ(byte, 0xEE);
}

}  // namespace
}  // namespace zebdc::deflate
