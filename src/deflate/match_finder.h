// From source bytes to pairs: the frame around the match-finding kernels.
#ifndef ZEBDC_DEFLATE_MATCH_FINDER_H
#define ZEBDC_DEFLATE_MATCH_FINDER_H

#include <stdint.h>

#include "deflate/encoder_state.h"

namespace zebdc::deflate {

// A source and the room for its pairs; find advances both.
struct MatchCursor {
  const uint8_t* source;
  int sourceLength;
  ZebLZ77Pair* pairs;
  int room;
};

// One call of the match finder. Arguments are valid: counts not negative, pointers not null.
ZebStatus findMatches(EncoderState& state, MatchCursor& cursor, ZebLZ77Flush flush);

// Primes the record with up to 32768 last bytes of a dictionary of 3 bytes or more.
void setDictionary(EncoderState& state, const uint8_t* dictionary, int length);

}  // namespace zebdc::deflate

#endif
