// Building of the decoding tables of kernels/inflate_fast_table.h from code lengths.
//
// They are built by doubling, as those of huffman_table.h are: a table for codes of n bits followed
// by a copy of itself serves codes of n + 1 bits.
#ifndef ZEBDC_INFLATE_FAST_TABLE_H
#define ZEBDC_INFLATE_FAST_TABLE_H

#include "inflate/huffman_table.h"
#include "kernels/inflate_fast_table.h"

namespace zebdc::inflate {

// What a symbol's entries hold apart from the length of its code.
constexpr std::array<uint16_t, deflate::literalSymbols> makeFastLitLenEntries() {
  const auto entry = [](uint32_t kind, uint32_t value) {
    return static_cast<uint16_t>(kind << kernels::fastKindShift | value << kernels::fastValueShift);
  };
  std::array<uint16_t, deflate::literalSymbols> entries{};
  for (uint32_t byte = 0; byte < 256; ++byte) entries[byte] = entry(0, byte);
  entries[deflate::endOfBlock] = entry(kernels::fastEndOfBlockKind, 0);
  for (size_t i = 0; i < deflate::lengthCodes.size(); ++i) {
    const deflate::BaseAndExtra code = deflate::lengthCodes[i];
    entries[deflate::firstLengthSymbol + i] =
        entry(kernels::fastMatchKind + code.extraBits,
              static_cast<uint32_t>(code.base - deflate::minMatch));
  }
  return entries;
}
inline constexpr auto fastLitLenEntries = makeFastLitLenEntries();

// Builds a table of 2^longest entries for codes that are not over-subscribed.
template <class Entry, class EntryOf>
constexpr void buildFastTable(const CodeOrder& order, int longest, Entry invalid, EntryOf entryOf,
                              Entry* table) {
  CodeWalk codes(order);
  table[0] = invalid;
  for (int length = 1; length <= longest; ++length) {
    std::copy_n(table, 1 << (length - 1), table + (1 << (length - 1)));
    codes.walk(length, order.count[length],
               [&](uint32_t symbol, uint32_t code) { table[code] = entryOf(symbol, length); });
  }
}

constexpr void buildFastLitLenTable(const uint16_t* lengths, int symbolCount, int longest,
                                    uint16_t* table) {
  const auto entry = [](uint32_t symbol, int length) {
    return static_cast<uint16_t>(fastLitLenEntries[symbol] | length);
  };
  buildFastTable(CodeOrder(lengths, symbolCount), longest, kernels::fastInvalidLitLen, entry,
                 table);
}

constexpr void buildFastDistanceTable(const uint16_t* lengths, int symbolCount, int longest,
                                      uint8_t* table, uint16_t* bases) {
  const auto entry = [](uint32_t symbol, int length) {
    const int extraBits = deflate::distanceCodes[symbol].extraBits;
    return static_cast<uint8_t>(extraBits << kernels::fastKindShift | length);
  };
  const auto base = [](uint32_t symbol, int) {
    return static_cast<uint16_t>(deflate::distanceCodes[symbol].base);
  };
  const CodeOrder order(lengths, symbolCount);
  buildFastTable(order, longest, kernels::fastInvalidDistance, entry, table);
  buildFastTable(order, longest, uint16_t{0}, base, bases);
}

}  // namespace zebdc::inflate

#endif
