// Kernels of the Burrows-Wheeler transform by induced sorting.
//
// Terms, for a block whose rotations all differ. Position p stands for the rotation that starts
// there. It is of type S when its rotation is smaller than the next one's, else of type L; an S
// position behind an L position is an LMS position. Between a third and a quarter of the positions
// of most data are LMS. Once their rotations are sorted, two scans induce the order of all others.
#ifndef ZEBDC_KERNELS_BWT_SORT_H
#define ZEBDC_KERNELS_BWT_SORT_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

// The text is read cyclically. markLms reads the byte before the block, that is its last one once
// more, and its first one behind it; sortLms reads it written twice and so many more of its bytes
// behind that.
constexpr size_t bwtTextMargin = 16;

// One bit for each position, and zeros, so that 57 bits can be read from any position on.
constexpr size_t bwtBitWords(size_t length) {
  return (length + 63) / 64 + 1;
}

// Rotations that share their first depth bytes, in the words first to first + count - 1.
struct BwtGroup {
  uint32_t first;
  uint32_t count;
  uint32_t depth;
};

// Below this length LMS rotations are first distributed by one byte, else by two.
constexpr uint32_t bwtTwoByteLength = 1 << 17;

constexpr size_t bwtBucketCount(size_t length) {
  return length < bwtTwoByteLength ? 1 << 8 : 1 << 16;
}

// Vector loads and stores reach at most so many words beyond those that are meant.
constexpr size_t bwtWordSlack = 8;

struct BwtLmsSort {
  const uint8_t* text;
  uint32_t length;
  uint32_t lmsCount;
  int positionBits;         // a position fits; a multiple of 8
  int64_t budget;           // work allowed; the unit is one word moved by a partition
  const uint64_t* lmsBits;  // as markLms leaves them
  uint64_t* words;          // lmsCount and slack; out: sorted, the position in the low positionBits
  uint64_t* spare;          // lmsCount and slack
  BwtGroup* groups;         // lmsCount / 2
  uint32_t* ranks;          // (length + 1) / 2, all 0
  uint32_t* bucketEnds;     // bwtBucketCount; out: where each bucket of words ends
};

struct BwtSortKernels {
  // Sets the bits of the LMS positions and returns their number. The length is 2 or more.
  uint32_t (*markLms)(const uint8_t* text, uint32_t length, uint64_t* lmsBits);
  // Sorts the LMS rotations. False when the budget was spent first: words are then in no order.
  bool (*sortLms)(const BwtLmsSort& job);
};

extern const TierTable<BwtSortKernels> bwtSortKernels;

inline const BwtSortKernels& bwtSort() {
  return bwtSortKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
