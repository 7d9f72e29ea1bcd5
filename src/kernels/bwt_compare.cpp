// Sorting rotations by comparison: multikey quicksort (J. Bentley and R. Sedgewick, "Fast
// Algorithms for Sorting and Searching Strings", 1997) on words of text instead of characters.
//
// A range of rotations that share depth bytes is divided by its next word into those below, equal
// to and above the pivot's; the equal ones go on behind that word. On repetitive data, the number
// of such steps grows with the length of the repetitions: the caller bounds it by the budget.

#include "kernels/bwt_compare.h"

#include <string.h>

#include <algorithm>

#include "frame/bytes.h"

namespace zebdc::kernels {
namespace {

using Word = uint32_t;

template <class Index>
class RotationSorter {
 public:
  RotationSorter(const uint8_t* text, uint32_t length, Index* order, int64_t* budget)
      : text_(text), length_(length), order_(order), budget_(*budget), budgetOut_(budget) {}

  void sort(uint32_t count, uint32_t depth) {
    push({0, count, depth});
    while (stackSize_ > 0 && budget_ >= 0) {
      const Range range = stack_[--stackSize_];
      if (range.depth >= length_) continue;  // equal rotations
      if (range.count <= shortRange) {
        sortShort(range);
      } else {
        divide(range);
      }
    }
    *budgetOut_ = budget_;
  }

 private:
  struct Range {
    uint32_t first;
    uint32_t count;
    uint32_t depth;
  };

  static constexpr uint32_t shortRange = 12;

  // Of the three parts of a range the smallest is sorted first. So the stack below a range of n
  // rotations grows by at most 2 for a part of n / 3, by 1 for one of n / 2, by 0 for the largest:
  // by less than 1.3 times the binary logarithm of n in all.
  static constexpr int stackLimit = 48;

  Word keyAt(uint32_t position, uint32_t depth) const {
    return loadBigEndian<Word>(text_ + position + depth);
  }

  void push(const Range& range) {
    if (range.count > 1) stack_[stackSize_++] = range;
  }

  void sortShort(const Range& range) {
    Index* const order = order_ + range.first;
    for (uint32_t i = 1; i < range.count; ++i) {
      const Index position = order[i];
      uint32_t hole = i;
      for (; hole > 0 && isBelow(position, order[hole - 1], range.depth); --hole) {
        order[hole] = order[hole - 1];
      }
      order[hole] = position;
    }
  }

  bool isBelow(uint32_t a, uint32_t b, uint32_t depth) {
    constexpr uint32_t step = sizeof(uint64_t);
    uint32_t at = depth;
    uint64_t keyA = 0;
    uint64_t keyB = 0;
    for (; at < length_ && keyA == keyB; at += step) {
      keyA = loadBigEndian<uint64_t>(text_ + a + at);
      keyB = loadBigEndian<uint64_t>(text_ + b + at);
    }
    budget_ -= (at - depth) / step / wordsPerUnit;
    return keyA < keyB;
  }

  Word choosePivot(const Range& range) const {
    const Index* const order = order_ + range.first;
    const Word first = keyAt(order[0], range.depth);
    const Word middle = keyAt(order[range.count / 2], range.depth);
    const Word last = keyAt(order[range.count - 1], range.depth);
    return std::max(std::min(first, middle), std::min(std::max(first, middle), last));
  }

  // The division of J. Bentley and D. McIlroy ("Engineering a Sort Function", 1993): keys equal to
  // the pivot are gathered at both ends, and then exchanged into the middle.
  void divide(const Range& range) {
    const Word pivot = choosePivot(range);
    Index* const begin = order_ + range.first;
    Index* const end = begin + range.count;
    Index* equalLeft = begin;
    Index* left = begin;
    Index* right = end;
    Index* equalRight = end;
    for (;;) {
      for (; left < right; ++left) {
        const Word key = keyAt(*left, range.depth);
        if (key > pivot) break;
        if (key == pivot) std::swap(*equalLeft++, *left);
      }
      for (; left < right; --right) {
        const Word key = keyAt(right[-1], range.depth);
        if (key < pivot) break;
        if (key == pivot) std::swap(*--equalRight, right[-1]);
      }
      if (left >= right) break;
      std::swap(*left++, *--right);
    }
    const uint32_t below = static_cast<uint32_t>(left - equalLeft);
    const uint32_t above = static_cast<uint32_t>(equalRight - right);
    const uint32_t equal = range.count - below - above;
    exchangeEnds(begin, equalLeft, left);
    exchangeEnds(right, equalRight, end);
    budget_ -= equal / equalPerUnit;
    pushParts({range.first, below, range.depth},
              {range.first + below, equal, range.depth + static_cast<uint32_t>(sizeof(Word))},
              {range.first + below + equal, above, range.depth});
  }

  // Exchanges the areas on both sides of border but for their order inside.
  static void exchangeEnds(Index* begin, Index* border, Index* end) {
    const ptrdiff_t count = std::min(border - begin, end - border);
    std::swap_ranges(begin, begin + count, end - count);
  }

  // The budget is to be spent by repetitions alone. So a comparison costs nothing that ends soon,
  // and a division nothing for the rotations that it parts. Text takes up to 4 units for each byte,
  // repetitive tables up to 17.
  static constexpr uint32_t wordsPerUnit = 2;
  static constexpr uint32_t equalPerUnit = 4;

  void pushParts(Range a, Range b, Range c) {
    if (a.count < b.count) std::swap(a, b);
    if (b.count < c.count) std::swap(b, c);
    if (a.count < b.count) std::swap(a, b);
    push(a);
    push(b);
    push(c);
  }

  const uint8_t* const text_;
  const uint32_t length_;
  Index* const order_;
  int64_t budget_;
  int64_t* const budgetOut_;
  int stackSize_ = 0;
  Range stack_[stackLimit];
};

size_t pairAt(const uint8_t* p) {
  return static_cast<size_t>(p[0]) << 8 | p[1];
}

template <class Index>
uint32_t writeColumnOf(const uint8_t* text, uint32_t length, const Index* order, uint8_t* column) {
  const uint8_t* const before = text + length - 1;
  uint32_t firstRow = 0;
  for (uint32_t row = 0; row < length; ++row) {
    column[row] = before[order[row]];
    if (order[row] == 0) firstRow = row;
  }
  return firstRow;
}

}  // namespace

void countPairs(const uint8_t* text, uint32_t length, uint32_t* ends) {
  memset(ends, 0, bwtPairs * sizeof *ends);
  for (uint32_t p = 0; p < length; ++p) ++ends[pairAt(text + p)];
  uint32_t sum = 0;
  for (size_t pair = 0; pair < bwtPairs; ++pair) ends[pair] = sum += ends[pair];
}

void placeByPairs(const uint8_t* text, uint32_t length, uint32_t* ends, uint32_t* order) {
  for (uint32_t p = length; p-- > 0;) order[--ends[pairAt(text + p)]] = p;
}

void sortRotations(const uint8_t* text, uint32_t length, uint32_t* order, uint32_t count,
                   uint32_t depth, int64_t* budget) {
  RotationSorter<uint32_t>(text, length, order, budget).sort(count, depth);
}

void sortRotations(const uint8_t* text, uint32_t length, uint16_t* order, uint32_t count,
                   uint32_t depth, int64_t* budget) {
  RotationSorter<uint16_t>(text, length, order, budget).sort(count, depth);
}

uint32_t writeColumn(const uint8_t* text, uint32_t length, const uint32_t* order, uint8_t* column) {
  return writeColumnOf(text, length, order, column);
}

uint32_t writeColumn(const uint8_t* text, uint32_t length, const uint16_t* order, uint8_t* column) {
  return writeColumnOf(text, length, order, column);
}

}  // namespace zebdc::kernels
