// Copy and fill kernels. Lengths count elements; a length below 1 does nothing. Destinations may
// have any alignment.
#ifndef ZEBDC_KERNELS_MEMORY_H
#define ZEBDC_KERNELS_MEMORY_H

#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct MemoryKernels {
  void (*copy)(const uint8_t* src, uint8_t* dst, int len);  // the areas must not overlap
  void (*fill8)(uint8_t value, uint8_t* dst, int len);
  void (*fill16)(uint16_t value, uint16_t* dst, int len);
  void (*fill32)(uint32_t value, uint32_t* dst, int len);
  void (*fill64)(uint64_t value, uint64_t* dst, int len);
  void (*fill128)(const void* value, void* dst, int len);  // 16-byte elements
};

extern const TierTable<MemoryKernels> memoryKernels;

inline const MemoryKernels& memory() {
  return memoryKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
