// Decoding of one symbol with all care: the definition of what the fast loops do, and the way to
// decode where they may not run, near the ends of source and room.
#ifndef ZEBDC_INFLATE_SYMBOL_H
#define ZEBDC_INFLATE_SYMBOL_H

#include <stdint.h>

#include "inflate/bit_reader.h"
#include "kernels/inflate_table.h"

namespace zebdc::inflate {

// A literal, a whole match, or what else the next bits of the input may be.
struct Symbol {
  enum Kind { literal, match, endOfBlock, invalid, incomplete };

  Kind kind;
  int bits;        // to be consumed
  uint32_t value;  // the literal, or the length of the match
  uint32_t distance;
};

// The entry for the next bits of the input, subtables resolved.
struct FoundEntry {
  uint32_t entry;
  int rootBits;  // consumed by the root, when the entry stands in a subtable

  bool isException() const { return (entry & kernels::entryException) != 0; }
  bool isEndOfBlock() const { return (entry & kernels::entryEndOfBlock) != 0; }
  int allBits() const { return rootBits + static_cast<int>(entry & kernels::entryAllBits); }
  int codeBits() const { return rootBits + static_cast<int>(kernels::entryCodeBits(entry)); }

  uint32_t extraBits(uint64_t bits) const {
    return static_cast<uint32_t>(bits >> codeBits()) & ((1u << (allBits() - codeBits())) - 1);
  }
};

inline FoundEntry findEntry(const uint32_t* table, int rootBits, uint64_t bits) {
  constexpr uint32_t pointer = kernels::entryException | kernels::entrySubtable;
  const uint32_t entry = table[bits & ((1u << rootBits) - 1)];
  if ((entry & pointer) != pointer) return {entry, 0};
  const uint32_t width = kernels::entryCodeBits(entry);
  const uint32_t index = static_cast<uint32_t>(bits >> rootBits) & ((1u << width) - 1);
  return {table[(entry >> kernels::entryValueShift) + index], rootBits};
}

// The symbol at the front of the input, of which nothing is consumed. Bits beyond those in hand
// count as zeros: an entry that needs no more than are in hand does not depend on them.
inline Symbol peekSymbol(const BitReader& in, const kernels::InflateTables& tables) {
  constexpr Symbol incomplete = {Symbol::incomplete, 0, 0, 0};
  constexpr Symbol invalid = {Symbol::invalid, 0, 0, 0};

  const FoundEntry first = findEntry(tables.litLen, kernels::litLenRootBits, in.bits);
  if (!first.isException() && kernels::entryCount(first.entry) > 0) {
    const uint32_t byte = kernels::entryFirst(first.entry);
    const int bits = tables.litLenLengths[byte];
    return bits <= in.count ? Symbol{Symbol::literal, bits, byte, 0} : incomplete;
  }
  const int firstBits = first.allBits();
  if (firstBits > in.count) return incomplete;
  if (first.isException()) {
    return first.isEndOfBlock() ? Symbol{Symbol::endOfBlock, firstBits, 0, 0} : invalid;
  }

  const uint64_t behind = in.bits >> firstBits;
  const FoundEntry second = findEntry(tables.distance, kernels::distanceRootBits, behind);
  const int matchBits = firstBits + second.allBits();
  if (matchBits > in.count) return incomplete;
  if (second.isException()) return invalid;
  return {
      Symbol::match, matchBits,
      kernels::entrySecond(first.entry) + kernels::entryShortestMatch + first.extraBits(in.bits),
      (second.entry >> kernels::entryValueShift) + second.extraBits(behind)};
}

}  // namespace zebdc::inflate

#endif
