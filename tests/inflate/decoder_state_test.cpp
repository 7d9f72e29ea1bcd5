// The decoder's record: size, initialisation, reset, dictionary, copy, and the reading of block
// headers.

#include "inflate/decoder_state.h"

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::inflate {
namespace {

using test::Bytes;
using test::GuardedBuffer;

class DecoderStateTest : public testing::Test {
 protected:
  DecoderStateTest() : memory_(decoderStateBytes, GuardedBuffer::Edge::none) {
    memset(memory_.data(), 0xEE, memory_.size());
  }

  ZebLZ77State_8u* record() const { return memory_.as<ZebLZ77State_8u>(); }
  DecoderState& state() const { return decoderState(record()); }
  const uint8_t* address(size_t offset) const { return memory_.data() + offset; }

  GuardedBuffer memory_;
};

template <class T>
bool allZero(const T* values, size_t count) {
  return std::all_of(values, values + count, [](T value) { return value == 0; });
}

void expectBeginning(const DecoderState& s) {
  EXPECT_EQ(s.bitBuffer, 0u);
  EXPECT_EQ(s.bitCount, 0);
  EXPECT_EQ(s.pairsInd, 0);
  EXPECT_EQ(s.pairsLen, 8192);
  EXPECT_EQ(s.windowPos, 0);
  EXPECT_EQ(s.historyLen, 0);
  EXPECT_EQ(s.blockState, 0u);
  EXPECT_EQ(s.storedRemaining, 0);
  EXPECT_EQ(s.finalBlock, 0u);
  EXPECT_EQ(s.streamEnded, 0u);
  EXPECT_EQ(s.pendingLength, 0);
  EXPECT_EQ(s.pendingDistance, 0u);
  EXPECT_EQ(s.deflateStatus, zebLZ77StatusIdle);
  for (const uint32_t* cursor : s.cursors) EXPECT_EQ(cursor, s.decodeTable);
}

void expectOwnStorage(const DecoderState& s, const uint8_t* record) {
  constexpr size_t tables = 113024 - 6912 - 5760;
  EXPECT_EQ(s.window, record + 824);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.codeLengths), record + tables - 576 - 640);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.fixedLitLengths), record + tables - 576);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(s.decodeTable), record + tables);
  EXPECT_EQ(s.subTables[0], record + tables + 5760);
  EXPECT_EQ(s.subTables[1], s.subTables[0] + 1536);
  EXPECT_EQ(s.subTables[2], s.subTables[1] + 1536);
  EXPECT_EQ(s.subTables[3], s.subTables[2] + 2560);
  EXPECT_EQ(s.subTables[3] + 1280, record + 113024);
}

TEST_F(DecoderStateTest, SizeIsFixed) {
  int size = 0;
  EXPECT_EQ(zebsDecodeLZ77GetSize_8u(&size), zebOk);
  EXPECT_EQ(size, 113024);
  EXPECT_EQ(zebsDecodeLZ77GetSize_8u(nullptr), zebErrNullPtr);
}

TEST_F(DecoderStateTest, InitBuildsTheRecordInPlace) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(zebLZ77ChecksumCRC32, record()), zebOk);
  EXPECT_EQ(state().checksumKind, zebLZ77ChecksumCRC32);
  expectBeginning(state());
  expectOwnStorage(state(), memory_.data());
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(state().pairs), address(824 + 65536));
}

TEST_F(DecoderStateTest, InitKeepsAnyChecksumKindAndClearsNeitherWindowNorTables) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(9, record()), zebOk);
  EXPECT_EQ(state().checksumKind, 9);
  EXPECT_EQ(state().window[0], 0xEE);
  EXPECT_EQ(state().window[65535], 0xEE);
  EXPECT_EQ(state().decodeTable[0], 0xEEEEEEEEu);
  EXPECT_EQ(zebsDecodeLZ77Init_8u(0, nullptr), zebErrNullPtr);
}

TEST_F(DecoderStateTest, InitAllocGivesAnInitialisedRecord) {
  ZebLZ77State_8u* allocated = nullptr;
  ASSERT_EQ(zebsDecodeLZ77InitAlloc_8u(zebLZ77ChecksumAdler32, &allocated), zebOk);
  ASSERT_NE(allocated, nullptr);
  EXPECT_EQ(decoderState(allocated).checksumKind, zebLZ77ChecksumAdler32);
  expectBeginning(decoderState(allocated));
  expectOwnStorage(decoderState(allocated), reinterpret_cast<const uint8_t*>(allocated));
  zebsLZ77Free_8u(allocated);
  EXPECT_EQ(zebsDecodeLZ77InitAlloc_8u(0, nullptr), zebErrNullPtr);
}

TEST_F(DecoderStateTest, ResetBeginsANewStreamAndKeepsWhatItShould) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(zebLZ77ChecksumCRC32, record()), zebOk);
  DecoderState& s = state();
  ZebLZ77Pair pairs[4];
  ASSERT_EQ(zebsDecodeLZ77SetPairs_8u(pairs, 2, 4, record()), zebOk);
  ASSERT_EQ(zebsDecodeLZ77SetStatus_8u(zebLZ77StatusFinal, record()), zebOk);
  s.bitBuffer = 0x55;
  s.bitCount = 7;
  s.windowPos = 100;
  s.historyLen = 100;
  s.blockState = huffmanSymbols;
  s.storedRemaining = 4;
  s.finalBlock = 1;
  s.streamEnded = 1;
  s.blockKind = zebLZ77BlockStored;
  s.pendingLength = 5;
  s.pendingDistance = 6;
  s.cursors[1] += 3;
  s.window += 1;
  s.subTables[2] = nullptr;

  ASSERT_EQ(zebsDecodeLZ77Reset_8u(record()), zebOk);
  expectBeginning(s);
  expectOwnStorage(s, memory_.data());
  EXPECT_EQ(s.checksumKind, zebLZ77ChecksumCRC32);
  EXPECT_EQ(s.pairs, pairs);
  EXPECT_EQ(s.blockKind, uint32_t{zebLZ77BlockStored});
  EXPECT_EQ(s.window[17], 0xEE);
  EXPECT_TRUE(allZero(s.codeLengths, 320));
  EXPECT_TRUE(allZero(s.fixedLitLengths, 288));
  EXPECT_TRUE(allZero(s.decodeTable, 1440));
  EXPECT_TRUE(allZero(s.subTables[0], 6912));
  EXPECT_EQ(zebsDecodeLZ77Reset_8u(nullptr), zebErrNullPtr);
}

TEST_F(DecoderStateTest, StatusIsTheCallersNote) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, record()), zebOk);
  for (const ZebLZ77DeflateStatus value : {1, 3, -7, 100}) {
    ZebLZ77DeflateStatus read = 0;
    EXPECT_EQ(zebsDecodeLZ77SetStatus_8u(value, record()), zebOk);
    EXPECT_EQ(zebsDecodeLZ77GetStatus_8u(&read, record()), zebOk);
    EXPECT_EQ(read, value);
  }
  EXPECT_EQ(state().pairsInd, 0);
  EXPECT_EQ(state().pairsLen, 8192);
  EXPECT_EQ(zebsDecodeLZ77SetStatus_8u(0, nullptr), zebErrNullPtr);
}

TEST_F(DecoderStateTest, DictionaryKeepsItsLast32768Bytes) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, record()), zebOk);
  const Bytes dictionary = test::randomBytes(40000, 1);
  ASSERT_EQ(zebsDecodeLZ77SetDictionary_8u(dictionary.data(), 40000, record()), zebOk);
  EXPECT_EQ(memcmp(state().window, dictionary.data() + 40000 - 32768, 32768), 0);
  EXPECT_EQ(state().window[32768], 0xEE);
  EXPECT_EQ(state().historyLen, 32768);
  EXPECT_EQ(state().windowPos, 0);
}

TEST_F(DecoderStateTest, ShortDictionaryEndsAtTheMiddleAndDeclaresTheWholeHistory) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, record()), zebOk);
  const Bytes dictionary = test::fromText("0123456789");
  ASSERT_EQ(zebsDecodeLZ77SetDictionary_8u(dictionary.data(), 10, record()), zebOk);
  EXPECT_EQ(memcmp(state().window + 32758, dictionary.data(), 10), 0);
  EXPECT_EQ(state().window[32757], 0xEE);
  EXPECT_EQ(state().window[32768], 0xEE);
  EXPECT_EQ(state().historyLen, 32768);
}

TEST_F(DecoderStateTest, DictionaryChecksItsArguments) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, record()), zebOk);
  const uint8_t byte = 1;
  EXPECT_EQ(zebsDecodeLZ77SetDictionary_8u(nullptr, 0, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77SetDictionary_8u(&byte, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77SetDictionary_8u(&byte, 0, record()), zebErrSize);
  EXPECT_EQ(zebsDecodeLZ77SetDictionary_8u(&byte, -1, record()), zebErrSize);
  EXPECT_EQ(state().historyLen, 0);
}

TEST_F(DecoderStateTest, CopyCarriesEveryFieldAndKeepsItsOwnStorage) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(zebLZ77ChecksumAdler32, record()), zebOk);
  DecoderState& source = state();
  memset(source.windowArea, 1, sizeof source.windowArea);
  memset(source.pairsArea, 2, sizeof source.pairsArea);
  memset(source.codeLengthsArea, 3, sizeof source.codeLengthsArea);
  memset(source.fixedLitLengthsArea, 4, sizeof source.fixedLitLengthsArea);
  memset(source.tablesArea, 5, sizeof source.tablesArea);
  source.pairsInd = 11;
  source.pairsLen = 12;
  source.deflateStatus = 13;
  source.bitBuffer = 14;
  source.bitCount = 15;
  source.windowPos = 16;
  source.historyLen = 17;
  source.blockState = 18;
  source.storedRemaining = 19;
  source.finalBlock = 20;
  source.streamEnded = 21;
  source.blockKind = 22;
  source.pendingLength = 23;
  source.pendingDistance = 24;
  source.storedHeld = 25;
  source.lengthsRead = 26;
  source.codeLengthTable[127] = {27, 28};
  // Not on a whole entry: rounded down to one.
  source.cursors[1] =
      reinterpret_cast<uint32_t*>(reinterpret_cast<uintptr_t>(source.decodeTable) + 43);

  GuardedBuffer copyMemory(decoderStateBytes, GuardedBuffer::Edge::none);
  ZebLZ77State_8u* const copyRecord = copyMemory.as<ZebLZ77State_8u>();
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, copyRecord), zebOk);
  const Bytes before(memory_.begin(), memory_.end());
  ASSERT_EQ(zebsDecodeLZ77CopyState_8u(record(), copyRecord), zebOk);
  EXPECT_TRUE(std::equal(before.begin(), before.end(), memory_.begin()));

  const DecoderState& copy = decoderState(copyRecord);
  expectOwnStorage(copy, copyMemory.data());
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(copy.pairs), copyMemory.data() + 824 + 65536);
  EXPECT_EQ(copy.checksumKind, zebLZ77ChecksumAdler32);
  EXPECT_EQ(copy.pairsInd, 11);
  EXPECT_EQ(copy.pairsLen, 12);
  EXPECT_EQ(copy.deflateStatus, 13);
  EXPECT_EQ(copy.bitBuffer, 14u);
  EXPECT_EQ(copy.bitCount, 15);
  EXPECT_EQ(copy.windowPos, 16);
  EXPECT_EQ(copy.historyLen, 17);
  EXPECT_EQ(copy.blockState, 18u);
  EXPECT_EQ(copy.storedRemaining, 19);
  EXPECT_EQ(copy.finalBlock, 20u);
  EXPECT_EQ(copy.streamEnded, 21u);
  EXPECT_EQ(copy.blockKind, 22u);
  EXPECT_EQ(copy.pendingLength, 23);
  EXPECT_EQ(copy.pendingDistance, 24u);
  EXPECT_EQ(copy.storedHeld, 25);
  EXPECT_EQ(copy.lengthsRead, 26u);
  EXPECT_EQ(copy.codeLengthTable[127].symbol, 27);
  EXPECT_EQ(copy.codeLengthTable[127].length, 28);
  EXPECT_EQ(copy.cursors[0], copy.decodeTable);
  EXPECT_EQ(copy.cursors[1], copy.decodeTable + 10);
  EXPECT_TRUE(std::equal(memory_.data() + fieldBytes, memory_.data() + decoderStateBytes,
                         copyMemory.data() + fieldBytes));
}

TEST_F(DecoderStateTest, CopyToItselfAndNullPointers) {
  ASSERT_EQ(zebsDecodeLZ77Init_8u(0, record()), zebOk);
  state().bitCount = 5;
  EXPECT_EQ(zebsDecodeLZ77CopyState_8u(record(), record()), zebOk);
  EXPECT_EQ(state().bitCount, 5);
  expectOwnStorage(state(), memory_.data());
  EXPECT_EQ(zebsDecodeLZ77CopyState_8u(nullptr, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77CopyState_8u(record(), nullptr), zebErrNullPtr);
}

// Block headers -----------------------------------------------------------------------------------

constexpr ZebLZ77BlockType unwritten = 77;

class BlockTypeTest : public DecoderStateTest {
 protected:
  BlockTypeTest() { zebsDecodeLZ77Init_8u(0, record()); }

  ZebStatus read(const Bytes& source) {
    const GuardedBuffer input(source);
    const uint8_t* src = input.data();
    left_ = static_cast<int>(source.size());
    type_ = unwritten;
    const ZebStatus status = zebsDecodeLZ77GetBlockType_8u(&src, &left_, &type_, record());
    EXPECT_EQ(src + left_, input.end());
    return status;
  }

  int left_ = 0;
  ZebLZ77BlockType type_ = unwritten;
};

TEST_F(BlockTypeTest, EachKindArmsItsDecoder) {
  struct Case {
    uint8_t bits;
    ZebLZ77BlockType type;
    uint32_t armed, final;
  };
  for (const Case& c :
       {Case{0b000, zebLZ77BlockStored, 8, 0}, Case{0b001, zebLZ77BlockStored, 8, 1},
        Case{0b010, zebLZ77BlockFixed, 4, 0}, Case{0b011, zebLZ77BlockFixed, 4, 1},
        Case{0b100, zebLZ77BlockDynamic, 1, 0}, Case{0b101, zebLZ77BlockDynamic, 1, 1}}) {
    zebsDecodeLZ77Reset_8u(record());
    EXPECT_EQ(read({static_cast<uint8_t>(c.bits | 0xA8), 0xFF}), zebOk);
    EXPECT_EQ(left_, 1);
    EXPECT_EQ(type_, c.type);
    EXPECT_EQ(state().blockKind, static_cast<uint32_t>(c.type));
    EXPECT_EQ(state().blockState, c.armed);
    EXPECT_EQ(state().finalBlock, c.final);
    EXPECT_EQ(state().bitCount, 5);
    EXPECT_EQ(state().bitBuffer, 0xA8u >> 3);
  }
}

TEST_F(BlockTypeTest, WithinABlockItReadsNothing) {
  EXPECT_EQ(read({0b011}), zebOk);
  EXPECT_EQ(read({0b100}), zebOk);
  EXPECT_EQ(left_, 1);
  EXPECT_EQ(type_, zebLZ77BlockFixed);
  EXPECT_EQ(state().bitCount, 5);
  EXPECT_EQ(read({}), zebOk);
  EXPECT_EQ(type_, zebLZ77BlockFixed);
}

TEST_F(BlockTypeTest, ReservedKindIsConsumedAndNotReported) {
  EXPECT_EQ(read({0b10111}), zebOk);
  EXPECT_EQ(left_, 0);
  EXPECT_EQ(type_, unwritten);
  EXPECT_EQ(state().blockState, 0u);
  EXPECT_EQ(state().finalBlock, 1u);
  EXPECT_EQ(state().bitCount, 5);
  // Five bits are in hand: the next header needs no source.
  EXPECT_EQ(read({}), zebOk);
  EXPECT_EQ(type_, zebLZ77BlockFixed);
  EXPECT_EQ(state().finalBlock, 0u);
  EXPECT_EQ(state().bitCount, 2);
}

TEST_F(BlockTypeTest, HeaderMayStraddleTwoBytes) {
  state().bitBuffer = 0b01;
  state().bitCount = 2;
  EXPECT_EQ(read({0b1, 0xFF}), zebOk);
  EXPECT_EQ(left_, 1);
  EXPECT_EQ(type_, zebLZ77BlockDynamic);
  EXPECT_EQ(state().finalBlock, 1u);
  EXPECT_EQ(state().bitCount, 7);
}

TEST_F(BlockTypeTest, WithoutSourceNothingChanges) {
  state().bitBuffer = 0b01;
  state().bitCount = 2;
  EXPECT_EQ(read({}), zebWarnSrcExhausted);
  EXPECT_EQ(type_, unwritten);
  EXPECT_EQ(state().bitBuffer, 0b01u);
  EXPECT_EQ(state().bitCount, 2);
  EXPECT_EQ(state().blockState, 0u);
}

TEST_F(BlockTypeTest, ChecksItsArguments) {
  const uint8_t byte = 0;
  const uint8_t* src = &byte;
  const uint8_t* null = nullptr;
  int negative = -1;
  ZebLZ77BlockType type = unwritten;
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(nullptr, &negative, &type, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(&src, nullptr, &type, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(&src, &negative, nullptr, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(&src, &negative, &type, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(&null, &negative, &type, record()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77GetBlockType_8u(&src, &negative, &type, record()), zebErrSize);
  EXPECT_EQ(type, unwritten);
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(negative, -1);
}

}  // namespace
}  // namespace zebdc::inflate
