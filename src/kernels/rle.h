// Kernels of plain run-length coding: a run of 2 to 257 equal bytes b is b, b, and the number of
// bytes beyond the second; any other byte stands for itself.
#ifndef ZEBDC_KERNELS_RLE_H
#define ZEBDC_KERNELS_RLE_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct RleProgress {
  size_t consumed;
  size_t written;
};

constexpr size_t rleTripleSize = 3;
constexpr size_t rleLongestRun = 257;

struct RleKernels {
  // Codes literals and runs while a triple would fit, or until the source is used up.
  RleProgress (*encode)(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity);
  // Decodes while at least three source bytes are left and the next literal or run fits.
  RleProgress (*decode)(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity);
};

extern const TierTable<RleKernels> rleKernels;

inline const RleKernels& rle() {
  return rleKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
