// The inner loops of deflate decoding.
//
// They decode whole symbols as long as neither source nor room is near its end, and stop in front
// of the first symbol that they leave to their caller: the end of the block, an invalid symbol, or
// whatever comes within the margins below. A literal in front of a match that cannot be written may
// be left with it. Then every field tells the state between two symbols, the same that decoding
// symbol by symbol would have reached there.
#ifndef ZEBDC_KERNELS_INFLATE_BLOCK_H
#define ZEBDC_KERNELS_INFLATE_BLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/inflate_table.h"
#include "kernels/tier.h"

namespace zebdc::kernels {

// Source, and the bits taken from it. Bits above count are zero; count is 0 to 64.
struct InflateInput {
  const uint8_t* src;
  const uint8_t* end;
  uint64_t bits;
  int count;
};

// Room for bytes.
struct InflateBytes {
  uint8_t* begin;  // matches reach back to here within the room; at most dst
  uint8_t* dst;
  uint8_t* end;
};

struct InflatePairs {
  ZebLZ77Pair* dst;
  ZebLZ77Pair* end;
};

// The farthest that a match reaches back.
inline constexpr ptrdiff_t inflateReach = 32768;

// With less source or room than this the loops stop. Room up to the margin behind what they decoded
// may be overwritten. How the figures come about is told with the loop.
inline constexpr ptrdiff_t inflateSourceMargin = 24;
inline constexpr ptrdiff_t inflateBytesMargin = 304;
inline constexpr ptrdiff_t inflatePairsMargin = 10;

struct InflateKernels {
  // Matches that reach before begin stop the loop. With inflateReach bytes between begin and dst
  // none does.
  void (*toBytes)(InflateInput&, InflateBytes&, const InflateTables&);
  // Matches that reach before begin go on in the history, inflateReach bytes that end at
  // historyEnd. The 32 bytes behind it may be read.
  void (*toBytesWithHistory)(InflateInput&, InflateBytes&, const uint8_t* historyEnd,
                             const InflateTables&);
  void (*toPairs)(InflateInput&, InflatePairs&, const InflateTables&);
};

extern const TierTable<InflateKernels> inflateKernels;

inline const InflateKernels& inflate() {
  return inflateKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
