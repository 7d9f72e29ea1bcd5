// Kernels of LZO1X: the level-1 compressor and the two decompressors.
//
// A stream is a sequence of instructions, each with its literals. S below is the number of
// literals, 0 to 3, that follow a match without an instruction of their own.
//
//   first byte  meaning
//   0000LLLL    literal run of 3 + L bytes; L = 0: 18 + extension
//   0001HLLL    match of 2 + L bytes (L = 0: 9 + extension); then the 16-bit word
//               DDDDDDDDDDDDDDSS, low byte first; distance 16384 + 16384 H + D.
//               Distance 16384 ends the stream instead
//   001LLLLL    match of 2 + L bytes (L = 0: 33 + extension); then the same word;
//               distance D + 1
//   01LDDDSS    match of 3 + L bytes; then a byte H; distance 8 H + D + 1
//   1LLDDDSS    match of 5 + L bytes; then a byte H; distance 8 H + D + 1
//
// An extension is a number of zero bytes, 255 each, and a last byte of 1 to 255. A stream may begin
// with a byte of 18 to 255 instead: a run of that many literals minus 17. Behind literals, an
// instruction byte below 16 is invalid: compressors other than level 1 give it a meaning.
//
// Worked example: "abcdabcdabcdabcd012345678901234567" is
//
//   19 61 62 63 64 61 62 63 64   25 - 17 = 8 literals: abcdabcd
//   EC 00                        1 11 011 00, H = 0: 5 + 3 bytes from distance 0 + 3 + 1; S = 0
//   0F 30 31 .. 37               3 + 15 literals: 012345678901234567
//   11 00 00                     the end
//
// The first four bytes are never found again: no position before the fourth is in the dictionary.
#ifndef ZEBDC_KERNELS_LZO_H
#define ZEBDC_KERNELS_LZO_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

// Entries of the compressor's dictionary, indexed by a 14-bit hash of four bytes: the latest
// position with that hash in the low half and its four bytes in the high half, so that most
// candidates are judged without a look at the source.
constexpr size_t lzoDictionaryEntries = 1 << 14;
// What an entry holds at first: a position behind every other.
constexpr uint64_t lzoEmptyEntry = ~uint64_t{0};

// The compressor leaves the last literals of its source to the caller.
struct LzoCompressed {
  size_t written;
  size_t pendingLiterals;
};

// Touches no more of dst than the source's size, a 16th of it and 64 bytes, pending literals
// included. All entries of the dictionary are empty on entry, unless the source is too short to be
// searched. The source has less than 4 GiB.
using LzoCompress = LzoCompressed (*)(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                      uint64_t* dictionary);
extern const TierTable<LzoCompress> lzoCompressKernels;

inline LzoCompress lzoCompress() {
  return lzoCompressKernels[activeTier];
}

// Sources of up to this size are not searched.
constexpr size_t lzoLiteralsOnly = 17;

struct LzoDecoded {
  bool valid;
  size_t written;
};

struct LzoDecodeKernels {
  // Decodes until the end instruction or the end of the source. For valid streams only: whatever
  // one holds is written, beyond the capacity too.
  LzoDecoded (*trusting)(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity);
  // Likewise, for any bytes: what would leave the source or the room makes the stream invalid.
  LzoDecoded (*safe)(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity);
};

extern const TierTable<LzoDecodeKernels> lzoDecodeKernels;

inline const LzoDecodeKernels& lzoDecode() {
  return lzoDecodeKernels[activeTier];
}

// Writes the instruction for a run of literals, of which there is at least one, at dst: none for 1
// to 3, whose number goes into the two free bits of the match before. Returns its end.
//
// atStart: nothing has been written before.
uint8_t* lzoWriteRunInstruction(uint8_t* dst, size_t count, bool atStart);

}  // namespace zebdc::kernels

#endif
