// The checksums by their definitions, one byte or one bit at a time.
#ifndef ZEBDC_TESTS_CHECKSUM_PLAIN_CHECKSUMS_H
#define ZEBDC_TESTS_CHECKSUM_PLAIN_CHECKSUMS_H

#include <stdint.h>

#include <span>

namespace zebdc::test {

inline uint32_t plainAdler32(uint32_t value, std::span<const uint8_t> bytes) {
  uint64_t a = value & 0xFFFF;
  uint64_t b = value >> 16;
  for (const uint8_t byte : bytes) {
    a = (a + byte) % 65521;
    b = (b + a) % 65521;
  }
  return static_cast<uint32_t>((a % 65521) | (b % 65521) << 16);
}

inline uint32_t plainReflectedCrc(uint32_t polynomial, uint32_t crc,
                                  std::span<const uint8_t> bytes) {
  for (const uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? polynomial : 0);
  }
  return crc;
}

inline uint32_t plainCrc32(uint32_t value, std::span<const uint8_t> bytes) {
  return ~plainReflectedCrc(0xEDB88320, ~value, bytes);
}

inline uint32_t plainCrc32c(uint32_t value, std::span<const uint8_t> bytes) {
  return plainReflectedCrc(0x82F63B78, value, bytes);
}

inline uint32_t plainCrc32Bzip2(uint32_t value, std::span<const uint8_t> bytes) {
  uint32_t crc = ~value;
  for (const uint8_t byte : bytes) {
    crc ^= static_cast<uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc >> 31) != 0 ? 0x04C11DB7u : 0);
  }
  return ~crc;
}

}  // namespace zebdc::test

#endif
