// The records of the generalized interval transform.
//
// The encoder's record ends in the buffers of its 256 streams, the decoder's in room for a joined
// block, of which it makes no use: it reads the streams where the caller's block holds them.
#ifndef ZEBDC_HUFFMAN_GIT_STATE_H
#define ZEBDC_HUFFMAN_GIT_STATE_H

#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/interval_transform.h"

// The public type is the common beginning of either record.
struct ZebGITState_8u {
  int32_t maxSrcLen;
  int32_t maxDstLen;
};

namespace zebdc::huffman {

inline constexpr int minGitSrcLen = 4096;
inline constexpr int minGitDstLen = 8192;
inline constexpr int gitStreams = kernels::intervalPositions;
inline constexpr int gitStreamSlack = 40;  // of each stream's buffer, beyond the source length

// What the records hold beside the stream buffers and the output or source area.
inline constexpr int gitEncoderFixedSize = 46264;
inline constexpr int gitDecoderFixedSize = 30952;

struct GitEncoderState : ZebGITState_8u {
  kernels::IntervalEncoder model;
};

struct GitDecoderState : ZebGITState_8u {
  kernels::IntervalDecoder model;
};

static_assert(sizeof(GitEncoderState) <= gitEncoderFixedSize - gitStreams * gitStreamSlack);
static_assert(sizeof(GitDecoderState) <= gitDecoderFixedSize);
static_assert(kernels::intervalStreamSlack <= gitStreamSlack);

// The order of the values that a strategy hint stands for. Hints outside the set count as 0.
kernels::IntervalOrder orderOfHint(int strategyHint);

// Puts every value on the position of its own number, with a count of 0.
void resetLeaves(kernels::IntervalLeaves& leaves);

void resetStatistics(kernels::IntervalStatistics* statistics);

}  // namespace zebdc::huffman

#endif
