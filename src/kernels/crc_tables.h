// Tables of the table-driven CRCs, made by their defining rules at compile time.
//
// A table-driven CRC in slicing form takes several bytes in one step: table k holds what a byte
// contributes to the register when k more bytes follow it in the step. All three tables are used
// with a register whose low byte meets the next byte of the message; that of the bzip2 CRC, whose
// definition shifts the other way, holds every entry with its bytes reversed and so works on the
// byte-reversed register.
#ifndef ZEBDC_KERNELS_CRC_TABLES_H
#define ZEBDC_KERNELS_CRC_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include <array>

#include "frame/bytes.h"

namespace zebdc::kernels {

using CrcTable = std::array<uint32_t, 256>;
inline constexpr size_t slices = 8;  // bytes taken in one step
using SlicingTables = std::array<CrcTable, slices>;

// One byte through a register whose least significant bit is the highest power of x.
constexpr CrcTable reflectedTable(uint32_t reflectedPolynomial) {
  CrcTable table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t entry = i;
    for (int bit = 0; bit < 8; ++bit) {
      entry = (entry >> 1) ^ ((entry & 1) != 0 ? reflectedPolynomial : 0);
    }
    table[i] = entry;
  }
  return table;
}

// One byte through a register whose most significant bit is the highest power of x, with the bytes
// of the register reversed.
constexpr CrcTable byteReversedTable(uint32_t polynomial) {
  CrcTable table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t entry = i << 24;
    for (int bit = 0; bit < 8; ++bit) {
      entry = (entry << 1) ^ ((entry >> 31) != 0 ? polynomial : 0);
    }
    table[i] = byteSwapped(entry);
  }
  return table;
}

// Each further table sends the entries of the one before it through one more zero byte.
constexpr SlicingTables slicingTables(const CrcTable& first) {
  SlicingTables tables{};
  tables[0] = first;
  for (size_t k = 1; k < slices; ++k) {
    for (size_t i = 0; i < 256; ++i) {
      const uint32_t previous = tables[k - 1][i];
      tables[k][i] = (previous >> 8) ^ first[previous & 0xFF];
    }
  }
  return tables;
}

inline constexpr auto crc32Tables = slicingTables(reflectedTable(0xEDB88320));
inline constexpr auto crc32cTables = slicingTables(reflectedTable(0x82F63B78));
inline constexpr auto crc32Bzip2Tables = slicingTables(byteReversedTable(0x04C11DB7));

}  // namespace zebdc::kernels

#endif
