// Kernels of LZSS.
//
// A stream is a sequence of tokens, most significant bit first:
//
//   1 bbbbbbbb                     a literal
//   0 ddddddddddddddd llllllll     a match: distance d, length l + 3
//
// Worked example: "aaaaaaaa" is 1 01100001, 0 000000000000001 00000010, 1 01100001, 1 01100001: the
// literal a, five bytes from distance 1, and two literals, in the bytes B0 80 00 81 58 6C 20.
#ifndef ZEBDC_KERNELS_LZSS_H
#define ZEBDC_KERNELS_LZSS_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

constexpr uint32_t lzssWindow = 32768;
constexpr uint32_t lzssHashes = 32768;
constexpr uint32_t lzssShortestMatch = 3;
constexpr uint32_t lzssLongestMatch = 258;
constexpr int lzssLiteralBits = 9;
constexpr int lzssMatchBits = 24;

// Bits on their way between the caller's bytes and the tokens: the next ones first, from the top.
struct LzssBits {
  uint64_t buffer;  // zero behind the valid ones
  int count;
};

// Bytes that the encoder reads behind the copy of the new ones in the history.
constexpr size_t lzssHistorySlack = 8;

// One call of the encoder.
struct LzssEncoding {
  const uint8_t* src;
  size_t srcLen;      // in: all there is; out: what is left
  uint8_t* dst;       // advanced
  size_t dstLen;      // reduced
  LzssBits bits;      // fewer than 8 on entry
  uint32_t position;  // of the first source byte; advanced

  // The byte before src is history[-1], and lzssWindow bytes before history can be read, as far as
  // they exist. From history on stand the first source bytes, up to lzssLongestMatch of them.
  const uint8_t* history;
  int32_t* chain;
  int32_t* head;
  const int16_t* hashTable;
};

// One call of the decoder.
struct LzssDecoding {
  const uint8_t* src;  // advanced
  const uint8_t* srcEnd;
  uint8_t* dst;  // advanced
  uint8_t* dstEnd;
  LzssBits bits;  // less than the first token needs

  const uint8_t* dstBegin;
  uint32_t position;       // of dstBegin
  const uint8_t* history;  // circular: the lzssWindow bytes before dstBegin
  uint32_t pendingDistance;
  uint32_t pendingLength;
};

struct LzssKernels {
  // Codes source bytes until they or the room are used up. With no room left, up to 23 bits are
  // pending.
  void (*encode)(LzssEncoding& run);
  // Decodes tokens until the source holds no whole one or the room is used up, maybe inside a match
  // that then is pending. Takes no source byte that no token needs.
  void (*decode)(LzssDecoding& run);
  // Continues a pending match.
  void (*resumeMatch)(LzssDecoding& run);
};

extern const TierTable<LzssKernels> lzssKernels;

inline const LzssKernels& lzss() {
  return lzssKernels[activeTier];
}

// Writes the whole bytes of the bits, as far as there is room.
void lzssDrain(LzssBits& bits, uint8_t*& dst, size_t& dstLen);

}  // namespace zebdc::kernels

#endif
