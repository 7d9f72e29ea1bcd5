// Code words for pairs: a code's table over symbols, spread over the lengths and distances that the
// coding loop looks up.
#ifndef ZEBDC_DEFLATE_PAIR_CODES_H
#define ZEBDC_DEFLATE_PAIR_CODES_H

#include <stddef.h>
#include <stdint.h>

#include <array>

#include "deflate/format.h"
#include "deflate/huffman_code.h"
#include "kernels/pair_coding.h"

namespace zebdc::deflate {

// The symbol, less firstLengthSymbol, of each match length from 3.
constexpr std::array<uint8_t, maxMatch - minMatch + 1> makeLengthSymbols() {
  std::array<uint8_t, maxMatch - minMatch + 1> symbols{};
  for (size_t symbol = 0; symbol < lengthCodes.size(); ++symbol) {
    const size_t first = lengthCodes[symbol].base - size_t{minMatch};
    const size_t count = size_t{1} << lengthCodes[symbol].extraBits;
    for (size_t i = first; i < first + count && i < symbols.size(); ++i) {
      symbols[i] = static_cast<uint8_t>(symbol);
    }
  }
  return symbols;
}

inline constexpr auto lengthSymbols = makeLengthSymbols();
static_assert(lengthSymbols[257 - minMatch] == 27 && lengthSymbols[258 - minMatch] == 28);

// Offsets beyond 32768 are no distances, but they have classes too: these stand for two symbols
// more, which get no code.
inline constexpr int distanceSymbolsWithInvalid = distanceSymbols + 2;

constexpr BaseAndExtra distanceCode(int symbol) {
  if (symbol < distanceSymbols) return distanceCodes[static_cast<size_t>(symbol)];
  return {static_cast<uint16_t>(symbol == distanceSymbols ? 32769 : 49153), 14};
}

// The class that all distances of a symbol share.
constexpr uint32_t classOfDistanceSymbol(int symbol) {
  return kernels::distanceClass(distanceCode(symbol).base);
}

// Fills items[kernels::pairItems] and distances[kernels::distanceClasses].
constexpr void spreadCodes(const OutputBits* literalCodes, const OutputBits* symbolDistanceCodes,
                           uint32_t* items, uint64_t* distances) {
  for (uint32_t byte = 0; byte < 256; ++byte) {
    items[kernels::literalItem(byte)] =
        kernels::packItem(literalCodes[byte].bits, literalCodes[byte].count);
  }
  for (uint32_t length = minMatch; length <= maxMatch; ++length) {
    const uint32_t symbol = lengthSymbols[length - minMatch];
    const BaseAndExtra range = lengthCodes[symbol];
    const OutputBits code = literalCodes[firstLengthSymbol + symbol];
    items[kernels::matchItem(length)] = kernels::packItem(
        code.bits | (length - range.base) << code.count, code.count + range.extraBits);
  }
  for (int i = 0; i < kernels::distanceClasses; ++i) distances[i] = 0;
  for (int symbol = 0; symbol < distanceSymbolsWithInvalid; ++symbol) {
    const BaseAndExtra range = distanceCode(symbol);
    const OutputBits code =
        symbol < distanceSymbols ? symbolDistanceCodes[symbol] : OutputBits{0, 0};
    distances[classOfDistanceSymbol(symbol)] =
        kernels::packDistance(code.bits, code.count, range.base, range.extraBits);
  }
}

}  // namespace zebdc::deflate

#endif
