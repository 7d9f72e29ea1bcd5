// Induced sorting, after G. Nong, S. Zhang and W. H. Chan, "Two Efficient Algorithms for Linear
// Time Suffix Array Construction" (2011), on rotations instead of suffixes.
//
// The piece of text from one LMS position to the next, both included, is an LMS substring. Inducing
// from the LMS positions in any order puts the LMS substrings in order. Each gets a name, its rank
// among the different ones; the names in text order form a text of at most half the length, whose
// rotations are sorted in the same way and give the order of the LMS rotations.
//
// No end marker is needed. The block is a circle, in which the types of the positions are well
// defined because no two rotations are equal, and the smallest rotation is an LMS rotation, so that
// the first scan finds every bucket that it reaches filled. The text of names is again a circle
// without equal rotations, since equal ones would have been equal in the block.

#include "bzip2/lms_sort.h"

#include <string.h>

#include <bit>

namespace zebdc::bzip2 {
namespace {

constexpr uint32_t emptyRow = UINT32_MAX;
constexpr uint32_t byteValues = 256;

template <class Symbol>
class Level {
 public:
  // Bucket bounds are kept in ends, which has one element for each symbol of the alphabet. Without
  // LMS bits, sortAll alone can be called.
  Level(const Symbol* text, uint32_t length, uint32_t alphabet, uint32_t* order, uint32_t* ends,
        const uint64_t* lmsBits = nullptr)
      : text_(text),
        length_(length),
        alphabet_(alphabet),
        order_(order),
        ends_(ends),
        lmsBits_(lmsBits) {}

  // Puts the positions of all LMS substrings to the front of the order, sorted by substring.
  void sortSubstrings() {
    clearOrder(0);
    setBucketEnds();
    forEachLms([this](uint32_t p) { order_[--ends_[text_[p]]] = p; });
    induceAll();
    uint32_t count = 0;
    for (uint32_t row = 0; row < length_; ++row) {
      const uint32_t p = order_[row];
      if (isLms(p)) order_[count++] = p;
    }
  }

  // From the LMS positions, sorted, at the front of the order to all positions, sorted.
  void sortAll(uint32_t lmsCount) {
    clearOrder(lmsCount);
    setBucketEnds();
    for (uint32_t i = lmsCount; i-- > 0;) {
      const uint32_t p = order_[i];
      order_[i] = emptyRow;
      order_[--ends_[text_[p]]] = p;
    }
    induceAll();
  }

  // Names the sorted LMS substrings and returns how many different ones there are. The names, from
  // 0, go to names in text order, the positions to positions.
  uint32_t nameSubstrings(uint32_t lmsCount, uint32_t* names, uint32_t* positions) {
    // First the length, then the name of the substring at p stands in slots[p / 2]: two LMS
    // positions are never neighbours, and there are at most half as many as positions.
    uint32_t* const slots = order_ + lmsCount;
    storeLengths(slots);
    uint32_t name = 0;
    uint32_t last = order_[0];
    uint32_t lastLength = slots[last / 2];
    slots[last / 2] = 0;
    for (uint32_t i = 1; i < lmsCount; ++i) {
      const uint32_t p = order_[i];
      const uint32_t length = slots[p / 2];
      if (length != lastLength || !equalSymbols(p, last, length + 1)) ++name;
      slots[p / 2] = name;
      last = p;
      lastLength = length;
    }
    uint32_t count = 0;
    forEachLms([&](uint32_t p) {
      names[count] = slots[p / 2];
      positions[count++] = p;
    });
    return name + 1;
  }

 private:
  template <class Visit>
  void forEachLms(Visit visit) const {
    for (uint32_t word = 0; word <= (length_ - 1) / 64; ++word) {
      for (uint64_t bits = lmsBits_[word]; bits != 0; bits &= bits - 1) {
        visit(word * 64 + static_cast<uint32_t>(std::countr_zero(bits)));
      }
    }
  }

  bool isLms(uint32_t p) const { return (lmsBits_[p / 64] >> p % 64 & 1) != 0; }

  uint32_t previous(uint32_t p) const { return (p == 0 ? length_ : p) - 1; }

  void clearOrder(uint32_t from) { memset(order_ + from, 0xFF, (length_ - from) * sizeof *order_); }

  void countSymbols() {
    memset(ends_, 0, alphabet_ * sizeof *ends_);
    for (uint32_t p = 0; p < length_; ++p) ++ends_[text_[p]];
  }

  void setBucketStarts() {
    countSymbols();
    uint32_t sum = 0;
    for (uint32_t symbol = 0; symbol < alphabet_; ++symbol) {
      const uint32_t count = ends_[symbol];
      ends_[symbol] = sum;
      sum += count;
    }
  }

  void setBucketEnds() {
    countSymbols();
    uint32_t sum = 0;
    for (uint32_t symbol = 0; symbol < alphabet_; ++symbol) ends_[symbol] = sum += ends_[symbol];
  }

  void induceAll() {
    setBucketStarts();
    for (uint32_t row = 0; row < length_; ++row) {
      const uint32_t p = order_[row];
      if (p == emptyRow) continue;
      const uint32_t q = previous(p);
      // True for every L position before an L or LMS position, and for no S position.
      if (text_[q] >= text_[p]) order_[ends_[text_[q]]++] = q;
    }
    setBucketEnds();
    for (uint32_t row = length_; row-- > 0;) {
      const uint32_t p = order_[row];
      const uint32_t q = previous(p);
      // Before an equal symbol a position is of the same type as that symbol's; rows of type S are
      // those that this scan has filled.
      const bool typeS = text_[q] < text_[p] || (text_[q] == text_[p] && row >= ends_[text_[p]]);
      if (typeS) order_[--ends_[text_[q]]] = q;
    }
  }

  void storeLengths(uint32_t* slots) const {
    uint32_t first = emptyRow;
    uint32_t last = 0;
    forEachLms([&](uint32_t p) {
      if (first == emptyRow) {
        first = p;
      } else {
        slots[last / 2] = p - last;
      }
      last = p;
    });
    slots[last / 2] = first + length_ - last;
  }

  bool equalSymbols(uint32_t p, uint32_t q, uint32_t count) const {
    for (uint32_t i = 0; i < count; ++i) {
      if (text_[p] != text_[q]) return false;
      if (++p == length_) p = 0;
      if (++q == length_) q = 0;
    }
    return true;
  }

  const Symbol* text_;
  uint32_t length_;
  uint32_t alphabet_;
  uint32_t* order_;
  uint32_t* ends_;
  const uint64_t* lmsBits_;
};

// Marks the LMS positions of a text of names and returns their number.
uint32_t markLmsNames(const uint32_t* text, uint32_t length, uint64_t* lmsBits) {
  memset(lmsBits, 0, (length + size_t{63}) / 64 * sizeof *lmsBits);
  uint32_t start = 0;  // any position whose byte differs from the next one
  while (text[start] == text[start + 1]) ++start;
  bool typeS = text[start] < text[start + 1];
  uint32_t count = 0;
  uint32_t p = start;
  for (uint32_t step = 0; step < length; ++step) {
    const uint32_t before = (p == 0 ? length : p) - 1;
    const bool beforeTypeS = text[before] < text[p] || (text[before] == text[p] && typeS);
    if (typeS && !beforeTypeS) {
      lmsBits[p / 64] |= uint64_t{1} << p % 64;
      ++count;
    }
    p = before;
    typeS = beforeTypeS;
  }
  return count;
}

struct LmsNames {
  uint32_t* names;
  uint32_t* positions;
};

LmsNames takeNames(uint32_t length, Scratch& scratch) {
  uint32_t* const names = scratch.take<uint32_t>(length / 2);
  return {names, scratch.take<uint32_t>(length / 2)};
}

void sortNames(const uint32_t* text, uint32_t length, uint32_t alphabet, uint32_t* order,
               Scratch scratch);

// From LMS substrings, named and sorted at the front of the order, to the LMS rotations.
void resolve(const LmsNames& lms, uint32_t lmsCount, uint32_t differentNames, uint32_t* order,
             Scratch scratch) {
  if (differentNames == lmsCount) return;
  sortNames(lms.names, lmsCount, differentNames, order, scratch);
  for (uint32_t i = 0; i < lmsCount; ++i) order[i] = lms.positions[order[i]];
}

struct NamingResult {
  uint32_t lmsCount;
  uint32_t differentNames;
};

NamingResult nameLms(const uint32_t* text, uint32_t length, uint32_t alphabet, uint32_t* order,
                     const LmsNames& lms, Scratch scratch) {
  uint64_t* const lmsBits = scratch.take<uint64_t>((length + size_t{63}) / 64);
  const uint32_t lmsCount = markLmsNames(text, length, lmsBits);
  uint32_t* const ends = scratch.take<uint32_t>(alphabet);
  Level<uint32_t> level(text, length, alphabet, order, ends, lmsBits);
  level.sortSubstrings();
  return {lmsCount, level.nameSubstrings(lmsCount, lms.names, lms.positions)};
}

// Sorts all rotations of a text of names.
void sortNames(const uint32_t* text, uint32_t length, uint32_t alphabet, uint32_t* order,
               Scratch scratch) {
  const LmsNames lms = takeNames(length, scratch);
  const auto [lmsCount, differentNames] = nameLms(text, length, alphabet, order, lms, scratch);
  resolve(lms, lmsCount, differentNames, order, scratch);
  Level<uint32_t>(text, length, alphabet, order, scratch.take<uint32_t>(alphabet))
      .sortAll(lmsCount);
}

}  // namespace

void sortLmsByInduction(const MarkedBlock& block, uint32_t* order, Scratch scratch) {
  const LmsNames lms = takeNames(block.length, scratch);
  uint32_t ends[byteValues];
  Level<uint8_t> level(block.text, block.length, byteValues, order, ends, block.lmsBits);
  level.sortSubstrings();
  const uint32_t differentNames = level.nameSubstrings(block.lmsCount, lms.names, lms.positions);
  resolve(lms, block.lmsCount, differentNames, order, scratch);
}

}  // namespace zebdc::bzip2
