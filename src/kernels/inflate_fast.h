// The inner loop of deflate decoding by tables that one lookup resolves (inflate_fast_table.h). It
// keeps the rules of inflate_block.h.
#ifndef ZEBDC_KERNELS_INFLATE_FAST_H
#define ZEBDC_KERNELS_INFLATE_FAST_H

#include "kernels/inflate_block.h"
#include "kernels/inflate_fast_table.h"

namespace zebdc::kernels {

struct InflateFastKernels {
  // Matches that reach before begin stop the loop.
  void (*toBytes)(InflateInput&, InflateBytes&, const InflateFastTables&);
};

extern const TierTable<InflateFastKernels> inflateFastKernels;

inline const InflateFastKernels& inflateFast() {
  return inflateFastKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
