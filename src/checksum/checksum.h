// Checksums for the codecs: the same conventions as the exports, without their argument checks.
#ifndef ZEBDC_CHECKSUM_CHECKSUM_H
#define ZEBDC_CHECKSUM_CHECKSUM_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/adler32.h"
#include "kernels/crc.h"

namespace zebdc::checksum {

// Continues an Adler-32 value; a stream starts from 1.
inline uint32_t adler32(uint32_t value, const uint8_t* src, size_t len) {
  return kernels::adler32().adler32(value, src, len);
}

// Continues a CRC-32; a stream starts from 0.
inline uint32_t crc32(uint32_t value, const uint8_t* src, size_t len) {
  return ~kernels::crc().crc32(~value, src, len);
}

// Continues a CRC-32C as the bare register: no inversion at either end.
inline uint32_t crc32c(uint32_t value, const uint8_t* src, size_t len) {
  return kernels::crc().crc32c(value, src, len);
}

// Continues a bzip2 CRC; a block starts from 0.
inline uint32_t crc32Bzip2(uint32_t value, const uint8_t* src, size_t len) {
  return ~kernels::crc().crc32Bzip2(~value, src, len);
}

}  // namespace zebdc::checksum

#endif
