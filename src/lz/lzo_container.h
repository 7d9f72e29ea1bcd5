// The container: up to 32 independently coded LZO1X streams.
//
//   offset      size       content
//   0           1          0x55
//   1           1          n, the number of parts, 1 to 32
//   2           1          n ^ 0x55
//   3           4          length of the decompressed whole
//   7           4 (n - 1)  sizes of the streams of all parts but the last
//   3 + 4 n                the streams, each with its end instruction
//
// Numbers are little-endian. All parts decompress to length / n bytes; the last one has the rest
// too.
#ifndef ZEBDC_LZ_LZO_CONTAINER_H
#define ZEBDC_LZ_LZO_CONTAINER_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::lz::container {

constexpr uint8_t mark = 0x55;
constexpr uint32_t maxParts = 32;
constexpr size_t countAt = 1;
constexpr size_t checkAt = 2;
constexpr size_t lengthAt = 3;
constexpr size_t sizesAt = 7;

constexpr size_t headerSize(uint32_t parts) {
  return 3 + 4 * size_t{parts};
}
static_assert(headerSize(1) == sizesAt);

// The piece of the whole that a part stands for.
struct Slice {
  uint32_t begin;
  uint32_t length;
};

constexpr Slice sliceOf(uint32_t part, uint32_t parts, uint32_t length) {
  const uint32_t each = length / parts;
  return {part * each, part + 1 == parts ? length - part * each : each};
}

}  // namespace zebdc::lz::container

#endif
