// What the loops of deflate decoding share: the bit buffer, the copy of a match, and the bounds of
// both.
#ifndef ZEBDC_KERNELS_INFLATE_LOOP_H
#define ZEBDC_KERNELS_INFLATE_LOOP_H

#include <tmmintrin.h>

#include <array>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/inflate_block.h"

namespace zebdc::kernels {

inline constexpr int bitsRefilled = 56;
inline constexpr int longestMatch = 258;
inline constexpr int vectorBytes = 16;
inline constexpr int copyStep = 2 * vectorBytes;

// The bit buffer of a loop. `left` counts the bits in hand in its six low bits alone: entries are
// subtracted from it as they are. The bits above those in hand are the stream's too, from bytes not
// yet counted as taken; topping up writes the same bits there again.
struct BitBuffer {
  uint64_t bits;
  uint64_t left;
  const uint8_t* src;

  ZEBDC_ALWAYS_INLINE explicit BitBuffer(const InflateInput& in)
      : bits(in.bits), left(static_cast<uint64_t>(in.count)), src(in.src) {}

  ZEBDC_ALWAYS_INLINE void refill() {
    bits |= load<uint64_t>(src) << (left & 63);
    src += 7 - (left >> 3 & 7);
    left |= bitsRefilled;
  }

  ZEBDC_ALWAYS_INLINE void consume(uint64_t entry) {
    bits >>= entry & 63;
    left -= entry;
  }

  ZEBDC_ALWAYS_INLINE void save(InflateInput& in) const {
    in.src = src;
    in.count = static_cast<int>(left & 63);
    in.bits = bits & ((uint64_t{1} << in.count) - 1);
  }
};
static_assert(bitsRefilled == (63 & ~7), "left |= bitsRefilled adds the bytes taken");

ZEBDC_ALWAYS_INLINE void copyVector(const uint8_t* from, uint8_t* to) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}

// For a distance d below 16: the shuffle that repeats the first d bytes of a vector, and how many
// bytes of it are whole repetitions.
struct Repetition {
  alignas(vectorBytes) uint8_t shuffle[vectorBytes];
  uint8_t bytes;
};

constexpr std::array<Repetition, vectorBytes> makeRepetitions() {
  std::array<Repetition, vectorBytes> repetitions{};
  for (size_t distance = 1; distance < vectorBytes; ++distance) {
    for (size_t i = 0; i < vectorBytes; ++i) {
      repetitions[distance].shuffle[i] = static_cast<uint8_t>(i % distance);
    }
    repetitions[distance].bytes = static_cast<uint8_t>(vectorBytes - vectorBytes % distance);
  }
  return repetitions;
}
inline constexpr std::array<Repetition, vectorBytes> repetitions = makeRepetitions();

ZEBDC_ALWAYS_INLINE void copyTwoVectors(const uint8_t* from, uint8_t* to) {
  copyVector(from, to);
  copyVector(from + vectorBytes, to + vectorBytes);
}

// Copies a match of up to 258 bytes, forward in effect; may read and write whole steps of copyStep
// bytes, at least one. From a distance of 16 on a vector does not overlap the one that it is copied
// from, and an overlap behind the end of the match does no harm; in other cases the period is
// spread over a vector once and stored as often as need be. The branch goes by the overlap because
// short distances are common and overlaps are rare. Called unlikely, the loop for long matches is
// laid out of the way: decoding takes 4 % less time.
ZEBDC_ALWAYS_INLINE void copyMatch(const uint8_t* from, uint8_t* dst, uint64_t length,
                                   uint64_t distance) {
  const uint8_t* const end = dst + length;
  if (length <= distance || distance >= vectorBytes) [[likely]] {
    copyTwoVectors(from, dst);
    while (end - dst > copyStep) [[unlikely]] {
        from += copyStep;
        dst += copyStep;
        copyTwoVectors(from, dst);
      }
  } else {
    const Repetition& repetition = repetitions[distance];
    const __m128i period =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)),
                         _mm_load_si128(reinterpret_cast<const __m128i*>(repetition.shuffle)));
    do {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), period);
      dst += repetition.bytes;
    } while (dst < end);
  }
}

ZEBDC_ALWAYS_INLINE bool hasMargins(const InflateInput& in, ptrdiff_t room, ptrdiff_t margin) {
  return in.end - in.src >= inflateSourceMargin && room >= margin && in.count < 64;
}

}  // namespace zebdc::kernels

#endif
