// The bulk of zero-run coding: stretches of the source for which there is plenty of room.
#ifndef ZEBDC_KERNELS_ZERO_RUNS_H
#define ZEBDC_KERNELS_ZERO_RUNS_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct ZeroRunProgress {
  size_t consumed;
  size_t written;
};

// Both stop between a byte other than zero (its symbol) and what follows, when fewer than
// zeroRunBlock elements of source or the room of a block are left, or earlier. Room behind what is
// written may be overwritten.
struct ZeroRunKernels {
  // Bytes to symbols. Adds the symbols written to the counters.
  ZeroRunProgress (*encode)(const uint8_t* src, size_t srcLen, uint16_t* dst, size_t capacity,
                            uint32_t* frequencies);
  // Symbols to bytes.
  ZeroRunProgress (*decode)(const uint16_t* src, size_t srcLen, uint8_t* dst, size_t capacity);
};

constexpr size_t zeroRunBlock = 64;

extern const TierTable<ZeroRunKernels> zeroRunKernels;

inline const ZeroRunKernels& zeroRuns() {
  return zeroRunKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
