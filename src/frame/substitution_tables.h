// Tables of fixed random-looking values, by which hashes of several bytes are formed: one row of
// 256 values for each byte of the hashed string, combined by exclusive or.
#ifndef ZEBDC_FRAME_SUBSTITUTION_TABLES_H
#define ZEBDC_FRAME_SUBSTITUTION_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include <array>

namespace zebdc {

// SplitMix64: every output bit depends on every bit of the seed and the position.
constexpr uint64_t mixedBits(uint64_t seed, uint64_t position) {
  uint64_t z = seed + (position + 1) * 0x9E3779B97F4A7C15u;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

// Three rows of 15-bit values between 46 and 32764, for the 15-bit hash of three bytes. The first
// three values of each row are fixed; a row holds no value twice, so that strings which differ in
// one byte never collide.
constexpr std::array<uint16_t, 768> makeThreeByteHashRows() {
  constexpr uint16_t fixed[3][3] = {
      {18845, 15810, 11527}, {23403, 25964, 7330}, {23616, 7640, 29028}};
  constexpr uint32_t lowest = 46;
  constexpr uint32_t highest = 32764;
  std::array<uint16_t, 768> rows{};
  for (size_t row = 0; row < 3; ++row) {
    std::array<bool, 32768> taken{};
    uint64_t position = 0;
    for (size_t i = 0; i < 256; ++i) {
      uint32_t value = i < 3 ? fixed[row][i] : 0;
      while (i >= 3) {
        value = lowest + static_cast<uint32_t>(mixedBits(row + 1, position++) >> 32) %
                             (highest - lowest + 1);
        if (!taken[value]) break;
      }
      taken[value] = true;
      rows[row * 256 + i] = static_cast<uint16_t>(value);
    }
  }
  return rows;
}

inline constexpr std::array<uint16_t, 768> threeByteHashRows = makeThreeByteHashRows();

// The 15-bit hash of three bytes.
inline uint32_t threeByteHash(uint8_t b0, uint8_t b1, uint8_t b2) {
  return static_cast<uint32_t>(threeByteHashRows[b0] ^ threeByteHashRows[256 + b1] ^
                               threeByteHashRows[512 + b2]);
}

// Three rows of 32-bit values, for hashes of three bytes that are cut to a table's size.
constexpr std::array<uint32_t, 768> makeWideHashRows() {
  std::array<uint32_t, 768> rows{};
  for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<uint32_t>(mixedBits(4, i) >> 32);
  return rows;
}

inline constexpr std::array<uint32_t, 768> wideHashRows = makeWideHashRows();

// The 32-bit hash of three bytes.
inline uint32_t wideHash(uint8_t b0, uint8_t b1, uint8_t b2) {
  return wideHashRows[b0] ^ wideHashRows[256 + b1] ^ wideHashRows[512 + b2];
}

}  // namespace zebdc

#endif
