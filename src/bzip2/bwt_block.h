// What all forward transforms share.
#ifndef ZEBDC_BZIP2_BWT_BLOCK_H
#define ZEBDC_BZIP2_BWT_BLOCK_H

#include <stdint.h>

#include "bzip2/scratch.h"

namespace zebdc::bzip2 {

constexpr uint32_t byteValues = 256;

// The root of a block is the shortest string that, repeated, makes the block. All rotations of a
// root differ; the block has as many equal ones of each as it has copies of the root.
struct Root {
  uint32_t length;
  uint32_t copies;
  uint32_t byteCounts[byteValues];
};

Root findRoot(const uint8_t* src, uint32_t length);

// From the column of the root at the front of dst to that of the block: equal rotations lie in
// neighbouring rows and end in equal bytes. Takes and returns the index.
uint32_t repeatColumn(const Root& root, uint32_t index, uint8_t* dst);

// The block written twice, and a margin behind it that is left as it is.
uint8_t* copyTwice(const uint8_t* src, uint32_t length, size_t margin, Scratch& scratch);

// A transform writes the last column to dst and gives the index: the row of the rotation that
// starts at the first byte, and of equal ones the first.

// Fast on all data: sorts LMS rotations by their bytes, and by induction where that takes too long.
// Needs the scratch of the general entry point.
uint32_t transformFast(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch);

// By induction from the start: linear time in any case. 18 * length + 80 bytes of scratch.
uint32_t transformByInduction(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch);

// By comparison of rotations, 6 * length + 524484 bytes of scratch. The budgeted form returns false
// when it has given up; the other one can take quadratic time.
bool transformByComparison(const uint8_t* src, uint32_t length, uint8_t* dst, uint32_t* index,
                           Scratch scratch);
uint32_t transformByComparisonUnbounded(const uint8_t* src, uint32_t length, uint8_t* dst,
                                        Scratch scratch);

// Of at most smallBlockLimit bytes, in 4 * length + 2080 bytes of scratch.
constexpr uint32_t smallBlockLimit = 32768;
uint32_t transformSmall(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch);

}  // namespace zebdc::bzip2

#endif
