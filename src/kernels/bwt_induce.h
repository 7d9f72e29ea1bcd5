// Kernel of the Burrows-Wheeler transform: from the sorted LMS rotations of a block (see
// bwt_sort.h) to its last column.
#ifndef ZEBDC_KERNELS_BWT_INDUCE_H
#define ZEBDC_KERNELS_BWT_INDUCE_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::kernels {

struct BwtInduction {
  const uint8_t* text;  // the block, with its last byte also in front of it
  uint32_t length;
  int positionBits;            // 24 or 32; every position fits
  const uint32_t* byteCounts;  // of the block
  const uint32_t* lmsCounts;   // of LMS positions, by their byte
  const uint32_t* lms;         // LMS positions in the order of their rotations
  void* entries;               // scratch: length + 1 words of 4 bytes, or of 8 for 32-bit positions
  uint8_t* column;             // out: length bytes
};

// Returns the row of the rotation that starts at position 0. One body serves all tiers.
uint32_t induceColumn(const BwtInduction& job);

}  // namespace zebdc::kernels

#endif
