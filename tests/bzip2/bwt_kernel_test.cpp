// The kernels of the Burrows-Wheeler transform against their plain definitions, under every tier.

#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "bzip2/plain_bwt.h"
#include "kernels/bwt_compare.h"
#include "kernels/bwt_induce.h"
#include "kernels/bwt_inverse.h"
#include "kernels/bwt_sort.h"
#include "kernels/bzip2_symbols.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::Random;

// Kinds of blocks whose rotations all differ.
std::vector<test::NamedBytes> blocksOf(size_t size) {
  std::vector<test::NamedBytes> blocks = test::oneOfEachKind(size);
  for (auto& [name, block] : blocks) block.back() = 200;
  return blocks;
}

std::vector<uint32_t> rowsOf(const std::vector<uint32_t>& order) {
  std::vector<uint32_t> rows(order.size());
  for (size_t row = 0; row < order.size(); ++row) rows[order[row]] = static_cast<uint32_t>(row);
  return rows;
}

// By definition: smaller than the next rotation, behind one that is greater than this.
std::vector<bool> plainLms(const std::vector<uint32_t>& order) {
  const std::vector<uint32_t> rows = rowsOf(order);
  const size_t size = rows.size();
  std::vector<bool> lms(size);
  for (size_t p = 0; p < size; ++p) {
    lms[p] = rows[p] < rows[(p + 1) % size] && rows[(p + size - 1) % size] > rows[p];
  }
  return lms;
}

// A block as the kernels read it, behind it nothing but an inaccessible page.
class KernelText {
 public:
  KernelText(const Bytes& block, size_t behind) : buffer_(1 + block.size() + behind) {
    for (size_t i = 0; i < buffer_.size(); ++i) {
      buffer_[i] = block[(i + block.size() - 1) % block.size()];
    }
  }
  const uint8_t* text() const { return buffer_.data() + 1; }

 private:
  GuardedBuffer buffer_;
};

struct Marks {
  uint32_t count;
  std::vector<uint64_t> bits;
};

Marks mark(const uint8_t* text, size_t size) {
  Marks marks = {0, std::vector<uint64_t>(kernels::bwtBitWords(size), ~uint64_t{0})};
  marks.count = kernels::bwtSort().markLms(text, static_cast<uint32_t>(size), marks.bits.data());
  return marks;
}

TEST(MarkLms, FindsTheLmsPositionsOfEveryLength) {
  Random random(1);
  for (size_t size = 2; size <= 400; ++size) {
    Bytes block(size);
    const size_t letters = 2 + below(random, size % 2 == 0 ? 2 : 255);
    for (uint8_t& byte : block) byte = static_cast<uint8_t>(below(random, letters));
    block[size / 2] = 255;
    const std::vector<bool> expected = plainLms(test::plainRotationOrder(block));
    const KernelText text(block, 1);
    const Marks marks = mark(text.text(), size);
    for (size_t p = 0; p < marks.bits.size() * 64; ++p) {
      const bool actual = (marks.bits[p / 64] >> p % 64 & 1) != 0;
      ASSERT_EQ(actual, p < size && expected[p]) << "position " << p << " of " << size;
    }
    ASSERT_EQ(marks.count, std::count(expected.begin(), expected.end(), true));
  }
}

// Runs of equal bytes that cross the words of the bit array.
TEST(MarkLms, LongRuns) {
  for (size_t length = 1; length < 200; ++length) {
    for (const uint8_t end : {uint8_t{1}, uint8_t{9}}) {
      Bytes block(300, 5);
      std::fill(block.begin() + 40, block.begin() + 40 + static_cast<ptrdiff_t>(length),
                uint8_t{3});
      block[40 + length] = end;
      block[299] = 77;
      const std::vector<bool> expected = plainLms(test::plainRotationOrder(block));
      const KernelText text(block, 1);
      const Marks marks = mark(text.text(), block.size());
      for (size_t p = 0; p < block.size(); ++p) {
        ASSERT_EQ((marks.bits[p / 64] >> p % 64 & 1) != 0, expected[p]);
      }
    }
  }
}

struct SortResult {
  bool done;
  std::vector<uint32_t> positions;
};

SortResult sortLms(const Bytes& block, int positionBits, int64_t budget) {
  const size_t size = block.size();
  const KernelText text(block, size + kernels::bwtTextMargin);
  const Marks marks = mark(text.text(), size);
  const GuardedBuffer words((marks.count + kernels::bwtWordSlack) * sizeof(uint64_t));
  const GuardedBuffer spare((marks.count + kernels::bwtWordSlack) * sizeof(uint64_t));
  const GuardedBuffer groups(marks.count / 2 * sizeof(kernels::BwtGroup));
  const GuardedBuffer ranks((size + 1) / 2 * sizeof(uint32_t));
  const GuardedBuffer ends(kernels::bwtBucketCount(size) * sizeof(uint32_t));
  memset(ranks.data(), 0, ranks.size());
  kernels::BwtLmsSort job;
  job.text = text.text();
  job.length = static_cast<uint32_t>(size);
  job.lmsCount = marks.count;
  job.positionBits = positionBits;
  job.budget = budget;
  job.lmsBits = marks.bits.data();
  job.words = words.as<uint64_t>();
  job.spare = spare.as<uint64_t>();
  job.groups = groups.as<kernels::BwtGroup>();
  job.ranks = ranks.as<uint32_t>();
  job.bucketEnds = ends.as<uint32_t>();
  SortResult result = {kernels::bwtSort().sortLms(job), {}};
  for (uint32_t i = 0; i < marks.count; ++i) {
    const uint64_t mask = (uint64_t{1} << positionBits) - 1;
    result.positions.push_back(static_cast<uint32_t>(job.words[i] & mask));
  }
  return result;
}

std::vector<uint32_t> plainSortedLms(const Bytes& block) {
  const std::vector<uint32_t> order = test::plainRotationOrder(block);
  const std::vector<bool> lms = plainLms(order);
  std::vector<uint32_t> sorted;
  for (const uint32_t p : order) {
    if (lms[p]) sorted.push_back(p);
  }
  return sorted;
}

constexpr int64_t anyWork = int64_t{1} << 50;

TEST(SortLms, SortsEveryKindOfData) {
  for (const size_t size : {2, 3, 10, 63, 64, 65, 500, 3000, 12000}) {
    for (const auto& [name, block] : blocksOf(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      if (std::count(block.begin(), block.end(), block[0]) == static_cast<ptrdiff_t>(size))
        continue;
      const std::vector<uint32_t> expected = plainSortedLms(block);
      for (const int bits : {24, 32}) {
        const SortResult actual = sortLms(block, bits, anyWork);
        ASSERT_TRUE(actual.done);
        ASSERT_EQ(actual.positions, expected);
      }
    }
  }
}

TEST(SortLms, DistributesLongBlocksByTwoBytes) {
  const Bytes block = test::textLike(kernels::bwtTwoByteLength + 1, 2);
  const std::vector<uint32_t> expected = plainSortedLms(block);
  for (const int bits : {24, 32}) ASSERT_EQ(sortLms(block, bits, anyWork).positions, expected);
}

// Groups of every size, tied over prefixes of every length: the same pieces again and again between
// different letters.
TEST(SortLms, TiesOfEverySizeAndDepth) {
  Random random(3);
  for (int round = 0; round < 300; ++round) {
    Bytes piece(1 + below(random, 150));
    for (uint8_t& byte : piece)
      byte = static_cast<uint8_t>(100 + below(random, 1 + below(random, 9)));
    Bytes block;
    const size_t copies = 2 + below(random, 60);
    for (size_t i = 0; i < copies; ++i) {
      block.insert(block.end(), piece.begin(), piece.end());
      block.push_back(static_cast<uint8_t>(below(random, 256)));
    }
    block.push_back(0);
    block.push_back(255);
    block.push_back(254);
    ASSERT_EQ(sortLms(block, 24, anyWork).positions, plainSortedLms(block)) << round;
  }
}

TEST(SortLms, StopsWhenTheBudgetIsSpent) {
  Bytes block = test::repeated(50000, "abracadabra");
  block.back() = 'z';
  EXPECT_FALSE(sortLms(block, 24, 0).done);
  EXPECT_FALSE(sortLms(block, 24, 1000000).done);
  const Bytes text = test::textLike(50000, 4);
  EXPECT_FALSE(sortLms(text, 24, 1000).done);
  EXPECT_TRUE(sortLms(text, 24, 50000 * 30).done);
}

TEST(InduceColumn, FromSortedLmsToTheColumn) {
  for (const size_t size : {2, 3, 5, 64, 300, 5000}) {
    for (const auto& [name, block] : blocksOf(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      if (std::count(block.begin(), block.end(), block[0]) == static_cast<ptrdiff_t>(size))
        continue;
      const std::vector<uint32_t> lms = plainSortedLms(block);
      std::vector<uint32_t> byteCounts(256);
      std::vector<uint32_t> lmsCounts(256);
      for (const uint8_t byte : block) ++byteCounts[byte];
      for (const uint32_t p : lms) ++lmsCounts[block[p]];
      const KernelText text(block, 0);
      for (const int bits : {24, 32}) {
        const GuardedBuffer column(size);
        const GuardedBuffer entries((size + 1) * (bits == 24 ? 4 : 8));
        kernels::BwtInduction job;
        job.text = text.text();
        job.length = static_cast<uint32_t>(size);
        job.positionBits = bits;
        job.byteCounts = byteCounts.data();
        job.lmsCounts = lmsCounts.data();
        job.lms = lms.data();
        job.entries = entries.data();
        job.column = column.data();
        const uint32_t row = kernels::induceColumn(job);
        const test::PlainBwt expected = test::plainForward(block);
        ASSERT_EQ(row, static_cast<uint32_t>(expected.index));
        ASSERT_EQ(Bytes(column.begin(), column.end()), expected.column);
      }
    }
  }
}

Bytes twiceWithMargin(const Bytes& block) {
  Bytes text = block;
  text.insert(text.end(), block.begin(), block.end());
  text.resize(text.size() + kernels::bwtCompareMargin, 0xAA);
  return text;
}

TEST(BwtPairs, CountAndPlacement) {
  const Bytes block = test::binaryLike(5000, 5);
  const GuardedBuffer text(twiceWithMargin(block));
  std::vector<uint32_t> ends(kernels::bwtPairs);
  kernels::countPairs(text.data(), 5000, ends.data());
  std::vector<uint32_t> expected(kernels::bwtPairs);
  for (size_t p = 0; p < block.size(); ++p) ++expected[block[p] << 8 | block[(p + 1) % 5000]];
  std::partial_sum(expected.begin(), expected.end(), expected.begin());
  ASSERT_EQ(ends, expected);

  std::vector<uint32_t> order(5000);
  kernels::placeByPairs(text.data(), 5000, ends.data(), order.data());
  std::vector<uint32_t> sorted(5000);
  std::iota(sorted.begin(), sorted.end(), 0u);
  const auto pair = [&](uint32_t p) { return block[p] << 8 | block[(p + 1) % 5000]; };
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](uint32_t a, uint32_t b) { return pair(a) < pair(b); });
  ASSERT_EQ(order, sorted);
  for (size_t p = 0; p < kernels::bwtPairs; ++p) {
    ASSERT_EQ(ends[p], p == 0 ? 0 : expected[p - 1]);
  }
}

template <class Index>
void expectSortsRotations() {
  for (const size_t size : {2, 3, 11, 12, 13, 100, 2000}) {
    for (const auto& [name, block] : blocksOf(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      const std::vector<uint32_t> expected = test::plainRotationOrder(block);
      const GuardedBuffer text(twiceWithMargin(block));
      std::vector<Index> order(size);
      std::iota(order.begin(), order.end(), Index{0});
      const uint32_t length = static_cast<uint32_t>(size);
      int64_t budget = anyWork;
      kernels::sortRotations(text.data(), length, order.data(), length, 0, &budget);
      ASSERT_GT(budget, 0);
      if (std::count(block.begin(), block.end(), block[0]) != static_cast<ptrdiff_t>(size)) {
        ASSERT_TRUE(std::equal(order.begin(), order.end(), expected.begin()));
      }
      Bytes column(size);
      const uint32_t row = kernels::writeColumn(text.data(), length, order.data(), column.data());
      ASSERT_EQ(column, test::plainForward(block).column);
      ASSERT_EQ(order[row], 0u);
    }
  }
}

TEST(SortRotations, PositionsOf32Bits) {
  expectSortsRotations<uint32_t>();
}

TEST(SortRotations, PositionsOf16Bits) {
  expectSortsRotations<uint16_t>();
}

TEST(SortRotations, EqualRotationsEnd) {
  const Bytes block = test::repeated(600, "abc");
  const Bytes text = twiceWithMargin(block);
  std::vector<uint32_t> order(600);
  std::iota(order.begin(), order.end(), 0u);
  int64_t budget = anyWork;
  kernels::sortRotations(text.data(), 600, order.data(), 600, 0, &budget);
  EXPECT_GT(budget, 0);
  for (size_t row = 0; row < 600; ++row) ASSERT_EQ(order[row] % 3, row / 200);
}

TEST(SortRotations, StopsWhenTheBudgetIsSpent) {
  const Bytes text = twiceWithMargin(Bytes(5000, 'a'));
  std::vector<uint32_t> order(5000);
  std::iota(order.begin(), order.end(), 0u);
  int64_t budget = 10000;
  kernels::sortRotations(text.data(), 5000, order.data(), 5000, 0, &budget);
  EXPECT_LT(budget, 0);
}

// The form for long columns, at lengths on both sides of the cutting into segments.
TEST(InvertLongColumn, GivesThePlainWalk) {
  Random random(6);
  for (const size_t size : {1, 2, 100, 16383, 16384, 16385, 30000}) {
    for (const size_t letters : {1, 2, 40, 256}) {
      Bytes column(size);
      for (uint8_t& byte : column) byte = static_cast<uint8_t>(below(random, letters));
      const size_t index = below(random, size);
      const GuardedBuffer src(column);
      const GuardedBuffer block(size);
      const GuardedBuffer rows(4 * size);
      kernels::invertLongColumn(src.data(), static_cast<uint32_t>(size),
                                static_cast<uint32_t>(index), rows.data(), block.data());
      ASSERT_EQ(Bytes(block.begin(), block.end()), test::plainInverse(column, index));
    }
  }
}

TEST(InvertColumn, MayOverwriteTheColumn) {
  const test::PlainBwt bwt = test::plainForward(test::textLike(20000, 7));
  Bytes bytes = bwt.column;
  Bytes rows(4 * bytes.size());
  kernels::invertColumn(bytes.data(), 20000, static_cast<uint32_t>(bwt.index), rows.data(),
                        bytes.data());
  EXPECT_EQ(bytes, test::textLike(20000, 7));
}

TEST(DecodeBzip2Symbols, AgreesWithThePlainDefinition) {
  Random random(8);
  Bytes list(256);
  std::iota(list.begin(), list.end(), uint8_t{0});
  for (int round = 0; round < 2000; ++round) {
    std::vector<uint16_t> symbols(1 + below(random, 300));
    const size_t kinds[] = {3, 10, 40, 258, 65536};
    const size_t kind = kinds[below(random, 5)];
    for (uint16_t& symbol : symbols) symbol = static_cast<uint16_t>(below(random, kind));
    const size_t capacity = below(random, 3000);
    const auto expected = test::plainDecodeSymbols(symbols, list, capacity);
    GuardedBuffer workingList(list);
    GuardedBuffer dst(capacity);
    const size_t actual = kernels::decodeBzip2Symbols(symbols.data(), symbols.size(),
                                                      workingList.data(), dst.data(), capacity);
    ASSERT_EQ(actual, expected ? expected->size() : kernels::bzip2SymbolsFailed);
    if (expected) {
      ASSERT_TRUE(std::equal(expected->begin(), expected->end(), dst.begin()));
    }
  }
}

}  // namespace
}  // namespace zebdc
