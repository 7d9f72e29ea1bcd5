// Level 0: one candidate for each string, from a table of heads by a rolling 15-bit hash.
//
// Every place enters the table, whether a pair begins there or not. So the candidate of a place
// does not depend on the pairs before it, and the work can be done for a block of places at once,
// without a branch that the processor could guess wrong:
//
//   1. the hashes, by vectors;
//   2. for each place its candidate, whose place in the table it takes; by vectors how far back
//      that lies. Candidates go from the table into the vectors without a store: the processor
//      finishes one store a turn, and the table needs one for each place already;
//   3. for each place how many of 8 bytes agree with its candidate's;
//   4. the pair that would begin there and the places that it would pass, by vectors;
//   5. then pairs are picked by jumping from each to the next. Only matches of more than 6 bytes
//      need a comparison here.
//
// Where matches are long, most of what 3 and 4 find is never picked. There a block measures matches
// as it picks them, after step 2.
//
// The next block begins where the last one ended, with the places that its last match passes: they
// enter the table with the others, and picking begins behind them.
//
// The branches that had to go: compilers make one of "distance if it is near, else 0" and of "match
// or literal", and either costs as much as the rest of its step. Blocks of 64 or 256 places are
// slower than those of 128. Comparing 16 bytes at once where long matches are picked gains nothing,
// nor does turning the lengths of one group of places into pairs while the next is compared. Where
// long matches are picked it gains nothing either to fetch the candidates' bytes ahead, or to pick
// without branches; to look candidates up only for the places that are picked made one file faster
// and two slower. A table of 16-bit positions is half as large, and slower on six of seven files
// (Zen 3). Compiled for AVX2 the same code is 1 % faster on average, too little for a tier of its
// own.

#include <emmintrin.h>

#include <utility>

#include "kernels/match_run.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t hashBits = 15;
constexpr uint32_t hashMask = (1u << hashBits) - 1;
constexpr uint32_t blockPlaces = 128;

// Vectors work on 16 places at a time and may pass a block's end.
constexpr uint32_t vectorPlaces = 16;
static_assert(blockPlaces % vectorPlaces == 0);

// Near the end of the call lengths have a limit below the bytes that a block compares.
constexpr uint32_t vectorBytes = 16;
constexpr uint32_t blockMargin = vectorBytes + tailBytes;

// A length of 7 in a block stands for 7 and more.
constexpr uint32_t openLength = 7;

// A match at the end of a block passes the first places of the next. When those are more than this
// many, they are entered before that begins.
constexpr uint32_t mostPassed = blockPlaces / 4;

// Blocks whose pairs passed fewer bytes than this on average measure all places.
constexpr uint32_t longMatches = 5;

__m128i load16(const void* address) {
  return _mm_loadu_si128(static_cast<const __m128i*>(address));
}

void store16(void* address, __m128i value) {
  _mm_storeu_si128(static_cast<__m128i*>(address), value);
}

uint32_t rollingHash(const uint8_t* bytes) {
  return (static_cast<uint32_t>(bytes[0]) << 10 ^ static_cast<uint32_t>(bytes[1]) << 5 ^ bytes[2]) &
         hashMask;
}

// The hashes of at least count places.
void rollingHashes(const uint8_t* bytes, uint32_t count, uint16_t* hashes) {
  const __m128i zero = _mm_setzero_si128();
  const auto hash = [](__m128i b0, __m128i b1, __m128i b2) {
    const __m128i sum =
        _mm_xor_si128(_mm_xor_si128(_mm_slli_epi16(b0, 10), _mm_slli_epi16(b1, 5)), b2);
    return _mm_and_si128(sum, _mm_set1_epi16(hashMask));
  };
  for (uint32_t i = 0; i < count; i += vectorPlaces) {
    const __m128i b0 = load16(bytes + i);
    const __m128i b1 = load16(bytes + i + 1);
    const __m128i b2 = load16(bytes + i + 2);
    store16(hashes + i, hash(_mm_unpacklo_epi8(b0, zero), _mm_unpacklo_epi8(b1, zero),
                             _mm_unpacklo_epi8(b2, zero)));
    store16(hashes + i + 8, hash(_mm_unpackhi_epi8(b0, zero), _mm_unpackhi_epi8(b1, zero),
                                 _mm_unpackhi_epi8(b2, zero)));
  }
}

// Up to blockPlaces places from begin on.
class Block {
 public:
  Block(const MatchRun& run, uint32_t begin, uint32_t count)
      : here_(run.area + begin),
        begin_(begin),
        position_(begin + run.areaPosition),
        count_(count) {}

  // Steps 1 and 2. A distance of 0 stands for none.
  //
  // Eight distances at a time are worked out 32768 too low. Those that are near are then negative
  // and fit 16 bits; saturation makes the same 0 of all others when 32768 is added again.
  void enter(int32_t* headTable) {
    alignas(16) uint16_t hashes[blockPlaces];
    rollingHashes(here_, count_, hashes);
    constexpr uint32_t tooFar = maxDistance + 1;
    __m128i places = _mm_add_epi32(_mm_set1_epi32(static_cast<int>(position_ - tooFar)),
                                   _mm_set_epi32(3, 2, 1, 0));
    const auto distancesOfFour = [&](uint32_t i) {
      const __m128i candidates = enterFour(headTable, hashes + i, position_ + i);
      const __m128i distances = _mm_sub_epi32(places, candidates);
      places = _mm_add_epi32(places, _mm_set1_epi32(4));
      return distances;
    };
    uint32_t i = 0;
    for (; i + 8 <= count_; i += 8) {
      const __m128i low = distancesOfFour(i);
      const __m128i high = distancesOfFour(i + 4);
      store16(distances_ + i, _mm_subs_epu16(_mm_packs_epi32(low, high),
                                             _mm_set1_epi16(static_cast<int16_t>(tooFar))));
    }
    for (; i < count_; ++i) {
      const uint32_t position = position_ + i;
      const int32_t candidate = std::exchange(headTable[hashes[i]], static_cast<int32_t>(position));
      const uint32_t distance = position - static_cast<uint32_t>(candidate);
      distances_[i] = static_cast<uint16_t>(distance < tooFar ? distance : 0);
    }
  }

  // Steps 3 and 4, from a place on.
  void measure(uint32_t at) {
    const uint32_t first = (at - begin_) / vectorPlaces * vectorPlaces;
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC unroll 4
#endif
    for (uint32_t i = first; i < count_; ++i) {
      const uint64_t difference =
          load<uint64_t>(here_ + i) ^ load<uint64_t>(here_ + i - distances_[i]);
      // The bit above keeps the count of zero bits below 64.
      equalBits_[i] = static_cast<uint8_t>(std::countr_zero(difference | uint64_t{1} << 63));
    }
    for (uint32_t i = first; i < count_; i += vectorPlaces) makePairs(i);
  }

  // Step 5, behind measure: from run.at to the block's end, which the last match may pass.
  void pickMeasured(MatchRun& run) const {
    ZebLZ77Pair* out = run.pairs;
    uint32_t i = run.at - begin_;
    while (i < count_) {
      *out = pairs_[i];
      uint32_t step = steps_[i];
      if (step == openLength) {
        const uint8_t* const at = here_ + i + step;
        step += commonLength(at, at - out->offset,
                             lengthLimit(run, begin_ + i, tailBytes) - openLength);
        out->length = static_cast<uint16_t>(step);
      }
      ++out;
      i += step;
    }
    run.pairs = out;
    run.at = begin_ + i;
  }

  // Step 5 with measuring.
  void pick(MatchRun& run) const {
    ZebLZ77Pair* out = run.pairs;
    uint32_t i = run.at - begin_;
    while (i < count_) {
      const uint8_t* const at = here_ + i;
      const uint32_t distance = distances_[i];
      const uint64_t difference = load<uint64_t>(at) ^ load<uint64_t>(at - distance);
      if (distance == 0 || (difference & 0xFFFFFF) != 0) {
        *out++ = literalPair(*at);
        ++i;
        continue;
      }
      uint32_t length = static_cast<uint32_t>(std::countr_zero(difference)) / 8;
      if (length == 8) {
        length +=
            commonLength(at + 8, at + 8 - distance, lengthLimit(run, begin_ + i, tailBytes) - 8);
      }
      *out++ = matchPair({length, distance});
      i += length;
    }
    run.pairs = out;
    run.at = begin_ + i;
  }

 private:
  // Each is entered before the next is looked up, so equal strings among the four find one another.
  static __m128i enterFour(int32_t* headTable, const uint16_t* hashes, uint32_t position) {
    const auto enterOne = [&](uint32_t i) {
      int32_t& head = headTable[hashes[i]];
      const __m128i candidate = _mm_cvtsi32_si128(head);
      head = static_cast<int32_t>(position + i);
      return candidate;
    };
    const __m128i first = enterOne(0);
    const __m128i second = enterOne(1);
    const __m128i third = enterOne(2);
    const __m128i fourth = enterOne(3);
    return _mm_unpacklo_epi64(_mm_unpacklo_epi32(first, second), _mm_unpacklo_epi32(third, fourth));
  }

  // From the distances and lengths of 16 places their pairs and steps.
  void makePairs(uint32_t i) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i length =
        _mm_and_si128(_mm_srli_epi16(load16(equalBits_ + i), 3), _mm_set1_epi8(openLength));
    const __m128i distanceLow = load16(distances_ + i);
    const __m128i distanceHigh = load16(distances_ + i + 8);
    const __m128i none =
        _mm_packs_epi16(_mm_cmpeq_epi16(distanceLow, zero), _mm_cmpeq_epi16(distanceHigh, zero));
    const __m128i isMatch =
        _mm_andnot_si128(none, _mm_cmpgt_epi8(length, _mm_set1_epi8(minMatch - 1)));
    const auto choose = [&](__m128i match, __m128i literal) {
      return _mm_or_si128(_mm_and_si128(isMatch, match), _mm_andnot_si128(isMatch, literal));
    };
    store16(steps_ + i, choose(length, _mm_set1_epi8(1)));
    const __m128i first = choose(length, load16(here_ + i));
    const __m128i firstLow = _mm_unpacklo_epi8(first, zero);
    const __m128i firstHigh = _mm_unpackhi_epi8(first, zero);
    const __m128i secondLow = _mm_and_si128(distanceLow, _mm_unpacklo_epi8(isMatch, isMatch));
    const __m128i secondHigh = _mm_and_si128(distanceHigh, _mm_unpackhi_epi8(isMatch, isMatch));
    store16(pairs_ + i, _mm_unpacklo_epi16(firstLow, secondLow));
    store16(pairs_ + i + 4, _mm_unpackhi_epi16(firstLow, secondLow));
    store16(pairs_ + i + 8, _mm_unpacklo_epi16(firstHigh, secondHigh));
    store16(pairs_ + i + 12, _mm_unpackhi_epi16(firstHigh, secondHigh));
  }

  const uint8_t* here_;
  uint32_t begin_;
  uint32_t position_;
  uint32_t count_;
  alignas(16) uint16_t distances_[blockPlaces];
  alignas(16) uint8_t equalBits_[blockPlaces];
  alignas(16) uint8_t steps_[blockPlaces];
  alignas(16) ZebLZ77Pair pairs_[blockPlaces];
};

void insert(MatchRun& run, int32_t* headTable) {
  alignas(16) uint16_t hashes[blockPlaces];
  while (run.at < run.stop) {
    const uint32_t count = std::min(run.stop - run.at, blockPlaces);
    rollingHashes(run.area + run.at, count, hashes);
    const uint32_t position = run.at + run.areaPosition;
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC unroll 4
#endif
    for (uint32_t i = 0; i < count; ++i) {
      headTable[hashes[i]] = static_cast<int32_t>(position + i);
    }
    run.at += count;
  }
}

// Enters the places from one on that have been passed.
void enterPassed(const MatchRun& run, int32_t* headTable, uint32_t from) {
  MatchRun passed = run;
  passed.at = from;
  passed.stop = run.at;
  insert(passed, headTable);
}

void findByBlocks(MatchRun& run, int32_t* headTable) {
  bool matchesAreLong = false;
  uint32_t begin = run.at;  // of the next block: the first place that is not in the table
  while (more(run) && run.at + blockMargin < run.end) {
    if (run.at - begin > mostPassed) {
      enterPassed(run, headTable, begin);
      begin = run.at;
    }
    const uint32_t passed = run.at - begin;
    const uint32_t count =
        passed + surePlaces(run, std::min(blockPlaces - passed, run.end - blockMargin - run.at));
    const ZebLZ77Pair* const pairsBefore = run.pairs;
    const uint32_t atBefore = run.at;
    Block block(run, begin, count);
    block.enter(headTable);
    begin += count;
    if (matchesAreLong) {
      block.pick(run);
    } else {
      block.measure(run.at);
      block.pickMeasured(run);
    }
    matchesAreLong =
        static_cast<uint32_t>(run.pairs - pairsBefore) * longMatches < run.at - atBefore;
  }
  enterPassed(run, headTable, begin);
}

// As the rule says it, one pair after the other.
void findOneByOne(MatchRun& run, int32_t* headTable) {
  while (more(run)) {
    const uint8_t* const here = run.area + run.at;
    const uint32_t position = run.at + run.areaPosition;
    int32_t& head = headTable[rollingHash(here)];
    const uint32_t distance = position - static_cast<uint32_t>(head);
    head = static_cast<int32_t>(position);
    const uint32_t reach = run.fullFlush ? reachInFullFlush(position) : maxDistance;
    uint32_t length = 0;
    if (distance - 1 < reach) {
      length = commonLength(here, here - distance, lengthLimit(run, run.at, tailBytes));
    }
    if (length < minMatch) {
      *run.pairs++ = literalPair(*here);
      ++run.at;
    } else {
      *run.pairs++ = matchPair({length, distance});
      const uint32_t next = run.at + 1;
      run.at += length;
      enterPassed(run, headTable, next);
    }
  }
}

void find(MatchRun& run, int32_t* headTable) {
  if (!run.fullFlush) findByBlocks(run, headTable);
  findOneByOne(run, headTable);
}

constexpr FastMatchKernels baseline = {find, insert};

}  // namespace

constinit const TierTable<FastMatchKernels> fastMatchKernels({{tierBaseline, baseline}});

}  // namespace zebdc::kernels
