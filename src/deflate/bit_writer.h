// Bits into bytes, least significant first, into room that may run out at any byte.
//
// The bits wait in a word of 64. Whoever adds bits drains the whole bytes first; where room is
// left, fewer than 8 bits stay behind, and where more stay behind the room is used up.
#ifndef ZEBDC_DEFLATE_BIT_WRITER_H
#define ZEBDC_DEFLATE_BIT_WRITER_H

#include <stdint.h>

#include "kernels/pair_coding.h"

namespace zebdc::deflate {

using kernels::BitSink;

inline void drain(BitSink& sink) {
  while (sink.count >= 8 && sink.room > 0) {
    *sink.dst++ = static_cast<uint8_t>(sink.bits);
    --sink.room;
    sink.bits >>= 8;
    sink.count -= 8;
  }
}

// Drains and says whether the room sufficed.
inline bool drained(BitSink& sink) {
  drain(sink);
  return sink.count < 8;
}

// The bits above count must be zero, and all must fit in 64 with those in hand.
inline void put(BitSink& sink, uint64_t bits, uint32_t count) {
  sink.bits |= bits << sink.count;
  sink.count += count;
}

inline void padToByte(BitSink& sink) {
  sink.count = (sink.count + 7) & ~7u;
}

}  // namespace zebdc::deflate

#endif
