// RFC 1951 in numbers: alphabets, base values and extra bits.
#ifndef ZEBDC_DEFLATE_FORMAT_H
#define ZEBDC_DEFLATE_FORMAT_H

#include <stddef.h>
#include <stdint.h>

#include <array>

namespace zebdc::deflate {

inline constexpr int literalSymbols = 286;  // literals, end of block and lengths in use
inline constexpr int distanceSymbols = 30;
inline constexpr int codeLengthSymbols = 19;
inline constexpr int endOfBlock = 256;
inline constexpr int firstLengthSymbol = 257;
inline constexpr int maxCodeLength = 15;
inline constexpr int maxCodeLengthCodeLength = 7;
inline constexpr int minMatch = 3;
inline constexpr int maxMatch = 258;
inline constexpr int maxStoredBlock = 65535;

// BTYPE, and the three header bits that it makes with BFINAL.
enum BlockKind : uint32_t { storedBlock = 0, fixedBlock = 1, dynamicBlock = 2 };
inline constexpr uint32_t blockHeaderBits = 3;

constexpr uint32_t blockHeader(BlockKind kind, bool isFinal) {
  return static_cast<uint32_t>(kind) << 1 | static_cast<uint32_t>(isFinal);
}

// The order in which the lengths of the code-length code are sent.
inline constexpr std::array<uint8_t, codeLengthSymbols> codeLengthOrder = {
    16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

struct BaseAndExtra {
  uint16_t base;
  uint8_t extraBits;
};

// Length symbols 257 to 285: from 265 on every four symbols take one more extra bit; 285 is 258
// alone.
constexpr std::array<BaseAndExtra, 29> makeLengthCodes() {
  std::array<BaseAndExtra, 29> codes{};
  int base = minMatch;
  for (int i = 0; i < 28; ++i) {
    const int extra = i < 8 ? 0 : (i - 4) / 4;
    codes[static_cast<size_t>(i)] = {static_cast<uint16_t>(base), static_cast<uint8_t>(extra)};
    base += 1 << extra;
  }
  codes[28] = {maxMatch, 0};
  return codes;
}

// Distance symbols 0 to 29: from 4 on every two symbols take one more extra bit.
constexpr std::array<BaseAndExtra, distanceSymbols> makeDistanceCodes() {
  std::array<BaseAndExtra, distanceSymbols> codes{};
  int base = 1;
  for (int i = 0; i < distanceSymbols; ++i) {
    const int extra = i < 4 ? 0 : (i - 2) / 2;
    codes[static_cast<size_t>(i)] = {static_cast<uint16_t>(base), static_cast<uint8_t>(extra)};
    base += 1 << extra;
  }
  return codes;
}

inline constexpr auto lengthCodes = makeLengthCodes();
inline constexpr auto distanceCodes = makeDistanceCodes();

static_assert(lengthCodes[27].base == 227 && lengthCodes[27].extraBits == 5);
static_assert(distanceCodes[29].base == 24577 && distanceCodes[29].extraBits == 13);

// The fixed literal/length code's length of a symbol (0 to 287).
constexpr int fixedLiteralLength(int symbol) {
  return symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
}

inline constexpr uint32_t fixedDistanceLength = 5;

// The lowest length bits of code in reverse order, up to 16.
constexpr uint32_t reversedBits(uint32_t code, int length) {
  uint32_t all = code & 0xFFFF;
  all = (all & 0x5555) << 1 | (all >> 1 & 0x5555);
  all = (all & 0x3333) << 2 | (all >> 2 & 0x3333);
  all = (all & 0x0F0F) << 4 | (all >> 4 & 0x0F0F);
  all = (all & 0x00FF) << 8 | all >> 8;
  return all >> (16 - length);
}

}  // namespace zebdc::deflate

#endif
