// Move-to-front byte by byte, as its definition reads: a list that is searched and shifted.
#ifndef ZEBDC_TESTS_BZIP2_PLAIN_MOVE_TO_FRONT_H
#define ZEBDC_TESTS_BZIP2_PLAIN_MOVE_TO_FRONT_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::test {

struct PlainMoveToFront {
  uint8_t list[256];

  PlainMoveToFront() {
    for (int i = 0; i < 256; ++i) list[i] = static_cast<uint8_t>(i);
  }

  void toFront(size_t position) {
    const uint8_t value = list[position];
    for (size_t i = position; i > 0; --i) list[i] = list[i - 1];
    list[0] = value;
  }

  void forward(const uint8_t* src, uint8_t* dst, size_t len) {
    for (size_t i = 0; i < len; ++i) {
      size_t position = 0;
      while (list[position] != src[i]) ++position;
      dst[i] = static_cast<uint8_t>(position);
      toFront(position);
    }
  }

  void inverse(const uint8_t* src, uint8_t* dst, size_t len) {
    for (size_t i = 0; i < len; ++i) {
      dst[i] = list[src[i]];
      toFront(src[i]);
    }
  }
};

}  // namespace zebdc::test

#endif
