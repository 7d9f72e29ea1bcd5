// The forward and inverse Burrows-Wheeler transforms.

#include <gtest/gtest.h>
#include <limits.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <span>
#include <string>

#include "bzip2/plain_bwt.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::PlainBwt;
using test::plainForward;
using test::plainInverse;
using test::Random;

// ---- The forward functions under one name

enum class Method { general, budgeted, unbounded, suffix, automatic, unknown, smallBlock };

constexpr Method allMethods[] = {Method::general,   Method::budgeted,  Method::unbounded,
                                 Method::suffix,    Method::automatic, Method::unknown,
                                 Method::smallBlock};
constexpr int smallBlockLimit = 32768;

ZebBWTSortMethod selectorOf(Method method) {
  switch (method) {
    case Method::budgeted:
      return zebBWTSortBudgeted;
    case Method::unbounded:
      return zebBWTSortUnbounded;
    case Method::suffix:
      return zebBWTSortSuffix;
    case Method::automatic:
      return zebBWTSortAuto;
    default:
      return 4;
  }
}

size_t scratchSize(Method method, int len) {
  int size = 0;
  if (method == Method::general) {
    EXPECT_EQ(zebsBWTFwdGetSize_8u(len, &size), zebOk);
  } else if (method == Method::smallBlock) {
    EXPECT_EQ(zebsBWTGetSize_SmallBlock_8u(len, &size), zebOk);
  } else {
    const Method sized = method == Method::unknown ? Method::automatic : method;
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(len, &size, selectorOf(sized)), zebOk);
  }
  return static_cast<size_t>(size);
}

ZebStatus forward(Method method, const uint8_t* src, uint8_t* dst, int len, int* index,
                  uint8_t* scratch) {
  if (method == Method::general) return zebsBWTFwd_8u(src, dst, len, index, scratch);
  if (method == Method::smallBlock) {
    return zebsBWTFwd_SmallBlock_8u(src, dst, len, index, scratch);
  }
  return zebsBWTFwd_SelectSort_8u(src, dst, len, index, scratch, selectorOf(method));
}

bool takes(Method method, size_t size) {
  return method != Method::smallBlock || size <= smallBlockLimit;
}

struct Transformed {
  ZebStatus status;
  PlainBwt result;
};

// The scratch is not cleared between calls: what it holds must not matter.
Transformed transform(Method method, const Bytes& block) {
  static Bytes scratch;
  const int len = static_cast<int>(block.size());
  scratch.resize(std::max(scratch.size(), scratchSize(method, len)));
  Transformed out = {zebOk, {Bytes(block.size()), -1}};
  out.status = forward(method, block.data(), out.result.column.data(), len, &out.result.index,
                       scratch.data());
  return out;
}

Bytes inverse(const PlainBwt& bwt) {
  const int len = static_cast<int>(bwt.column.size());
  int size = 0;
  EXPECT_EQ(zebsBWTInvGetSize_8u(len, &size), zebOk);
  Bytes scratch(static_cast<size_t>(size));
  Bytes block(bwt.column.size());
  EXPECT_EQ(zebsBWTInv_8u(bwt.column.data(), block.data(), len, bwt.index, scratch.data()), zebOk);
  return block;
}

Bytes inverseSmall(const PlainBwt& bwt) {
  Bytes scratch(2 * bwt.column.size() + 512);
  Bytes block(bwt.column.size());
  EXPECT_EQ(zebsBWTInv_SmallBlock_8u(bwt.column.data(), block.data(),
                                     static_cast<int>(block.size()), bwt.index, scratch.data()),
            zebOk);
  return block;
}

// Budgeted sorting may give up; all else must agree with the expected transform.
void expectMethods(std::span<const Method> methods, const Bytes& block, const PlainBwt& expected) {
  for (const Method method : methods) {
    if (!takes(method, block.size())) continue;
    const Transformed actual = transform(method, block);
    if (method == Method::budgeted && actual.status == zebWarnSortBudget) continue;
    ASSERT_EQ(actual.status, zebOk);
    ASSERT_EQ(actual.result.index, expected.index) << "method " << static_cast<int>(method);
    ASSERT_EQ(actual.result.column, expected.column) << "method " << static_cast<int>(method);
  }
  ASSERT_EQ(inverse(expected), block);
  if (block.size() <= smallBlockLimit) {
    ASSERT_EQ(inverseSmall(expected), block);
  }
}

void expectAllMethods(const Bytes& block, const PlainBwt& expected) {
  expectMethods(allMethods, block, expected);
}

// ---- Arguments

TEST(BwtSizes, FollowTheirFormulas) {
  int size = 0;
  for (const int len : {1, 2, 99, 100, 32768, 43700, 43701, 900000, 119304642}) {
    EXPECT_EQ(zebsBWTFwdGetSize_8u(len, &size), zebOk);
    EXPECT_EQ(size, std::max(6 * int64_t{len} + 524484, 18 * int64_t{len} + 80));
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(len, &size, zebBWTSortAuto), zebOk);
    EXPECT_EQ(size, std::max(6 * int64_t{len} + 524484, 18 * int64_t{len} + 80));
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(len, &size, zebBWTSortBudgeted), zebOk);
    EXPECT_EQ(size, 6 * len + 524484);
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(len, &size, zebBWTSortUnbounded), zebOk);
    EXPECT_EQ(size, 6 * len + 524484);
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(len, &size, zebBWTSortSuffix), zebOk);
    EXPECT_EQ(size, 18 * int64_t{len} + 80);
    EXPECT_EQ(zebsBWTInvGetSize_8u(len, &size), zebOk);
    EXPECT_EQ(size, 4 * len + 1024);
  }
  for (const int len : {1, 100, 32768}) {
    EXPECT_EQ(zebsBWTGetSize_SmallBlock_8u(len, &size), zebOk);
    EXPECT_EQ(size, 4 * len + 2080);
  }
  EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(-1, &size, zebBWTSortBudgeted), zebOk);
  EXPECT_EQ(size, 524478);
  EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(-10, &size, zebBWTSortSuffix), zebOk);
  EXPECT_EQ(size, -100);
}

TEST(BwtSizes, RefuseLengthsOutOfRangeAndLeaveTheSize) {
  int size = 77;
  for (const int len : {0, -1, INT_MIN, 119304643, INT_MAX}) {
    EXPECT_EQ(zebsBWTFwdGetSize_8u(len, &size), zebErrSize);
  }
  for (const int len : {0, -1, INT_MIN, 536870656, INT_MAX}) {
    EXPECT_EQ(zebsBWTInvGetSize_8u(len, &size), zebErrSize);
  }
  for (const int len : {0, -1, INT_MIN, 32769, INT_MAX}) {
    EXPECT_EQ(zebsBWTGetSize_SmallBlock_8u(len, &size), zebErrSize);
  }
  for (const ZebBWTSortMethod method : {0, 1, 2, 3, 4, -1}) {
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(0, &size, method), zebErrSize);
  }
  for (const ZebBWTSortMethod method : {0, 1, 2, 3}) {
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(INT_MAX, &size, method), zebErrSize);
  }
  EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(INT_MIN, &size, zebBWTSortSuffix), zebErrSize);
  EXPECT_EQ(size, 77);
}

TEST(BwtSizes, LeaveTheSizeForUnknownMethods) {
  int size = 77;
  for (const ZebBWTSortMethod method : {-1, 4, INT_MIN, INT_MAX}) {
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(100, &size, method), zebOk);
    EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(INT_MAX, &size, method), zebOk);
  }
  EXPECT_EQ(size, 77);
}

TEST(BwtSizes, NullPointersComeBeforeLengths) {
  EXPECT_EQ(zebsBWTFwdGetSize_8u(0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(0, nullptr, 0), zebErrNullPtr);
  EXPECT_EQ(zebsBWTFwdGetBufSize_SelectSort_8u(0, nullptr, 9), zebErrNullPtr);
  EXPECT_EQ(zebsBWTGetSize_SmallBlock_8u(0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsBWTInvGetSize_8u(0, nullptr), zebErrNullPtr);
}

TEST(BwtForward, NullPointersComeBeforeLengths) {
  uint8_t byte = 5;
  int index = 77;
  for (const Method method : allMethods) {
    for (const int len : {0, 1, -1, 40000}) {
      EXPECT_EQ(forward(method, nullptr, &byte, len, &index, &byte), zebErrNullPtr);
      EXPECT_EQ(forward(method, &byte, nullptr, len, &index, &byte), zebErrNullPtr);
      EXPECT_EQ(forward(method, &byte, &byte, len, nullptr, &byte), zebErrNullPtr);
      EXPECT_EQ(forward(method, &byte, &byte, len, &index, nullptr), zebErrNullPtr);
    }
  }
  EXPECT_EQ(byte, 5);
  EXPECT_EQ(index, 77);
}

TEST(BwtForward, LengthsOutOfRangeAreRefusedBeforeAnythingIsWritten) {
  uint8_t in = 5;
  uint8_t out = 6;
  uint8_t scratch = 7;
  int index = 77;
  for (const int len : {0, -1, INT_MIN}) {
    EXPECT_EQ(forward(Method::general, &in, &out, len, &index, &scratch), zebErrSize);
    EXPECT_EQ(forward(Method::smallBlock, &in, &out, len, &index, &scratch), zebErrSize);
  }
  EXPECT_EQ(forward(Method::smallBlock, &in, &out, 32769, &index, &scratch), zebErrSize);
  for (const Method method :
       {Method::budgeted, Method::unbounded, Method::suffix, Method::automatic, Method::unknown}) {
    EXPECT_EQ(forward(method, &in, &out, 0, &index, &scratch), zebErrSize);
    EXPECT_EQ(forward(method, &in, &out, -1, &index, &scratch), zebOk);
    EXPECT_EQ(forward(method, &in, &out, INT_MIN, &index, &scratch), zebOk);
  }
  EXPECT_EQ(out, 6);
  EXPECT_EQ(scratch, 7);
  EXPECT_EQ(index, 77);
}

TEST(BwtInverse, ChecksItsArgumentsInOrder) {
  uint8_t in[2] = {5, 5};
  uint8_t out[2] = {6, 6};
  uint8_t scratch[8] = {};
  for (const auto invert : {zebsBWTInv_8u, zebsBWTInv_SmallBlock_8u}) {
    for (const int len : {0, 2}) {
      EXPECT_EQ(invert(nullptr, out, len, 9, scratch), zebErrNullPtr);
      EXPECT_EQ(invert(in, nullptr, len, 9, scratch), zebErrNullPtr);
      EXPECT_EQ(invert(in, out, len, 9, nullptr), zebErrNullPtr);
    }
    EXPECT_EQ(invert(in, out, 0, -1, scratch), zebErrSize);
    EXPECT_EQ(invert(in, out, -1, -2, scratch), zebErrSize);
    EXPECT_EQ(invert(in, out, 2, 2, scratch), zebErrSize);
    EXPECT_EQ(invert(in, out, 2, INT_MAX, scratch), zebErrSize);
  }
  EXPECT_EQ(zebsBWTInv_SmallBlock_8u(in, out, 32769, 0, scratch), zebErrSize);
  EXPECT_EQ(out[0], 6);
}

// ---- Results

TEST(BwtReference, BothOrdersAreTheSame) {
  for (const size_t size : {1, 2, 3, 7, 100, 300, 1000}) {
    for (const auto& [name, block] : test::oneOfEachKind(size)) {
      EXPECT_EQ(test::doubledRotationOrder(block), test::plainRotationOrder(block)) << name;
    }
  }
}

TEST(Bwt, KnownTransform) {
  const Transformed actual = transform(Method::general, test::fromText("banana"));
  EXPECT_EQ(actual.result.column, test::fromText("nnbaaa"));
  EXPECT_EQ(actual.result.index, 3);
}

TEST(Bwt, OneByteIsItself) {
  for (int value = 0; value < 256; ++value) {
    const Bytes block = {static_cast<uint8_t>(value)};
    expectAllMethods(block, {block, 0});
  }
}

void forAllStrings(size_t length, uint8_t letters, const auto& visit) {
  Bytes block(length, 0);
  for (;;) {
    visit(block);
    size_t i = 0;
    while (i < length && ++block[i] == letters) block[i++] = 0;
    if (i == length) return;
  }
}

TEST(Bwt, AllShortStringsOverSmallAlphabets) {
  const auto check = [](const Bytes& block) { expectAllMethods(block, plainForward(block)); };
  for (size_t length = 1; length <= 10; ++length) forAllStrings(length, 2, check);
  for (size_t length = 1; length <= 6; ++length) forAllStrings(length, 3, check);
}

TEST(Bwt, EveryLengthUpTo300) {
  Random random(1);
  for (size_t length = 1; length <= 300; ++length) {
    Bytes block(length);
    const size_t letters = length % 3 == 0 ? 256 : 1 + below(random, 5);
    for (uint8_t& byte : block) byte = static_cast<uint8_t>(below(random, letters) * 51);
    expectAllMethods(block, plainForward(block));
  }
}

TEST(Bwt, EveryKindOfDataAroundTheLimits) {
  for (const size_t size : {99, 100, 101, 1000, 3000}) {
    for (const auto& [name, block] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      expectAllMethods(block, plainForward(block));
    }
  }
  // Sorting by comparison takes too long for these on repetitive data.
  constexpr Method robust[] = {Method::general, Method::smallBlock};
  for (const size_t size : {8191, 32768, 32769}) {
    for (const auto& [name, block] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      const PlainBwt expected = transform(Method::suffix, block).result;
      ASSERT_EQ(plainInverse(expected.column, static_cast<size_t>(expected.index)), block);
      expectMethods(robust, block, expected);
    }
  }
}

TEST(Bwt, EveryByteValue) {
  Bytes block;
  for (int value = 255; value >= 0; --value) block.push_back(static_cast<uint8_t>(value));
  expectAllMethods(block, plainForward(block));
  for (int value = 0; value < 256; ++value) block.push_back(static_cast<uint8_t>(value * 7));
  expectAllMethods(block, plainForward(block));
}

// Equal rotations: the index names the first of them.
TEST(Bwt, PeriodicBlocks) {
  Random random(2);
  for (size_t period = 1; period <= 40; ++period) {
    for (const size_t copies : {2, 3, 4, 6, 7, 30}) {
      Bytes root(period);
      for (uint8_t& byte : root) byte = static_cast<uint8_t>('a' + below(random, 3));
      Bytes block;
      for (size_t i = 0; i < copies; ++i) block.insert(block.end(), root.begin(), root.end());
      const PlainBwt expected = plainForward(block);
      ASSERT_EQ(plainInverse(expected.column, static_cast<size_t>(expected.index)), block);
      expectAllMethods(block, expected);
    }
  }
}

// Almost periodic: long common prefixes that end somewhere.
TEST(Bwt, BrokenPeriods) {
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    const size_t size = 200 + below(random, round % 8 == 0 ? 6000 : 1500);
    const size_t period = 1 + below(random, 300);
    Bytes block = test::randomBytes(size, random());
    for (uint8_t& byte : block) byte &= 3;
    for (size_t i = period; i < size; ++i) {
      if (below(random, 1000) != 0) block[i] = block[i - period];
    }
    expectAllMethods(block, plainForward(block));
  }
}

Bytes twice(const Bytes& half) {
  Bytes block = half;
  block.insert(block.end(), half.begin(), half.end());
  return block;
}

std::vector<test::NamedBytes> longRepetitions(size_t size) {
  std::vector<test::NamedBytes> blocks = {
      {"fibonacci", test::fibonacciWord(size)},
      {"equal", Bytes(size, 'x')},
      {"equal but the last", Bytes(size, 'x')},
      {"equal but the middle", Bytes(size, 'x')},
      {"two copies", twice(test::randomBytes(size / 2, 4))},
      {"two copies, changed", twice(test::randomBytes(size / 2, 5))},
      {"ten copies, changed", {}},
      {"letters in a sea", Bytes(size, 'x')},
  };
  blocks[2].bytes.back() = 'y';
  blocks[3].bytes[size / 2] = 'a';
  blocks[5].bytes[3] ^= 1;
  const Bytes tenth = test::textLike(size / 10, 6);
  for (int i = 0; i < 10; ++i) {
    blocks[6].bytes.insert(blocks[6].bytes.end(), tenth.begin(), tenth.end());
  }
  blocks[6].bytes[size / 3] ^= 2;
  for (size_t i = 0; i < size; i += 1000) blocks[7].bytes[i] = 'a';
  blocks[7].bytes[7] = 'b';
  Random random(7);
  for (const size_t period : {2, 3, 7, 31, 255, 256, 1000}) {
    Bytes block(size);
    for (size_t i = 0; i < size; ++i) {
      block[i] = i < period ? static_cast<uint8_t>(random() % 26 + 'a') : block[i - period];
    }
    blocks.push_back({"period " + std::to_string(period), block});
    block.back() ^= 1;
    blocks.push_back({"broken period " + std::to_string(period), block});
  }
  return blocks;
}

// The automatic method is the general one's, which shorter blocks show.
TEST(Bwt, LongRepetitionsByTheRobustMethods) {
  constexpr Method general[] = {Method::general};
  for (const auto& [name, block] : longRepetitions(100000)) {
    SCOPED_TRACE(name);
    const Transformed expected = transform(Method::suffix, block);
    ASSERT_EQ(expected.status, zebOk);
    ASSERT_EQ(plainInverse(expected.result.column, static_cast<size_t>(expected.result.index)),
              block);
    expectMethods(general, block, expected.result);
  }
}

TEST(Bwt, LongRepetitionsInSmallBlocks) {
  for (const auto& [name, block] : longRepetitions(20000)) {
    SCOPED_TRACE(name);
    const Transformed actual = transform(Method::smallBlock, block);
    ASSERT_EQ(actual.status, zebOk);
    ASSERT_EQ(actual.result, transform(Method::suffix, block).result);
  }
}

TEST(Bwt, BlocksAboveAllThresholds) {
  for (const size_t size : {99899, 99900, 131071, 131072}) {
    const Bytes block = test::textLike(size, size);
    const Transformed expected = transform(Method::suffix, block);
    ASSERT_EQ(plainInverse(expected.result.column, static_cast<size_t>(expected.result.index)),
              block);
    expectAllMethods(block, expected.result);
  }
}

TEST(BwtBudget, GivesUpOnRepetitionsAlone) {
  EXPECT_EQ(transform(Method::budgeted, Bytes(100000, 7)).status, zebWarnSortBudget);
  EXPECT_EQ(transform(Method::budgeted, Bytes(300000, 0)).status, zebWarnSortBudget);
  EXPECT_EQ(transform(Method::budgeted, test::fibonacciWord(100000)).status, zebWarnSortBudget);
  for (const auto& [name, block] : test::oneOfEachKind(100)) {
    EXPECT_EQ(transform(Method::budgeted, block).status, zebOk) << name;
  }
  EXPECT_EQ(transform(Method::budgeted, test::textLike(200000, 1)).status, zebOk);
  EXPECT_EQ(transform(Method::budgeted, test::randomBytes(200000, 1)).status, zebOk);
  EXPECT_EQ(transform(Method::budgeted, test::binaryLike(200000, 1)).status, zebOk);
}

TEST(BwtBudget, GivingUpLeavesTheIndex) {
  const Bytes block(100000, 7);
  EXPECT_EQ(transform(Method::budgeted, block).result.index, -1);
}

TEST(BwtBudget, OtherMethodsGoOn) {
  const Bytes block(100000, 7);
  for (const Method method :
       {Method::general, Method::unbounded, Method::suffix, Method::automatic, Method::unknown}) {
    const Transformed actual = transform(method, block);
    EXPECT_EQ(actual.status, zebOk);
    EXPECT_EQ(actual.result, (PlainBwt{block, 0}));
  }
}

// ---- Memory

// Source, destination and scratch of exactly their sizes end at inaccessible pages; the scratch
// starts at every alignment as the lengths go on.
TEST(BwtMemory, BuffersOfExactSizeAreEnough) {
  for (const size_t size :
       {1,  2,  3,  4,  5,  6,   7,   8,   9,   12,  13,   16,   24,   31,   48,
        63, 64, 65, 96, 99, 100, 127, 128, 129, 200, 1000, 1001, 1002, 1003, 8192}) {
    for (const auto& [name, block] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      const PlainBwt expected = plainForward(block);
      const GuardedBuffer src(block);
      for (const Method method : allMethods) {
        GuardedBuffer dst(size);
        GuardedBuffer scratch(scratchSize(method, static_cast<int>(size)));
        int index = -1;
        const ZebStatus status =
            forward(method, src.data(), dst.data(), static_cast<int>(size), &index, scratch.data());
        if (method == Method::budgeted && status == zebWarnSortBudget) continue;
        ASSERT_EQ(status, zebOk);
        ASSERT_EQ(index, expected.index);
        ASSERT_EQ(Bytes(dst.begin(), dst.end()), expected.column);
      }
    }
  }
}

// Every second position is an LMS position: no block fills the scratch more.
TEST(BwtMemory, ScratchIsEnoughForBlocksFullOfLmsPositions) {
  Random random(8);
  for (const size_t size : {10, 24, 49, 100, 1000, 8191, 43700, 43701, 131071, 131072}) {
    Bytes block(size);
    for (size_t i = 0; i < size; ++i) {
      block[i] = static_cast<uint8_t>((i % 2 == 0 ? 0 : 128) + below(random, size % 3 + 1));
    }
    const Transformed expected = transform(Method::automatic, block);
    ASSERT_EQ(plainInverse(expected.result.column, static_cast<size_t>(expected.result.index)),
              block);
    for (const Method method : {Method::general, Method::suffix}) {
      const GuardedBuffer scratch(scratchSize(method, static_cast<int>(size)));
      Bytes column(size);
      int index = -1;
      ASSERT_EQ(forward(method, block.data(), column.data(), static_cast<int>(size), &index,
                        scratch.data()),
                zebOk);
      ASSERT_EQ((PlainBwt{column, index}), expected.result);
    }
  }
}

TEST(BwtMemory, ScratchMayHaveAnyAlignment) {
  const Bytes block = test::textLike(3000, 9);
  const PlainBwt expected = plainForward(block);
  for (size_t shift = 0; shift < 16; ++shift) {
    for (const Method method : allMethods) {
      Bytes scratch(scratchSize(method, 3000) + 16);
      Bytes column(3000);
      int index = -1;
      ASSERT_EQ(forward(method, block.data(), column.data(), 3000, &index, scratch.data() + shift),
                zebOk);
      ASSERT_EQ((PlainBwt{column, index}), expected);
    }
  }
}

// ---- The inverse on anything

// Columns that no block has: the walk comes round early, or leads through a part of the rows.
TEST(BwtInverse, AnyColumnAndIndexGiveThePlainWalk) {
  Random random(10);
  for (const size_t size :
       {1, 2, 3, 10, 100, 255, 256, 257, 1000, 16383, 16384, 16385, 20000, 32768}) {
    for (int letters : {1, 2, 3, 20, 256}) {
      Bytes column(size);
      for (uint8_t& byte : column) {
        byte = static_cast<uint8_t>(below(random, static_cast<size_t>(letters)));
      }
      if (letters == 20) std::sort(column.begin(), column.end());  // every row follows itself
      const GuardedBuffer src(column);
      for (int round = 0; round < 3; ++round) {
        const int index =
            round == 0 ? static_cast<int>(size) - 1 : static_cast<int>(below(random, size));
        const Bytes expected = plainInverse(column, static_cast<size_t>(index));
        GuardedBuffer dst(size);
        GuardedBuffer scratch(4 * size + 1024);
        ASSERT_EQ(
            zebsBWTInv_8u(src.data(), dst.data(), static_cast<int>(size), index, scratch.data()),
            zebOk);
        ASSERT_EQ(Bytes(dst.begin(), dst.end()), expected) << size << " " << letters;
        GuardedBuffer small(2 * size + 512);
        ASSERT_EQ(zebsBWTInv_SmallBlock_8u(src.data(), dst.data(), static_cast<int>(size), index,
                                           small.data()),
                  zebOk);
        ASSERT_EQ(Bytes(dst.begin(), dst.end()), expected);
      }
    }
  }
}

TEST(BwtInverse, NegativeIndexesStayInsideTheBuffers) {
  for (const int size : {1, 100, 10000}) {
    const GuardedBuffer src(test::randomBytes(static_cast<size_t>(size), 11));
    const GuardedBuffer dst(static_cast<size_t>(size));
    const GuardedBuffer scratch(4 * static_cast<size_t>(size) + 1024);
    for (const int index : {-1, -2, -1000000, INT_MIN}) {
      EXPECT_EQ(zebsBWTInv_8u(src.data(), dst.data(), size, index, scratch.data()), zebOk);
      EXPECT_EQ(zebsBWTInv_SmallBlock_8u(src.data(), dst.data(), size, index, scratch.data()),
                zebOk);
    }
  }
}

TEST(BwtInverse, ScratchMayHaveAnyAlignment) {
  const Bytes block = test::textLike(20000, 12);
  const PlainBwt bwt = plainForward(block);
  for (size_t shift = 0; shift < 8; ++shift) {
    Bytes scratch(4 * block.size() + 1024 + 8);
    Bytes out(block.size());
    EXPECT_EQ(
        zebsBWTInv_8u(bwt.column.data(), out.data(), 20000, bwt.index, scratch.data() + shift),
        zebOk);
    EXPECT_EQ(out, block);
    out.assign(block.size(), 0);
    EXPECT_EQ(zebsBWTInv_SmallBlock_8u(bwt.column.data(), out.data(), 20000, bwt.index,
                                       scratch.data() + shift),
              zebOk);
    EXPECT_EQ(out, block);
  }
}

}  // namespace
}  // namespace zebdc
