#include "inflate/fixed_tables.h"

#include <array>

#include "inflate/huffman_table.h"

namespace zebdc::inflate {
namespace {

// No fixed code is longer than a root has bits: there are no subtables.
using FixedLitLenTable = std::array<uint32_t, 1 << kernels::litLenRootBits>;
using FixedDistanceTable = std::array<uint32_t, 1 << kernels::distanceRootBits>;

constexpr std::array<uint16_t, litLenCodes> makeLitLenLengths() {
  std::array<uint16_t, litLenCodes> lengths{};
  for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    lengths[symbol] = static_cast<uint16_t>(deflate::fixedLiteralLength(static_cast<int>(symbol)));
  }
  return lengths;
}
constexpr std::array<uint16_t, litLenCodes> litLenLengths = makeLitLenLengths();

constexpr FixedLitLenTable makeLitLenTable() {
  FixedLitLenTable table{};
  buildLitLenTable(litLenLengths.data(), litLenCodes, table.data());
  return table;
}
constexpr FixedLitLenTable litLenTable = makeLitLenTable();

constexpr FixedDistanceTable makeDistanceTable() {
  std::array<uint16_t, distanceCodes> lengths{};
  lengths.fill(5);
  FixedDistanceTable table{};
  buildDistanceTable(lengths.data(), distanceCodes, table.data());
  return table;
}
constexpr FixedDistanceTable distanceTable = makeDistanceTable();

}  // namespace

constinit const kernels::InflateTables fixedTables = {litLenTable.data(), distanceTable.data(),
                                                      litLenLengths.data()};

}  // namespace zebdc::inflate
