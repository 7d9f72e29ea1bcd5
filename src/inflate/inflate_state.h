// The record of the inflater whose caller parses block headers itself, as the public header lays it
// out, and what its partial-decode context means.
#ifndef ZEBDC_INFLATE_INFLATE_STATE_H
#define ZEBDC_INFLATE_INFLATE_STATE_H

#include <stddef.h>
#include <zebdc/zebdc.h>

#include "inflate/huffman_table.h"
#include "kernels/inflate_fast_table.h"

namespace zebdc::inflate {

static_assert(offsetof(ZebInflateState, historySize) == 8);
static_assert(offsetof(ZebInflateState, tableKind) == 12);
static_assert(sizeof(ZebInflateState) <= 48 * 1024);
static_assert(offsetof(ZebInflateState, tables) == 40);
static_assert(ZEB_INFLATE_LITLEN_ENTRIES >= litLenTableRoom);
static_assert(ZEB_INFLATE_DISTANCE_ENTRIES >= distanceTableRoom);
static_assert(sizeof(ZebInflateFastTables::litLen) == sizeof(uint16_t) << kernels::fastLitLenBits);
static_assert(sizeof(ZebInflateFastTables::distance) == 1 << kernels::fastDistanceBits);
static_assert(offsetof(ZebInflateFastTables, distanceBase) ==
              offsetof(ZebInflateFastTables, distance) + 1024);

// Where a symbol was left off. Each step is complete before the next begins, so that no more than
// 15 bits have to wait in the caller's bit buffer.
enum PartialStep : uint32_t {
  stepBlockDone = 0,      // the end-of-block symbol was read
  stepSymbol = 1,         // at a symbol boundary
  stepLengthExtra = 2,    // a length is decoded but for its extra bits
  stepDistance = 3,       // the distance symbol is to read
  stepDistanceExtra = 4,  // a distance is decoded but for its extra bits
  stepCopy = 5,           // a match is being copied and waits for room
  stepLiteral = 6,        // a literal is decoded and waits for room
  stepInvalid = 7,
};

}  // namespace zebdc::inflate

#endif
