// The scan for runs of four equal bytes.
#ifndef ZEBDC_KERNELS_RUN_SCAN_H
#define ZEBDC_KERNELS_RUN_SCAN_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct RunScanKernels {
  // Copies bytes up to the first position, below count, at which four equal bytes begin, or all
  // count of them; returns how many. Reads three bytes more than count. All count bytes of the
  // destination may be written.
  size_t (*copyToRun)(const uint8_t* src, size_t count, uint8_t* dst);
};

extern const TierTable<RunScanKernels> runScanKernels;

inline const RunScanKernels& runScan() {
  return runScanKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
