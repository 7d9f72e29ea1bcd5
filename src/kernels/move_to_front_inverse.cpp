// Move-to-front, inverse.
//
// The core depends on nothing but one shuffle from one byte to the next. Where many ranks are far
// from the front, as in sorted machine code, the slow path's branch is mispredicted too often.
// There AVX2 goes without any branch, the whole list in registers; where bits are deposited quickly
// as well, counting the values used since is 1.4 times as fast as that.
//
// Tried and no faster: the first 128 list entries without a branch; the 128-bit steps compiled for
// AVX2.

#include <string.h>

#include <algorithm>

#include "kernels/move_to_front.h"
#include "kernels/move_to_front_piece.h"

namespace zebdc::kernels {
namespace {

using namespace movetofront;

struct Steps {
  // Gathers the bytes that are not zero; returns their number.
  int (*gather)(const uint8_t* src, int len, Piece& piece);
  void (*core)(uint8_t* bytes, int count, uint8_t* list);  // ranks to values, in place
  // Faster than core where many ranks are beyond the front; null where there is nothing faster.
  void (*coreScattered)(uint8_t* bytes, int count, uint8_t* list);
  void (*scatter)(const Piece& piece, uint8_t* dst, int len);
};

// Below this number of gathered bytes the preparations of coreScattered cost more than it saves.
constexpr int scatteredMinimum = 64;

// A fifth of the ranks or more beyond the first 16 positions.
bool areScattered(const uint8_t* ranks, int count) {
  if (count < scatteredMinimum) return false;
  int far = 0;
  for (int i = 0; i < count; ++i) far += ranks[i] >= 16;
  return 5 * far >= count;
}

void transform(const Steps& steps, const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  alignas(64) uint8_t work[listSize];
  memcpy(work, list, listSize);

  Piece piece;
  for (int i = 0; i < len; i += pieceSize) {
    const int size = std::min(pieceSize, len - i);
    piece.gathered()[-1] = work[0];
    const int count = steps.gather(src + i, size, piece);
    const bool scattered = steps.coreScattered != nullptr && areScattered(piece.gathered(), count);
    (scattered ? steps.coreScattered : steps.core)(piece.gathered(), count, work);
    steps.scatter(piece, dst + i, size);
  }

  memcpy(list, work, listSize);
}

// ---- Baseline: the first 16 positions in a register ---------------------------------------------

int gatherNonzero(const uint8_t* src, int len, Piece& piece) {
  uint8_t* gathered = piece.gathered();
  const int whole = len / 16 * 16;
  for (int i = 0; i < whole; i += 16) {
    const __m128i bytes = load16(src + i);
    const __m128i zero = _mm_cmpeq_epi8(bytes, _mm_setzero_si128());
    const unsigned marks = ~static_cast<unsigned>(_mm_movemask_epi8(zero));
    memcpy(piece.marks + i / 8, &marks, 2);
    gathered = append(gathered, bytes, marks & 0xFF);
    gathered = append(gathered, _mm_srli_si128(bytes, 8), marks >> 8 & 0xFF);
  }
  for (int i = whole; i < len; i += 8) {
    gathered = gatherTail(src, i, std::min(i + 8, len), piece, gathered,
                          [&](int k) { return src[k] != 0; });
  }
  return static_cast<int>(gathered - piece.gathered());
}

void scatterRepeating(const Piece& piece, uint8_t* dst, int len) {
  const uint8_t* latest = piece.room + gatherMargin - 1;
  const int whole = len / 8 * 8;
  for (int i = 0; i < whole; i += 8) {
    const unsigned marks = piece.marks[i / 8];
    store8(dst + i, _mm_shuffle_epi8(load16(latest), load8(tables.repeat[marks])));
    latest += tables.count[marks];
  }
  for (int i = whole; i < len; ++i) {
    latest += piece.marks[i / 8] >> (i - whole) & 1;
    dst[i] = *latest;
  }
}

ZEBDC_NOINLINE uint8_t valueBehindFront(unsigned rank, uint8_t* list) {
  const uint8_t value = list[rank];
  __m128i before = load16(list);
  store16(list, pushFront(before, value));
  uint8_t* const last = list + rank / 16 * 16;
  for (uint8_t* p = list + 16; p < last; p += 16) {
    const __m128i entries = load16(p);
    store16(p, _mm_alignr_epi8(entries, before, 15));
    before = entries;
  }
  store16(last, carriedUpTo(static_cast<int>(rank % 16), load16(last), before));
  return value;
}

void valueAll(uint8_t* bytes, int count, uint8_t* list) {
  __m128i front = load16(list);
  for (int i = 0; i < count; ++i) {
    const unsigned rank = bytes[i];
    if (rank < 16) [[likely]] {
      front = _mm_shuffle_epi8(front, load16(tables.toFront16[rank]));
      bytes[i] = firstByte(front);
    } else {
      store16(list, front);
      bytes[i] = valueBehindFront(rank, list);
      front = load16(list);
    }
  }
  store16(list, front);
}

constexpr Steps steps = {gatherNonzero, valueAll, nullptr, scatterRepeating};

void baseline(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  transform(steps, src, dst, len, list);
}

}  // namespace

// ---- AVX2: the whole list in registers ----------------------------------------------------------

ZEBDC_BEGIN_AVX2
namespace avx2 {
namespace {

// Without any branch on the rank: every vector of the list is shifted, and the mask for the rank
// says which of its bytes are replaced. The list is stored for the look-up of the next value alone.
// That is the chain: load and broadcast the value, put it in front, store.
void valueScattered(uint8_t* bytes, int count, uint8_t* list) {
  constexpr int vectorCount = listSize / 32;
  __m256i* const stored = reinterpret_cast<__m256i*>(list);
  const __m256i firstByte = _mm256_zextsi128_si256(_mm_cvtsi32_si128(0xFF));
  __m256i entries[vectorCount];
  for (int k = 0; k < vectorCount; ++k) entries[k] = _mm256_load_si256(stored + k);
  for (int i = 0; i < count; ++i) {
    const unsigned rank = bytes[i];
    const __m256i value = _mm256_set1_epi8(static_cast<char>(list[rank]));
    bytes[i] = static_cast<uint8_t>(_mm256_cvtsi256_si32(value));
    const __m256i* const moved =
        reinterpret_cast<const __m256i*>(tables.before256 + (listSize - 1 - rank));
    __m256i before = _mm256_setzero_si256();
    for (int k = 0; k < vectorCount; ++k) {
      const __m256i current = entries[k];
      const __m256i carried = _mm256_permute2x128_si256(before, current, 0x21);
      const __m256i shifted = _mm256_alignr_epi8(current, carried, 15);
      entries[k] = _mm256_blendv_epi8(current, shifted, _mm256_loadu_si256(moved + k));
      if (k == 0) entries[k] = _mm256_blendv_epi8(entries[k], value, firstByte);
      _mm256_store_si256(stored + k, entries[k]);
      before = current;
    }
  }
}

constexpr Steps steps = {gatherNonzero, valueAll, valueScattered, scatterRepeating};

void wholeList(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  transform(steps, src, dst, len, list);
}

}  // namespace
}  // namespace avx2
ZEBDC_END_TARGET

// ---- VPCLMULQDQ: values by counting -------------------------------------------------------------

ZEBDC_BEGIN_VPCLMUL
namespace vpclmul {
namespace {

// The list as a row of places in the order of time: a place is alive while its value has no later
// one, and the value of rank r is in the living place that has r later ones. When all places are
// used up the living ones are moved together. In each word of 64 places the later ones are lower,
// so that the deposit of one bit into the living ones finds a place. Processors that lack this tier
// may need hundreds of cycles for a deposit; those that have it need three.
//
// When the living places of later words are taken off a rank, the smallest number left that is not
// negative is the number in the word, and the first lane that has it is the word: one instruction
// finds both. Words that have not come yet are given so many later places that no rank reaches
// them.
class Timeline {
 public:
  static constexpr int wordSize = 64;

  explicit Timeline(const uint8_t* list) {
    memcpy(list_, list, listSize);
    restart();
  }

  // Takes the next word. All its places live beforehand; those that have not come are taken off its
  // count.
  ZEBDC_ALWAYS_INLINE void beginWord() {
    if (latest_ == wordCount - 1) moveTogether();
    ++latest_;
    alive_[latest_] = ~uint64_t{0};
    alignas(16) int16_t counts[wordCount];
    _mm_store_si128(reinterpret_cast<__m128i*>(counts), later_);
    counts[latest_] = -wordSize;
    later_ = _mm_load_si128(reinterpret_cast<const __m128i*>(counts));
  }

  // The value takes the place `now` of the latest word and its place before dies. So there is one
  // more later place for the words that the rank reached.
  ZEBDC_ALWAYS_INLINE void replace(uint8_t* rank, int now) {
    const __m128i wanted =
        _mm_and_si128(_mm_set1_epi8(static_cast<char>(*rank)), _mm_set1_epi16(0xFF));
    const __m128i left = _mm_sub_epi16(wanted, later_);
    const uint32_t least = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_minpos_epu16(left)));
    const size_t word = least >> 16;
    const uint64_t place = _pdep_u64(uint64_t{1} << (least % wordSize), alive_[word]);
    const uint8_t value = valueAt_[word * wordSize + _tzcnt_u64(place)];
    alive_[word] ^= place;
    valueAt_[latest_ * wordSize + now] = value;
    *rank = value;
    later_ = _mm_sub_epi16(later_, _mm_cmpgt_epi16(left, _mm_set1_epi16(-1)));
  }

  // The places before `now` in the latest word have not come: they are dead again.
  const uint8_t* finish(int now) {
    alive_[latest_] &= ~uint64_t{0} << now;
    moveTogether();
    return list_;
  }

 private:
  static constexpr int wordCount = 8;
  static constexpr int16_t unreachable = 0x4000;

  void moveTogether() {
    uint8_t* end = list_;
    for (int word = latest_; word >= 0; --word) {
      for (int i = 0; i < wordSize; i += 8) {
        end = append(end, load8(valueAt_ + wordSize * word + i), alive_[word] >> i & 0xFF);
      }
    }
    restart();
  }

  // The list takes the first words.
  void restart() {
    constexpr int listWords = listSize / wordSize;
    alignas(16) int16_t counts[wordCount];
    for (int word = 0; word < wordCount; ++word) {
      const int behind = listWords - 1 - word;
      if (behind >= 0) memcpy(valueAt_ + wordSize * word, list_ + wordSize * behind, wordSize);
      alive_[word] = ~uint64_t{0};
      counts[word] = static_cast<int16_t>(behind >= 0 ? wordSize * behind : unreachable);
    }
    later_ = _mm_load_si128(reinterpret_cast<const __m128i*>(counts));
    latest_ = listWords - 1;
  }

  __m128i later_;  // living places in later words
  int latest_;
  uint64_t alive_[wordCount];
  uint8_t valueAt_[wordCount * wordSize];
  uint8_t list_[listSize + 8];  // append stores words
};

// A step's longest way is through the living places of one word. So the two halves are walked side
// by side: the second one over a list of positions, for its own list is known only when the first
// half is done.
void valueScattered(uint8_t* bytes, int count, uint8_t* list) {
  const int half = count / 2;
  uint8_t* const second = bytes + half;
  Timeline values(list);
  Timeline positions(tables.identity);
  int now = 0;
  for (int i = 0; i < half;) {
    values.beginWord();
    positions.beginWord();
    now = Timeline::wordSize;
    for (const int end = std::min(i + Timeline::wordSize, half); i < end; ++i) {
      --now;
      values.replace(bytes + i, now);
      positions.replace(second + i, now);
    }
  }

  const uint8_t* const middle = values.finish(now);
  for (int i = 0; i < half; ++i) second[i] = middle[second[i]];
  const uint8_t* const last = positions.finish(now);
  for (int p = 0; p < listSize; ++p) list[p] = middle[last[p]];
  valueAll(bytes + 2 * half, count - 2 * half, list);
}

constexpr Steps steps = {gatherNonzero, valueAll, valueScattered, scatterRepeating};

void counting(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  transform(steps, src, dst, len, list);
}

}  // namespace
}  // namespace vpclmul
ZEBDC_END_TARGET

// ---- AVX-512: the first 64 positions in a register ----------------------------------------------

ZEBDC_BEGIN_AVX512
namespace avx512 {
namespace {

int gatherNonzero(const uint8_t* src, int len, Piece& piece) {
  uint8_t* gathered = piece.gathered();
  for (int i = 0; i < len; i += 64) {
    const __m512i bytes = _mm512_maskz_loadu_epi8(lanesBelow(len - i), src + i);
    const uint64_t marks = _mm512_test_epi8_mask(bytes, bytes);
    storeMarks(piece, i, marks);
    _mm512_storeu_si512(gathered, _mm512_maskz_compress_epi8(marks, bytes));
    gathered += _mm_popcnt_u64(marks);
  }
  return static_cast<int>(gathered - piece.gathered());
}

ZEBDC_NOINLINE uint8_t valueBehindFront(unsigned rank, uint8_t* list) {
  const uint8_t value = list[rank];
  const __m512i up = shiftUp();
  __m512i before = _mm512_set1_epi8(static_cast<char>(value));
  uint8_t* const last = list + rank / 64 * 64;
  for (uint8_t* p = list; p < last; p += 64) {
    const __m512i entries = _mm512_load_si512(p);
    _mm512_store_si512(p, _mm512_permutex2var_epi8(entries, up, before));
    before = entries;
  }
  const __m512i entries = _mm512_load_si512(last);
  const __m512i shifted = _mm512_permutex2var_epi8(entries, up, before);
  const uint64_t moved = lanesBelow(static_cast<int>(rank % 64) + 1);
  _mm512_store_si512(last, _mm512_mask_mov_epi8(entries, moved, shifted));
  return value;
}

ZEBDC_ALWAYS_INLINE uint8_t valueOf(unsigned rank, __m512i& front, uint8_t* list) {
  if (rank >= 64) [[unlikely]] {
    _mm512_store_si512(list, front);
    const uint8_t value = valueBehindFront(rank, list);
    front = _mm512_load_si512(list);
    return value;
  }
  front = permuted(front, _mm512_load_si512(tables.toFront64[rank]));
  return static_cast<uint8_t>(_mm512_cvtsi512_si32(front));
}

// Two ranks to the step: their shuffles are combined off the chain of lists. The second rank is not
// 0, so that afterwards the first value stands at position 1.
void valueAll(uint8_t* bytes, int count, uint8_t* list) {
  __m512i front = _mm512_load_si512(list);
  int i = 0;
  for (; i + 2 <= count; i += 2) {
    const unsigned first = bytes[i];
    const unsigned second = bytes[i + 1];
    if ((first | second) >= 64) [[unlikely]] {
      bytes[i] = valueOf(first, front, list);
      bytes[i + 1] = valueOf(second, front, list);
      continue;
    }
    const __m512i both = permuted(_mm512_load_si512(tables.toFront64[first]),
                                  _mm512_load_si512(tables.toFront64[second]));
    front = permuted(front, both);
    const unsigned values = static_cast<unsigned>(_mm512_cvtsi512_si32(front));
    bytes[i] = static_cast<uint8_t>(values >> 8);
    bytes[i + 1] = static_cast<uint8_t>(values);
  }
  if (i < count) bytes[i] = valueOf(bytes[i], front, list);
  _mm512_store_si512(list, front);
}

constexpr Steps steps = {gatherNonzero, valueAll, nullptr, scatterRepeating};

void wide(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  transform(steps, src, dst, len, list);
}

}  // namespace
}  // namespace avx512
ZEBDC_END_TARGET

constinit const TierTable<MoveToFront> moveToFrontInverseKernels({{tierBaseline, baseline},
                                                                  {tierAvx2, avx2::wholeList},
                                                                  {tierVpclmul, vpclmul::counting},
                                                                  {tierAvx512, avx512::wide}});

}  // namespace zebdc::kernels
