// The LZO encoder's record.
#ifndef ZEBDC_LZ_LZO_STATE_H
#define ZEBDC_LZ_LZO_STATE_H

#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/lzo.h"

struct ZebLZOState_8u {
  uint32_t method;     // zebLZOMethod1X1, or zebLZOMethod1X1Parts, which Init never stores
  uint32_t partCount;  // of a container, 1 to 32
  const uint8_t* partSource;
  uint32_t compressedSize;   // of the part, without its end instruction
  uint32_t pendingLiterals;  // of the part, which its kernel left
  uint64_t dictionary[zebdc::kernels::lzoDictionaryEntries];
  uint8_t* partOutput;
};

static_assert(sizeof(ZebLZOState_8u) == 131104);

#endif
