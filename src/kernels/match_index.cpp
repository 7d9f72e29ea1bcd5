// Level 2 in long calls: an index of all strings in place of chains.
//
// Following a chain of hundreds of links means waiting for each. The index holds the candidates of
// a hash side by side: it is the counting sort of the area's places by their hash, in which every
// hash has room for all its places, and places are entered as the finder passes them. A search goes
// down from the last one entered, as a chain would, but its loads wait for nothing. To build the
// index for each part of the source costs some ten percent of the time, so it must be a long one.
//
//   sorted   | ... | places of hash h, ascending                        | ... of h + 1 |
//                    ^ first[h]: not too far back   ^ next[h]: behind the last entered

#include <string.h>

#include "kernels/match_run.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t hashes = 1u << 15;
constexpr uint32_t areaPlaces = 1u << 16;
constexpr uint32_t hashBlock = 256;
constexpr uint32_t maxCandidates = 512;

// A search looks at four entries at a time and may look at up to three below the ones it is meant
// for: others of the table, or these, whose place 0 is as good to read as any.
constexpr uint32_t unusedEntries = 3;

void clear(const MatchIndex& index) {
  memset(index.sorted, 0, areaPlaces * sizeof *index.sorted);
  memset(index.next, 0, hashes * sizeof *index.next);
}

// Calls action(place, hash) for each place from begin to end.
template <class Action>
ZEBDC_ALWAYS_INLINE void forEachPlace(const MatchRun& run, uint32_t begin, uint32_t end,
                                      Action action) {
  uint16_t hash[hashBlock];
  for (uint32_t at = begin; at < end; at += hashBlock) {
    const uint32_t count = std::min(end - at, hashBlock);
    chainHashes(run.area + at, count, hash);
    for (uint32_t i = 0; i < count; ++i) action(at + i, hash[i]);
  }
}

void count(const MatchRun& run, const MatchIndex& index, uint32_t begin, uint32_t end) {
  forEachPlace(run, begin, end, [&](uint32_t, uint32_t hash) { ++index.next[hash]; });
}

void layOut(const MatchIndex& index) {
  uint32_t slot = unusedEntries;
  for (uint32_t hash = 0; hash < hashes; ++hash) {
    const uint32_t places = index.next[hash];
    index.first[hash] = index.next[hash] = static_cast<uint16_t>(slot);
    slot += places;
  }
}

ZEBDC_ALWAYS_INLINE void enterPlace(const MatchIndex& index, uint32_t place, uint32_t hash) {
  index.sorted[index.next[hash]++] = static_cast<uint16_t>(place);
}

void enter(const MatchRun& run, const MatchIndex& index, uint32_t begin, uint32_t end) {
  forEachPlace(run, begin, end,
               [&](uint32_t place, uint32_t hash) { enterPlace(index, place, hash); });
}

// The first entry of a hash that is near enough for a place. Searches go forward, so entries that
// are too far back for one are so for all that follow.
ZEBDC_ALWAYS_INLINE uint32_t firstInReach(const MatchIndex& index, uint32_t hash, uint32_t place,
                                          uint32_t end) {
  uint32_t first = index.first[hash];
  if (first != end && place - index.sorted[first] > maxDistance) {
    do {
      ++first;
    } while (first != end && place - index.sorted[first] > maxDistance);
    index.first[hash] = static_cast<uint16_t>(first);
  }
  return first;
}

// The greatest entry below end that isHit accepts, or an entry below first if none from there on is
// accepted.
template <class IsHit>
ZEBDC_ALWAYS_INLINE int32_t lastHit(const uint16_t* sorted, int32_t first, int32_t end,
                                    IsHit isHit) {
  for (; end > first; end -= 4) {
    if (isHit(sorted[end - 1])) return end - 1;
    if (isHit(sorted[end - 2])) return end - 2;
    if (isHit(sorted[end - 3])) return end - 3;
    if (isHit(sorted[end - 4])) return end - 4;
  }
  return end - 1;
}

// The same search as along chains: the longest of the nearest candidates that is longer than best.
ZEBDC_ALWAYS_INLINE Match search(const MatchRun& run, const MatchIndex& index, uint32_t place,
                                 uint32_t limit, Match best) {
  if (limit <= best.length) return best;
  const uint8_t* const here = run.area + place;
  const uint32_t hash = chainHash(here);
  const uint32_t end = index.next[hash];
  const uint32_t inReach = firstInReach(index, hash, place, end);
  if (inReach == end) return best;
  const int32_t first = static_cast<int32_t>(std::max(inReach, end - std::min(end, maxCandidates)));
  int32_t at = static_cast<int32_t>(end);
  if (best.length < minMatch) {
    const uint32_t threeBytes = load<uint32_t>(here) << 8;
    at = lastHit(index.sorted, first, at, [&](uint32_t candidate) {
      return load<uint32_t>(run.area + candidate) << 8 == threeBytes;
    });
    if (at < first) return best;
    const uint32_t candidate = index.sorted[at];
    best = {commonLength(here, run.area + candidate, limit), place - candidate};
  }
  while (best.length < limit) {
    const uint32_t checkAt = best.length - 3;
    const uint32_t fourBytes = load<uint32_t>(here + checkAt);
    at = lastHit(index.sorted, first, at, [&](uint32_t candidate) {
      return load<uint32_t>(run.area + candidate + checkAt) == fourBytes;
    });
    if (at < first) return best;
    const uint32_t candidate = index.sorted[at];
    const uint32_t length = commonLength(here, run.area + candidate, limit);
    if (length > best.length) best = {length, place - candidate};
  }
  return best;
}

// Lazy evaluation, as with chains.
void best(MatchRun& run, const MatchIndex& index) {
  Match match = {run.carriedLength, run.carriedDistance};
  while (more(run)) {
    if (run.searchAfresh) {
      match = search(run, index, run.at, lengthLimit(run, run.at, tailBytesBest), noMatch);
    }
    enterPlace(index, run.at, chainHash(run.area + run.at));
    const bool acceptable = isAcceptable(match);
    const Match next = search(run, index, run.at + 1, lengthLimit(run, run.at + 1, tailBytesBest),
                              acceptable ? Match{match.length, 0} : noMatch);
    run.searchAfresh = acceptable && next.length <= match.length;
    if (run.searchAfresh) {
      *run.pairs++ = matchPair(match);
      enter(run, index, run.at + 1, run.at + match.length);
      run.at += match.length;
    } else {
      *run.pairs++ = literalPair(run.area[run.at]);
      ++run.at;
      match = next;
    }
  }
  run.carriedLength = match.length;
  run.carriedDistance = match.distance;
}

constexpr IndexMatchKernels baseline = {clear, count, layOut, enter, best};

}  // namespace

constinit const TierTable<IndexMatchKernels> indexMatchKernels({{tierBaseline, baseline}});

}  // namespace zebdc::kernels
