// What the two move-to-front transforms share.
//
// Block-sorted data is made of short runs: half to nine tenths of its ranks are 0, and those need
// no list. So a piece of the input is transformed in three steps over a buffer on the stack:
//
//   gather    the bytes that change the list (forward: the first byte of each run; inverse: the
//             ranks other than 0), closed up, with one mark bit for each byte of the piece;
//   core      the list walk over the gathered bytes alone, each replaced by its result;
//   scatter   results back to the marked places. Between them the forward transform writes zeros
//             and the inverse repeats the result before.
//
// The core keeps the front of the list in one vector register. Moving position p to the front is
// one shuffle by a control vector from a table, row p; a value whose position lies behind the
// register takes the slow path, which carries the displaced byte along through memory.
#ifndef ZEBDC_KERNELS_MOVE_TO_FRONT_PIECE_H
#define ZEBDC_KERNELS_MOVE_TO_FRONT_PIECE_H

#include <stdint.h>
#include <string.h>

#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels::movetofront {

constexpr int listSize = 256;
constexpr int pieceSize = 8192;

// Vector loads and stores at the gathered bytes may touch this many bytes on either side.
constexpr int gatherMargin = 64;

struct Piece {
  alignas(64) uint8_t room[gatherMargin + pieceSize + gatherMargin];
  alignas(64) uint8_t marks[pieceSize / 8];  // bit i % 8 of byte i / 8: byte i was gathered

  uint8_t* gathered() { return room + gatherMargin; }
};

// The byte-wide tables are indexed by the eight marks of eight bytes.
struct Tables {
  alignas(64) uint8_t pick[256][8];    // gather: the marked bytes, closed up
  alignas(64) uint8_t place[256][8];   // forward scatter: the k-th result at the k-th mark, else 0
  alignas(64) uint8_t repeat[256][8];  // inverse scatter: how many marks stand at or before a byte
  alignas(64) uint8_t count[256];
  alignas(64) uint8_t toFront16[16][16];  // row p moves byte p to the front
  alignas(64) uint8_t toFront64[64][64];
  alignas(64) uint8_t identity[listSize];
  // 16 bytes from 16 - n on: all ones in the first n, zero in the others. Likewise 256 bytes.
  alignas(32) uint8_t before16[32];
  alignas(64) uint8_t before256[512];
};

template <size_t size>
constexpr void fillToFront(uint8_t (&rows)[size][size]) {
  for (size_t p = 0; p < size; ++p) {
    for (size_t i = 0; i < size; ++i) {
      rows[p][i] = static_cast<uint8_t>(i == 0 ? p : (i <= p ? i - 1 : i));
    }
  }
}

constexpr Tables makeTables() {
  constexpr uint8_t zeroByte = 0x80;
  Tables t{};
  for (unsigned marks = 0; marks < 256; ++marks) {
    uint8_t count = 0;
    for (uint8_t i = 0; i < 8; ++i) {
      const bool marked = (marks >> i & 1) != 0;
      t.place[marks][i] = marked ? count : zeroByte;
      if (marked) t.pick[marks][count++] = i;
      t.repeat[marks][i] = count;
    }
    for (int i = count; i < 8; ++i) t.pick[marks][i] = zeroByte;
    t.count[marks] = count;
  }
  fillToFront(t.toFront16);
  fillToFront(t.toFront64);
  for (int i = 0; i < listSize; ++i) t.identity[i] = static_cast<uint8_t>(i);
  for (int i = 0; i < 16; ++i) t.before16[i] = 0xFF;
  for (int i = 0; i < 256; ++i) t.before256[i] = 0xFF;
  return t;
}

inline constexpr Tables tables = makeTables();

ZEBDC_ALWAYS_INLINE __m128i load8(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

ZEBDC_ALWAYS_INLINE __m128i load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

ZEBDC_ALWAYS_INLINE void store8(uint8_t* p, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
}

ZEBDC_ALWAYS_INLINE void store16(uint8_t* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

ZEBDC_ALWAYS_INLINE uint8_t firstByte(__m128i v) {
  return static_cast<uint8_t>(_mm_cvtsi128_si32(v));
}

// Appends the marked ones of eight bytes to the gathered ones.
ZEBDC_ALWAYS_INLINE uint8_t* append(uint8_t* gathered, __m128i bytes, unsigned marks) {
  store8(gathered, _mm_shuffle_epi8(bytes, load8(tables.pick[marks])));
  return gathered + tables.count[marks];
}

// At most eight bytes at the end of a piece, one by one.
template <class IsMarked>
uint8_t* gatherTail(const uint8_t* src, int begin, int end, Piece& piece, uint8_t* gathered,
                    IsMarked isMarked) {
  if (begin == end) return gathered;
  unsigned marks = 0;
  for (int i = begin; i < end; ++i) {
    if (!isMarked(i)) continue;
    marks |= 1u << (i - begin);
    *gathered++ = src[i];
  }
  piece.marks[begin / 8] = static_cast<uint8_t>(marks);
  return gathered;
}

// Sixteen list entries behind the front once the byte that left the front came in: positions up
// to and including `last` take the entry before them, the others stay.
ZEBDC_ALWAYS_INLINE __m128i carriedUpTo(int last, __m128i entries, __m128i before) {
  const __m128i stay =
      _mm_cmpgt_epi8(load16(tables.identity), _mm_set1_epi8(static_cast<char>(last)));
  return _mm_or_si128(_mm_and_si128(stay, entries),
                      _mm_andnot_si128(stay, _mm_alignr_epi8(entries, before, 15)));
}

ZEBDC_ALWAYS_INLINE __m128i pushFront(__m128i front, uint8_t value) {
  return _mm_or_si128(_mm_slli_si128(front, 1), _mm_cvtsi32_si128(value));
}

}  // namespace zebdc::kernels::movetofront

ZEBDC_BEGIN_AVX512
namespace zebdc::kernels::movetofront {

ZEBDC_ALWAYS_INLINE __m512i iota() {
  return _mm512_load_si512(tables.identity);
}

// The zero mask is no mask; the unmasked intrinsic alarms GCC 12 about its undefined source.
ZEBDC_ALWAYS_INLINE __m512i permuted(__m512i v, __m512i control) {
  return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, control, v);
}

// The shuffle control that shifts a vector up by one byte; byte 0 selects the last byte of the
// second source of a two-source shuffle, and the last one of a single source.
ZEBDC_ALWAYS_INLINE __m512i shiftUp() {
  return _mm512_sub_epi8(iota(), _mm512_set1_epi8(1));
}

ZEBDC_ALWAYS_INLINE uint64_t lanesBelow(int count) {
  return count >= 64 ? ~uint64_t{0} : _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(count));
}

// The marks of up to 64 bytes; the table has room for whole words.
ZEBDC_ALWAYS_INLINE void storeMarks(Piece& piece, int i, uint64_t marks) {
  memcpy(piece.marks + i / 8, &marks, sizeof marks);
}

ZEBDC_ALWAYS_INLINE uint64_t loadMarks(const Piece& piece, int i) {
  uint64_t marks;
  memcpy(&marks, piece.marks + i / 8, sizeof marks);
  return marks;
}

static_assert(pieceSize % 64 == 0);

}  // namespace zebdc::kernels::movetofront
ZEBDC_END_TARGET

#endif
