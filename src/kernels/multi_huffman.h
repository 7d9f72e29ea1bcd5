// Kernels of multi-table Huffman coding: symbols are coded in groups of 50, each with one of up to
// six tables.
#ifndef ZEBDC_KERNELS_MULTI_HUFFMAN_H
#define ZEBDC_KERNELS_MULTI_HUFFMAN_H

#include <stddef.h>
#include <stdint.h>

#include "frame/compiler.h"
#include "kernels/tier.h"

namespace zebdc::kernels {

constexpr int huffmanGroupSize = 50;
constexpr int huffmanTableLimit = 6;
constexpr int huffmanRowSize = 258;  // symbols of a table
constexpr int huffmanLongestWritten = 17;
constexpr int huffmanLongestRead = 20;

// For each symbol its code length in each table, in 16-bit lanes, so that one addition adds the
// cost of a symbol to the sums of all tables.
struct GroupCosts {
  // In the lanes that have no table. Dearer than any code, and small enough for signed sums.
  static constexpr uint16_t absent = 600;
  static_assert(absent > huffmanLongestWritten && absent * huffmanGroupSize <= INT16_MAX);

  alignas(16) uint16_t lanes[huffmanRowSize][8];
};

// The codes of an encoder. Row t of the tables begins at index t * huffmanRowSize.
struct MultiHuffmanCodes {
  const uint32_t* codes;
  const uint8_t* lengths;
  const uint8_t* selectors;
};

// Bits on their way out, the first one most significant.
struct HuffmanOutput {
  uint64_t bits;
  int count;  // fewer than 8
  uint8_t* next;
};

// What a group may take of the output: its codes, and a store of 8 bytes that is used in part.
constexpr size_t huffmanEncodeMargin = huffmanGroupSize * huffmanLongestWritten / 8 + 1 + 8;

// One look-up of the decoder gives one symbol or two.
//
//   31    30 29   28      25   24          16   15  13   12     9   8           0
//   | 0 | count | length 1 |  | symbol 2   |   |  0   | | length |  | symbol 1   |
//
// length is that of all `count` codes, length 1 that of the first. The symbols stand where two
// 16-bit stores would put them. A count of 0 marks codes that are not here: longer ones, the
// end-of-block symbol, and patterns that are no code.
constexpr int huffmanPairBits = 10;

struct HuffmanPairs {
  uint32_t entries[1 << huffmanPairBits];
};

constexpr uint32_t huffmanPairSymbols = 0x01FF01FF;
constexpr int huffmanPairLengthShift = 9;
constexpr int huffmanPairFirstLengthShift = 25;
constexpr int huffmanPairCountShift = 29;

// Codes by length, for those that the look-up does not hold: the first code of each length from
// huffmanFirstLong on, as the top huffmanLongestRead bits, and then the end of all codes.
constexpr int huffmanFirstLong = 9;
constexpr int huffmanLongLengths = huffmanLongestRead - huffmanFirstLong + 1;

struct HuffmanLongCodes {
  uint32_t limits[huffmanLongLengths + 1];
  uint16_t bases[huffmanLongLengths];  // where the symbols of each length begin
  uint16_t symbols[huffmanRowSize];    // of all codes, by length and then by value
};

struct HuffmanSymbol {
  int symbol;  // -1: no code
  int length;
};

// The symbol of a pattern (the next huffmanLongestRead bits) that is not below the first limit.
ZEBDC_ALWAYS_INLINE HuffmanSymbol findLongCode(const HuffmanLongCodes& codes, uint32_t pattern) {
  if (pattern >= codes.limits[huffmanLongLengths]) return {-1, 0};
  int i = 0;
  while (pattern >= codes.limits[i + 1]) ++i;
  const int length = huffmanFirstLong + i;
  const uint32_t behindFirst = (pattern - codes.limits[i]) >> (huffmanLongestRead - length);
  return {codes.symbols[codes.bases[i] + behindFirst], length};
}

struct MultiHuffmanInput {
  const uint8_t* src;
  const uint8_t* srcEnd;
  uint64_t bits;  // top-aligned; bits behind the count may be anything that follows in the source
  int count;
  uint16_t* dst;
  uint16_t* dstEnd;
  const uint8_t* selectors;
  int group;
  int numSelectors;
  int symbolsInGroup;  // decoded so far
  int endOfBlock;
};

// What the decoder wants to have of source and room before it begins a group. The source pointer
// may run 8 bytes ahead of the codes and 8 bytes are loaded from there. One element of room is
// always left.
constexpr int huffmanDecodeMargin = huffmanGroupSize * huffmanLongestRead / 8 + 1 + 2 * 8;
constexpr int huffmanDecodeRoom = huffmanGroupSize + 1;

struct MultiHuffmanKernels {
  // The cheapest table for each group, the lowest index among equals. The last group may be short.
  void (*chooseTables)(const uint16_t* symbols, size_t count, const GroupCosts& costs,
                       uint8_t* selectors);
  // Codes whole groups.
  void (*encode)(const uint16_t* symbols, size_t groups, const MultiHuffmanCodes& codes,
                 HuffmanOutput& output);
  // Decodes until the margins are reached, or in front of the end-of-block symbol or a pattern that
  // is no code.
  void (*decode)(const HuffmanPairs* pairs, const HuffmanLongCodes* const* longCodes,
                 MultiHuffmanInput& input);
};

extern const TierTable<MultiHuffmanKernels> multiHuffmanKernels;

inline const MultiHuffmanKernels& multiHuffman() {
  return multiHuffmanKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
