// Decoding tables for codes that one lookup resolves: literal/length codes of up to 11 bits and
// distance codes of up to 10. Their layout is public (see ZebInflateState); inflate_table.h has
// the layout for codes of any length.
//
// Both tables are indexed by the next bits of the input, as many as the longest code has. A code of
// fewer bits stands at every index that ends in it.
//
//    15         8 7      4 3      0       7      4 3      0
//   +------------+--------+--------+     +--------+--------+
//   |   value    |  kind  | length |     | extra  | length |  and its base in an array of its own
//   +------------+--------+--------+     +--------+--------+
//    literal or match length             distance
//
//   length  of the code
//   kind    0: value is a literal; 8 to 13: value is a match length - 3, to which 0 to 5 extra bits
//           are added; 15: end of the block; 14: no symbol has this code
//   extra   0 to 13 extra bits of the distance; 14: no symbol has this code
#ifndef ZEBDC_KERNELS_INFLATE_FAST_TABLE_H
#define ZEBDC_KERNELS_INFLATE_FAST_TABLE_H

#include <stdint.h>

namespace zebdc::kernels {

inline constexpr int fastLitLenBits = 11;
inline constexpr int fastDistanceBits = 10;

inline constexpr uint32_t fastCodeBitsMask = 0xF;
inline constexpr int fastKindShift = 4;
inline constexpr int fastValueShift = 8;

inline constexpr uint32_t fastMatchKind = 8;  // and the number of extra bits
inline constexpr uint32_t fastInvalidKind = 14;
inline constexpr uint32_t fastEndOfBlockKind = 15;

// Of an entry in its place: only literals lack this bit, and only what is neither literal nor
// match, nor a distance, has all of those.
inline constexpr uint32_t fastNoLiteral = fastMatchKind << fastKindShift;
inline constexpr uint32_t fastException = fastInvalidKind << fastKindShift;

// What an index holds that no code ends.
inline constexpr uint16_t fastInvalidLitLen = fastInvalidKind << fastKindShift;
inline constexpr uint8_t fastInvalidDistance = fastInvalidKind << fastKindShift;

constexpr uint32_t fastCodeBits(uint32_t entry) {
  return entry & fastCodeBitsMask;
}

struct InflateFastTables {
  const uint16_t* litLen;
  const uint8_t* distance;
  const uint16_t* distanceBase;
  uint32_t litLenMask;  // of the bits that index
  uint32_t distanceMask;
};

}  // namespace zebdc::kernels

#endif
