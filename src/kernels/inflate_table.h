// Decoding tables of deflate's Huffman codes: the format of their entries and the constants that
// builder and decoding loops share.
//
// A table is indexed by the next bits of the input, as many as its root has. An entry is one 32-bit
// word that tells everything about the symbol, so that decoding it costs one load. In the table of
// the literal/length code an entry can even stand for two symbols, a literal and the one behind it,
// where both codes fit the root together: two literals are written at once, and the branch between
// literal and match, which nothing predicts well, is taken less often.
//
//    31 30 29      22 21      14  13  12  11        8  7   6  5        0
//   +-----+----------+----------+---+---+------------+---+---+----------+
//   |count|  second  |  first   | E | S | code bits  | L | X | all bits |
//   +-----+----------+----------+---+---+------------+---+---+----------+
//
//   count      of literals: 0 to 2
//   second     length - 3 of a match; the second literal; of a lone literal once more the first
//   first      the literal in front
//   E          with X: end of block
//   S          with X: pointer to a subtable. "second" and "first" together are the index at which
//              it starts, "code bits" the number of bits that index it, behind those of the root.
//              With neither S nor E: no symbol has this code, or one that the format does not know
//   code bits  of all codes in this table; the extra bits of a length begin behind them
//   L          literals only: one bit to test for the commonest kind
//   X          neither literal nor match
//   all bits   of codes and extra bits together
//
// "All bits" stands lowest so that the entry itself serves as the count of a 64-bit shift, which
// takes its six low bits, and as the subtrahend from a count of which only those bits are looked
// at. E and S stand above "code bits" because they are 0 in the entry of a match, where these six
// bits are the count of a shift, too. The count of literals stands highest because every literal
// needs it: one shift gets it out.
//
// The entries of the distance code have the same fields but for "second" and "first", which
// together are the base of the distance. In a subtable the bits of the root are not counted again:
// a decoder consumes them first. Subtables hold single symbols.
#ifndef ZEBDC_KERNELS_INFLATE_TABLE_H
#define ZEBDC_KERNELS_INFLATE_TABLE_H

#include <stdint.h>

namespace zebdc::kernels {

inline constexpr uint32_t entryAllBits = 0x3F;
inline constexpr uint32_t entryException = 1u << 6;
inline constexpr uint32_t entryLiterals = 1u << 7;
inline constexpr int entryCodeBitsShift = 8;
inline constexpr uint32_t entryCodeBitsMask = 0xF;
inline constexpr uint32_t entrySubtable = 1u << 12;
inline constexpr uint32_t entryEndOfBlock = 1u << 13;
inline constexpr int entryValueShift = 14;  // of "first", and of "second" and "first" together
inline constexpr int entrySecondShift = 22;
inline constexpr int entryCountShift = 30;
inline constexpr uint32_t entryShortestMatch = 3;

// Eleven bits hold nearly all codes, and many pairs of codes; a larger table would cost more to
// build and to keep in the cache than it saves.
inline constexpr int litLenRootBits = 11;
inline constexpr int distanceRootBits = 8;
inline constexpr uint32_t litLenRootMask = (1u << litLenRootBits) - 1;
inline constexpr uint32_t distanceRootMask = (1u << distanceRootBits) - 1;

constexpr uint32_t entryCodeBits(uint32_t entry) {
  return (entry >> entryCodeBitsShift) & entryCodeBitsMask;
}

constexpr uint32_t entryCount(uint32_t entry) {
  return entry >> entryCountShift;
}

template <class Word>
constexpr Word entryFirst(Word entry) {
  return entry >> entryValueShift & 0xFF;
}

template <class Word>
constexpr Word entrySecond(Word entry) {
  return entry >> entrySecondShift & 0xFF;
}

// The tables of a block, and what they were built from.
struct InflateTables {
  const uint32_t* litLen;
  const uint32_t* distance;
  const uint16_t* litLenLengths;  // tell how long the first code of two is
};

}  // namespace zebdc::kernels

#endif
