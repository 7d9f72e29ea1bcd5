// What encoder and decoder of the generalized interval transform start from.

#include <string.h>

#include "huffman/git_state.h"

namespace zebdc::huffman {

kernels::IntervalOrder orderOfHint(int strategyHint) {
  switch (strategyHint) {
    case zebGITStrategyNodeSwap:
      return kernels::IntervalOrder::towardBack;
    case zebGITStrategyStatic:
      return kernels::IntervalOrder::fixed;
    default:
      return kernels::IntervalOrder::towardFront;
  }
}

void resetLeaves(kernels::IntervalLeaves& leaves) {
  for (int i = 0; i < kernels::intervalPositions; ++i) {
    leaves.positionOf[i] = static_cast<uint8_t>(i);
    leaves.valueAt[i] = static_cast<uint8_t>(i);
  }
  memset(leaves.count, 0, sizeof leaves.count);
}

void resetStatistics(kernels::IntervalStatistics* statistics) {
  for (int i = 0; i < gitStreams; ++i) {
    statistics[i] = {0, 0, 0, kernels::initialIntervalParameter};
  }
}

}  // namespace zebdc::huffman
