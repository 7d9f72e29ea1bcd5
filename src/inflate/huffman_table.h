// Building of the decoding tables of kernels/inflate_table.h from code lengths.
//
// Codes are assigned as in RFC 1951: shorter ones first, symbols of one length in their order. A
// code that runs out of patterns (over-subscribed lengths) leaves its last symbols without one; the
// patterns that an incomplete code leaves over are marked invalid. So whatever the lengths are, the
// codes in a table are free of prefixes of one another, and the table has the size derived below.
//
// The root is built by doubling: while it stands for codes of n bits it has 2^n entries; going over
// to n + 1 bits means to append a copy of itself, which gives every shorter code both of its
// continuations. Codes longer than the root follow in subtables, each as wide as its longest code.
// In the end literals are joined with the symbols behind them, where the root has bits for both.
#ifndef ZEBDC_INFLATE_HUFFMAN_TABLE_H
#define ZEBDC_INFLATE_HUFFMAN_TABLE_H

#include <stdint.h>

#include <algorithm>
#include <array>
#include <bit>

#include "deflate/format.h"
#include "kernels/inflate_table.h"

namespace zebdc::inflate {

inline constexpr int litLenCodes = 288;   // with two symbols that the format does not know
inline constexpr int distanceCodes = 32;  // likewise

// Room that a table needs at most, whatever the lengths. In the order of the codes, lengths only
// grow. A subtable of 2^k entries whose codes all have k bits holds 2^k symbols: those make no more
// entries than there are symbols. Other subtables are those in which the length grows, which can
// happen once for each k, and the last one, which may be incomplete.
constexpr int tableRoom(int rootBits, int symbols) {
  const int widest = deflate::maxCodeLength - rootBits;
  int room = (1 << rootBits) + symbols + (1 << widest);
  for (int k = 1; k <= widest; ++k) room += 1 << k;
  return room;
}
inline constexpr int litLenTableRoom = tableRoom(kernels::litLenRootBits, litLenCodes);
inline constexpr int distanceTableRoom = tableRoom(kernels::distanceRootBits, distanceCodes);

// What a symbol's entry holds apart from the bits of its code.
using SymbolEntries = std::array<uint32_t, litLenCodes>;

constexpr uint32_t invalidSymbol = kernels::entryException;

constexpr SymbolEntries makeLitLenEntries() {
  static_assert(kernels::entryShortestMatch == deflate::minMatch);
  SymbolEntries entries{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    entries[byte] = byte << kernels::entrySecondShift | byte << kernels::entryValueShift |
                    1u << kernels::entryCountShift | kernels::entryLiterals;
  }
  entries[deflate::endOfBlock] = kernels::entryException | kernels::entryEndOfBlock;
  for (size_t i = 0; i < deflate::lengthCodes.size(); ++i) {
    const deflate::BaseAndExtra code = deflate::lengthCodes[i];
    entries[deflate::firstLengthSymbol + i] = static_cast<uint32_t>(code.base - deflate::minMatch)
                                                  << kernels::entrySecondShift |
                                              code.extraBits;
  }
  for (size_t i = deflate::literalSymbols; i < entries.size(); ++i) entries[i] = invalidSymbol;
  return entries;
}

constexpr SymbolEntries makeDistanceEntries() {
  SymbolEntries entries{};
  for (size_t i = 0; i < deflate::distanceCodes.size(); ++i) {
    const deflate::BaseAndExtra code = deflate::distanceCodes[i];
    entries[i] = static_cast<uint32_t>(code.base) << kernels::entryValueShift | code.extraBits;
  }
  for (size_t i = deflate::distanceSymbols; i < distanceCodes; ++i) entries[i] = invalidSymbol;
  return entries;
}

inline constexpr SymbolEntries litLenEntries = makeLitLenEntries();
inline constexpr SymbolEntries distanceEntries = makeDistanceEntries();

// What the bits of a code, in its table, add to an entry.
constexpr uint32_t codeBitsEntry(int codeBits) {
  return static_cast<uint32_t>(codeBits) << kernels::entryCodeBitsShift |
         static_cast<uint32_t>(codeBits);
}

// Symbols in the order of their codes.
//
// Equal lengths often stand side by side, and each of them waits for the counter that the one
// before it has raised. So the symbols are counted and placed in two halves side by side, each with
// counters of its own.
struct CodeOrder {
  uint16_t count[deflate::maxCodeLength + 1];  // of codes of each length; [0]: without a code
  uint16_t symbols[litLenCodes];

  constexpr CodeOrder(const uint16_t* lengths, int symbolCount) {
    constexpr int lengthCount = deflate::maxCodeLength + 1;
    const int half = symbolCount / 2;
    uint16_t low[lengthCount] = {};
    uint16_t high[lengthCount] = {};
    for (int i = 0; i < half; ++i) {
      ++low[lengths[i]];
      ++high[lengths[half + i]];
    }
    if (symbolCount % 2 != 0) ++high[lengths[symbolCount - 1]];

    // Symbols without a code come last, beyond those that anyone looks at.
    uint16_t next = 0;
    for (int length = 1; length <= lengthCount; ++length) {
      const int at = length % lengthCount;
      count[at] = static_cast<uint16_t>(low[at] + high[at]);
      high[at] = static_cast<uint16_t>(next + low[at]);
      low[at] = next;
      next = static_cast<uint16_t>(next + count[at]);
    }
    for (int i = 0; i < half; ++i) {
      symbols[low[lengths[i]]++] = static_cast<uint16_t>(i);
      symbols[high[lengths[half + i]]++] = static_cast<uint16_t>(half + i);
    }
    if (symbolCount % 2 != 0) {
      symbols[high[lengths[symbolCount - 1]]++] = static_cast<uint16_t>(symbolCount - 1);
    }
  }
};

// The codes of an order one after another, each bit-reversed, as it indexes a table.
class CodeWalk {
 public:
  constexpr explicit CodeWalk(const CodeOrder& order) : next_(order.symbols) {}

  // Calls use(symbol, code) for every symbol of a length, as long as there are patterns left. The
  // lengths are walked in growing order: a longer code is the last one with zeros appended, which
  // reversed is the same number.
  template <class Use>
  constexpr void walk(int length, int count, Use use) {
    for (; count > 0 && !exhausted_; --count) {
      use(uint32_t{*next_++}, code_);
      advance(length);
    }
  }

 private:
  // Adds 1 at the reversed end: clears the ones at the top, sets the highest zero.
  constexpr void advance(int length) {
    const uint32_t zeros = code_ ^ ((1u << length) - 1);
    exhausted_ = zeros == 0;
    const uint32_t highest = std::bit_floor(zeros);
    code_ = (code_ & (highest - 1)) | highest;
  }

  const uint16_t* next_;
  uint32_t code_ = 0;
  bool exhausted_ = false;
};

// Bits of a subtable that begins with one of the codes of the given length, of which so many are
// left: as many as make the codes from there on fill it, or as the longest code needs.
constexpr int subtableBits(const CodeOrder& order, int length, int codesLeft, int rootBits) {
  int bits = length - rootBits;
  int widest = bits;
  for (int filled = codesLeft; filled < (1 << bits) && rootBits + bits < deflate::maxCodeLength;) {
    ++bits;
    const int longer = order.count[rootBits + bits];
    filled = 2 * filled + longer;
    if (longer != 0) widest = bits;
  }
  return widest;
}

// Builds a table of single symbols and returns how many entries it has.
constexpr int buildTable(const CodeOrder& order, const SymbolEntries& entries, int rootBits,
                         uint32_t* table) {
  CodeWalk codes(order);
  table[0] = invalidSymbol | codeBitsEntry(rootBits);
  for (int length = 1; length <= rootBits; ++length) {
    std::copy_n(table, 1 << (length - 1), table + (1 << (length - 1)));
    const uint32_t codeBits = codeBitsEntry(length);
    codes.walk(length, order.count[length],
               [&](uint32_t symbol, uint32_t code) { table[code] = entries[symbol] + codeBits; });
  }

  int used = 1 << rootBits;
  uint32_t root = ~0u;
  uint32_t* subtable = nullptr;
  int bits = 0;
  for (int length = rootBits + 1; length <= deflate::maxCodeLength; ++length) {
    int left = order.count[length];
    codes.walk(length, left, [&](uint32_t symbol, uint32_t code) {
      if ((code & ((1u << rootBits) - 1)) != root) {
        root = code & ((1u << rootBits) - 1);
        bits = subtableBits(order, length, left, rootBits);
        table[root] = static_cast<uint32_t>(used) << kernels::entryValueShift |
                      static_cast<uint32_t>(bits) << kernels::entryCodeBitsShift |
                      kernels::entryException | kernels::entrySubtable |
                      static_cast<uint32_t>(rootBits);
        subtable = table + used;
        used += 1 << bits;
        std::fill_n(subtable, 1 << bits, invalidSymbol | codeBitsEntry(bits));
      }
      const uint32_t entry = entries[symbol] + codeBitsEntry(length - rootBits);
      for (uint32_t i = code >> rootBits; i < (1u << bits); i += 1u << (length - rootBits)) {
        subtable[i] = entry;
      }
      --left;
    });
  }
  return used;
}

// Joins the literal of a code, of the length given by the bits that it leaves of the root, with
// every symbol whose code fits these bits. singles holds the single symbols of so many bits.
template <int bitsLeft>
constexpr void joinLiteral(uint32_t literal, uint32_t code, const uint32_t* singles,
                           uint32_t* table) {
  constexpr int length = kernels::litLenRootBits - bitsLeft;
  constexpr uint32_t firstFields = 0xFFu << kernels::entryValueShift;
  constexpr uint32_t codeBitsField = kernels::entryCodeBitsMask << kernels::entryCodeBitsShift;
  constexpr uint32_t longestFitting = static_cast<uint32_t>(bitsLeft)
                                      << kernels::entryCodeBitsShift;
  const uint32_t single = table[code];
  const uint32_t added = codeBitsEntry(length) + (1u << kernels::entryCountShift) +
                         (literal << kernels::entryValueShift);
  uint32_t joined[1 << bitsLeft];
  for (int i = 0; i < 1 << bitsLeft; ++i) {
    const uint32_t second = singles[i];
    // An exception counts as a code that is longer than any.
    const uint32_t codeBits = (second & codeBitsField) | (second & kernels::entryException) << 6;
    joined[i] = codeBits <= longestFitting ? (second & ~firstFields) + added : single;
  }
  for (uint32_t i = 0; i < 1u << bitsLeft; ++i) table[code | i << length] = joined[i];
}

// Joins literals, by the bits that their codes leave, from the most on.
template <int bitsLeft>
constexpr void joinLiterals(const CodeOrder& order, CodeWalk& codes, int shortest,
                            const uint32_t* singles, uint32_t* table) {
  if (bitsLeft < shortest) return;
  constexpr int length = kernels::litLenRootBits - bitsLeft;
  codes.walk(length, order.count[length], [&](uint32_t symbol, uint32_t code) {
    if (symbol < deflate::endOfBlock) joinLiteral<bitsLeft>(symbol, code, singles, table);
  });
  if constexpr (bitsLeft > 1) {
    joinLiterals<bitsLeft - 1>(order, codes, shortest, singles, table);
  }
}

constexpr void joinLiterals(const CodeOrder& order, uint32_t* table) {
  constexpr int mostBitsLeft = kernels::litLenRootBits - 1;
  int shortest = 1;
  while (shortest < deflate::maxCodeLength && order.count[shortest] == 0) ++shortest;
  uint32_t singles[1 << mostBitsLeft];
  std::copy_n(table, 1 << (kernels::litLenRootBits - std::min(shortest, mostBitsLeft)), singles);
  CodeWalk codes(order);
  joinLiterals<mostBitsLeft>(order, codes, shortest, singles, table);
}

constexpr int buildLitLenTable(const uint16_t* lengths, int symbolCount, uint32_t* table) {
  const CodeOrder order(lengths, symbolCount);
  const int used = buildTable(order, litLenEntries, kernels::litLenRootBits, table);
  joinLiterals(order, table);
  return used;
}

constexpr int buildDistanceTable(const uint16_t* lengths, int symbolCount, uint32_t* table) {
  return buildTable(CodeOrder(lengths, symbolCount), distanceEntries, kernels::distanceRootBits,
                    table);
}

}  // namespace zebdc::inflate

#endif
