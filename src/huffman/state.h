// The record of byte Huffman coding, for encoder and decoder alike.
#ifndef ZEBDC_HUFFMAN_STATE_H
#define ZEBDC_HUFFMAN_STATE_H

#include <stdint.h>
#include <zebdc/zebdc.h>

struct ZebHuffState_8u {
  uint32_t codeLen[256];       // 0: the value has no code
  uint32_t code[256];          // right-aligned
  uint8_t decodeSymbols[256];  // values in order of their codes, longest codes first
  uint32_t limitArea[32];
  uint32_t countArea[32];
  uint32_t* limitTable;  // [1..maxLen]: first code of that length, at maxLen bits
  uint32_t* cumCount;    // [minLen..maxLen]: codes of lengths minLen to this one
  uint8_t* symbolsEnd;   // one past the last used entry of decodeSymbols
  int32_t maxLen;
  int32_t minLen;
  uint32_t bitBuffer;  // pending bits, the oldest in bit 31
  int32_t bitCount;
  int32_t zeroBits;    // decoder: zero bits shifted out of bitBuffer but not yet consumed
  uint8_t zeroSymbol;  // decoder: the value whose code is all zeros
};

namespace zebdc::huffman {

inline constexpr int stateSize = 2608;
inline constexpr int maxCodeLength = 32;

static_assert(sizeof(ZebHuffState_8u) == stateSize);

}  // namespace zebdc::huffman

#endif
