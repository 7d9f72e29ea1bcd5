// Levels 1 and 2: chains of the strings with the same three-byte hash.
//
// Every place is linked, whether a pair begins there or not, so links do not depend on the pairs.
// Places are linked in blocks ahead of the search, which then needs no hashes and finds all it
// follows in place. What a block's links overwrite, those of 32768 places before, is kept aside
// while the search is in the block: the farthest candidates may still need it.
//
// A search spends its time waiting for links. Two chains side by side, of the odd and of the even
// candidates, halve that. Tried and slower: both links in one word, which costs a lookup of the
// nearest candidate's link for each place; measuring 16 candidates without a branch, which waits
// for all links where guessing goes on; linking future places while waiting for links.

#include <string.h>
#include <tmmintrin.h>

#include "kernels/match_run.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t blockPlaces = 128;
constexpr uint32_t maxCandidatesAverage = 16;
constexpr uint32_t maxCandidatesBest = 512;

// A search under way: the candidate to look at and the one behind it. Distances from 32768 on stand
// for none; the second candidate is looked at only when there is a first.
struct Candidates {
  uint32_t distance;
  uint32_t nextDistance;
};

// Enters a place and returns the word that it found, the positions of its two nearest candidates.
ZEBDC_ALWAYS_INLINE uint32_t enterPlace(const MatchChains& chains, uint16_t hash,
                                        uint32_t position) {
  uint32_t& recent = chains.recent[hash];
  const uint32_t before = recent;
  recent = (position & 0xFFFF) | before << 16;
  return before;
}

// Enters four places in turn and returns their words.
ZEBDC_ALWAYS_INLINE __m128i enterFour(const MatchChains& chains, const uint16_t* hashes,
                                      uint32_t position) {
  const auto enter = [&](uint32_t i) {
    return _mm_cvtsi32_si128(static_cast<int>(enterPlace(chains, hashes[i], position + i)));
  };
  const __m128i first = enter(0);
  const __m128i second = enter(1);
  const __m128i third = enter(2);
  const __m128i fourth = enter(3);
  return _mm_unpacklo_epi64(_mm_unpacklo_epi32(first, second), _mm_unpacklo_epi32(third, fourth));
}

// Enters count places and writes down the distances to the two nearest candidates of each.
ZEBDC_ALWAYS_INLINE void enterPlaces(const MatchChains& chains, uint32_t position,
                                     const uint16_t* hashes, uint32_t count, uint16_t* first,
                                     uint16_t* second) {
  const __m128i halves = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
  __m128i here = _mm_add_epi16(_mm_set1_epi16(static_cast<int16_t>(position)),
                               _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7));
  uint32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m128i low = _mm_shuffle_epi8(enterFour(chains, hashes + i, position + i), halves);
    const __m128i high =
        _mm_shuffle_epi8(enterFour(chains, hashes + i + 4, position + i + 4), halves);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(first + i),
                     _mm_sub_epi16(here, _mm_unpacklo_epi64(low, high)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(second + i),
                     _mm_sub_epi16(here, _mm_unpackhi_epi64(low, high)));
    here = _mm_add_epi16(here, _mm_set1_epi16(8));
  }
  for (; i < count; ++i) {
    const uint32_t before = enterPlace(chains, hashes[i], position + i);
    first[i] = static_cast<uint16_t>(position + i - before);
    second[i] = static_cast<uint16_t>(position + i - (before >> 16));
  }
}

// Calls action(link, i, count) for the one or two pieces in which the links of count places lie.
template <class Action>
ZEBDC_ALWAYS_INLINE void forLinks(const MatchChains& chains, uint32_t position, uint32_t count,
                                  Action action) {
  const uint32_t begin = position & windowMask;
  const uint32_t beforeWrap = std::min(count, windowMask + 1 - begin);
  action(chains.link + begin, 0u, beforeWrap);
  if (beforeWrap != count) action(chains.link, beforeWrap, count - beforeWrap);
}

void insert(MatchRun& run, const MatchChains& chains) {
  uint16_t hashes[blockPlaces];
  uint16_t unused[blockPlaces];
  uint16_t links[blockPlaces];
  while (run.at < run.stop) {
    const uint32_t count = std::min(run.stop - run.at, blockPlaces);
    const uint32_t position = run.at + run.areaPosition;
    chainHashes(run.area + run.at, count, hashes);
    enterPlaces(chains, position, hashes, count, unused, links);
    forLinks(chains, position, count, [&](uint16_t* link, uint32_t i, uint32_t n) {
      memcpy(link, links + i, n * sizeof *link);
    });
    run.at += count;
  }
}

// The places at and behind run.at that are linked ahead of the search.
template <bool fullFlush>
class Block {
 public:
  ZEBDC_ALWAYS_INLINE Block(const MatchRun& run, const MatchChains& chains)
      : area_(run.area),
        areaPosition_(run.areaPosition),
        chains_(chains),
        begin_(run.at),
        count_(surePlaces(run, blockPlaces)),
        position_(run.at + run.areaPosition) {
    uint16_t hashes[blockPlaces];
    chainHashes(area_ + begin_, count_, hashes);
    enterPlaces(chains, position_, hashes, count_, first_, second_);
    forLinks(chains, position_, count_, [&](uint16_t* link, uint32_t i, uint32_t n) {
      memcpy(overwritten_ + i, link, n * sizeof *link);
      memcpy(link, second_ + i, n * sizeof *link);
    });
  }

  uint32_t end() const { return begin_ + count_; }

  // Of a place in the block or right behind it, which is not linked.
  ZEBDC_ALWAYS_INLINE Candidates candidatesAt(uint32_t offset) const {
    const uint32_t i = offset - begin_;
    if (i < count_) return {first_[i], second_[i]};
    const uint32_t hash = chainHash(area_ + offset);
    const uint32_t recent = chains_.recent[hash];
    const uint32_t position = position_ + i;
    return {static_cast<uint16_t>(position - recent),
            static_cast<uint16_t>(position - (recent >> 16))};
  }

  // The best of the first maxCandidates that is longer than best: the longest, and the nearest of
  // the longest. A candidate is measured only if it agrees in the byte that would make it longer
  // and in the three before that: few that are not longer pass.
  ZEBDC_ALWAYS_INLINE Match search(uint32_t offset, uint32_t limit, uint32_t maxCandidates,
                                   Match best) const {
    if (limit <= best.length) return best;
    const uint8_t* const here = area_ + offset;
    const uint32_t reach = fullFlush ? reachInFullFlush(offset + areaPosition_) : maxDistance;
    Candidates at = candidatesAt(offset);
    uint32_t left = maxCandidates;
    const auto advance = [&] {
      if (--left == 0) return false;
      at = {at.nextDistance, at.distance + linkOf(offset, at.distance)};
      return at.distance <= reach;
    };
    if (at.distance > reach) return best;
    if (best.length < minMatch) {
      const uint32_t threeBytes = load<uint32_t>(here) << 8;
      while (load<uint32_t>(here - at.distance) << 8 != threeBytes) {
        if (!advance()) return best;
      }
      best = {commonLength(here, here - at.distance, limit), at.distance};
      if (best.length == limit || !advance()) return best;
    }
    for (;;) {
      const uint8_t* const check = here + best.length - 3;
      const uint32_t fourBytes = load<uint32_t>(check);
      uint32_t length = 0;
      for (;;) {
        if (load<uint32_t>(check - at.distance) == fourBytes) {
          length = commonLength(here, here - at.distance, limit);
          if (length > best.length) break;
        }
        if (!advance()) return best;
      }
      best = {length, at.distance};
      if (length == limit || !advance()) return best;
    }
  }

 private:
  // Distance from the candidate to the next but one.
  ZEBDC_ALWAYS_INLINE uint32_t linkOf(uint32_t offset, uint32_t distance) const {
    if (distance > windowMask + 1 - blockPlaces) {
      const uint32_t i = offset + (windowMask + 1) - distance - begin_;
      if (i < count_) return overwritten_[i];
    }
    return chains_.link[(offset + areaPosition_ - distance) & windowMask];
  }

  const uint8_t* const area_;
  const uint32_t areaPosition_;
  const MatchChains chains_;
  uint32_t begin_;
  uint32_t count_;
  uint32_t position_;
  uint16_t first_[blockPlaces];        // distances of the nearest candidates
  uint16_t second_[blockPlaces];       // and of those behind them
  uint16_t overwritten_[blockPlaces];  // the links 32768 places before
};

// Goes on behind a block whose last match passed its end.
void linkFrom(uint32_t begin, MatchRun& run, const MatchChains& chains) {
  MatchRun rest = run;
  rest.at = begin;
  rest.stop = run.at;
  insert(rest, chains);
}

// Greedy: every match is taken.
template <bool fullFlush>
void averageRun(MatchRun& run, const MatchChains& chains) {
  while (more(run)) {
    const Block<fullFlush> block(run, chains);
    ZebLZ77Pair* out = run.pairs;
    uint32_t at = run.at;
    while (at < block.end()) {
      const Match match =
          block.search(at, lengthLimit(run, at, tailBytes), maxCandidatesAverage, noMatch);
      if (match.length < minMatch) {
        *out++ = literalPair(run.area[at]);
        ++at;
      } else {
        *out++ = matchPair(match);
        at += match.length;
      }
    }
    run.pairs = out;
    run.at = at;
    linkFrom(block.end(), run, chains);
  }
}

// Lazy: a match is put off when the next byte has a longer one. Where the match at hand would be
// taken, the search at the next byte has to find only what is longer than it.
template <bool fullFlush>
void bestRun(MatchRun& run, const MatchChains& chains) {
  constexpr uint32_t tail = fullFlush ? tailBytes : tailBytesBest;
  Match match = {run.carriedLength, run.carriedDistance};
  while (more(run)) {
    const Block<fullFlush> block(run, chains);
    ZebLZ77Pair* out = run.pairs;
    uint32_t at = run.at;
    while (at < block.end()) {
      if (run.searchAfresh) {
        match = block.search(at, lengthLimit(run, at, tail), maxCandidatesBest, noMatch);
      }
      const bool acceptable = isAcceptable(match);
      const Match next = block.search(at + 1, lengthLimit(run, at + 1, tail), maxCandidatesBest,
                                      acceptable ? Match{match.length, 0} : noMatch);
      run.searchAfresh = acceptable && next.length <= match.length;
      if (run.searchAfresh) {
        *out++ = matchPair(match);
        at += match.length;
      } else {
        *out++ = literalPair(run.area[at]);
        ++at;
        match = next;
      }
    }
    run.pairs = out;
    run.at = at;
    linkFrom(block.end(), run, chains);
  }
  run.carriedLength = match.length;
  run.carriedDistance = match.distance;
}

void average(MatchRun& run, const MatchChains& chains) {
  run.fullFlush ? averageRun<true>(run, chains) : averageRun<false>(run, chains);
}

void best(MatchRun& run, const MatchChains& chains) {
  run.fullFlush ? bestRun<true>(run, chains) : bestRun<false>(run, chains);
}

void refresh(const MatchChains& chains, uint32_t position) {
  uint16_t* const positions = reinterpret_cast<uint16_t*>(chains.recent);
  const uint16_t justTooFar = static_cast<uint16_t>(position - maxDistance - 1);
  for (uint32_t i = 0; i < 2 * (windowMask + 1); ++i) {
    const uint16_t distanceLess1 = static_cast<uint16_t>(position - positions[i] - 1);
    positions[i] = distanceLess1 < maxDistance ? positions[i] : justTooFar;
  }
}

constexpr ChainMatchKernels baseline = {average, best, insert, refresh};

}  // namespace

constinit const TierTable<ChainMatchKernels> chainMatchKernels({{tierBaseline, baseline}});

}  // namespace zebdc::kernels
