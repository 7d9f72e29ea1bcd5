// Length-limited Huffman codes for the three alphabets of a dynamic block.
#ifndef ZEBDC_DEFLATE_HUFFMAN_CODE_H
#define ZEBDC_DEFLATE_HUFFMAN_CODE_H

#include <stdint.h>

#include "deflate/format.h"

namespace zebdc::deflate {

// A code ready for output: its bits in reverse, as RFC 1951 packs Huffman codes from their most
// significant bit.
struct OutputBits {
  uint32_t bits;
  uint32_t count;
};

// Finds the code lengths of an alphabet. Where the limit does not bind they are those of a Huffman
// code. Symbols of frequency 0 get length 0, but for the lowest ones where fewer than two symbols
// occur: two codes are always made, which every decoder accepts. The frequencies' sum is below
// 2^32.
void findCodeLengths(const uint32_t* frequencies, int symbols, int limit, uint8_t* lengths);

// The canonical code (RFC 1951, 3.2.2) of the given lengths, at most maxCodeLength.
void assignCodes(const uint8_t* lengths, int symbols, OutputBits* codes);

}  // namespace zebdc::deflate

#endif
