// How the tables of a block are built: against a plain rendering of the four passes.

#include <gtest/gtest.h>

#include <functional>
#include <queue>

#include "bzip2/code_lengths.h"
#include "bzip2/huffman_support.h"
#include "kernels/multi_huffman.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::Context;
using test::Encoder;
using test::Random;
using test::Symbols;

using Counts = std::vector<uint32_t>;

uint64_t cost(const Counts& counts, const Bytes& lengths) {
  uint64_t sum = 0;
  for (size_t s = 0; s < counts.size(); ++s) {
    sum += uint64_t{std::max(counts[s], 1u)} * lengths[s];
  }
  return sum;
}

// The cost of Huffman's code, and its longest code at least.
uint64_t huffmanCost(const Counts& counts) {
  std::priority_queue<uint64_t, std::vector<uint64_t>, std::greater<>> queue;
  for (const uint32_t count : counts) queue.push(std::max(count, 1u));
  uint64_t sum = 0;
  while (queue.size() > 1) {
    uint64_t node = queue.top();
    queue.pop();
    node += queue.top();
    queue.pop();
    sum += node;
    queue.push(node);
  }
  return sum;
}

Bytes lengthsOf(const Counts& counts) {
  Bytes lengths(counts.size());
  bzip2::buildCodeLengths(counts.data(), test::intOf(counts.size()), lengths.data());
  return lengths;
}

uint64_t kraftSum(const Bytes& lengths) {
  uint64_t sum = 0;
  for (const uint8_t length : lengths) sum += uint64_t{1} << (17 - length);
  return sum;
}

TEST(Bzip2CodeLengths, AreOptimalWhereTheLimitAllows) {
  Random random(1);
  for (int round = 0; round < 500; ++round) {
    Counts counts(2 + below(random, 257));
    for (uint32_t& count : counts) {
      count = static_cast<uint32_t>(below(random, 1 + below(random, 900)));
    }
    const Bytes lengths = lengthsOf(counts);
    EXPECT_EQ(kraftSum(lengths), 1u << 17);
    EXPECT_EQ(cost(counts, lengths), huffmanCost(counts));
  }
}

// Counts like Fibonacci numbers ask for one more bit with each symbol.
TEST(Bzip2CodeLengths, AreLimitedTo17Bits) {
  for (size_t size = 2; size <= 30; ++size) {
    Counts counts = {1, 1};
    while (counts.size() < size) counts.push_back(counts.back() + counts[counts.size() - 2]);
    for (const size_t extra : {0, 20, 228}) {
      Counts all = counts;
      all.resize(size + extra);
      const Bytes lengths = lengthsOf(all);
      EXPECT_EQ(kraftSum(lengths), 1u << 17);
      for (const uint8_t length : lengths) EXPECT_LE(length, 17);
      // Rarer symbols never have shorter codes.
      for (size_t s = 2; s < size; ++s) EXPECT_GE(lengths[s - 1], lengths[s]);
    }
  }
}

// Lengths 1, 2, ... 17, 18, 19, 19: the pair of 19 leaves one code of 18, and splits a 16; then the
// pair of 18 leaves one of 17, and splits the 15.
TEST(Bzip2CodeLengths, FollowTheBitCountAdjustment) {
  Counts counts;
  for (int i = 0; i < 20; ++i) counts.push_back(i == 0 ? 1 : 1u << (i - 1));
  Bytes expected = {17, 17, 17, 17, 16, 16, 14};
  for (int length = 13; length > 0; --length) expected.push_back(static_cast<uint8_t>(length));
  const Bytes lengths = lengthsOf(counts);
  EXPECT_EQ(kraftSum(lengths), 1u << 17);
  EXPECT_EQ(lengths, expected);
}

TEST(Bzip2TableChoice, MatchesThePlainRule) {
  Random random(2);
  for (int round = 0; round < 200; ++round) {
    kernels::GroupCosts costs;
    const size_t tables = 2 + below(random, 5);
    const int greatest = round % 3 == 0 ? 3 : 17;  // few lengths make many ties
    for (auto& lanes : costs.lanes) {
      for (size_t t = 0; t < 8; ++t) {
        lanes[t] = t < tables ? static_cast<uint16_t>(below(random, size_t(greatest) + 1))
                              : kernels::GroupCosts::absent;
      }
    }
    Symbols symbols(1 + below(random, 1000));
    for (uint16_t& symbol : symbols) symbol = static_cast<uint16_t>(below(random, 258));
    Bytes expected;
    for (size_t begin = 0; begin < symbols.size(); begin += 50) {
      std::vector<int> sums(tables);
      for (size_t i = begin; i < std::min(begin + 50, symbols.size()); ++i) {
        for (size_t t = 0; t < tables; ++t) sums[t] += costs.lanes[symbols[i]][t];
      }
      expected.push_back(
          static_cast<uint8_t>(std::min_element(sums.begin(), sums.end()) - sums.begin()));
    }
    const test::GuardedBuffer src(symbols.size() * 2);
    std::copy(symbols.begin(), symbols.end(), src.as<uint16_t>());
    const test::GuardedBuffer selectors(expected.size());
    kernels::multiHuffman().chooseTables(src.as<uint16_t>(), symbols.size(), costs,
                                         selectors.data());
    ASSERT_EQ(Bytes(selectors.begin(), selectors.end()), expected);
  }
}

std::vector<Bytes> plainInitialLengths(const Counts& frequencies, size_t tables) {
  std::vector<Bytes> lengths(tables, Bytes(frequencies.size(), 15));
  uint64_t remaining = 0;
  for (const uint32_t frequency : frequencies) remaining += frequency;
  size_t begin = 0;
  for (size_t range = 1; range <= tables; ++range) {
    const size_t table = tables - range;
    size_t end = begin;
    uint64_t sum = 0;
    if (table == 0) {
      end = frequencies.size();
    } else {
      const uint64_t target = remaining / (table + 1);
      while (sum < target && end < frequencies.size()) sum += frequencies[end++];
      if (range % 2 == 0 && end > begin + 1) sum -= frequencies[--end];
    }
    for (size_t s = begin; s < end; ++s) lengths[table][s] = 0;
    remaining -= sum;
    begin = end;
  }
  return lengths;
}

Context plainTables(const Symbols& symbols, int alphaSize, const Counts& frequencies) {
  const size_t count = symbols.size();
  const size_t tables = count < 200 ? 2 : count < 600 ? 3 : count < 1200 ? 4 : count < 2400 ? 5 : 6;
  Context context;
  context.alphaSize = alphaSize;
  context.lengths = plainInitialLengths(frequencies, tables);
  for (int pass = 0; pass < 4; ++pass) {
    context.selectors.clear();
    std::vector<Counts> counts(tables, Counts(static_cast<size_t>(alphaSize)));
    for (size_t begin = 0; begin < count; begin += 50) {
      const size_t end = std::min(begin + 50, count);
      size_t best = 0;
      unsigned least = ~0u;
      for (size_t t = 0; t < tables; ++t) {
        unsigned sum = 0;
        for (size_t i = begin; i < end; ++i) sum += context.lengths[t][symbols[i]];
        if (sum < least) {
          least = sum;
          best = t;
        }
      }
      context.selectors.push_back(static_cast<uint8_t>(best));
      for (size_t i = begin; i < end; ++i) ++counts[best][symbols[i]];
    }
    for (size_t t = 0; t < tables; ++t) context.lengths[t] = lengthsOf(counts[t]);
  }
  return context;
}

TEST(Bzip2Tables, MatchThePlainFourPasses) {
  Random random(3);
  for (int round = 0; round < 150; ++round) {
    const int alphaSize = round < 5 ? round + 1 : 2 + static_cast<int>(below(random, 257));
    const Symbols symbols = test::blockOf(1 + below(random, 6000), alphaSize, random());
    const Counts frequencies = test::frequenciesOf(symbols, alphaSize);
    ASSERT_EQ(test::contextOf(Encoder(symbols, alphaSize), alphaSize),
              plainTables(symbols, alphaSize, frequencies));
  }
}

// The frequencies need not be the block's: they only say where the four passes begin.
TEST(Bzip2Tables, TakeAnyFrequencies) {
  Random random(4);
  for (int round = 0; round < 60; ++round) {
    const int alphaSize = 2 + static_cast<int>(below(random, 257));
    const Symbols symbols = test::blockOf(1 + below(random, 4000), alphaSize, random());
    Counts frequencies(static_cast<size_t>(alphaSize));
    if (round % 3 != 0) {
      for (uint32_t& frequency : frequencies) {
        frequency =
            static_cast<uint32_t>(random() >> 32 >> (round % 3 == 1 ? below(random, 33) : 0));
      }
    }
    ASSERT_EQ(test::contextOf(Encoder(symbols, alphaSize, frequencies), alphaSize),
              plainTables(symbols, alphaSize, frequencies));
  }
}

}  // namespace
}  // namespace zebdc
