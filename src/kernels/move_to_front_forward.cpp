// Move-to-front, forward.
//
// The core must find each value before it can move it, and its chain is long:
//
//   broadcast -> compare -> mask to general register -> bit scan -> load control -> shuffle
//
// 16 cycles with 128-bit registers, 25 with 512-bit ones, whereas the work itself fills 2 to 4. So
// the gathered bytes are cut into four segments that are walked side by side. The list with which a
// segment starts is known beforehand: the values of the segment before it, latest first, then the
// others in the order they had.
//
// Where many values are far from the front, as in sorted machine code, the slow path's branch is
// mispredicted too often. There the transform goes without any branch: SSE4.2 counts the values
// used since, AVX-512 keeps all positions in registers by value. Both are more than twice as fast
// on such data and up to 1.5 times slower on text.
//
// Tried and no faster: two chains instead of four; two bytes to the step of the branch-free core;
// the 128-bit steps compiled for AVX2.

#include <string.h>

#include <algorithm>

#include "kernels/move_to_front.h"
#include "kernels/move_to_front_piece.h"

namespace zebdc::kernels {
namespace {

using namespace movetofront;

constexpr int chainCount = 4;

// Below this number of gathered bytes the lists of the segments cost more than they save.
constexpr int chainMinimum = 512;

// The list once the bytes were moved to its front one after the other. Returns how many different
// values they have.
int listAfter(const uint8_t* bytes, int count, const uint8_t* before, uint8_t* after) {
  uint8_t seen[listSize] = {};
  int size = 0;
  for (int i = count; i-- > 0;) {
    const uint8_t value = bytes[i];
    if (seen[value]) continue;
    seen[value] = 1;
    after[size++] = value;
  }
  const int distinct = size;
  for (int i = 0; i < listSize && size < listSize; ++i) {
    after[size] = before[i];
    size += 1 - seen[before[i]];
  }
  return distinct;
}

struct Steps {
  // Gathers the bytes that differ from the one before; returns their number.
  int (*gather)(const uint8_t* src, int len, uint8_t previous, Piece& piece);
  // Values to ranks, in place. The lists are aligned to 64 bytes.
  void (*core)(uint8_t* bytes, int count, uint8_t* list);
  // Four segments of the same length that lie one behind the other, each with a list of its own.
  void (*core4)(uint8_t* bytes, int segment, uint8_t (*lists)[listSize]);
  // Faster than core4 where many values are far from the front; null where there is nothing faster.
  void (*coreScattered)(uint8_t* bytes, int count, uint8_t* list);
  // Different values of a segment from which on it is. Text has some 70, machine code 150 and more.
  int manyValues;
  void (*scatter)(const Piece& piece, uint8_t* dst, int len);
};

void rankGathered(const Steps& steps, uint8_t* bytes, int count, uint8_t (*lists)[listSize]) {
  int done = 0;
  if (count >= chainMinimum) {
    const int segment = count / chainCount;
    for (int k = 0; k + 1 < chainCount; ++k) {
      const int distinct = listAfter(bytes + k * segment, segment, lists[k], lists[k + 1]);
      if (steps.coreScattered != nullptr && distinct >= steps.manyValues) {
        steps.coreScattered(bytes, count, lists[0]);
        return;
      }
    }
    steps.core4(bytes, segment, lists);
    memcpy(lists[0], lists[chainCount - 1], listSize);
    done = chainCount * segment;
  }
  steps.core(bytes + done, count - done, lists[0]);
}

void transform(const Steps& steps, const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  alignas(64) uint8_t lists[chainCount][listSize] = {};
  for (int value = 0; value < listSize; ++value) {
    lists[0][positions[value]] = static_cast<uint8_t>(value);
  }

  Piece piece;
  uint8_t previous = lists[0][0];
  for (int i = 0; i < len; i += pieceSize) {
    const int size = std::min(pieceSize, len - i);
    const int count = steps.gather(src + i, size, previous, piece);
    previous = src[i + size - 1];
    rankGathered(steps, piece.gathered(), count, lists);
    steps.scatter(piece, dst + i, size);
  }

  for (int p = 0; p < listSize; ++p) positions[lists[0][p]] = static_cast<uint8_t>(p);
}

// ---- Baseline: the first 16 positions in a register ---------------------------------------------

int gatherChanges(const uint8_t* src, int len, uint8_t previous, Piece& piece) {
  uint8_t* gathered = piece.gathered();
  const int whole = len / 8 * 8;
  __m128i before = _mm_cvtsi32_si128(previous);
  for (int i = 0; i < whole; i += 8) {
    const __m128i bytes = load8(src + i);
    const __m128i same = _mm_cmpeq_epi8(bytes, _mm_or_si128(_mm_slli_si128(bytes, 1), before));
    const unsigned marks = ~static_cast<unsigned>(_mm_movemask_epi8(same)) & 0xFF;
    piece.marks[i / 8] = static_cast<uint8_t>(marks);
    gathered = append(gathered, bytes, marks);
    before = _mm_srli_epi64(bytes, 56);
  }
  gathered = gatherTail(src, whole, len, piece, gathered,
                        [&](int i) { return src[i] != (i == 0 ? previous : src[i - 1]); });
  return static_cast<int>(gathered - piece.gathered());
}

void scatterBetweenZeros(const Piece& piece, uint8_t* dst, int len) {
  const uint8_t* result = piece.room + gatherMargin;
  const int whole = len / 8 * 8;
  for (int i = 0; i < whole; i += 8) {
    const unsigned marks = piece.marks[i / 8];
    store8(dst + i, _mm_shuffle_epi8(load8(result), load8(tables.place[marks])));
    result += tables.count[marks];
  }
  for (int i = whole; i < len; ++i) {
    dst[i] = (piece.marks[i / 8] >> (i - whole) & 1) != 0 ? *result++ : 0;
  }
}

// The slow paths see the whole list in memory, the front included: a reference to the front would
// keep it out of its register in the fast paths too.
ZEBDC_NOINLINE uint8_t rankBehindFront(uint8_t value, uint8_t* list) {
  const __m128i wanted = _mm_set1_epi8(static_cast<char>(value));
  __m128i before = load16(list);
  store16(list, pushFront(before, value));
  for (int i = 16; i < listSize; i += 16) {
    const __m128i entries = load16(list + i);
    const unsigned found =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(entries, wanted)));
    if (found != 0) {
      const int last = static_cast<int>(trailingZeros(found));
      store16(list + i, carriedUpTo(last, entries, before));
      return static_cast<uint8_t>(i + last);
    }
    store16(list + i, _mm_alignr_epi8(entries, before, 15));
    before = entries;
  }
  return listSize - 1;
}

ZEBDC_ALWAYS_INLINE uint8_t rankOf(uint8_t value, __m128i& front, uint8_t* list) {
  const __m128i equal = _mm_cmpeq_epi8(front, _mm_set1_epi8(static_cast<char>(value)));
  const unsigned found = static_cast<unsigned>(_mm_movemask_epi8(equal));
  if (found == 0) [[unlikely]] {
    store16(list, front);
    const uint8_t rank = rankBehindFront(value, list);
    front = load16(list);
    return rank;
  }
  const unsigned rank = trailingZeros(found);
  front = _mm_shuffle_epi8(front, load16(tables.toFront16[rank]));
  return static_cast<uint8_t>(rank);
}

void rankAll(uint8_t* bytes, int count, uint8_t* list) {
  __m128i front = load16(list);
  for (int i = 0; i < count; ++i) bytes[i] = rankOf(bytes[i], front, list);
  store16(list, front);
}

void rankAll4(uint8_t* bytes, int segment, uint8_t (*lists)[listSize]) {
  uint8_t* const b1 = bytes + segment;
  uint8_t* const b2 = b1 + segment;
  uint8_t* const b3 = b2 + segment;
  __m128i front0 = load16(lists[0]);
  __m128i front1 = load16(lists[1]);
  __m128i front2 = load16(lists[2]);
  __m128i front3 = load16(lists[3]);
  for (int i = 0; i < segment; ++i) {
    const uint8_t rank0 = rankOf(bytes[i], front0, lists[0]);
    const uint8_t rank1 = rankOf(b1[i], front1, lists[1]);
    const uint8_t rank2 = rankOf(b2[i], front2, lists[2]);
    const uint8_t rank3 = rankOf(b3[i], front3, lists[3]);
    bytes[i] = rank0;
    b1[i] = rank1;
    b2[i] = rank2;
    b3[i] = rank3;
  }
  store16(lists[3], front3);
}

constexpr Steps steps = {gatherChanges, rankAll, rankAll4, nullptr, listSize, scatterBetweenZeros};

void baseline(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  transform(steps, src, dst, len, positions);
}

}  // namespace

// ---- SSE4.2: positions by counting --------------------------------------------------------------

ZEBDC_BEGIN_SSE42
namespace sse42 {
namespace {

// The list as a row of places in the order of time, the latest last: a place is alive while its
// value has no later one. A value's position in the list is the number of living places behind its
// own, so nothing is shifted: a byte kills the place of its value and lives in the next one. When
// all places are used up the living ones are moved together.
class Timeline {
 public:
  ZEBDC_ALWAYS_INLINE explicit Timeline(const uint8_t* list) : last_{} {
    for (int p = 0; p < listSize; ++p) {
      valueAt_[listSize - 1 - p] = list[p];
      last_[list[p]] = static_cast<uint16_t>(listSize - 1 - p);
    }
    restart();
  }

  // Values to ranks, in place.
  ZEBDC_ALWAYS_INLINE void rank(uint8_t* bytes, int count) {
    for (int i = 0; i < count;) {
      if (now_ == placeCount) moveTogether();
      const int size = std::min(wordSize - now_ % wordSize, count - i);
      rankInWord(bytes + i, size);
      i += size;
    }
  }

  ZEBDC_ALWAYS_INLINE void finish(uint8_t* list) {
    moveTogether();
    for (int p = 0; p < listSize; ++p) list[p] = valueAt_[listSize - 1 - p];
  }

 private:
  static constexpr int wordSize = 64;
  static constexpr int wordCount = 16;
  static constexpr int placeCount = wordSize * wordCount;

  // A byte that goes to the word `latest` adds one living place to the words from that of its
  // value's earlier place on, as they see it.
  ZEBDC_ALWAYS_INLINE void rankInWord(uint8_t* bytes, int size) {
    const int latest = now_ / wordSize;
    const int begin = now_ % wordSize;
    // All places of the word live beforehand; those that have not come yet are taken off its count.
    alive_[latest] |= ~uint64_t{0} << begin;
    behind_[latest] = static_cast<uint8_t>(begin - wordSize);
    const __m128i words = load16(tables.identity);
    const __m128i upToLatest = _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(latest + 1)), words);
    __m128i behind = load16(behind_);
    for (int i = 0; i < size; ++i) {
      const uint8_t value = bytes[i];
      const unsigned place = last_[value];
      const unsigned word = place / wordSize;
      const uint64_t alive = alive_[word];
      const int inWord = static_cast<int>(_mm_popcnt_u64(alive >> (place % wordSize)));
      bytes[i] = static_cast<uint8_t>(inWord - 1 + behind_[word]);
      alive_[word] = alive & ~(uint64_t{1} << (place % wordSize));
      last_[value] = static_cast<uint16_t>(now_ + i);
      valueAt_[now_ + i] = value;
      const __m128i before = load16(tables.before16 + 16 - word);
      behind = _mm_sub_epi8(behind, _mm_andnot_si128(before, upToLatest));
      store16(behind_, behind);
    }
    now_ += size;
    // Places that have not come are dead again.
    if (now_ % wordSize != 0) alive_[latest] &= ~(~uint64_t{0} << (now_ % wordSize));
  }

  // Tables that are no permutations may leave more places alive than there are values, or fewer.
  ZEBDC_ALWAYS_INLINE void moveTogether() {
    int place = 0;
    for (int word = 0; word < wordCount; ++word) {
      for (uint64_t alive = alive_[word]; alive != 0 && place < listSize; alive &= alive - 1) {
        const uint8_t value = valueAt_[word * wordSize + __builtin_ctzll(alive)];
        valueAt_[place] = value;
        last_[value] = static_cast<uint16_t>(place++);
      }
    }
    restart();
  }

  ZEBDC_ALWAYS_INLINE void restart() {
    for (int word = 0; word < wordCount; ++word) {
      const int places = wordSize * (word + 1);
      alive_[word] = places <= listSize ? ~uint64_t{0} : 0;
      behind_[word] = static_cast<uint8_t>(places <= listSize ? listSize - places : 0);
    }
    now_ = listSize;
  }

  alignas(16) uint8_t behind_[wordCount];  // living places in later words
  uint64_t alive_[wordCount];
  uint16_t last_[listSize];      // place of each value
  uint8_t valueAt_[placeCount];  // by place
  int now_;
};

void rankScattered(uint8_t* bytes, int count, uint8_t* list) {
  Timeline timeline(list);
  timeline.rank(bytes, count);
  timeline.finish(list);
}

constexpr Steps steps = {gatherChanges, rankAll, rankAll4, rankScattered, 80, scatterBetweenZeros};

void counting(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  transform(steps, src, dst, len, positions);
}

}  // namespace
}  // namespace sse42
ZEBDC_END_TARGET

// ---- AVX-512: the first 64 positions in a register ----------------------------------------------

ZEBDC_BEGIN_AVX512
namespace avx512 {
namespace {

int gatherChanges(const uint8_t* src, int len, uint8_t previous, Piece& piece) {
  uint8_t* gathered = piece.gathered();
  __m512i before = _mm512_set1_epi8(static_cast<char>(previous));
  for (int i = 0; i < len; i += 64) {
    const uint64_t lanes = lanesBelow(len - i);
    const __m512i bytes = _mm512_maskz_loadu_epi8(lanes, src + i);
    const __m512i shifted = _mm512_permutex2var_epi8(bytes, shiftUp(), before);
    const uint64_t marks = _mm512_mask_cmpneq_epi8_mask(lanes, bytes, shifted);
    storeMarks(piece, i, marks);
    _mm512_storeu_si512(gathered, _mm512_maskz_compress_epi8(marks, bytes));
    gathered += _mm_popcnt_u64(marks);
    before = bytes;
  }
  return static_cast<int>(gathered - piece.gathered());
}

void scatterBetweenZeros(const Piece& piece, uint8_t* dst, int len) {
  const uint8_t* result = piece.room + gatherMargin;
  for (int i = 0; i < len; i += 64) {
    const uint64_t marks = loadMarks(piece, i);
    const __m512i ranks = _mm512_maskz_expand_epi8(marks, _mm512_loadu_si512(result));
    _mm512_mask_storeu_epi8(dst + i, lanesBelow(len - i), ranks);
    result += _mm_popcnt_u64(marks);
  }
}

// Without a branch on where the value is found: in data that comes here often that is anyone's
// guess. A vector in which nothing was found is shifted whole, since the mask up to the lowest bit
// of zero is all ones, unless the value lay in a vector before it.
ZEBDC_NOINLINE uint8_t rankBehindFront(uint8_t value, uint8_t* list) {
  const __m512i wanted = _mm512_set1_epi8(static_cast<char>(value));
  const __m512i front = _mm512_load_si512(list);
  const __m512i e1 = _mm512_load_si512(list + 64);
  const __m512i e2 = _mm512_load_si512(list + 128);
  const __m512i e3 = _mm512_load_si512(list + 192);
  const uint64_t found1 = _mm512_cmpeq_epi8_mask(e1, wanted);
  const uint64_t found2 = _mm512_cmpeq_epi8_mask(e2, wanted);
  const uint64_t found3 = _mm512_cmpeq_epi8_mask(e3, wanted);
  const uint64_t shift2 = found1 != 0 ? 0 : _blsmsk_u64(found2);
  const uint64_t shift3 = (found1 | found2) != 0 ? 0 : _blsmsk_u64(found3);
  const __m512i up = shiftUp();
  _mm512_store_si512(list + 64, _mm512_mask_mov_epi8(e1, _blsmsk_u64(found1),
                                                     _mm512_permutex2var_epi8(e1, up, front)));
  _mm512_store_si512(list + 128,
                     _mm512_mask_mov_epi8(e2, shift2, _mm512_permutex2var_epi8(e2, up, e1)));
  _mm512_store_si512(list + 192,
                     _mm512_mask_mov_epi8(e3, shift3, _mm512_permutex2var_epi8(e3, up, e2)));
  _mm512_store_si512(list, _mm512_permutex2var_epi8(front, up, wanted));
  const uint64_t far = found2 != 0 ? 128 + _tzcnt_u64(found2) : 192 + _tzcnt_u64(found3);
  return static_cast<uint8_t>(found1 != 0 ? 64 + _tzcnt_u64(found1) : far);
}

ZEBDC_ALWAYS_INLINE uint8_t rankOf(uint8_t value, __m512i& front, uint8_t* list) {
  const uint64_t found = _mm512_cmpeq_epi8_mask(front, _mm512_set1_epi8(static_cast<char>(value)));
  if (found == 0) [[unlikely]] {
    _mm512_store_si512(list, front);
    const uint8_t rank = rankBehindFront(value, list);
    front = _mm512_load_si512(list);
    return rank;
  }
  const uint64_t rank = _tzcnt_u64(found);
  front = permuted(front, _mm512_load_si512(tables.toFront64[rank]));
  return static_cast<uint8_t>(rank);
}

void rankAll(uint8_t* bytes, int count, uint8_t* list) {
  __m512i front = _mm512_load_si512(list);
  for (int i = 0; i < count; ++i) bytes[i] = rankOf(bytes[i], front, list);
  _mm512_store_si512(list, front);
}

void rankAll4(uint8_t* bytes, int segment, uint8_t (*lists)[listSize]) {
  uint8_t* const b1 = bytes + segment;
  uint8_t* const b2 = b1 + segment;
  uint8_t* const b3 = b2 + segment;
  __m512i front0 = _mm512_load_si512(lists[0]);
  __m512i front1 = _mm512_load_si512(lists[1]);
  __m512i front2 = _mm512_load_si512(lists[2]);
  __m512i front3 = _mm512_load_si512(lists[3]);
  for (int i = 0; i < segment; ++i) {
    const uint8_t rank0 = rankOf(bytes[i], front0, lists[0]);
    const uint8_t rank1 = rankOf(b1[i], front1, lists[1]);
    const uint8_t rank2 = rankOf(b2[i], front2, lists[2]);
    const uint8_t rank3 = rankOf(b3[i], front3, lists[3]);
    bytes[i] = rank0;
    b1[i] = rank1;
    b2[i] = rank2;
    b3[i] = rank3;
  }
  _mm512_store_si512(lists[3], front3);
}

// Every position below rank goes up by one: max(p, min(p + 1, rank)) says so without a mask.
ZEBDC_ALWAYS_INLINE __m512i movedUp(__m512i positions, __m512i rank) {
  const __m512i next = _mm512_add_epi8(positions, _mm512_set1_epi8(1));
  return _mm512_max_epu8(positions, _mm512_min_epu8(next, rank));
}

// All 256 positions in registers, by value, and no branch at all. A position of 255 never has to
// go up, so that its wrapping to 0 in movedUp does no harm.
void rankScattered(uint8_t* bytes, int count, uint8_t* list) {
  alignas(64) uint8_t positions[listSize];
  for (int p = 0; p < listSize; ++p) positions[list[p]] = static_cast<uint8_t>(p);
  __m512i p0 = _mm512_load_si512(positions);
  __m512i p1 = _mm512_load_si512(positions + 64);
  __m512i p2 = _mm512_load_si512(positions + 128);
  __m512i p3 = _mm512_load_si512(positions + 192);
  const __m512i v0 = iota();
  const __m512i v1 = _mm512_add_epi8(v0, _mm512_set1_epi8(64));
  const __m512i v2 = _mm512_add_epi8(v1, _mm512_set1_epi8(64));
  const __m512i v3 = _mm512_add_epi8(v2, _mm512_set1_epi8(64));
  for (int i = 0; i < count; ++i) {
    const __m512i value = _mm512_set1_epi8(static_cast<char>(bytes[i]));
    const __m512i low = _mm512_permutex2var_epi8(p0, value, p1);
    const __m512i high = _mm512_permutex2var_epi8(p2, value, p3);
    const __m512i rank = _mm512_mask_mov_epi8(low, _mm512_movepi8_mask(value), high);
    bytes[i] = static_cast<uint8_t>(_mm512_cvtsi512_si32(rank));
    p0 = _mm512_maskz_mov_epi8(_mm512_cmpneq_epi8_mask(v0, value), movedUp(p0, rank));
    p1 = _mm512_maskz_mov_epi8(_mm512_cmpneq_epi8_mask(v1, value), movedUp(p1, rank));
    p2 = _mm512_maskz_mov_epi8(_mm512_cmpneq_epi8_mask(v2, value), movedUp(p2, rank));
    p3 = _mm512_maskz_mov_epi8(_mm512_cmpneq_epi8_mask(v3, value), movedUp(p3, rank));
  }
  _mm512_store_si512(positions, p0);
  _mm512_store_si512(positions + 64, p1);
  _mm512_store_si512(positions + 128, p2);
  _mm512_store_si512(positions + 192, p3);
  for (int v = 0; v < listSize; ++v) list[positions[v]] = static_cast<uint8_t>(v);
}

constexpr Steps steps = {gatherChanges, rankAll, rankAll4, rankScattered, 111, scatterBetweenZeros};

void wide(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  transform(steps, src, dst, len, positions);
}

}  // namespace
}  // namespace avx512
ZEBDC_END_TARGET

constinit const TierTable<MoveToFront> moveToFrontForwardKernels({{tierBaseline, baseline},
                                                                  {tierSse42, sse42::counting},
                                                                  {tierAvx512, avx512::wide}});

}  // namespace zebdc::kernels
