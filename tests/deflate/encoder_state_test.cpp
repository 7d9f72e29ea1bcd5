// The encoder's record: size, initialisation, reset, pairs buffer and status.

#include "deflate/encoder_state.h"

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "frame/substitution_tables.h"
#include "support/guarded_buffer.h"

namespace zebdc::deflate {
namespace {

using test::GuardedBuffer;

// A record in memory of its own.
class EncoderStateTest : public testing::Test {
 protected:
  EncoderStateTest() : memory_(encoderStateBytes, GuardedBuffer::Edge::none) {
    memset(memory_.data(), 0xEE, memory_.size());
  }

  ZebLZ77State_8u* record() const { return memory_.as<ZebLZ77State_8u>(); }
  EncoderState& state() const { return encoderState(record()); }
  const uint8_t* address(size_t offset) const { return memory_.data() + offset; }

  GuardedBuffer memory_;
};

bool allEqual(const int32_t* table, int32_t value) {
  return std::all_of(table, table + 32768, [&](int32_t entry) { return entry == value; });
}

TEST_F(EncoderStateTest, SizeIsFixed) {
  int size = 0;
  EXPECT_EQ(zebsEncodeLZ77GetSize_8u(&size), zebOk);
  EXPECT_EQ(size, 599076);
  EXPECT_EQ(zebsEncodeLZ77GetSize_8u(nullptr), zebErrNullPtr);
}

TEST_F(EncoderStateTest, InitBuildsTheRecordInPlace) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(zebLZ77LevelBest, zebLZ77ChecksumCRC32, record()), zebOk);
  const EncoderState& s = state();
  EXPECT_EQ(s.comprLevel, 2);
  EXPECT_EQ(s.checksumKind, zebLZ77ChecksumCRC32);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.chainTable), address(824));
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.headTable), address(824 + 131072));
  EXPECT_EQ(s.history, address(824 + 262144));
  EXPECT_EQ(s.historyBase, s.history);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.pairs), address(824 + 262144 + 65536));
  EXPECT_EQ(s.trailer, address(589624));
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.itemCodes), address(589632));
  EXPECT_EQ(s.huffWork, address(599076 - 292));
  EXPECT_TRUE(allEqual(s.chainTable, -32768));
  EXPECT_TRUE(allEqual(s.headTable, -32768));
  EXPECT_TRUE(std::equal(threeByteHashRows.begin(), threeByteHashRows.end(), s.levelTable));
  EXPECT_EQ(s.pairsInd, 0);
  EXPECT_EQ(s.pairsLen, 65280);
  EXPECT_EQ(s.deflateStatus, zebLZ77StatusIdle);
  for (const int32_t field : {s.callSrcLen, s.dstRemaining, s.windowPos, s.bitCount, s.blockPhase,
                              s.trailerWritten, s.altBitCount, s.lastFlush, s.storedPhase}) {
    EXPECT_EQ(field, 0);
  }
  for (const uint32_t field : {s.checksum, s.pendingMode, s.preparedHeaderBytes,
                               s.headerBytesWritten, s.headerOwed, s.altBitsActive}) {
    EXPECT_EQ(field, 0u);
  }
  EXPECT_EQ(s.dstCursor, nullptr);
  EXPECT_EQ(s.bitBuffer | s.altBitBuffer, 0u);
}

TEST_F(EncoderStateTest, InitLeavesBuffersUncleared) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(zebLZ77LevelFast, zebLZ77ChecksumNone, record()), zebOk);
  const EncoderState& s = state();
  EXPECT_EQ(s.history[0], 0xEE);
  EXPECT_EQ(s.trailer[7], 0xEE);
  EXPECT_EQ(s.huffWork[291], 0xEE);
}

TEST_F(EncoderStateTest, UnknownLevelsStandForTheAverageAndKindsAreKept) {
  for (const int level : {7, -1, 1, 3, INT32_MIN}) {
    EXPECT_EQ(zebsEncodeLZ77Init_8u(level, 9, record()), zebOk);
    EXPECT_EQ(state().comprLevel, zebLZ77LevelAverage);
    EXPECT_EQ(state().checksumKind, 9);
  }
  EXPECT_EQ(zebsEncodeLZ77Init_8u(0, -5, record()), zebOk);
  EXPECT_EQ(state().comprLevel, zebLZ77LevelFast);
  EXPECT_EQ(state().checksumKind, -5);
}

TEST_F(EncoderStateTest, NullRecordsAreRefused) {
  EXPECT_EQ(zebsEncodeLZ77Init_8u(1, 1, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77InitAlloc_8u(1, 1, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77Reset_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, nullptr), zebErrNullPtr);
}

TEST_F(EncoderStateTest, InitAllocBuildsARecordToBeFreed) {
  ZebLZ77State_8u* allocated = nullptr;
  ASSERT_EQ(zebsEncodeLZ77InitAlloc_8u(2, 2, &allocated), zebOk);
  ASSERT_NE(allocated, nullptr);
  EXPECT_EQ(encoderState(allocated).comprLevel, 2);
  EXPECT_EQ(encoderState(allocated).checksumKind, 2);
  EXPECT_TRUE(allEqual(encoderState(allocated).chainTable, -32768));
  zebsLZ77Free_8u(allocated);
}

TEST_F(EncoderStateTest, ResetBeginsAStreamAndKeepsTheSettings) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(2, 1, record()), zebOk);
  EncoderState& s = state();
  ZebLZ77Pair callersPairs[3];
  ASSERT_EQ(zebsEncodeLZ77SetPairs_8u(callersPairs, 1, 3, record()), zebOk);
  s.callSrcLen = s.dstRemaining = s.windowPos = s.bitCount = s.trailerWritten = 5;
  s.lastFlush = s.storedPhase = s.storedRemaining = 2;
  s.checksum = s.pendingMode = s.preparedHeaderBytes = s.headerBytesWritten = 6;
  s.headerOwed = 7;
  s.bitBuffer = 7;
  s.dstCursor = s.history;
  s.historyBase = s.history - 8;
  s.deflateStatus = zebLZ77StatusFinal;
  s.blockPhase = 5;
  s.altBitsActive = 1;
  s.altBitBuffer = 9;
  s.altBitCount = 4;
  std::fill_n(s.headTable, 32768, 77);
  std::fill_n(s.chainTable, 32768, 78);

  ASSERT_EQ(zebsEncodeLZ77Reset_8u(record()), zebOk);
  for (const int32_t field : {s.callSrcLen, s.dstRemaining, s.windowPos, s.bitCount, s.pairsInd,
                              s.trailerWritten, s.lastFlush, s.storedPhase, s.storedRemaining}) {
    EXPECT_EQ(field, 0);
  }
  for (const uint32_t field :
       {s.checksum, s.pendingMode, s.preparedHeaderBytes, s.headerBytesWritten, s.headerOwed}) {
    EXPECT_EQ(field, 0u);
  }
  EXPECT_EQ(s.bitBuffer, 0u);
  EXPECT_EQ(s.dstCursor, nullptr);
  EXPECT_EQ(s.historyBase, s.history);
  EXPECT_TRUE(allEqual(s.headTable, -32768));

  EXPECT_TRUE(allEqual(s.chainTable, 78));
  EXPECT_EQ(s.comprLevel, 2);
  EXPECT_EQ(s.checksumKind, 1);
  EXPECT_EQ(s.deflateStatus, zebLZ77StatusFinal);
  EXPECT_EQ(s.blockPhase, 5);
  EXPECT_EQ(s.altBitsActive, 1u);
  EXPECT_EQ(s.altBitBuffer, 9u);
  EXPECT_EQ(s.altBitCount, 4);
  EXPECT_EQ(s.pairs, callersPairs);
  EXPECT_EQ(s.pairsLen, 65280);
}

TEST_F(EncoderStateTest, PairsAreReadAndStoredUnderBothNames) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(1, 0, record()), zebOk);
  for (const auto get : {zebsEncodeLZ77GetPairs_8u, zebsDecodeLZ77GetPairs_8u}) {
    for (const auto set : {zebsEncodeLZ77SetPairs_8u, zebsDecodeLZ77SetPairs_8u}) {
      ZebLZ77Pair buffer[4];
      EXPECT_EQ(set(buffer, 2, -4, record()), zebOk);
      EXPECT_EQ(set(nullptr, 5, 6, record()), zebErrNullPtr);
      EXPECT_EQ(set(buffer, 5, 6, nullptr), zebErrNullPtr);

      ZebLZ77Pair* pairs = nullptr;
      int index = 0, length = 0;
      EXPECT_EQ(get(&pairs, &index, &length, record()), zebOk);
      EXPECT_EQ(pairs, buffer);
      EXPECT_EQ(index, 2);
      EXPECT_EQ(length, -4);

      EXPECT_EQ(get(nullptr, &index, &length, record()), zebErrNullPtr);
      EXPECT_EQ(get(&pairs, nullptr, &length, record()), zebErrNullPtr);
      EXPECT_EQ(get(&pairs, &index, nullptr, record()), zebErrNullPtr);
      EXPECT_EQ(get(&pairs, &index, &length, nullptr), zebErrNullPtr);
      EXPECT_EQ(index, 2);
    }
  }
}

TEST_F(EncoderStateTest, StatusIsReadUnderBothNames) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(1, 0, record()), zebOk);
  for (const auto get : {zebsEncodeLZ77GetStatus_8u, zebsDecodeLZ77GetStatus_8u}) {
    ZebLZ77DeflateStatus status = 9;
    EXPECT_EQ(get(nullptr, record()), zebErrNullPtr);
    EXPECT_EQ(get(&status, nullptr), zebErrNullPtr);
    EXPECT_EQ(status, 9);
    state().deflateStatus = zebLZ77StatusIdle;
    EXPECT_EQ(get(&status, record()), zebOk);
    EXPECT_EQ(status, zebLZ77StatusIdle);
    state().deflateStatus = zebLZ77StatusFinal;
    EXPECT_EQ(get(&status, record()), zebOk);
    EXPECT_EQ(status, zebLZ77StatusFinal);
  }
}

TEST_F(EncoderStateTest, StatusMovesThePairsBufferBetweenMatchingAndCoding) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(1, 0, record()), zebOk);
  EncoderState& s = state();
  s.pairsInd = 40;
  EXPECT_EQ(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, record()), zebOk);
  EXPECT_EQ(s.deflateStatus, zebLZ77StatusCoding);
  EXPECT_EQ(s.blockPhase, 2);
  EXPECT_EQ(s.pairsLen, 40);
  EXPECT_EQ(s.pairsInd, 0);

  s.blockPhase = 4;
  s.pairsInd = 40;
  EXPECT_EQ(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, record()), zebOk);
  EXPECT_EQ(s.deflateStatus, zebLZ77StatusMatching);
  EXPECT_EQ(s.blockPhase, 4);
  EXPECT_EQ(s.pairsLen, 65280);
  EXPECT_EQ(s.pairsInd, 0);

  EXPECT_EQ(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, record()), zebOk);
  EXPECT_EQ(s.pairsLen, 0);
}

TEST_F(EncoderStateTest, OtherStatusesChangeNothingElse) {
  ASSERT_EQ(zebsEncodeLZ77Init_8u(1, 0, record()), zebOk);
  EncoderState& s = state();
  s.pairsInd = 40;
  s.pairsLen = 50;
  s.blockPhase = 4;
  for (const int status : {0, 3, 4, -1, 1000}) {
    EXPECT_EQ(zebsEncodeLZ77SetStatus_8u(status, record()), zebOk);
    EXPECT_EQ(s.deflateStatus, status);
    EXPECT_EQ(s.pairsInd, 40);
    EXPECT_EQ(s.pairsLen, 50);
    EXPECT_EQ(s.blockPhase, 4);
  }
}

}  // namespace
}  // namespace zebdc::deflate
