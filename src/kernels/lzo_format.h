// The numbers of the LZO1X instruction set.
#ifndef ZEBDC_KERNELS_LZO_FORMAT_H
#define ZEBDC_KERNELS_LZO_FORMAT_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::kernels::lzoformat {

// First bytes from which on an instruction is a match of the kind; the numbers 2, 3 and 4 are the
// format's own names for the kinds.
constexpr uint32_t firstM4 = 16;
constexpr uint32_t firstM3 = 32;
constexpr uint32_t firstM2 = 64;

constexpr size_t maxDistanceM2 = 2048;
constexpr size_t maxDistanceM3 = 16384;
constexpr size_t maxDistanceM4 = 49151;
constexpr size_t baseDistanceM4 = 16384;  // and the distance that ends the stream

constexpr size_t maxLengthM2 = 8;
// The longest matches of one byte's length field; an extension counts from here on.
constexpr size_t plainLengthM3 = 33;
constexpr size_t plainLengthM4 = 9;

// Literal runs: one byte codes 4 to 18 of them; an extension counts from 18 on.
constexpr size_t shortestRun = 4;
constexpr size_t plainRun = 18;
// A run at the beginning of a stream is the byte firstRunBase + count, up to 255.
constexpr uint32_t firstRunBase = 17;
constexpr size_t longestFirstRun = 238;

constexpr size_t extensionStep = 255;

static_assert(firstRunBase + longestFirstRun == 255);
static_assert(maxDistanceM4 == baseDistanceM4 + 16384 + 16383);

}  // namespace zebdc::kernels::lzoformat

#endif
