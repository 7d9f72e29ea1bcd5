// Move-to-front kernels.
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
//
// The inverse core depends on nothing but that shuffle from one byte to the next. The forward core
// must find the value first, and its chain is long:
//
//   broadcast -> compare -> mask to general register -> bit scan -> load control -> shuffle
//
// 16 cycles with 128-bit registers, 25 with 512-bit ones, whereas the work itself fills 2 to 4. So
// the gathered bytes are cut into four segments that are walked side by side. The list with which a
// segment starts is known beforehand: the values of the segment before it, latest first, then the
// others in the order they had.
//
// Where many values are far from the front, as in sorted machine code, the slow path's branch is
// mispredicted too often. There the forward transform goes without any branch: SSE4.2 counts the
// values used since, AVX-512 keeps all positions in registers by value. Both are more than twice as
// fast on such data and up to 1.5 times slower on text. The inverse has the whole list in AVX2
// registers, or counts as well where bits are deposited quickly, which is 1.4 times as fast.
//
// Tried and no faster: two chains instead of four; two bytes to the step of the branch-free core;
// the first 128 list entries of the inverse without a branch; the 128-bit steps compiled for AVX2.

#include "kernels/move_to_front.h"

#include <string.h>

#include <algorithm>
#include <array>

#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr int listSize = 256;
constexpr int pieceSize = 8192;
constexpr int chainCount = 4;

// Below this number of gathered bytes the lists of the segments cost more than they save.
constexpr int chainMinimum = 512;

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

constexpr Tables tables = makeTables();

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

// ---- The steps of a tier ------------------------------------------------------------------------

struct ForwardSteps {
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

struct InverseSteps {
  // Gathers the bytes that are not zero; returns their number.
  int (*gather)(const uint8_t* src, int len, Piece& piece);
  void (*core)(uint8_t* bytes, int count, uint8_t* list);  // ranks to values, in place
  // Faster than core where many ranks are beyond the front; null where there is nothing faster.
  void (*coreScattered)(uint8_t* bytes, int count, uint8_t* list);
  void (*scatter)(const Piece& piece, uint8_t* dst, int len);
};

void rankGathered(const ForwardSteps& steps, uint8_t* bytes, int count,
                  uint8_t (*lists)[listSize]) {
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

void forward(const ForwardSteps& steps, const uint8_t* src, uint8_t* dst, int len,
             uint8_t* positions) {
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

// A fifth of the ranks or more beyond the first 16 positions.
bool areScattered(const uint8_t* ranks, int count) {
  int far = 0;
  for (int i = 0; i < count; ++i) far += ranks[i] >= 16;
  return 5 * far >= count;
}

void inverse(const InverseSteps& steps, const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
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

__m128i load8(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

__m128i load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

void store8(uint8_t* p, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
}

void store16(uint8_t* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

uint8_t firstByte(__m128i v) {
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

constexpr ForwardSteps forwardSteps = {gatherChanges, rankAll,  rankAll4,
                                       nullptr,       listSize, scatterBetweenZeros};
constexpr InverseSteps inverseSteps = {gatherNonzero, valueAll, nullptr, scatterRepeating};

void forwardBaseline(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  forward(forwardSteps, src, dst, len, positions);
}

void inverseBaseline(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  inverse(inverseSteps, src, dst, len, list);
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

constexpr ForwardSteps forwardSteps = {gatherChanges, rankAll, rankAll4,
                                       rankScattered, 80,      scatterBetweenZeros};

void forwardCounting(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  forward(forwardSteps, src, dst, len, positions);
}

}  // namespace
}  // namespace sse42
ZEBDC_END_TARGET

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

constexpr InverseSteps inverseSteps = {gatherNonzero, valueAll, valueScattered, scatterRepeating};

void inverseScattered(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  inverse(inverseSteps, src, dst, len, list);
}

}  // namespace
}  // namespace avx2
ZEBDC_END_TARGET

// ---- VPCLMULQDQ: values by counting -------------------------------------------------------------

ZEBDC_BEGIN_VPCLMUL
namespace vpclmul {
namespace {

// The row of places of sse42::Timeline for the inverse: the value of rank r is in the living place
// that has r later ones. In each word the later places are lower, so that the deposit of one bit
// into the living ones finds it. Processors that lack this tier may need hundreds of cycles for a
// deposit; those that have it need three.
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

constexpr InverseSteps inverseSteps = {gatherNonzero, valueAll, valueScattered, scatterRepeating};

void inverseCounting(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  inverse(inverseSteps, src, dst, len, list);
}

}  // namespace
}  // namespace vpclmul
ZEBDC_END_TARGET

// ---- AVX-512: the first 64 positions in a register ----------------------------------------------

ZEBDC_BEGIN_AVX512
namespace avx512 {
namespace {

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

constexpr ForwardSteps forwardSteps = {gatherChanges, rankAll, rankAll4,
                                       rankScattered, 111,     scatterBetweenZeros};
constexpr InverseSteps inverseSteps = {gatherNonzero, valueAll, nullptr, scatterRepeating};

void forwardWide(const uint8_t* src, uint8_t* dst, int len, uint8_t* positions) {
  forward(forwardSteps, src, dst, len, positions);
}

void inverseWide(const uint8_t* src, uint8_t* dst, int len, uint8_t* list) {
  inverse(inverseSteps, src, dst, len, list);
}

}  // namespace
}  // namespace avx512
ZEBDC_END_TARGET

namespace {
constexpr MoveToFrontKernels baseline = {forwardBaseline, inverseBaseline};
constexpr MoveToFrontKernels counting = {sse42::forwardCounting, inverseBaseline};
constexpr MoveToFrontKernels branchless = {sse42::forwardCounting, avx2::inverseScattered};
constexpr MoveToFrontKernels depositing = {sse42::forwardCounting, vpclmul::inverseCounting};
constexpr MoveToFrontKernels wide = {avx512::forwardWide, avx512::inverseWide};
}  // namespace

constinit const TierTable<MoveToFrontKernels> moveToFrontKernels({{tierBaseline, baseline},
                                                                  {tierSse42, counting},
                                                                  {tierAvx2, branchless},
                                                                  {tierVpclmul, depositing},
                                                                  {tierAvx512, wide}});

}  // namespace zebdc::kernels
