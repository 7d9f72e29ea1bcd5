// Kernels of the deflate block writers: the frequencies of LZ77 pairs, and their code words.
//
// The loops treat literals and matches alike. In real data the two alternate in no order that a
// branch predictor could learn, and a misprediction costs more than the work on an absent distance:
// on seven files branching on the kind was up to 2.7 times slower in counting and 1.8 times in
// coding, and faster only in counting one that hardly alternates (0.99 ns a pair against 1.11).
//
// A pair is looked up twice:
//
//   item            0 to 255 a literal byte; 256 + (length & 255) a match, which keeps the lengths
//   3
//                   to 258 apart
//   distance class  0 for a literal; otherwise from the position of the highest bit of offset - 1
//                   and the bit below it, which decide the distance symbol
//
// Whatever stands in a pair, both indexes stay inside their tables.
#ifndef ZEBDC_KERNELS_PAIR_CODING_H
#define ZEBDC_KERNELS_PAIR_CODING_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/tier.h"

namespace zebdc::kernels {

inline constexpr int pairItems = 512;
inline constexpr int distanceClasses = 36;

constexpr uint32_t literalItem(uint32_t byte) {
  return byte & 255;
}

constexpr uint32_t matchItem(uint32_t length) {
  return 256 + (length & 255);
}

// 2 * the position of the highest bit of 2 * offset - 1, plus the bit below it, plus 1. The
// doubling keeps the word from being 0 and tells the offsets 1 and 2 apart. As a float the word
// holds the same number in its exponent and highest fraction bit, which is how vectors find it. For
// offset 0 the word is all ones, and the class comes round to 0.
constexpr uint32_t distanceClass(uint32_t offset) {
  const uint32_t word = 2 * offset - 1;
  const uint32_t zeros = static_cast<uint32_t>(std::countl_zero(word));
  const uint32_t highestTwoBits = (word << zeros) >> 30;
  return (2 * (31 - zeros) + highestTwoBits - 2 + 1) & 63;
}

static_assert(distanceClass(0) == 0 && distanceClass(1) == 1 && distanceClass(2) == 4);
static_assert(distanceClass(32768) == 32 && distanceClass(65535) < distanceClasses);

// The code words, joined with their extra bits where the index decides these.
//
//   items      bits 8-31  code and extra bits, the first bit lowest
//              bits 0-7   their number, at most 20
//   distances  bits 32-63 addend
//              bits 8-15  number of code and extra bits, at most 28
//              bits 0-7   number of code bits alone
//
// The addend is the code less the shifted first distance of the symbol, so that
// addend + (offset << code bits), in 32 bits, is the code with the extra bits on top. A literal's
// entry is 0 and leaves its offset of 0.
struct PairCodes {
  const uint32_t* items;      // pairItems
  const uint64_t* distances;  // distanceClasses
};

constexpr uint32_t packItem(uint32_t bits, uint32_t count) {
  return bits << 8 | count;
}

constexpr uint64_t packDistance(uint32_t code, uint32_t codeBits, uint32_t firstDistance,
                                uint32_t extraBits) {
  const uint32_t addend = code - (firstDistance << codeBits);
  return static_cast<uint64_t>(addend) << 32 | (codeBits + extraBits) << 8 | codeBits;
}

struct CodeWord {
  uint64_t bits;
  uint32_t count;
};

inline constexpr uint32_t longestPairWord = 48;  // 15 + 5 for the length, 15 + 13 for the distance

ZEBDC_ALWAYS_INLINE CodeWord joinedCodeWord(uint32_t item, uint64_t distance, uint32_t offset) {
  const uint32_t distanceBits = static_cast<uint32_t>(distance >> 32) +
                                static_cast<uint32_t>(uint64_t{offset} << (distance & 63));
  return {item >> 8 | static_cast<uint64_t>(distanceBits) << (item & 63),
          (item & 255) + (static_cast<uint32_t>(distance >> 8) & 255)};
}

ZEBDC_ALWAYS_INLINE CodeWord pairCodeWord(const PairCodes& codes, const ZebLZ77Pair& pair) {
  const uint32_t offset = pair.offset;
  const uint32_t* const items = offset != 0 ? codes.items + 256 : codes.items;
  return joinedCodeWord(items[pair.length & 255], codes.distances[distanceClass(offset)], offset);
}

// Where bits go: least significant first.
struct BitSink {
  uint64_t bits;  // not yet written; zero from bit `count` on
  uint32_t count;
  uint8_t* dst;
  size_t room;
};

// The fast loop takes two pairs at a time and stores eight bytes wherever it stands. With at most 7
// bits in hand two words come to 7 + 2 * 48 bits, so the last store of a turn begins at most 6
// bytes in.
inline constexpr size_t pairCodingMargin = 16;
static_assert((7 + longestPairWord) / 8 + 8 <= pairCodingMargin);

struct PairCodingKernels {
  // Adds the frequencies of the pairs to items[pairItems] and distances[distanceClasses].
  void (*count)(const ZebLZ77Pair* pairs, size_t pairsLen, uint32_t* items, uint32_t* distances);

  // Codes pairs from the front while pairCodingMargin bytes of room remain and returns how many.
  // Fewer than 8 bits are in the sink before and after.
  size_t (*code)(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen, BitSink& sink);
};

extern const TierTable<PairCodingKernels> pairCodingKernels;

inline const PairCodingKernels& pairCoding() {
  return pairCodingKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
