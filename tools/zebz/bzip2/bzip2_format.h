// The numbers of the bzip2 file format, which is a stream of bits, most significant bit first:
//
//   "BZh", a digit 1 to 9: the level
//   any number of blocks: the block magic, the CRC of the block's data, 1 bit that is always 0
//     today, the origin pointer of the sorted block (24 bits), the map of the byte values in use,
//     and the coded block
//   the end magic, and a CRC put together from those of the blocks
//   zero bits up to a whole byte
//
// Streams may follow one another.
#ifndef ZEBZ_BZIP2_BZIP2_FORMAT_H
#define ZEBZ_BZIP2_BZIP2_FORMAT_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace zebz {

constexpr std::string_view bzip2Signature = "BZh";
constexpr size_t bzip2HeaderSize = 4;
constexpr int bzip2LowestLevel = 1;
constexpr int bzip2HighestLevel = 9;

constexpr int bzip2MagicBits = 48;
constexpr uint64_t bzip2BlockMagic = 0x314159265359;
constexpr uint64_t bzip2EndMagic = 0x177245385090;
constexpr int bzip2CrcBits = 32;
constexpr int bzip2OriginBits = 24;

// How much text, which is what the first run-length stage makes of the data, a block may hold.
constexpr size_t bzip2TextLimit(int level) {
  return static_cast<size_t>(level) * 100'000;
}
constexpr size_t bzip2LargestText = bzip2TextLimit(bzip2HighestLevel);

// Values in use, the end of the block, and two digits of zero runs for the first rank.
constexpr int bzip2AlphabetSize(int valuesInUse) {
  return valuesInUse + 2;
}

constexpr uint32_t combineBzip2Crc(uint32_t streamCrc, uint32_t blockCrc) {
  return (streamCrc << 1 | streamCrc >> 31) ^ blockCrc;
}

}  // namespace zebz

#endif
