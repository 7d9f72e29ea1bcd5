// What the match finders share: bounds, comparison, hashes, and the rule of lazy evaluation.
#ifndef ZEBDC_KERNELS_MATCH_RUN_H
#define ZEBDC_KERNELS_MATCH_RUN_H

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "frame/substitution_tables.h"
#include "kernels/match_finder.h"

namespace zebdc::kernels {

inline constexpr uint32_t windowMask = 0x7FFF;
inline constexpr uint32_t maxDistance = 0x7FFF;
inline constexpr uint32_t minMatch = 3;
inline constexpr uint32_t maxMatch = 258;

// At the end of a call matches keep off the last bytes.
inline constexpr uint32_t tailBytes = 2;
inline constexpr uint32_t tailBytesBest = 3;

struct Match {
  uint32_t length;
  uint32_t distance;
};

inline constexpr Match noMatch = {minMatch - 1, 0};

// In a full flush position 0 and those before it are out of reach.
ZEBDC_ALWAYS_INLINE uint32_t reachInFullFlush(uint32_t position) {
  return position == 0 ? 0 : std::min(position - 1, maxDistance);
}

ZEBDC_ALWAYS_INLINE uint32_t lengthLimit(const MatchRun& run, uint32_t offset, uint32_t tail) {
  return std::min(run.end - tail - offset, maxMatch);
}

// How many places from at to stop are sure to be passed: each pair takes one byte or more. Only so
// many may be entered into a table ahead of the pairs.
ZEBDC_ALWAYS_INLINE uint32_t surePlaces(const MatchRun& run, uint32_t atMost) {
  const uint64_t pairs = static_cast<uint64_t>(run.pairsEnd - run.pairs);
  return static_cast<uint32_t>(
      std::min(pairs, static_cast<uint64_t>(std::min(run.stop - run.at, atMost))));
}

ZEBDC_ALWAYS_INLINE bool more(const MatchRun& run) {
  return run.at < run.stop && run.pairs != run.pairsEnd;
}

// The length that two strings have in common, up to limit. Reads at most 31 bytes beyond it.
ZEBDC_ALWAYS_INLINE uint32_t commonLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  const auto same16 = [&](uint32_t at) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + at));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + at));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
  };
  for (uint32_t length = 0; length < limit; length += 32) {
    const uint32_t different = ~(same16(length) | same16(length + 16) << 16);
    if (different != 0) {
      return std::min(length + static_cast<uint32_t>(std::countr_zero(different)), limit);
    }
  }
  return limit;
}

ZEBDC_ALWAYS_INLINE ZebLZ77Pair literalPair(uint8_t byte) {
  return {byte, 0};
}

ZEBDC_ALWAYS_INLINE ZebLZ77Pair matchPair(Match match) {
  return {static_cast<uint16_t>(match.length), static_cast<uint16_t>(match.distance)};
}

// A three-byte match is taken only from nearby: its distance costs too much.
ZEBDC_ALWAYS_INLINE bool isAcceptable(Match match) {
  constexpr uint32_t farthestThreeByteMatch = 4096;
  return match.length > minMatch ||
         (match.length == minMatch && match.distance <= farthestThreeByteMatch);
}

// What each byte adds to the hashes of the three strings that it is part of, so that one load per
// byte serves all three:
//
//   bits 0-15   to the string two bytes before, of which it is the third byte
//   bits 16-31  to the string one byte before, of which it is the second
//   bits 32-47  to the string that it begins
constexpr std::array<uint64_t, 256> makeHashShares() {
  std::array<uint64_t, 256> shares{};
  for (size_t byte = 0; byte < 256; ++byte) {
    shares[byte] = threeByteHashRows[512 + byte] |
                   static_cast<uint64_t>(threeByteHashRows[256 + byte]) << 16 |
                   static_cast<uint64_t>(threeByteHashRows[byte]) << 32;
  }
  return shares;
}

alignas(64) inline constexpr std::array<uint64_t, 256> hashShares = makeHashShares();

// The hashes of the strings at count places, two at a time: one more may be written when count is
// odd, and the byte behind its string is read.
ZEBDC_ALWAYS_INLINE void chainHashes(const uint8_t* bytes, uint32_t count, uint16_t* hashes) {
  uint64_t open = hashShares[bytes[0]] >> 32 ^ hashShares[bytes[1]] >> 16;
  for (uint32_t i = 0; i < count; i += 2) {
    open ^= hashShares[bytes[i + 2]] ^ hashShares[bytes[i + 3]] << 16;
    store(hashes + i, static_cast<uint32_t>(open));
    open >>= 32;
  }
}

ZEBDC_ALWAYS_INLINE uint32_t chainHash(const uint8_t* bytes) {
  return threeByteHash(bytes[0], bytes[1], bytes[2]);
}

}  // namespace zebdc::kernels

#endif
