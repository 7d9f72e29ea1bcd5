// The decoding tables against a decoder that compares codes one by one.

#include "inflate/huffman_table.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "inflate/symbol.h"
#include "support/data.h"

namespace zebdc::inflate {
namespace {

using kernels::entryException;
using Lengths = std::vector<uint16_t>;

constexpr uint32_t guard = 0xABCDABCD;
constexpr uint32_t patterns = 1u << deflate::maxCodeLength;

struct Shape {
  int (*build)(const uint16_t* lengths, int symbolCount, uint32_t* table);
  const SymbolEntries& entries;
  int rootBits;
  int room;
};
const Shape litLenShape = {buildLitLenTable, litLenEntries, kernels::litLenRootBits,
                           litLenTableRoom};
const Shape distanceShape = {buildDistanceTable, distanceEntries, kernels::distanceRootBits,
                             distanceTableRoom};

std::vector<uint32_t> build(const Shape& shape, const Lengths& lengths) {
  std::vector<uint32_t> table(static_cast<size_t>(shape.room) + 16, guard);
  const int used = shape.build(lengths.data(), static_cast<int>(lengths.size()), table.data());
  EXPECT_LE(used, shape.room);
  for (size_t i = static_cast<size_t>(used); i < table.size(); ++i) EXPECT_EQ(table[i], guard);
  return table;
}

// For every pattern of 15 bits (the next one of the input lowest) the symbol whose code it begins
// with, or -1. Codes are handed out by length, then by symbol, as long as there are any left.
std::vector<int> plainDecoding(const Lengths& lengths) {
  std::vector<int> symbols(patterns, -1);
  uint32_t position = 0;  // in the space of codes, of which each takes a share by its length
  for (uint32_t length = 1; length <= 15; ++length) {
    for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
      if (lengths[symbol] != length || position >= patterns) continue;
      const uint32_t share = patterns >> length;
      for (uint32_t i = 0; i < share; ++i) {
        symbols[deflate::reversedBits(position + i, 15)] = static_cast<int>(symbol);
      }
      position += share;
    }
  }
  return symbols;
}

// The entry that a pattern is to find, joined with what follows where both fit the root.
uint32_t plainEntry(const Shape& shape, const Lengths& lengths, const std::vector<int>& decoding,
                    uint32_t pattern, int tableBits, int rootBitsBefore) {
  const int symbol = decoding[pattern];
  if (symbol < 0) return invalidSymbol | codeBitsEntry(tableBits);
  const int length = lengths[static_cast<size_t>(symbol)];
  const uint32_t single =
      shape.entries[static_cast<size_t>(symbol)] + codeBitsEntry(length - rootBitsBefore);
  const bool literal =
      (single & (kernels::entryLiterals | entryException)) == kernels::entryLiterals;
  if (!literal || rootBitsBefore > 0 || &shape != &litLenShape) return single;
  const int next = decoding[pattern >> length];
  const int left = shape.rootBits - length;
  if (next < 0 || lengths[static_cast<size_t>(next)] > left) return single;
  const uint32_t second = shape.entries[static_cast<size_t>(next)];
  if (second & entryException) return single;
  constexpr uint32_t first = 0xFFu << kernels::entryValueShift;
  return ((second & ~first) | static_cast<uint32_t>(symbol) << kernels::entryValueShift) +
         codeBitsEntry(length + lengths[static_cast<size_t>(next)]) +
         (1u << kernels::entryCountShift);
}

void expectTableDecodes(const Shape& shape, const Lengths& lengths) {
  const std::vector<uint32_t> table = build(shape, lengths);
  const std::vector<int> decoding = plainDecoding(lengths);
  for (uint32_t pattern = 0; pattern < patterns; ++pattern) {
    const FoundEntry found = findEntry(table.data(), shape.rootBits, pattern);
    const int tableBits = found.rootBits > 0 ? static_cast<int>(kernels::entryCodeBits(
                                                   table[pattern & ((1u << shape.rootBits) - 1)]))
                                             : shape.rootBits;
    ASSERT_EQ(found.entry, plainEntry(shape, lengths, decoding, pattern, tableBits, found.rootBits))
        << pattern;
  }
}

// Lengths of a complete code: shares of the code space are split until there are enough.
Lengths completeLengths(test::Random& random, size_t symbols, size_t coded) {
  Lengths shares = {0};
  while (shares.size() < coded) {
    const size_t split =
        test::below(random, 3) == 0 ? shares.size() - 1 : test::below(random, shares.size());
    if (shares[split] == 15) {
      if (std::accumulate(shares.begin(), shares.end(), size_t{0}) == 15 * shares.size()) break;
      continue;
    }
    ++shares[split];
    shares.push_back(shares[split]);
  }
  shares.resize(symbols, 0);
  for (size_t i = symbols; i > 1; --i) std::swap(shares[i - 1], shares[test::below(random, i)]);
  return shares;
}

TEST(HuffmanTable, CompleteCodes) {
  test::Random random(1);
  for (int round = 0; round < 60; ++round) {
    expectTableDecodes(litLenShape, completeLengths(random, 257 + test::below(random, 32),
                                                    2 + test::below(random, 256)));
    expectTableDecodes(distanceShape, completeLengths(random, 32, 2 + test::below(random, 31)));
  }
}

TEST(HuffmanTable, IncompleteCodes) {
  test::Random random(2);
  for (int round = 0; round < 60; ++round) {
    for (const Shape* shape : {&litLenShape, &distanceShape}) {
      Lengths lengths = completeLengths(random, shape == &litLenShape ? 288 : 32, 30);
      for (uint16_t& length : lengths) {
        if (test::below(random, 4) == 0) length = 0;
        if (length > 0 && length < 15 && test::below(random, 4) == 0) ++length;
      }
      expectTableDecodes(*shape, lengths);
    }
  }
}

TEST(HuffmanTable, AnyLengths) {
  test::Random random(3);
  for (int round = 0; round < 60; ++round) {
    const uint16_t lowest = static_cast<uint16_t>(test::below(random, 15));
    for (const Shape* shape : {&litLenShape, &distanceShape}) {
      Lengths lengths(shape == &litLenShape ? 288 : 32);
      for (uint16_t& length : lengths) {
        length = static_cast<uint16_t>(lowest + test::below(random, 16u - lowest));
      }
      expectTableDecodes(*shape, lengths);
    }
  }
}

TEST(HuffmanTable, OneLengthForAll) {
  for (uint16_t length = 0; length <= 15; ++length) {
    for (const size_t symbols : {1u, 2u, 3u, 32u}) {
      expectTableDecodes(litLenShape, Lengths(symbols, length));
      expectTableDecodes(distanceShape, Lengths(symbols, length));
    }
    expectTableDecodes(litLenShape, Lengths(288, length));
  }
}

// The most subtables there can be: lengths that grow by one within each.
TEST(HuffmanTable, LongestTables) {
  for (const Shape* shape : {&litLenShape, &distanceShape}) {
    const size_t symbols = shape == &litLenShape ? 288 : 32;
    const auto root = static_cast<uint16_t>(shape->rootBits);
    for (size_t shortCodes = 0; shortCodes < 12; ++shortCodes) {
      Lengths lengths;
      for (size_t i = 0; i < shortCodes; ++i) lengths.push_back(static_cast<uint16_t>(i + 1));
      for (uint16_t length = root + 1; length <= 15; ++length) lengths.push_back(length);
      lengths.resize(symbols, 15);
      expectTableDecodes(*shape, lengths);
    }
  }
}

}  // namespace
}  // namespace zebdc::inflate
