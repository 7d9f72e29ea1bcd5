#include "deflate/code_lengths.h"

#include <algorithm>

namespace zebz {
namespace {

constexpr size_t symbolCount = 19;
constexpr unsigned longestCode = 7;
constexpr std::array<uint8_t, symbolCount> sendingOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                           11, 4,  12, 3, 13, 2, 14, 1, 15};

// Symbols up to 15 are lengths; these repeat the one before, or zero.
constexpr uint8_t symbolRepeat = 16;
constexpr uint8_t symbolFewZeros = 17;

// The code that the lengths are sent in, by the next 7 bits of the stream.
class LengthCode {
 public:
  explicit LengthCode(const std::array<uint8_t, symbolCount>& lengths) {
    uint32_t code = 0;  // as a number of 7 bits, first bit highest
    for (uint8_t length = 1; length <= longestCode; ++length) {
      for (uint8_t symbol = 0; symbol < symbolCount; ++symbol) {
        if (lengths[symbol] != length) continue;
        if (code >= entries_.size()) failDeflateFormat();
        enter({symbol, length}, code);
        code += static_cast<uint32_t>(entries_.size()) >> length;
      }
    }
  }

  uint8_t take(BitSource& bits) const {
    const Entry entry = entries_[bits.peek(longestCode)];
    if (entry.length == 0) failDeflateFormat();
    bits.drop(entry.length);
    return entry.symbol;
  }

 private:
  struct Entry {
    uint8_t symbol;
    uint8_t length;  // 0: no code
  };

  // At every index whose low bits are the code with its first bit lowest.
  void enter(Entry entry, uint32_t code) {
    uint32_t reversed = 0;
    for (unsigned bit = 0; bit < longestCode; ++bit) {
      reversed |= (code >> bit & 1) << (longestCode - 1 - bit);
    }
    for (size_t index = reversed; index < entries_.size(); index += size_t{1} << entry.length) {
      entries_[index] = entry;
    }
  }

  std::array<Entry, size_t{1} << longestCode> entries_{};
};

LengthCode readLengthCode(BitSource& bits) {
  std::array<uint8_t, symbolCount> lengths{};
  const size_t sent = bits.take(4) + 4;
  for (size_t i = 0; i < sent; ++i) lengths[sendingOrder[i]] = static_cast<uint8_t>(bits.take(3));
  return LengthCode(lengths);
}

// How often a symbol above 15 repeats.
uint32_t takeTimes(uint8_t symbol, BitSource& bits) {
  if (symbol == symbolRepeat) return 3 + bits.take(2);
  return symbol == symbolFewZeros ? 3 + bits.take(3) : 11 + bits.take(7);
}

}  // namespace

CodeLengths readCodeLengths(BitSource& bits) {
  CodeLengths codes;
  codes.litLenCount = bits.take(5) + 257;
  codes.distanceCount = bits.take(5) + 1;
  const LengthCode code = readLengthCode(bits);
  const size_t wanted = codes.litLenCount + codes.distanceCount;
  for (size_t count = 0; count < wanted;) {
    const uint8_t symbol = code.take(bits);
    if (symbol < symbolRepeat) {
      codes.lengths[count++] = symbol;
      continue;
    }
    if (symbol == symbolRepeat && count == 0) failDeflateFormat();
    const uint16_t length = symbol == symbolRepeat ? codes.lengths[count - 1] : uint16_t{0};
    const uint32_t times = takeTimes(symbol, bits);
    if (times > wanted - count) failDeflateFormat();
    std::fill_n(codes.lengths.begin() + static_cast<ptrdiff_t>(count), times, length);
    count += times;
  }
  return codes;
}

void failDeflateFormat() {
  throw DataError("invalid compressed data--format violated");
}

}  // namespace zebz
