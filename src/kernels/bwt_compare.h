// Kernels of the Burrows-Wheeler transform by comparison of rotations: counting of byte pairs,
// placement of the rotations by their pairs, sorting within a bucket, and writing of the column.
// They see the block written twice, so that no rotation wraps. One body serves all tiers.
#ifndef ZEBDC_KERNELS_BWT_COMPARE_H
#define ZEBDC_KERNELS_BWT_COMPARE_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::kernels {

constexpr size_t bwtPairs = 1 << 16;

// Comparisons read so many bytes behind the second copy, whatever they are.
constexpr size_t bwtCompareMargin = 8;

// Counts the pairs of a byte, as the higher half, and the next one, for all positions of the block;
// then makes ends[pair] the sum of the counts up to that pair.
void countPairs(const uint8_t* text, uint32_t length, uint32_t* ends);

// Puts each position into the bucket of its pair. Makes ends[pair] the start of its bucket.
void placeByPairs(const uint8_t* text, uint32_t length, uint32_t* ends, uint32_t* order);

// Sorts positions whose rotations share the first depth bytes. Stops early when the budget, from
// which each comparison takes something, falls below 0. Equal rotations end in any order.
void sortRotations(const uint8_t* text, uint32_t length, uint32_t* order, uint32_t count,
                   uint32_t depth, int64_t* budget);
void sortRotations(const uint8_t* text, uint32_t length, uint16_t* order, uint32_t count,
                   uint32_t depth, int64_t* budget);

// Writes the byte before each position and returns the row of position 0.
uint32_t writeColumn(const uint8_t* text, uint32_t length, const uint32_t* order, uint8_t* column);
uint32_t writeColumn(const uint8_t* text, uint32_t length, const uint16_t* order, uint8_t* column);

}  // namespace zebdc::kernels

#endif
