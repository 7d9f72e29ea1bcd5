// The inner loop of the expansion of pairs to bytes.
#ifndef ZEBDC_KERNELS_PAIR_EXPANSION_H
#define ZEBDC_KERNELS_PAIR_EXPANSION_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/inflate_block.h"
#include "kernels/tier.h"

namespace zebdc::kernels {

struct PairExpansionKernels {
  // Expands pairs, from the first on, as long as they are literals or matches of at most 258 bytes
  // that do not reach before begin, and the room behind is no shorter than inflateBytesMargin.
  // Returns how many. Room up to the margin behind what they expand to may be overwritten.
  size_t (*expand)(const ZebLZ77Pair* pairs, size_t count, InflateBytes&);
};

extern const TierTable<PairExpansionKernels> pairExpansionKernels;

inline const PairExpansionKernels& pairExpansion() {
  return pairExpansionKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
