// Kernel that undoes zero-run coding and move-to-front in one pass.
#ifndef ZEBDC_KERNELS_BZIP2_SYMBOLS_H
#define ZEBDC_KERNELS_BZIP2_SYMBOLS_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::kernels {

constexpr size_t bzip2SymbolsFailed = SIZE_MAX;

// Decodes symbols to bytes: 0 and 1 are the digits of run lengths, any other symbol s stands for
// position s - 1, taken modulo 256, of the move-to-front list. The list, 256 bytes, is left in an
// unspecified state. Returns the bytes written, at most the capacity, which is below 2^24; or
// bzip2SymbolsFailed if there are more. One body serves all tiers.
size_t decodeBzip2Symbols(const uint16_t* symbols, size_t count, uint8_t* list, uint8_t* dst,
                          size_t capacity);

}  // namespace zebdc::kernels

#endif
