// Decoding of a block of bytes.
#ifndef ZEBDC_HUFFMAN_BLOCK_DECODER_H
#define ZEBDC_HUFFMAN_BLOCK_DECODER_H

#include <stddef.h>

#include "huffman/state.h"

namespace zebdc::huffman {

// Decodes until capacity symbols are written or the bits in hand hold no whole code and the source
// is used up. Returns the symbols written; bits that were read but not used stay in the record.
size_t decodeBlock(ZebHuffState_8u& state, const uint8_t* src, size_t srcLen, uint8_t* dst,
                   size_t capacity);

}  // namespace zebdc::huffman

#endif
