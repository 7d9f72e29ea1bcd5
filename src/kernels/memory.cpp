// Copy and fill kernels.
//
// Copies and byte fills are the C library's, which has variants for each processor of its own.
// Fills of wider elements, which it does not offer, store a pattern of 16 bytes: once at the
// beginning, from the next boundary on in aligned registers of the tier's width, once at the end.
// The places between element and register boundaries are met by rotating the pattern, so that an
// element may straddle any of them. Stores of 64 bytes were no faster than those of 32
// (docs/decisions/copy-and-fill.md).

#include "kernels/memory.h"

#include <string.h>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

void copyBytes(const uint8_t* src, uint8_t* dst, int len) {
  if (len > 0) memcpy(dst, src, static_cast<size_t>(len));
}

void fillBytes(uint8_t value, uint8_t* dst, int len) {
  if (len > 0) memset(dst, value, static_cast<size_t>(len));
}

// Fills bytes, at least 16, with a pattern.
using FillPattern = void (*)(__m128i pattern, uint8_t* dst, size_t bytes);

void storeAnywhere(uint8_t* dst, __m128i value) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), value);
}

// The pattern as it continues after `bytes` bytes.
ZEBDC_ALWAYS_INLINE __m128i continued(__m128i pattern, size_t bytes) {
  alignas(16) static constexpr uint8_t rotations[32] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10,
                                                        11, 12, 13, 14, 15, 0,  1,  2,  3,  4, 5,
                                                        6,  7,  8,  9,  10, 11, 12, 13, 14, 15};
  return _mm_shuffle_epi8(
      pattern, _mm_loadu_si128(reinterpret_cast<const __m128i*>(rotations + bytes % 16)));
}

// The bytes from dst to the next boundary behind it.
template <size_t boundary>
size_t bytesToBoundary(const uint8_t* dst) {
  return boundary - reinterpret_cast<uintptr_t>(dst) % boundary;
}

// Fewer than 16 bytes.
void fillShort(__m128i pattern, uint8_t* dst, size_t bytes) {
  if ((bytes & 8) != 0) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), pattern);
    pattern = _mm_srli_si128(pattern, 8);
    dst += 8;
  }
  uint64_t rest = static_cast<uint64_t>(_mm_cvtsi128_si64(pattern));
  if ((bytes & 4) != 0) {
    store(dst, static_cast<uint32_t>(rest));
    rest >>= 32;
    dst += 4;
  }
  if ((bytes & 2) != 0) {
    store(dst, static_cast<uint16_t>(rest));
    rest >>= 16;
    dst += 2;
  }
  if ((bytes & 1) != 0) *dst = static_cast<uint8_t>(rest);
}

void fillPattern(__m128i pattern, uint8_t* dst, size_t bytes) {
  uint8_t* const last = dst + bytes - 16;
  storeAnywhere(dst, pattern);
  const size_t head = bytesToBoundary<16>(dst);
  const __m128i aligned = continued(pattern, head);
  for (uint8_t* at = dst + head; at < last; at += 16) {
    _mm_store_si128(reinterpret_cast<__m128i*>(at), aligned);
  }
  storeAnywhere(last, continued(pattern, bytes));
}

template <FillPattern fill>
void fillWith(__m128i pattern, void* dst, size_t bytes) {
  if (bytes < 16) {
    fillShort(pattern, static_cast<uint8_t*>(dst), bytes);
  } else {
    fill(pattern, static_cast<uint8_t*>(dst), bytes);
  }
}

template <FillPattern fill>
void fill16(uint16_t value, uint16_t* dst, int len) {
  if (len < 1) return;
  fillWith<fill>(_mm_set1_epi16(static_cast<int16_t>(value)), dst, static_cast<size_t>(len) * 2);
}

template <FillPattern fill>
void fill32(uint32_t value, uint32_t* dst, int len) {
  if (len < 1) return;
  fillWith<fill>(_mm_set1_epi32(static_cast<int32_t>(value)), dst, static_cast<size_t>(len) * 4);
}

template <FillPattern fill>
void fill64(uint64_t value, uint64_t* dst, int len) {
  if (len < 1) return;
  fillWith<fill>(_mm_set1_epi64x(static_cast<int64_t>(value)), dst, static_cast<size_t>(len) * 8);
}

template <FillPattern fill>
void fill128(const void* value, void* dst, int len) {
  if (len < 1) return;
  fill(_mm_loadu_si128(static_cast<const __m128i*>(value)), static_cast<uint8_t*>(dst),
       static_cast<size_t>(len) * 16);
}

}  // namespace
}  // namespace zebdc::kernels

ZEBDC_BEGIN_AVX2
namespace zebdc::kernels::avx2 {
namespace {

void fillPattern(__m128i pattern, uint8_t* dst, size_t bytes) {
  constexpr size_t width = 32;
  if (bytes < 2 * width) return kernels::fillPattern(pattern, dst, bytes);
  uint8_t* const end = dst + bytes;
  const __m256i first = _mm256_broadcastsi128_si256(pattern);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), first);
  const size_t head = bytesToBoundary<width>(dst);
  const __m256i aligned = _mm256_broadcastsi128_si256(continued(pattern, head));
  uint8_t* at = dst + head;
  for (; static_cast<size_t>(end - at) >= 4 * width; at += 4 * width) {
    for (size_t i = 0; i < 4; ++i) {
      _mm256_store_si256(reinterpret_cast<__m256i*>(at + i * width), aligned);
    }
  }
  for (; static_cast<size_t>(end - at) >= width; at += width) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), aligned);
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(end - width),
                      _mm256_broadcastsi128_si256(continued(pattern, bytes)));
}

}  // namespace
}  // namespace zebdc::kernels::avx2
ZEBDC_END_TARGET

namespace zebdc::kernels {
namespace {

template <FillPattern fill>
constexpr MemoryKernels kernelsWith = {copyBytes,    fillBytes,    fill16<fill>,
                                       fill32<fill>, fill64<fill>, fill128<fill>};

}  // namespace

constinit const TierTable<MemoryKernels> memoryKernels(
    {{tierBaseline, kernelsWith<fillPattern>}, {tierAvx2, kernelsWith<avx2::fillPattern>}});

}  // namespace zebdc::kernels
