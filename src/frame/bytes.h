// Loads and stores of words at any address, in either byte order.
#ifndef ZEBDC_FRAME_BYTES_H
#define ZEBDC_FRAME_BYTES_H

#include <stdint.h>
#include <string.h>

#include "frame/compiler.h"

#if defined(_MSC_VER) && !defined(__clang__)
#include <stdlib.h>
#endif

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

ZEBDC_ALWAYS_INLINE constexpr uint32_t byteSwapped(uint32_t word) {
#if defined(_MSC_VER) && !defined(__clang__)
  return _byteswap_ulong(word);
#else
  return __builtin_bswap32(word);
#endif
}

ZEBDC_ALWAYS_INLINE constexpr uint64_t byteSwapped(uint64_t word) {
#if defined(_MSC_VER) && !defined(__clang__)
  return _byteswap_uint64(word);
#else
  return __builtin_bswap64(word);
#endif
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
