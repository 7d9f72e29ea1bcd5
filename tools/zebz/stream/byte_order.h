// Numbers as the bytes of file formats.
#ifndef ZEBZ_STREAM_BYTE_ORDER_H
#define ZEBZ_STREAM_BYTE_ORDER_H

#include <stdint.h>

#include <vector>

namespace zebz {

inline void appendLittleEndian32(std::vector<uint8_t>& bytes, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
}

inline void appendBigEndian16(std::vector<uint8_t>& bytes, uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value));
}

inline void appendBigEndian32(std::vector<uint8_t>& bytes, uint32_t value) {
  appendBigEndian16(bytes, static_cast<uint16_t>(value >> 16));
  appendBigEndian16(bytes, static_cast<uint16_t>(value));
}

}  // namespace zebz

#endif
