// CRC kernels. Each takes the bare register, without the inversions by which CRC-32 and the bzip2
// CRC begin and end, and returns it after len bytes. Any length, 0 included, and any alignment.
#ifndef ZEBDC_KERNELS_CRC_H
#define ZEBDC_KERNELS_CRC_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

struct CrcKernels {
  uint32_t (*crc32)(uint32_t crc, const uint8_t* src, size_t len);
  uint32_t (*crc32c)(uint32_t crc, const uint8_t* src, size_t len);
  uint32_t (*crc32Bzip2)(uint32_t crc, const uint8_t* src, size_t len);
};

extern const TierTable<CrcKernels> crcKernels;

inline const CrcKernels& crc() {
  return crcKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
