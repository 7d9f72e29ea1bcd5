// Sorting the LMS rotations of a block in time linear in its length, whatever it holds.
#ifndef ZEBDC_BZIP2_LMS_SORT_H
#define ZEBDC_BZIP2_LMS_SORT_H

#include <stdint.h>

#include "bzip2/scratch.h"

namespace zebdc::bzip2 {

// A block of 2 bytes or more whose rotations all differ, as markLms of kernels/bwt_sort.h sees it.
struct MarkedBlock {
  const uint8_t* text;
  uint32_t length;
  const uint64_t* lmsBits;
  uint32_t lmsCount;
};

// Writes the LMS positions in the order of their rotations to the front of order, which has room
// for as many positions as the block has. Takes at most 8.1 bytes of scratch for each position, and
// some dozens.
void sortLmsByInduction(const MarkedBlock& block, uint32_t* order, Scratch scratch);

}  // namespace zebdc::bzip2

#endif
