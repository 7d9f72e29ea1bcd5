// A magic of 48 bits that begins `shift` bits into a byte touches six or seven bytes and covers the
// second and the third of them whole, whatever the shift. A table for each of these two tells for
// which shifts the byte is what it would have to be. Where they agree on a shift, which in random
// data happens about once in 8000 bytes, all 48 bits are looked at.
#include "bzip2/block_scanner.h"

#include <array>
#include <bit>

#include "bzip2/bzip2_format.h"

namespace zebz {
namespace {

constexpr int spanBytes = 7;

// Bit s stands for a magic that begins s bits into the first byte.
using ShiftMasks = std::array<uint8_t, 256>;

constexpr ShiftMasks masksOfByte(int index) {
  ShiftMasks masks{};
  for (int shift = 0; shift < 8; ++shift) {
    const int bitsBehind = bzip2MagicBits - 8 * (index + 1) + shift;
    masks[bzip2BlockMagic >> bitsBehind & 0xFF] |= static_cast<uint8_t>(1 << shift);
  }
  return masks;
}

constexpr ShiftMasks secondByte = masksOfByte(1);
constexpr ShiftMasks thirdByte = masksOfByte(2);
static_assert(secondByte[0x41] == 1 && thirdByte[0x59] == 1);

constexpr bool isMagicAt(uint64_t span, int shift) {
  constexpr uint64_t mask = (uint64_t{1} << bzip2MagicBits) - 1;
  return (span >> (8 * spanBytes - bzip2MagicBits - shift) & mask) == bzip2BlockMagic;
}

}  // namespace

std::optional<uint64_t> BlockScanner::next(const ChunkedInput& input) {
  while (position_ < input.end()) {
    for (const uint8_t byte : input.chunkFrom(position_)) {
      recent_ = recent_ << 8 | byte;
      ++position_;
      unsigned shifts = secondByte[recent_ >> 40 & 0xFF] & thirdByte[recent_ >> 32 & 0xFF];
      for (; shifts != 0; shifts &= shifts - 1) {
        const int shift = std::countr_zero(shifts);
        if (isMagicAt(recent_, shift)) {
          return 8 * (position_ - spanBytes) + static_cast<uint64_t>(shift);
        }
      }
    }
  }
  return std::nullopt;
}

}  // namespace zebz
