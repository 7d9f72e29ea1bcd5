// The record of an LZSS encoder or decoder.
#ifndef ZEBDC_LZ_LZSS_STATE_H
#define ZEBDC_LZ_LZSS_STATE_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/lzss.h"

struct ZebLZSSState_8u {
  const int16_t* hashTable;  // encoder: three rows of 256; decoder: null
  int32_t* chain;            // encoder: chainTable
  int32_t* head;             // encoder: headTable
  uint8_t* history;          // historyArea
  // Encoder: historyOrigin + position is where the byte of an old position stands. It lies outside
  // the area for most positions and is computed as a number.
  uint8_t* historyOrigin;
  uint32_t position;      // bytes consumed (encoder) or produced (decoder) since Init, modulo 2^32
  int32_t bitCount;       // pending bits
  uint32_t bitBuffer;     // they, left-justified
  uint32_t bitBufferLow;  // encoder: the 32 bits behind them
  int32_t pendingDistance;  // decoder: of a match that was cut short
  uint32_t pendingLength;   // decoder: what is left of it
  int32_t chainTable[zebdc::kernels::lzssWindow];
  int32_t headTable[zebdc::kernels::lzssHashes];
  // Encoder: the last bytes in one piece, and room to go on; decoder: the byte of a position stands
  // at the position modulo 32768.
  uint8_t historyArea[2 * zebdc::kernels::lzssWindow];
};

static_assert(sizeof(ZebLZSSState_8u) == 327744);
static_assert(offsetof(ZebLZSSState_8u, position) == 40);
static_assert(offsetof(ZebLZSSState_8u, chainTable) == 64);

#endif
