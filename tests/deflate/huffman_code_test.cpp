// Length-limited codes: optimal where the limit does not bind, complete everywhere.

#include "deflate/huffman_code.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "deflate/plain_deflate.h"

namespace zebdc::deflate {
namespace {

using test::below;
using test::CodeLengths;
using test::Frequencies;
using test::Random;

constexpr uint64_t completeCode = uint64_t{1} << 32;

CodeLengths lengthsFor(const Frequencies& frequencies, int limit) {
  std::vector<uint8_t> lengths(frequencies.size(), 0xEE);
  findCodeLengths(frequencies.data(), static_cast<int>(frequencies.size()), limit, lengths.data());
  return CodeLengths(lengths.begin(), lengths.end());
}

int longest(const CodeLengths& lengths) {
  return *std::max_element(lengths.begin(), lengths.end());
}

Frequencies randomFrequencies(Random& random, size_t symbols) {
  Frequencies frequencies(symbols);
  const size_t spread = 1 + below(random, 24);
  for (uint32_t& frequency : frequencies) {
    if (below(random, 4) != 0) {
      frequency = static_cast<uint32_t>(below(random, size_t{1} << below(random, spread)));
    }
  }
  return frequencies;
}

Frequencies fibonacci(size_t symbols) {
  Frequencies frequencies = {1, 1};
  while (frequencies.size() < symbols) {
    frequencies.push_back(frequencies.back() + frequencies[frequencies.size() - 2]);
  }
  return frequencies;
}

void expectValid(const Frequencies& frequencies, const CodeLengths& lengths, int limit) {
  EXPECT_LE(longest(lengths), limit);
  EXPECT_EQ(test::kraftSum(lengths), completeCode);
  for (size_t a = 0; a < frequencies.size(); ++a) {
    if (frequencies[a] != 0) {
      EXPECT_GT(lengths[a], 0);
    }
  }
  // A more frequent symbol never has the longer code.
  std::vector<std::pair<uint32_t, int>> byFrequency;
  for (size_t i = 0; i < frequencies.size(); ++i) {
    if (frequencies[i] != 0) byFrequency.push_back({frequencies[i], -lengths[i]});
  }
  std::sort(byFrequency.begin(), byFrequency.end());
  for (size_t i = 1; i < byFrequency.size(); ++i) {
    EXPECT_LE(byFrequency[i - 1].second, byFrequency[i].second);
  }
}

TEST(HuffmanCode, CostsWhatAnyHuffmanCodeCostsWhereTheLimitDoesNotBind) {
  Random random(1);
  int unlimited = 0;
  for (int round = 0; round < 2000; ++round) {
    const size_t symbols = 2 + below(random, 285);
    const Frequencies frequencies = randomFrequencies(random, symbols);
    const CodeLengths free = lengthsFor(frequencies, 15);
    expectValid(frequencies, free, 15);
    const size_t used = static_cast<size_t>(std::count_if(
        frequencies.begin(), frequencies.end(), [](uint32_t frequency) { return frequency != 0; }));
    if (used < 2 || longest(free) == 15) continue;
    ++unlimited;
    ASSERT_EQ(test::codeBits(frequencies, free), test::huffmanCost(frequencies));
  }
  EXPECT_GT(unlimited, 1000);
}

TEST(HuffmanCode, KeepsTheLimitOnFibonacciFrequencies) {
  for (size_t symbols = 2; symbols <= 44; ++symbols) {
    const Frequencies frequencies = fibonacci(symbols);
    const CodeLengths lengths = lengthsFor(frequencies, 15);
    expectValid(frequencies, lengths, 15);
    EXPECT_EQ(longest(lengths), static_cast<int>(std::min<size_t>(symbols - 1, 15)));
  }
  for (size_t symbols = 2; symbols <= 19; ++symbols) {
    const Frequencies frequencies = fibonacci(symbols);
    const CodeLengths lengths = lengthsFor(frequencies, 7);
    expectValid(frequencies, lengths, 7);
    EXPECT_EQ(longest(lengths), static_cast<int>(std::min<size_t>(symbols - 1, 7)));
  }
}

// Two codes too deep, by the rule: counts 1 1 1 1 1 1 1 2 of depths 1 to 8 under the limit 7. The
// pair at 8 gives one code of 7, and the code of 6 becomes two of 7.
TEST(HuffmanCode, TakesTheDeepestDonorBelowTheLimit) {
  const CodeLengths lengths = lengthsFor(fibonacci(9), 7);
  CodeLengths sorted = lengths;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted, (CodeLengths{1, 2, 3, 4, 5, 7, 7, 7, 7}));
  EXPECT_EQ(lengths[8], 1);
}

TEST(HuffmanCode, StaysNearTheBestCodeWhereTheLimitBinds) {
  Random random(2);
  for (int round = 0; round < 200; ++round) {
    Frequencies frequencies = fibonacci(17 + below(random, 20));
    for (size_t i = 0; i < below(random, 250); ++i) {
      frequencies.push_back(static_cast<uint32_t>(1 + below(random, 1000)));
    }
    const CodeLengths lengths = lengthsFor(frequencies, 15);
    expectValid(frequencies, lengths, 15);
    const double cost = static_cast<double>(test::codeBits(frequencies, lengths));
    const double best =
        static_cast<double>(test::codeBits(frequencies, test::packageMerge(frequencies, 15)));
    EXPECT_LE(cost, best * 1.005);
  }
}

TEST(HuffmanCode, MakesTwoCodesForFewerThanTwoSymbols) {
  EXPECT_EQ(lengthsFor({0, 0, 0}, 15), (CodeLengths{1, 1, 0}));
  EXPECT_EQ(lengthsFor({9, 0, 0}, 15), (CodeLengths{1, 1, 0}));
  EXPECT_EQ(lengthsFor({0, 0, 9}, 15), (CodeLengths{1, 0, 1}));
  EXPECT_EQ(lengthsFor({0, 7}, 7), (CodeLengths{1, 1}));
}

TEST(HuffmanCode, TakesFrequenciesThatSumToAlmostTheWholeWord) {
  const Frequencies frequencies = {0x7FFFFFFF, 0x7FFFFFFF, 1};
  CodeLengths lengths = lengthsFor(frequencies, 15);
  EXPECT_EQ(lengths[2], 2);
  std::sort(lengths.begin(), lengths.end());
  EXPECT_EQ(lengths, (CodeLengths{1, 2, 2}));
}

// The example of RFC 1951, 3.2.2: lengths (3, 3, 3, 3, 3, 2, 4, 4) give the codes 010, 011, 100,
// 101, 110, 00, 1110, 1111.
TEST(HuffmanCode, AssignsTheCanonicalCodeInReverse) {
  const uint8_t lengths[8] = {3, 3, 3, 3, 3, 2, 4, 4};
  OutputBits codes[8];
  assignCodes(lengths, 8, codes);
  const uint32_t expected[8] = {0b010, 0b110, 0b001, 0b101, 0b011, 0b00, 0b0111, 0b1111};
  for (int symbol = 0; symbol < 8; ++symbol) {
    EXPECT_EQ(codes[symbol].bits, expected[symbol]);
    EXPECT_EQ(codes[symbol].count, lengths[symbol]);
  }
}

TEST(HuffmanCode, GivesAbsentSymbolsNoCode) {
  const uint8_t lengths[4] = {0, 1, 0, 1};
  OutputBits codes[4];
  assignCodes(lengths, 4, codes);
  EXPECT_EQ(codes[0].count, 0u);
  EXPECT_EQ(codes[0].bits, 0u);
  EXPECT_EQ(codes[3].bits, 1u);
}

}  // namespace
}  // namespace zebdc::deflate
