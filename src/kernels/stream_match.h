// Match finding for callers that keep window, hash tables and output arrays of their own.
#ifndef ZEBDC_KERNELS_STREAM_MATCH_H
#define ZEBDC_KERNELS_STREAM_MATCH_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

// How thoroughly a level searches.
struct StreamSearch {
  uint32_t chain;  // candidates looked at
  uint32_t nice;   // a match of this length ends the search
  // Greedy search: up to this length all positions of a match are entered, else the first alone.
  uint32_t entered;
  // Lazy search: a match of length lazy is taken without a look at the next position, and from
  // length good on that look is given a quarter of the candidates.
  uint32_t lazy;
  uint32_t good;
  uint32_t farthest3;  // the greatest distance at which a match of 3 bytes is worth its code
};

// One call's work. Positions count all bytes of the stream; the byte of an earlier position q is
// window[q & (windowSize - 1)], those of this call are in the source.
struct StreamMatchRun {
  const uint8_t* src;
  uint32_t srcLen;
  uint32_t srcPosition;  // of the first source byte
  const uint8_t* window;
  uint32_t windowSize;
  uint32_t* head;
  uint32_t* chain;
  uint32_t hashMask;

  uint32_t* literalFrequencies;
  uint32_t* distanceFrequencies;
  uint8_t* literals;    // a literal, or a match length - 3
  uint16_t* distances;  // 0 for a literal
  uint32_t room;        // in items

  uint32_t consumed;  // out
  uint32_t written;   // out, in items
};

struct StreamMatchKernels {
  void (*findSingle)(StreamMatchRun& run);
  void (*findGreedy)(StreamMatchRun& run, const StreamSearch& search);
  void (*findLazy)(StreamMatchRun& run, const StreamSearch& search);
};

extern const TierTable<StreamMatchKernels> streamMatchKernels;

inline const StreamMatchKernels& streamMatch() {
  return streamMatchKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
