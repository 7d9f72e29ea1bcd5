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

using MoveToFront = void (*)(const uint8_t* src, uint8_t* dst, int len, uint8_t* table);

extern const TierTable<MoveToFront> moveToFrontForwardKernels;
extern const TierTable<MoveToFront> moveToFrontInverseKernels;

inline MoveToFront moveToFrontForward() {
  return moveToFrontForwardKernels[activeTier];
}

inline MoveToFront moveToFrontInverse() {
  return moveToFrontInverseKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
