// The code lengths that stand at the beginning of a dynamic block, RFC 1951, 3.2.7.
#ifndef ZEBZ_DEFLATE_CODE_LENGTHS_H
#define ZEBZ_DEFLATE_CODE_LENGTHS_H

#include <array>

#include "deflate/bit_source.h"

namespace zebz {

// Those of the literal/length codes, and behind them those of the distance codes.
struct CodeLengths {
  static constexpr size_t mostLitLens = 288;
  static constexpr size_t mostDistances = 32;

  std::array<uint16_t, mostLitLens + mostDistances> lengths{};
  uint32_t litLenCount = 0;
  uint32_t distanceCount = 0;
};

CodeLengths readCodeLengths(BitSource& bits);

[[noreturn]] void failDeflateFormat();

}  // namespace zebz

#endif
