// CRC kernels: slicing tables as the portable path, folding by carry-less multiplication and the
// CRC-32C instruction above it.

#include "kernels/crc.h"

#include <type_traits>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/crc_polynomial.h"
#include "kernels/crc_tables.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// What the four bytes of a word contribute when `after` more bytes follow them in the step.
uint32_t sliceOfFour(const SlicingTables& tables, uint32_t word, size_t after) {
  return tables[after + 3][word & 0xFF] ^ tables[after + 2][(word >> 8) & 0xFF] ^
         tables[after + 1][(word >> 16) & 0xFF] ^ tables[after][word >> 24];
}

uint32_t crcByTables(const SlicingTables& tables, uint32_t crc, const uint8_t* src, size_t len) {
  for (; len >= slices; src += slices, len -= slices) {
    crc = sliceOfFour(tables, crc ^ load<uint32_t>(src), 4) ^
          sliceOfFour(tables, load<uint32_t>(src + 4), 0);
  }
  for (; len > 0; ++src, --len) crc = (crc >> 8) ^ tables[0][(crc ^ *src) & 0xFF];
  return crc;
}

uint32_t crc32ByTables(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByTables(crc32Tables, crc, src, len);
}

uint32_t crc32cByTables(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByTables(crc32cTables, crc, src, len);
}

uint32_t crc32Bzip2ByTables(uint32_t crc, const uint8_t* src, size_t len) {
  return byteSwapped(crcByTables(crc32Bzip2Tables, byteSwapped(crc), src, len));
}

// The 1 to 7 bytes at src in the low bytes of a word.
uint64_t loadUpTo7(const uint8_t* src, size_t len) {
  if (len >= 4) {
    return load<uint32_t>(src) | static_cast<uint64_t>(load<uint32_t>(src + len - 4))
                                     << (8 * (len - 4));
  }
  return src[0] | static_cast<uint64_t>(src[len / 2]) << (8 * (len / 2)) |
         static_cast<uint64_t>(src[len - 1]) << (8 * (len - 1));
}

// Shuffle controls that move the bytes of a register: the 16 that begin at 16 - n move them n
// places up, those at 16 + n n places down. The top bit marks the places vacated.
alignas(16) constexpr uint8_t moveControls[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

}  // namespace
}  // namespace zebdc::kernels

// Folding in registers of 128 bits. crc_polynomial.h derives it.
ZEBDC_BEGIN_SSE42
namespace zebdc::kernels::sse42 {
namespace {

ZEBDC_ALWAYS_INLINE __m128i asRegister(LanePair pair) {
  return _mm_set_epi64x(static_cast<int64_t>(pair.high), static_cast<int64_t>(pair.low));
}

ZEBDC_ALWAYS_INLINE __m128i loadBytes(const uint8_t* src) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
}

// Brings bytes from the order of memory to that of the CRC.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i ordered(__m128i bytes) {
  if constexpr (Crc::reflected) return bytes;
  return _mm_shuffle_epi8(bytes,
                          _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i loadOrdered(const uint8_t* src) {
  return ordered<Crc>(loadBytes(src));
}

// The start value where the first bytes of the message stand.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i startValue(uint32_t crc) {
  const __m128i value = _mm_cvtsi32_si128(static_cast<int>(crc));
  return Crc::reflected ? value : _mm_slli_si128(value, 12);
}

ZEBDC_ALWAYS_INLINE __m128i fold(__m128i accumulator, LanePair factors, __m128i next) {
  const __m128i low = _mm_clmulepi64_si128(accumulator, asRegister(factors), 0x00);
  const __m128i high = _mm_clmulepi64_si128(accumulator, asRegister(factors), 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

// Steps 2 and 3 of the reduction, on a register that holds V1 in the lane of the higher powers and
// V0 in the half lane behind it.
template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t remainderOf(__m128i v) {
  const __m128i factors = asRegister({Crc::quotientFactor, Crc::remainderFactor});
  if constexpr (Crc::reflected) {
    const __m128i quotient = _mm_clmulepi64_si128(v, factors, 0x00);
    const __m128i product = _mm_clmulepi64_si128(quotient, factors, 0x10);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(product, v), 2));
  } else {
    const __m128i quotient = _mm_xor_si128(_mm_clmulepi64_si128(v, factors, 0x01), v);
    const __m128i product = _mm_clmulepi64_si128(quotient, factors, 0x11);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(product, v), 1));
  }
}

// The CRC of a message that has been folded into one register.
template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t reduce(__m128i accumulator) {
  if constexpr (std::is_same_v<Crc, Crc32c>) {
    const uint64_t front = static_cast<uint64_t>(_mm_cvtsi128_si64(accumulator));
    const uint64_t back = static_cast<uint64_t>(_mm_extract_epi64(accumulator, 1));
    return static_cast<uint32_t>(_mm_crc32_u64(_mm_crc32_u64(0, front), back));
  }
  const __m128i factor = asRegister({Crc::reduceHigh, 0});
  if constexpr (Crc::reflected) {
    const __m128i high = _mm_clmulepi64_si128(accumulator, factor, 0x00);
    return remainderOf<Crc>(_mm_xor_si128(high, _mm_srli_si128(accumulator, 8)));
  } else {
    const __m128i high = _mm_clmulepi64_si128(accumulator, factor, 0x01);
    return remainderOf<Crc>(_mm_xor_si128(high, _mm_slli_si128(accumulator, 8)));
  }
}

// Moves the first n bytes of the message in a register to the register's end; zeros come in front.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i firstBytesToEnd(__m128i bytes, size_t n) {
  return _mm_shuffle_epi8(bytes, loadBytes(moveControls + (Crc::reflected ? n : 32 - n)));
}

// One more fold for the last n (1 to 15) bytes of the message, which holds at least 16: of the
// accumulator the first n bytes are folded, and the others are joined by the last n of the message.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i foldLastBytes(__m128i accumulator, const uint8_t* end, size_t n) {
  const __m128i toFront = loadBytes(moveControls + (Crc::reflected ? 16 + n : 16 - n));
  const __m128i joined =
      _mm_blendv_epi8(_mm_shuffle_epi8(accumulator, toFront), loadOrdered<Crc>(end - 16), toFront);
  return fold(firstBytesToEnd<Crc>(accumulator, n), Crc::template foldOver<128>, joined);
}

// A message of 1 to 8 bytes is V1 of the reduction. What of the start value reaches beyond fewer
// than 4 bytes is part of the remainder.
template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcOfUpTo8(uint32_t crc, const uint8_t* src, size_t len) {
  const uint64_t bytes = len == 8 ? load<uint64_t>(src) : loadUpTo7(src, len);
  const size_t empty = 64 - 8 * len;
  if constexpr (Crc::reflected) {
    const uint64_t message = (bytes ^ crc) << empty;
    return remainderOf<Crc>(asRegister({message, 0})) ^ (len < 4 ? crc >> (8 * len) : 0);
  } else {
    const uint64_t message = (byteSwapped(bytes) ^ static_cast<uint64_t>(crc) << 32) >> empty;
    return remainderOf<Crc>(asRegister({0, message})) ^ (len < 4 ? crc << (8 * len) : 0);
  }
}

template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcOf9To15(uint32_t crc, const uint8_t* src, size_t len) {
  const uint64_t behindFirst8 = load<uint64_t>(src + len - 8) >> (128 - 8 * len);
  const __m128i bytes = ordered<Crc>(asRegister({load<uint64_t>(src), behindFirst8}));
  return reduce<Crc>(firstBytesToEnd<Crc>(_mm_xor_si128(bytes, startValue<Crc>(crc)), len));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcOfUpTo15(uint32_t crc, const uint8_t* src, size_t len) {
  if (len > 8) return crcOf9To15<Crc>(crc, src, len);
  return len > 0 ? crcOfUpTo8<Crc>(crc, src, len) : crc;
}

// Folds n registers that lie behind one another into the last, in a tree.
template <class Crc, size_t n>
ZEBDC_ALWAYS_INLINE __m128i foldTogether(const __m128i (&accumulator)[n]) {
  if constexpr (n == 1) {
    return accumulator[0];
  } else {
    constexpr size_t half = n / 2;
    __m128i folded[half];
    for (size_t i = 0; i < half; ++i) {
      folded[i] = fold(accumulator[i], Crc::template foldOver<128 * half>, accumulator[i + half]);
    }
    return foldTogether<Crc>(folded);
  }
}

// Folds the message, of at least n registers, in n accumulators while a round of n registers is
// left. `first` is the first register of the message.
template <class Crc, size_t n>
ZEBDC_ALWAYS_INLINE __m128i foldRounds(__m128i first, const uint8_t*& src, size_t& len) {
  constexpr size_t round = 16 * n;
  __m128i accumulator[n] = {first};
  for (size_t i = 1; i < n; ++i) accumulator[i] = loadOrdered<Crc>(src + 16 * i);
  src += round;
  len -= round;
  for (; len >= round; src += round, len -= round) {
    for (size_t i = 0; i < n; ++i) {
      accumulator[i] =
          fold(accumulator[i], Crc::template foldOver<8 * round>, loadOrdered<Crc>(src + 16 * i));
    }
  }
  return foldTogether<Crc>(accumulator);
}

// Folds what is left of a message of at least 16 bytes, register by register, and reduces.
template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcOfRest(__m128i accumulator, const uint8_t* src, size_t len) {
  for (; len >= 16; src += 16, len -= 16) {
    accumulator = fold(accumulator, Crc::template foldOver<128>, loadOrdered<Crc>(src));
  }
  if (len > 0) accumulator = foldLastBytes<Crc>(accumulator, src + len, len);
  return reduce<Crc>(accumulator);
}

// A fold takes 6 to 9 cycles and the next can start after 2 to 4: eight accumulators keep every
// multiplier busy. Below 256 bytes their meeting costs more than four lose.
template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcByFolding(uint32_t crc, const uint8_t* src, size_t len) {
  if (len < 16) return crcOfUpTo15<Crc>(crc, src, len);
  __m128i accumulator = _mm_xor_si128(loadOrdered<Crc>(src), startValue<Crc>(crc));
  if (len >= 256) {
    accumulator = foldRounds<Crc, 8>(accumulator, src, len);
  } else if (len >= 64) {
    accumulator = foldRounds<Crc, 4>(accumulator, src, len);
  } else {
    accumulator = foldRounds<Crc, 1>(accumulator, src, len);
  }
  return crcOfRest<Crc>(accumulator, src, len);
}

uint32_t crc32(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32>(crc, src, len);
}

uint32_t crc32Bzip2(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32Bzip2>(crc, src, len);
}

// The CRC-32C instruction gives its result three cycles after its operand and takes a new one every
// cycle: three streams, an equal part of a block each, keep it busy. To put the streams together,
// the register of each is moved over the streams behind it. The product of a 32-bit register and
// x^(bits - 33), added to the last 8 bytes of the block, is multiplied by the missing x^33 when the
// instruction takes those bytes: by x^32 as part of its work, by x for the reflected product.
template <size_t streamBytes>
ZEBDC_ALWAYS_INLINE uint64_t crc32cOfBlock(uint64_t first, const uint8_t* src) {
  constexpr LanePair factors = {Crc32c::registerOver<2 * 8 * streamBytes>,
                                Crc32c::registerOver<8 * streamBytes>};
  uint64_t second = 0;
  uint64_t third = 0;
  size_t i = 0;
  for (; i < streamBytes - 8; i += 8) {
    first = _mm_crc32_u64(first, load<uint64_t>(src + i));
    second = _mm_crc32_u64(second, load<uint64_t>(src + streamBytes + i));
    third = _mm_crc32_u64(third, load<uint64_t>(src + 2 * streamBytes + i));
  }
  first = _mm_crc32_u64(first, load<uint64_t>(src + i));
  second = _mm_crc32_u64(second, load<uint64_t>(src + streamBytes + i));
  const __m128i moved =
      _mm_xor_si128(_mm_clmulepi64_si128(asRegister({first, 0}), asRegister(factors), 0x00),
                    _mm_clmulepi64_si128(asRegister({second, 0}), asRegister(factors), 0x10));
  return _mm_crc32_u64(third, load<uint64_t>(src + 2 * streamBytes + i) ^
                                  static_cast<uint64_t>(_mm_cvtsi128_si64(moved)));
}

ZEBDC_ALWAYS_INLINE uint32_t crc32cInOneStream(uint64_t crc, const uint8_t* src, size_t len) {
  for (; len >= 8; src += 8, len -= 8) crc = _mm_crc32_u64(crc, load<uint64_t>(src));
  uint32_t narrow = static_cast<uint32_t>(crc);
  if ((len & 4) != 0) {
    narrow = _mm_crc32_u32(narrow, load<uint32_t>(src));
    src += 4;
  }
  if ((len & 2) != 0) {
    narrow = _mm_crc32_u16(narrow, load<uint16_t>(src));
    src += 2;
  }
  return (len & 1) != 0 ? _mm_crc32_u8(narrow, *src) : narrow;
}

uint32_t crc32c(uint32_t crc, const uint8_t* src, size_t len) {
  constexpr size_t longStream = 1024;
  constexpr size_t shortStream = 64;
  uint64_t wide = crc;
  for (; len >= 3 * longStream; src += 3 * longStream, len -= 3 * longStream) {
    wide = crc32cOfBlock<longStream>(wide, src);
  }
  for (; len >= 3 * shortStream; src += 3 * shortStream, len -= 3 * shortStream) {
    wide = crc32cOfBlock<shortStream>(wide, src);
  }
  return crc32cInOneStream(wide, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::sse42
ZEBDC_END_TARGET

// The same in three-operand encoding.
ZEBDC_BEGIN_AVX2
namespace zebdc::kernels::avx2 {
namespace {

uint32_t crc32(uint32_t crc, const uint8_t* src, size_t len) {
  return sse42::crcByFolding<Crc32>(crc, src, len);
}

uint32_t crc32Bzip2(uint32_t crc, const uint8_t* src, size_t len) {
  return sse42::crcByFolding<Crc32Bzip2>(crc, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::avx2
ZEBDC_END_TARGET

// Folding in registers of 256 bits, which hold two registers of 128 bits behind one another.
ZEBDC_BEGIN_VPCLMUL
namespace zebdc::kernels::vpclmul {
namespace {

ZEBDC_ALWAYS_INLINE __m256i inEveryLane(LanePair pair) {
  return _mm256_broadcastsi128_si256(sse42::asRegister(pair));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE __m256i loadOrdered(const uint8_t* src) {
  const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
  if constexpr (Crc::reflected) return bytes;
  return _mm256_shuffle_epi8(bytes, inEveryLane({0x08090A0B0C0D0E0F, 0x0001020304050607}));
}

ZEBDC_ALWAYS_INLINE __m256i fold(__m256i accumulator, __m256i factors, __m256i next) {
  const __m256i low = _mm256_clmulepi64_epi128(accumulator, factors, 0x00);
  const __m256i high = _mm256_clmulepi64_epi128(accumulator, factors, 0x11);
  return _mm256_xor_si256(_mm256_xor_si256(low, next), high);
}

template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcByFolding(uint32_t crc, const uint8_t* src, size_t len) {
  constexpr size_t count = 8;
  constexpr size_t round = 32 * count;
  if (len < round) return sse42::crcByFolding<Crc>(crc, src, len);

  __m256i accumulator[count];
  for (size_t i = 0; i < count; ++i) accumulator[i] = loadOrdered<Crc>(src + 32 * i);
  accumulator[0] =
      _mm256_xor_si256(accumulator[0], _mm256_zextsi128_si256(sse42::startValue<Crc>(crc)));
  src += round;
  len -= round;
  for (; len >= round; src += round, len -= round) {
    for (size_t i = 0; i < count; ++i) {
      accumulator[i] = fold(accumulator[i], inEveryLane(Crc::template foldOver<8 * round>),
                            loadOrdered<Crc>(src + 32 * i));
    }
  }

  for (size_t i = 0; i < 4; ++i) {
    accumulator[i] =
        fold(accumulator[i], inEveryLane(Crc::template foldOver<4 * 256>), accumulator[i + 4]);
  }
  for (size_t i = 0; i < 2; ++i) {
    accumulator[i] =
        fold(accumulator[i], inEveryLane(Crc::template foldOver<2 * 256>), accumulator[i + 2]);
  }
  __m256i last = fold(accumulator[0], inEveryLane(Crc::template foldOver<256>), accumulator[1]);
  for (; len >= 32; src += 32, len -= 32) {
    last = fold(last, inEveryLane(Crc::template foldOver<256>), loadOrdered<Crc>(src));
  }
  const __m128i folded = sse42::fold(_mm256_castsi256_si128(last), Crc::template foldOver<128>,
                                     _mm256_extracti128_si256(last, 1));
  return sse42::crcOfRest<Crc>(folded, src, len);
}

uint32_t crc32(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32>(crc, src, len);
}

uint32_t crc32c(uint32_t crc, const uint8_t* src, size_t len) {
  constexpr size_t foldingPays = 256;
  return len < foldingPays ? sse42::crc32c(crc, src, len) : crcByFolding<Crc32c>(crc, src, len);
}

uint32_t crc32Bzip2(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32Bzip2>(crc, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::vpclmul
ZEBDC_END_TARGET

// Folding in registers of 512 bits, which hold four registers of 128 bits behind one another.
ZEBDC_BEGIN_AVX512
namespace zebdc::kernels::avx512 {
namespace {

ZEBDC_ALWAYS_INLINE __m512i inEveryLane(LanePair pair) {
  return _mm512_broadcast_i32x4(sse42::asRegister(pair));
}

// Where each byte of the message stands in a register, and which byte stands in each place: the
// same for either order.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m512i places() {
  const __m512i ascending = _mm512_add_epi8(
      inEveryLane({0x0706050403020100, 0x0F0E0D0C0B0A0908}),
      _mm512_set_epi64(0x3030303030303030, 0x3030303030303030, 0x2020202020202020,
                       0x2020202020202020, 0x1010101010101010, 0x1010101010101010, 0, 0));
  return Crc::reflected ? ascending : _mm512_xor_si512(ascending, _mm512_set1_epi8(15));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE __m512i ordered(__m512i bytes) {
  if constexpr (Crc::reflected) return bytes;
  return _mm512_shuffle_epi8(bytes, inEveryLane({0x08090A0B0C0D0E0F, 0x0001020304050607}));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE __m512i loadOrdered(const uint8_t* src) {
  return ordered<Crc>(_mm512_loadu_si512(src));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE __m512i startValue(uint32_t crc) {
  return _mm512_zextsi128_si512(sse42::startValue<Crc>(crc));
}

ZEBDC_ALWAYS_INLINE __m512i sumOfThree(__m512i a, __m512i b, __m512i c) {
  constexpr int exclusiveOr = 0x96;
  return _mm512_ternarylogic_epi64(a, b, c, exclusiveOr);
}

ZEBDC_ALWAYS_INLINE __m512i fold(__m512i accumulator, __m512i factors, __m512i next) {
  return sumOfThree(_mm512_clmulepi64_epi128(accumulator, factors, 0x00),
                    _mm512_clmulepi64_epi128(accumulator, factors, 0x11), next);
}

template <class Crc, size_t n>
ZEBDC_ALWAYS_INLINE __m512i foldTogether(const __m512i (&accumulator)[n]) {
  if constexpr (n == 1) {
    return accumulator[0];
  } else {
    constexpr size_t half = n / 2;
    __m512i folded[half];
    for (size_t i = 0; i < half; ++i) {
      folded[i] = fold(accumulator[i], inEveryLane(Crc::template foldOver<512 * half>),
                       accumulator[i + half]);
    }
    return foldTogether<Crc>(folded);
  }
}

template <class Crc, size_t n>
ZEBDC_ALWAYS_INLINE __m512i foldRounds(__m512i first, const uint8_t*& src, size_t& len) {
  constexpr size_t round = 64 * n;
  __m512i accumulator[n] = {first};
  for (size_t i = 1; i < n; ++i) accumulator[i] = loadOrdered<Crc>(src + 64 * i);
  src += round;
  len -= round;
  for (; len >= round; src += round, len -= round) {
    for (size_t i = 0; i < n; ++i) {
      accumulator[i] = fold(accumulator[i], inEveryLane(Crc::template foldOver<8 * round>),
                            loadOrdered<Crc>(src + 64 * i));
    }
  }
  return foldTogether<Crc>(accumulator);
}

// One more fold for the last n (1 to 63) bytes of the message, which holds at least 64. The
// register is rotated by n bytes: those that wrap around are folded, the others are joined by the
// last n bytes of the message.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m512i foldLastBytes(__m512i accumulator, const uint8_t* end, size_t n) {
  const __m512i taken = _mm512_add_epi8(places<Crc>(), _mm512_set1_epi8(static_cast<char>(n)));
  const __mmask64 wrapped = _mm512_test_epi8_mask(taken, _mm512_set1_epi8(64));
  const __m512i from = Crc::reflected ? taken : _mm512_xor_si512(taken, _mm512_set1_epi8(15));
  const __m512i rotated = _mm512_permutexvar_epi8(from, accumulator);
  const __m512i joined = _mm512_mask_blend_epi8(wrapped, rotated, loadOrdered<Crc>(end - 64));
  return fold(_mm512_maskz_mov_epi8(wrapped, rotated), inEveryLane(Crc::template foldOver<512>),
              joined);
}

// Folds the four 128-bit registers into the last.
template <class Crc>
ZEBDC_ALWAYS_INLINE __m128i foldLanes(__m512i accumulator) {
  const __m256i front = _mm512_castsi512_si256(accumulator);
  const __m256i back = _mm512_extracti64x4_epi64(accumulator, 1);
  const __m256i factors =
      _mm256_broadcastsi128_si256(sse42::asRegister(Crc::template foldOver<256>));
  const __m256i sum =
      _mm256_ternarylogic_epi64(_mm256_clmulepi64_epi128(front, factors, 0x00),
                                _mm256_clmulepi64_epi128(front, factors, 0x11), back, 0x96);
  return sse42::fold(_mm256_castsi256_si128(sum), Crc::template foldOver<128>,
                     _mm256_extracti128_si256(sum, 1));
}

template <class Crc>
ZEBDC_ALWAYS_INLINE uint32_t crcByFolding(uint32_t crc, const uint8_t* src, size_t len) {
  if (len < 64) return sse42::crcByFolding<Crc>(crc, src, len);
  __m512i accumulator = _mm512_xor_si512(loadOrdered<Crc>(src), startValue<Crc>(crc));
  if (len >= 256) {
    accumulator = foldRounds<Crc, 4>(accumulator, src, len);
  } else {
    src += 64;
    len -= 64;
  }
  for (; len >= 64; src += 64, len -= 64) {
    accumulator =
        fold(accumulator, inEveryLane(Crc::template foldOver<512>), loadOrdered<Crc>(src));
  }
  if (len > 0) accumulator = foldLastBytes<Crc>(accumulator, src + len, len);
  return sse42::reduce<Crc>(foldLanes<Crc>(accumulator));
}

uint32_t crc32(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32>(crc, src, len);
}

uint32_t crc32c(uint32_t crc, const uint8_t* src, size_t len) {
  constexpr size_t foldingPays = 256;
  return len < foldingPays ? sse42::crc32c(crc, src, len) : crcByFolding<Crc32c>(crc, src, len);
}

uint32_t crc32Bzip2(uint32_t crc, const uint8_t* src, size_t len) {
  return crcByFolding<Crc32Bzip2>(crc, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::avx512
ZEBDC_END_TARGET

namespace zebdc::kernels {

constinit const TierTable<CrcKernels> crcKernels(
    {{tierBaseline, {crc32ByTables, crc32cByTables, crc32Bzip2ByTables}},
     {tierSse42, {sse42::crc32, sse42::crc32c, sse42::crc32Bzip2}},
     {tierAvx2, {avx2::crc32, sse42::crc32c, avx2::crc32Bzip2}},
     {tierVpclmul, {vpclmul::crc32, vpclmul::crc32c, vpclmul::crc32Bzip2}},
     {tierAvx512, {avx512::crc32, avx512::crc32c, avx512::crc32Bzip2}}});

}  // namespace zebdc::kernels
