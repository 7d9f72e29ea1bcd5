// Construction of the byte code from frequencies or from lengths.
//
// The code is canonical in an orientation of its own: codes are handed out from the longest length
// to the shortest, within a length from the highest value to the lowest, and the running code is
// halved on the way to the next shorter length. So the all-zero code belongs to the highest value
// of the longest length, and longer codes are numerically smaller. With at most 256 codes a code of
// length L has no more than 8 significant bits: it begins with at least L - 8 zeros.
#ifndef ZEBDC_HUFFMAN_CODE_H
#define ZEBDC_HUFFMAN_CODE_H

#include "huffman/state.h"

namespace zebdc::huffman {

// Builds codeLen, code and maxLen from 256 frequencies. zebErrFreqTable when no frequency is above
// 0, or one of them or their running sum reaches 2^31; zebErrCodeTooLong for a tree deeper than 32.
ZebStatus buildFromFrequencies(const uint32_t* frequencies, ZebHuffState_8u& state);

// Builds all the tables of the decoder from 256 lengths. zebErrCodeLenTable when a length is
// negative or above 32, or none is above 0. Completeness is not checked.
ZebStatus buildFromLengths(const int* lengths, ZebHuffState_8u& state);

// The value that the next maxLen bits of a stream begin with, or -1 where they match no code. Only
// incomplete and over-subscribed codes have such bits.
int symbolAt(const ZebHuffState_8u& state, uint32_t lookahead);

}  // namespace zebdc::huffman

#endif
