// Kernels of byte Huffman coding. Streams are most significant bit first.
#ifndef ZEBDC_KERNELS_BYTE_HUFFMAN_H
#define ZEBDC_KERNELS_BYTE_HUFFMAN_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

// The encoder's pending bits: bitCount of them, below 32, left-justified in bitBuffer.
struct PendingBits {
  uint32_t bitBuffer;
  int32_t bitCount;
};

// One entry of the decoder's direct table, indexed by the next byteHuffmanTableBits bits:
//
//   31    24 23    16 15     8 7   6 5      0
//   | third | second | first | count | length |
//
// count symbols (1 to 3) with length bits together; count 0 marks a code longer than the index. The
// length is lowest so that the whole entry serves as a shift count, the symbols stand together so
// that one 32-bit store writes them all.
inline constexpr int byteHuffmanTableBits = 12;
inline constexpr size_t byteHuffmanTableSize = size_t{1} << byteHuffmanTableBits;
inline constexpr int byteHuffmanSymbolsPerEntry = 3;
inline constexpr int byteHuffmanCountShift = 6;
inline constexpr int byteHuffmanSymbolShift = 8;

constexpr uint32_t byteHuffmanEntry(uint32_t symbols, uint32_t length, uint32_t count) {
  return symbols << byteHuffmanSymbolShift | count << byteHuffmanCountShift | length;
}

struct ByteHuffmanKernels {
  // Codes len bytes with codes of at most 32 bits, given right-aligned with their lengths, and
  // writes whole 32-bit words, most significant byte first. Values without a code (length 0, code
  // 0) contribute nothing. Returns the end of the words written.
  uint8_t* (*encode)(const uint32_t* code, const uint32_t* codeLen, const uint8_t* src, size_t len,
                     uint8_t* dst, PendingBits* pending);

  // Decodes through the direct table from bit *position of src on, and stops before an entry of
  // count 0, or where fewer than 8 bytes of src or byteHuffmanRoom bytes of dst are left. Returns
  // the symbols written and advances *position past them.
  size_t (*decode)(const uint32_t* table, const uint8_t* src, size_t srcLen, size_t* position,
                   uint8_t* dst, size_t capacity);
};

// One step of the decoder makes four look-ups of up to three symbols; the last store reaches one
// byte further.
inline constexpr int byteHuffmanLookups = 4;
inline constexpr size_t byteHuffmanRoom = byteHuffmanLookups * byteHuffmanSymbolsPerEntry + 1;

extern const TierTable<ByteHuffmanKernels> byteHuffmanKernels;

inline const ByteHuffmanKernels& byteHuffman() {
  return byteHuffmanKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
