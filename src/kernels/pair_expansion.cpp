// The inner loop of the expansion of pairs to bytes.
//
// Whether a pair is a literal or a match is hard to predict. So pairs are sorted out a block at a
// time, without branches: a bit tells each match, and the bytes that the literals stand for are
// gathered. Then one turn writes a match and the run of literals in front of it, however long that
// is: it copies a whole vector of literals, of which as many count as the run has. Only runs beyond
// a vector branch off.
//
// Room. A run and the match behind it are written when the room behind the run is no shorter than
// the margin: the run is rounded up to a vector, the match to whole steps of its copy.

#include "kernels/pair_expansion.h"

#include <bit>

#include "kernels/inflate_loop.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr size_t blockPairs = 64;  // as many as a word has bits
constexpr size_t pairsInVector = vectorBytes / sizeof(ZebLZ77Pair);

static_assert((longestMatch + copyStep - 1) / copyStep * copyStep + vectorBytes <=
              inflateBytesMargin);

struct SortedPairs {
  uint64_t matches;                            // a bit for each pair
  uint8_t literals[blockPairs + vectorBytes];  // a byte for each pair
};

ZEBDC_ALWAYS_INLINE void sortPairs(const ZebLZ77Pair* pairs, SortedPairs& sorted) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i lowBytes = _mm_set1_epi32(0xFF);
  uint64_t literals = 0;
  for (size_t at = 0; at < blockPairs; at += vectorBytes) {
    __m128i bytes[4];
    __m128i isLiteral[4];
    for (size_t i = 0; i < 4; ++i) {
      const __m128i four =
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + at + i * pairsInVector));
      bytes[i] = _mm_and_si128(four, lowBytes);
      isLiteral[i] = _mm_cmpeq_epi32(_mm_srli_epi32(four, 16), zero);
    }
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(sorted.literals + at),
        _mm_packus_epi16(_mm_packs_epi32(bytes[0], bytes[1]), _mm_packs_epi32(bytes[2], bytes[3])));
    const __m128i mask = _mm_packs_epi16(_mm_packs_epi32(isLiteral[0], isLiteral[1]),
                                         _mm_packs_epi32(isLiteral[2], isLiteral[3]));
    literals |= static_cast<uint64_t>(_mm_movemask_epi8(mask)) << at;
  }
  sorted.matches = ~literals;
}

// Copies a run of literals, rounded up to whole vectors but at least one.
ZEBDC_ALWAYS_INLINE void copyLiterals(const uint8_t* from, uint8_t* dst, size_t run) {
  copyVector(from, dst);
  for (size_t done = vectorBytes; done < run; done += vectorBytes) {
    copyVector(from + done, dst + done);
  }
}

ZEBDC_ALWAYS_INLINE bool isOrdinary(uint64_t length, uint64_t distance, const uint8_t* begin,
                                    const uint8_t* dst) {
  return length <= longestMatch && distance <= static_cast<uint64_t>(dst - begin);
}

// Expands the pairs of a block from the first on, as long as they are ordinary and the room behind
// does not begin beyond lastDst. Returns how many.
ZEBDC_ALWAYS_INLINE size_t expandBlock(const ZebLZ77Pair* pairs, const uint8_t* begin,
                                       uint8_t*& room, const uint8_t* lastDst) {
  SortedPairs sorted;
  sortPairs(pairs, sorted);
  uint8_t* dst = room;
  size_t next = 0;
  const auto writeLiterals = [&](size_t end) {
    const size_t run = end - next;
    if (lastDst - dst < static_cast<ptrdiff_t>(run)) return false;
    copyLiterals(sorted.literals + next, dst, run);
    dst += run;
    next = end;
    return true;
  };
  const auto writeMatch = [&] {
    const uint64_t length = pairs[next].length;
    const uint64_t distance = pairs[next].offset;
    if (!isOrdinary(length, distance, begin, dst)) return false;
    copyMatch(dst - distance, dst, length, distance);
    dst += length;
    ++next;
    return true;
  };
  for (uint64_t matches = sorted.matches; matches != 0; matches &= matches - 1) {
    if (!writeLiterals(static_cast<size_t>(std::countr_zero(matches))) || !writeMatch()) {
      room = dst;
      return next;
    }
  }
  writeLiterals(blockPairs);
  room = dst;
  return next;
}

// The same, pair by pair.
ZEBDC_ALWAYS_INLINE size_t expandSingly(const ZebLZ77Pair* pairs, size_t count,
                                        const uint8_t* begin, uint8_t*& room,
                                        const uint8_t* lastDst) {
  uint8_t* dst = room;
  size_t i = 0;
  for (; i < count && dst <= lastDst; ++i) {
    const uint64_t length = pairs[i].length;
    const uint64_t distance = pairs[i].offset;
    if (distance == 0) {
      *dst++ = static_cast<uint8_t>(length);
      continue;
    }
    if (!isOrdinary(length, distance, begin, dst)) break;
    copyMatch(dst - distance, dst, length, distance);
    dst += length;
  }
  room = dst;
  return i;
}

ZEBDC_ALWAYS_INLINE size_t expandPairs(const ZebLZ77Pair* pairs, size_t count, InflateBytes& out) {
  if (out.end - out.dst < inflateBytesMargin) return 0;
  const uint8_t* const lastDst = out.end - inflateBytesMargin;
  size_t done = 0;
  while (count - done >= blockPairs) {
    const size_t expanded = expandBlock(pairs + done, out.begin, out.dst, lastDst);
    done += expanded;
    if (expanded < blockPairs) break;
  }
  return done + expandSingly(pairs + done, count - done, out.begin, out.dst, lastDst);
}

}  // namespace

namespace baseline {
namespace {
size_t expand(const ZebLZ77Pair* pairs, size_t count, InflateBytes& out) {
  return expandPairs(pairs, count, out);
}
}  // namespace
}  // namespace baseline

// The lowest bit found and cleared in one instruction each.
ZEBDC_BEGIN_AVX2
namespace avx2 {
namespace {
size_t expand(const ZebLZ77Pair* pairs, size_t count, InflateBytes& out) {
  return expandPairs(pairs, count, out);
}
}  // namespace
}  // namespace avx2
ZEBDC_END_TARGET

constinit const TierTable<PairExpansionKernels> pairExpansionKernels(
    {{tierBaseline, {baseline::expand}}, {tierAvx2, {avx2::expand}}});

}  // namespace zebdc::kernels
