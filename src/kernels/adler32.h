// Adler-32 kernel. Takes any value, reduced or not, and returns both sums reduced. Any length, 0
// included, and any alignment.
#ifndef ZEBDC_KERNELS_ADLER32_H
#define ZEBDC_KERNELS_ADLER32_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct Adler32Kernels {
  uint32_t (*adler32)(uint32_t value, const uint8_t* src, size_t len);
};

extern const TierTable<Adler32Kernels> adler32Kernels;

inline const Adler32Kernels& adler32() {
  return adler32Kernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
