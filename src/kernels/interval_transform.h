// Kernels of the generalized interval transform: its model, stepped once for every byte.
//
// The 256 byte values stand on leaves in a row, positions 0 to 255. A byte's interval is the number
// of bytes on later positions since its value last occurred. Value 255 stands on the last position
// for good: it has no interval.
//
// The encoder needs the sum of all counts behind a position. Instead of walking a tree it keeps the
// sums themselves, split in two: one addend for each group of 16 positions and one for each
// position. A byte adds 1 to all sums before its position: to the addends of the groups before its
// own, and to those of the positions before it in its group. Either is one or a few vector
// additions.
#ifndef ZEBDC_KERNELS_INTERVAL_TRANSFORM_H
#define ZEBDC_KERNELS_INTERVAL_TRANSFORM_H

#include <stddef.h>
#include <stdint.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

inline constexpr int intervalPositions = 256;
inline constexpr int intervalGroup = 16;
inline constexpr int intervalGroups = intervalPositions / intervalGroup;
inline constexpr int lastIntervalPosition = intervalPositions - 1;

// How the order of the values adapts.
enum class IntervalOrder : uint32_t {
  towardFront,  // a value with a greater count than the one before it takes that one's place
  towardBack,   // likewise with the one after it
  fixed,
};

// The adaptive parameter of one value's intervals.
struct IntervalStatistics {
  uint64_t sum;
  uint32_t count;
  uint32_t updates;  // since the last halving
  uint32_t k;
};

inline constexpr uint32_t initialIntervalParameter = 10;

// A bit stream of one value, most significant bit first. Bits behind the position are zeros.
struct IntervalStream {
  uint8_t* bytes;
  uint32_t byteIndex;
  uint32_t bitPosition;  // 0 to 7, in the current byte
};

// Values and their counts by position, shared by both directions.
struct IntervalLeaves {
  uint8_t positionOf[intervalPositions];
  uint8_t valueAt[intervalPositions];
  uint32_t count[intervalPositions];
};

struct IntervalEncoder {
  IntervalLeaves leaves;
  uint32_t groupSum[intervalGroups];
  uint32_t positionSum[intervalPositions];
  uint32_t storedSum[intervalPositions];             // the sum at the value's last occurrence
  IntervalStatistics statistics[intervalPositions];  // by stream
  IntervalStream streams[intervalPositions];         // of value 255 - index
  uint32_t streamLimit;                              // byteIndex at which a stream counts as full
};

// What a stream's buffer must hold behind streamLimit: the longest code has 5 escapes of 8 bits, a
// prefix of 8 and 62 low bits, and words of 8 bytes are stored from any bit on.
inline constexpr uint32_t intervalStreamSlack = (5 * 8 + 8 + 62) / 8 + 1 + 8;

// An interval stream as the decoder reads it.
struct IntervalSource {
  const uint8_t* bytes;
  uint64_t bit;     // next to read
  uint64_t bitEnd;  // past the last bit that may hold codes; a tail of at most 8 ones is padding
  uint64_t size;    // readable bytes
};

struct IntervalDecoder {
  IntervalLeaves leaves;
  // By position: bytes on later positions that are still to come before the value there does, and
  // the interval behind that one. noMoreIntervals and a little less: its stream has ended.
  uint32_t remaining[intervalPositions];
  uint32_t upcoming[intervalPositions];
  IntervalStatistics statistics[intervalPositions];
  IntervalSource sources[intervalPositions];
  uint64_t lastValueLeft;  // occurrences of value 255 still to come
};

// Intervals are below it. What is left before a value whose stream has ended is counted down, too,
// but never reaches the intervals: blocks of 2^31 bytes do not exist.
inline constexpr uint32_t noMoreIntervals = 0xFFFFFFFFu;

enum class IntervalResult { done, more, invalid };

struct IntervalKernels {
  // Codes len bytes. False when a stream is full.
  bool (*encode)(IntervalEncoder* encoder, const uint8_t* src, size_t len, IntervalOrder order);
  // Appends one interval to a stream. False when it is full.
  bool (*putInterval)(IntervalEncoder* encoder, int stream, uint32_t interval);

  // Reads the first two intervals of every value.
  IntervalResult (*startDecoding)(IntervalDecoder* decoder);
  // Decodes up to capacity bytes: done when the block has ended, more when the room ended first.
  IntervalResult (*decode)(IntervalDecoder* decoder, uint8_t* dst, size_t capacity,
                           IntervalOrder order, size_t* written);
  // Reads the next interval of a stream; done where only padding is left.
  IntervalResult (*getInterval)(IntervalSource* source, IntervalStatistics* statistics,
                                uint32_t* interval);
};

extern const TierTable<IntervalKernels> intervalKernels;

inline const IntervalKernels& intervalTransform() {
  return intervalKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
