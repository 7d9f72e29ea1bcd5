// Move-to-front kernels: a table of 256 bytes is carried from call to call.
//
// The forward transform keeps positions by value, the inverse values by position. Lengths are at
// least 1. Source and destination may be the same buffer, but must not overlap otherwise. A table
// that is no permutation gives unspecified bytes, within the buffers.
#ifndef ZEBDC_KERNELS_MOVE_TO_FRONT_H
#define ZEBDC_KERNELS_MOVE_TO_FRONT_H

#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct MoveToFrontKernels {
  void (*forward)(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions);
  void (*inverse)(const uint8_t* src, uint8_t* dst, int len, uint8_t* list);
};

extern const TierTable<MoveToFrontKernels> moveToFrontKernels;

inline const MoveToFrontKernels& moveToFront() {
  return moveToFrontKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
