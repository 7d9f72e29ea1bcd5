// Plain run-length coding byte by byte, as its definition reads.
#ifndef ZEBDC_TESTS_LZ_PLAIN_RLE_H
#define ZEBDC_TESTS_LZ_PLAIN_RLE_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::test {

struct PlainProgress {
  size_t consumed;
  size_t written;
};

inline PlainProgress plainEncodeRle(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                    size_t capacity) {
  size_t in = 0;
  size_t out = 0;
  while (out + 2 < capacity && in < srcLen) {
    const uint8_t byte = src[in++];
    dst[out++] = byte;
    size_t further = 0;
    while (further < 256 && in < srcLen && src[in] == byte) {
      ++further;
      ++in;
    }
    if (further > 0) {
      dst[out++] = byte;
      dst[out++] = static_cast<uint8_t>(further - 1);
    }
  }
  while (in < srcLen && out < capacity) dst[out++] = src[in++];
  return {in, out};
}

inline PlainProgress plainDecodeRle(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                    size_t capacity) {
  size_t in = 0;
  size_t out = 0;
  while (in + 2 < srcLen) {
    if (out == capacity) return {in, out};
    if (src[in] != src[in + 1]) {
      dst[out++] = src[in++];
      continue;
    }
    const size_t count = size_t{src[in + 2]} + 2;
    if (count > capacity - out) return {in, out};
    for (size_t i = 0; i < count; ++i) dst[out++] = src[in];
    in += 3;
  }
  while (in < srcLen && out < capacity) dst[out++] = src[in++];
  return {in, out};
}

}  // namespace zebdc::test

#endif
