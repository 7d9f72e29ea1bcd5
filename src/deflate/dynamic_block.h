// The codes and the header of a dynamic block, built for given pairs and kept in the record.
#ifndef ZEBDC_DEFLATE_DYNAMIC_BLOCK_H
#define ZEBDC_DEFLATE_DYNAMIC_BLOCK_H

#include <stddef.h>
#include <stdint.h>

#include "deflate/encoder_state.h"

namespace zebdc::deflate {

struct PairFrequencies {
  uint32_t items[kernels::pairItems];
  uint32_t distances[kernels::distanceClasses];
};

PairFrequencies countFrequencies(const ZebLZ77Pair* pairs, size_t pairsLen);

// The source bytes that the pairs stand for.
uint64_t sourceBytes(const PairFrequencies& frequencies);

// Fills the record's frequencies, codes and prepared header.
void prepareDynamicBlock(EncoderState& state, const PairFrequencies& frequencies);

}  // namespace zebdc::deflate

#endif
