// Match finding for callers that keep window, hash tables and output arrays of their own.
//
// Table entries may be anything: zeros, stale positions, positions of another stream. An entry e is
// followed at position p only where e < p and p - e < windowSize, and every step along a chain must
// lead further back, so that no table content leads outside the window and the source or in
// circles.

#include "kernels/stream_match.h"

#include <algorithm>
#include <array>
#include <bit>

#include "frame/bytes.h"
#include "frame/substitution_tables.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t minMatch = 3;
constexpr uint32_t maxMatch = 258;
constexpr uint32_t firstLengthSymbol = 257;

// --- symbols

// Of a length - 3: two bits below the leading one select within a group of four symbols.
constexpr uint8_t lengthSymbol(uint32_t lengthMinus3) {
  if (lengthMinus3 < 8) return static_cast<uint8_t>(lengthMinus3);
  if (lengthMinus3 == maxMatch - minMatch) return 28;
  const uint32_t extra = static_cast<uint32_t>(std::bit_width(lengthMinus3)) - 3;
  return static_cast<uint8_t>(4 * extra + (lengthMinus3 >> extra));
}

// Of a distance - 1: one bit below the leading one selects within a group of two.
constexpr uint8_t distanceSymbol(uint32_t distanceMinus1) {
  if (distanceMinus1 < 4) return static_cast<uint8_t>(distanceMinus1);
  const uint32_t extra = static_cast<uint32_t>(std::bit_width(distanceMinus1)) - 2;
  return static_cast<uint8_t>(2 * extra + (distanceMinus1 >> extra));
}

constexpr std::array<uint8_t, 256> makeLengthSymbols() {
  std::array<uint8_t, 256> symbols{};
  for (uint32_t i = 0; i < 256; ++i) symbols[i] = lengthSymbol(i);
  return symbols;
}

constexpr std::array<uint8_t, 256> lengthSymbols = makeLengthSymbols();
static_assert(lengthSymbols[254] == 27 && lengthSymbols[8] == 8 && lengthSymbols[11] == 9);
static_assert(distanceSymbol(32767) == 29 && distanceSymbol(24575) == 28 && distanceSymbol(4) == 4);

// --- the strings

struct Match {
  uint32_t length;
  uint32_t distance;
};

// The bytes that two places share, up to limit; both have that many.
ZEBDC_ALWAYS_INLINE uint32_t commonLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  uint32_t length = 0;
  while (length + 8 <= limit) {
    const uint64_t difference = load<uint64_t>(a + length) ^ load<uint64_t>(b + length);
    if (difference != 0) {
      return length + static_cast<uint32_t>(std::countr_zero(difference)) / 8;
    }
    length += 8;
  }
  while (length < limit && a[length] == b[length]) ++length;
  return length;
}

// The bytes of an earlier position that lie in one piece.
struct Piece {
  const uint8_t* begin;
  uint32_t size;
};

// The piece that begins a distance before an offset of the source.
ZEBDC_ALWAYS_INLINE Piece pieceBehind(const StreamMatchRun& run, uint32_t offset,
                                      uint32_t distance) {
  if (distance <= offset) {
    const uint32_t begin = offset - distance;
    return {run.src + begin, run.srcLen - begin};
  }
  const uint32_t beforeSource = distance - offset;
  const uint32_t place = (run.srcPosition - beforeSource) & (run.windowSize - 1);
  return {run.window + place, std::min(run.windowSize - place, beforeSource)};
}

// The rest of a match whose first piece was used up.
uint32_t commonLengthAcross(const StreamMatchRun& run, uint32_t offset, uint32_t distance,
                            uint32_t length, uint32_t limit) {
  while (length < limit) {
    const Piece piece = pieceBehind(run, offset + length, distance);
    const uint32_t most = std::min(piece.size, limit - length);
    const uint32_t more = commonLength(run.src + offset + length, piece.begin, most);
    length += more;
    if (more < most) break;
  }
  return length;
}

// --- hashing

ZEBDC_ALWAYS_INLINE uint32_t hashAt(const StreamMatchRun& run, uint32_t offset) {
  const uint8_t* const b = run.src + offset;
  return wideHash(b[0], b[1], b[2]) & run.hashMask;
}

// Enters a position and returns what stood at its head.
ZEBDC_ALWAYS_INLINE uint32_t insertAt(const StreamMatchRun& run, uint32_t offset) {
  const uint32_t position = run.srcPosition + offset;
  uint32_t& head = run.head[hashAt(run, offset)];
  const uint32_t before = head;
  run.chain[position & (run.windowSize - 1)] = before;
  head = position;
  return before;
}

// Enters the positions behind a match's first, as far as three bytes are there to hash.
ZEBDC_ALWAYS_INLINE void insertInterior(const StreamMatchRun& run, uint32_t from, uint32_t to) {
  const uint32_t hashable = run.srcLen - (minMatch - 1);
  for (uint32_t offset = from; offset < std::min(to, hashable); ++offset) insertAt(run, offset);
}

// --- searching

// Where the walk stands. It follows the table entries themselves, so that one load waits for
// nothing but the one before it; a candidate lies as far back as its entry lies before base.
struct Walk {
  uint32_t entry;
  uint32_t base;  // the position, or that of the part whose occurrences are followed
};

// A longer match holds all of the best one, so it begins no nearer than any part of the best one
// occurred before. Walks on along the part whose earlier occurrence lies farthest back, and so
// skips candidates that cannot be longer. Entries of positions that were never entered may lead too
// far: that costs a match now and then, not correctness.
ZEBDC_ALWAYS_INLINE Walk farthestNext(const StreamMatchRun& run, uint32_t position, Match best) {
  const uint32_t mask = run.windowSize - 1;
  const uint32_t candidate = position - best.distance;
  Walk walk = {run.chain[candidate & mask], position};
  // Parts that reach the position itself are not in the tables yet.
  const uint32_t parts = std::min(best.length - minMatch + 1, best.distance);
  for (uint32_t shift = 1; shift < parts; ++shift) {
    const uint32_t entry = run.chain[(candidate + shift) & mask];
    const uint32_t base = position + shift;
    if (base - entry > walk.base - walk.entry) walk = {entry, base};
  }
  return walk;
}

// The longest match that beats the given length, nearest first. Needs 3 bytes at the offset.
template <bool thorough>
ZEBDC_ALWAYS_INLINE Match searchChain(const StreamMatchRun& run, uint32_t offset,
                                      uint32_t candidate, uint32_t candidates, uint32_t nice,
                                      Match best) {
  const uint8_t* const string = run.src + offset;
  const uint32_t position = run.srcPosition + offset;
  const uint32_t limit = std::min(run.srcLen - offset, maxMatch);
  if (best.length >= limit) return best;
  nice = std::min(nice, limit);
  const uint32_t* const chain = run.chain;
  const uint32_t mask = run.windowSize - 1;
  // An entry that is not below the position has a distance above it.
  const uint32_t farthest = std::min(run.windowSize - 1, position);
  // A longer match agrees in the four bytes that end just behind the best one.
  uint32_t wanted = best.length >= minMatch ? load<uint32_t>(string + best.length - 3) : 0;
  Walk walk = {candidate, position};
  uint32_t distance = 0;
  for (; candidates > 0; --candidates) {
    const uint32_t distanceBefore = distance;
    distance = walk.base - walk.entry;
    if (distance > farthest || distance <= distanceBefore) break;
    uint32_t length = 0;
    if (distance <= offset) [[likely]] {
      const uint8_t* const earlier = string - distance;
      if (best.length < minMatch || load<uint32_t>(earlier + best.length - 3) == wanted) {
        length = commonLength(string, earlier, limit);
      }
    } else {
      const Piece piece = pieceBehind(run, offset, distance);
      const bool testable = best.length >= minMatch && best.length < piece.size;
      if (!testable || load<uint32_t>(piece.begin + best.length - 3) == wanted) {
        length = commonLength(string, piece.begin, std::min(limit, piece.size));
        if (length == piece.size) length = commonLengthAcross(run, offset, distance, length, limit);
      }
    }
    if (length > best.length) {
      best = {length, distance};
      if (length >= nice) break;
      if (length >= minMatch) wanted = load<uint32_t>(string + length - 3);
      if (thorough && length > minMatch) {
        walk = farthestNext(run, position, best);
        continue;
      }
    }
    walk.entry = chain[walk.entry & mask];
  }
  return best;
}

// --- output

ZEBDC_ALWAYS_INLINE void putLiteral(StreamMatchRun& run, uint32_t offset) {
  const uint8_t literal = run.src[offset];
  run.literals[run.written] = literal;
  run.distances[run.written++] = 0;
  ++run.literalFrequencies[literal];
}

ZEBDC_ALWAYS_INLINE void putMatch(StreamMatchRun& run, Match match) {
  run.literals[run.written] = static_cast<uint8_t>(match.length - minMatch);
  run.distances[run.written++] = static_cast<uint16_t>(match.distance);
  ++run.literalFrequencies[firstLengthSymbol + lengthSymbols[match.length - minMatch]];
  ++run.distanceFrequencies[distanceSymbol(match.distance - 1)];
}

// --- the finders. A position is entered only when its item is sure to be written, so that a call
// which ran out of room can be repeated from there.

ZEBDC_ALWAYS_INLINE bool worthTaking(const StreamSearch& search, Match match) {
  return match.length > minMatch ||
         (match.length == minMatch && match.distance <= search.farthest3);
}

ZEBDC_ALWAYS_INLINE void findSingleBody(StreamMatchRun& run) {
  uint32_t offset = 0;
  uint32_t hash = 0;
  if (run.srcLen >= minMatch) hash = (static_cast<uint32_t>(run.src[0]) << 5) ^ run.src[1];
  // Rolls the hash on to the offset and enters it; returns what stood there.
  const auto enter = [&](uint32_t at) {
    hash = ((hash << 5) ^ run.src[at + 2]) & run.hashMask;
    const uint32_t before = run.head[hash];
    run.head[hash] = run.srcPosition + at;
    return before;
  };
  while (offset < run.srcLen && run.written < run.room) {
    if (run.srcLen - offset < minMatch) {
      putLiteral(run, offset++);
      continue;
    }
    const uint32_t candidate = enter(offset);
    const Match match = searchChain<false>(run, offset, candidate, 1, maxMatch, {minMatch - 1, 0});
    if (match.length < minMatch) {
      putLiteral(run, offset++);
      continue;
    }
    putMatch(run, match);
    const uint32_t next = offset + match.length;
    const uint32_t hashable = run.srcLen - (minMatch - 1);
    for (++offset; offset < std::min(next, hashable); ++offset) enter(offset);
    offset = next;
  }
  run.consumed = offset;
}

ZEBDC_ALWAYS_INLINE void findGreedyBody(StreamMatchRun& run, const StreamSearch& search) {
  uint32_t offset = 0;
  while (offset < run.srcLen && run.written < run.room) {
    if (run.srcLen - offset < minMatch) {
      putLiteral(run, offset++);
      continue;
    }
    const uint32_t candidate = insertAt(run, offset);
    const Match match =
        searchChain<false>(run, offset, candidate, search.chain, search.nice, {minMatch - 1, 0});
    if (!worthTaking(search, match)) {
      putLiteral(run, offset++);
      continue;
    }
    putMatch(run, match);
    if (match.length <= search.entered) {
      insertInterior(run, offset + 1, offset + match.length);
    }
    offset += match.length;
  }
  run.consumed = offset;
}

ZEBDC_ALWAYS_INLINE void findLazyBody(StreamMatchRun& run, const StreamSearch& search) {
  constexpr Match none = {minMatch - 1, 0};
  uint32_t offset = 0;
  bool carried = false;  // match was found by the look ahead from the position before
  Match match = none;
  while (offset < run.srcLen && run.written < run.room) {
    if (run.srcLen - offset < minMatch) {
      putLiteral(run, offset++);
      continue;
    }
    const uint32_t candidate = insertAt(run, offset);
    if (!carried) {
      match = searchChain<true>(run, offset, candidate, search.chain, search.nice, none);
    }
    carried = false;
    if (!worthTaking(search, match)) {
      putLiteral(run, offset++);
      continue;
    }
    if (match.length < search.lazy && run.srcLen - offset > minMatch) {
      const uint32_t candidates = match.length >= search.good ? search.chain / 4 : search.chain;
      const Match next = searchChain<true>(run, offset + 1, run.head[hashAt(run, offset + 1)],
                                           candidates, search.nice, {match.length, 0});
      if (next.length > match.length) {
        putLiteral(run, offset++);
        match = next;
        carried = true;
        continue;
      }
    }
    putMatch(run, match);
    insertInterior(run, offset + 1, offset + match.length);
    offset += match.length;
  }
  run.consumed = offset;
}

#define ZEBDC_STREAM_MATCH_VARIANT(name)                                   \
  void findSingle##name(StreamMatchRun& run) {                             \
    findSingleBody(run);                                                   \
  }                                                                        \
  void findGreedy##name(StreamMatchRun& run, const StreamSearch& search) { \
    findGreedyBody(run, search);                                           \
  }                                                                        \
  void findLazy##name(StreamMatchRun& run, const StreamSearch& search) {   \
    findLazyBody(run, search);                                             \
  }                                                                        \
  constexpr StreamMatchKernels kernels##name = {findSingle##name, findGreedy##name, findLazy##name};

ZEBDC_STREAM_MATCH_VARIANT(Baseline)

}  // namespace

ZEBDC_BEGIN_AVX2
namespace {
ZEBDC_STREAM_MATCH_VARIANT(Avx2)
}  // namespace
ZEBDC_END_TARGET

#undef ZEBDC_STREAM_MATCH_VARIANT

constinit const TierTable<StreamMatchKernels> streamMatchKernels({{tierBaseline, kernelsBaseline},
                                                                  {tierAvx2, kernelsAvx2}});

}  // namespace zebdc::kernels
