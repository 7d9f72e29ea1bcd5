// Loads and stores of words at any address, in either byte order.
#ifndef ZEBDC_FRAME_BYTES_H
#define ZEBDC_FRAME_BYTES_H

#include <stdint.h>
#include <string.h>

#include "frame/compiler.h"

namespace zebdc {

// The word at an address, as the (little-endian) processor sees it.
template <class Word>
ZEBDC_ALWAYS_INLINE Word load(const void* address) {
  Word word;
  memcpy(&word, address, sizeof word);
  return word;
}

template <class Word>
ZEBDC_ALWAYS_INLINE void store(void* address, Word word) {
  memcpy(address, &word, sizeof word);
}

// Most significant byte first.
template <class Word>
ZEBDC_ALWAYS_INLINE Word loadBigEndian(const void* address) {
  return byteSwapped(load<Word>(address));
}

template <class Word>
ZEBDC_ALWAYS_INLINE void storeBigEndian(void* address, Word word) {
  store<Word>(address, byteSwapped(word));
}

}  // namespace zebdc

#endif
