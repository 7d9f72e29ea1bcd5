// What a caller compiled elsewhere relies on: sizes, offsets and values of the public types, the
// same on every platform. The compiler checks them; the tests say so.

#include <gtest/gtest.h>
#include <stddef.h>
#include <zebdc/zebdc.h>

#include <type_traits>

namespace {

TEST(Layout, VersionRecord) {
  static_assert(sizeof(ZebLibVersion) == 48 && alignof(ZebLibVersion) == 8);
  static_assert(offsetof(ZebLibVersion, majorVersion) == 0);
  static_assert(offsetof(ZebLibVersion, minorVersion) == 4);
  static_assert(offsetof(ZebLibVersion, updateNumber) == 8);
  static_assert(offsetof(ZebLibVersion, buildNumber) == 12);
  static_assert(offsetof(ZebLibVersion, targetCode) == 16);
  static_assert(offsetof(ZebLibVersion, libraryName) == 24);
  static_assert(offsetof(ZebLibVersion, versionText) == 32);
  static_assert(offsetof(ZebLibVersion, buildDate) == 40);
}

TEST(Layout, PairsAndCodes) {
  static_assert(sizeof(ZebLZ77Pair) == 4 && alignof(ZebLZ77Pair) == 2);
  static_assert(offsetof(ZebLZ77Pair, length) == 0 && offsetof(ZebLZ77Pair, offset) == 2);
  static_assert(sizeof(ZebDeflateHuffCode) == 4 && alignof(ZebDeflateHuffCode) == 2);
  static_assert(offsetof(ZebDeflateHuffCode, code) == 0 && offsetof(ZebDeflateHuffCode, len) == 2);
}

TEST(Layout, InflateState) {
  static_assert(offsetof(ZebInflateState, history) == 0);
  static_assert(offsetof(ZebInflateState, historySize) == 8);
  static_assert(offsetof(ZebInflateState, tableKind) == 12);
  static_assert(sizeof(ZebInflateState) <= 48 * 1024 && alignof(ZebInflateState) == 8);
}

// The enumeration types are 32 bits wide, and the constants behind them are plain ints.
TEST(Layout, Enumerations) {
  static_assert(std::is_same_v<ZebStatus, int32_t>);
  static_assert(std::is_same_v<ZebLZ77ComprLevel, int32_t>);
  static_assert(std::is_same_v<ZebLZ77Checksum, int32_t>);
  static_assert(std::is_same_v<ZebLZ77DeflateStatus, int32_t>);
  static_assert(std::is_same_v<ZebLZ77Flush, int32_t>);
  static_assert(std::is_same_v<ZebLZ77HuffMode, int32_t>);
  static_assert(std::is_same_v<ZebLZ77BlockType, int32_t>);
  static_assert(std::is_same_v<ZebBWTSortMethod, int32_t>);
  static_assert(std::is_same_v<ZebLZOMethod, int32_t>);
  static_assert(std::is_same_v<ZebInflateMode, uint32_t>);
  static_assert(sizeof(zebOk) == 4 && sizeof(zebLZ77LevelFast) == 4);
}

TEST(Layout, StatusValues) {
  EXPECT_EQ(zebOk, 0);
  EXPECT_EQ(zebErrGeneral, -2);
  EXPECT_EQ(zebErrBadArg, -5);
  EXPECT_EQ(zebErrSize, -6);
  EXPECT_EQ(zebErrNullPtr, -8);
  EXPECT_EQ(zebErrMemAlloc, -9);
  EXPECT_EQ(zebErrFreqTable, -197);
  EXPECT_EQ(zebErrCodeLenTable, -198);
  EXPECT_EQ(zebErrCodeTooLong, -199);
  EXPECT_EQ(zebErrBadData, -200);
  EXPECT_EQ(zebErrLZOData, -214);
  EXPECT_EQ(zebWarnSrcExhausted, 32);
  EXPECT_EQ(zebWarnDstFull, 33);
  EXPECT_EQ(zebWarnFinalBlockDone, 34);
  EXPECT_EQ(zebWarnSortBudget, 47);
}

}  // namespace
