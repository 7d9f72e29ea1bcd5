// The Burrows-Wheeler transform of small blocks, with positions of 16 bits.
//
// Rotations are first compared with each other, within a budget. Where that is spent the whole
// block is sorted again by prefix doubling, after N. J. Larsson and K. Sadakane, "Faster Suffix
// Sorting" (1999): rotations that share h bytes form a group and are divided by the groups of the
// rotations h positions later, so that the new groups share 2h bytes. Positions take 15 bits; the
// 16th marks the first rotation of a group.

#include <string.h>

#include <algorithm>

#include "bzip2/bwt_block.h"
#include "kernels/bwt_compare.h"

namespace zebdc::bzip2 {
namespace {

constexpr int64_t comparisonsPerByte = 30;

class PrefixDoubler {
 public:
  PrefixDoubler(uint32_t length, uint16_t* order, uint16_t* ranks)
      : length_(length), order_(order), ranks_(ranks) {}

  void sort(const uint8_t* src, const uint32_t* byteCounts) {
    groupByByte(src, byteCounts);
    distance_ = 1;
    while (divideAll()) distance_ *= 2;
    for (uint32_t row = 0; row < length_; ++row) order_[row] = static_cast<uint16_t>(position(row));
  }

 private:
  static constexpr uint16_t groupMark = 0x8000;
  static_assert(smallBlockLimit <= groupMark);

  uint32_t position(uint32_t row) const { return order_[row] & (groupMark - 1u); }

  // The key that divides a group. While a group is divided its rows bear no marks but the first.
  uint16_t keyOf(uint32_t p) const {
    const uint32_t target = p + distance_;
    return ranks_[target < length_ ? target : target - length_];
  }

  void groupByByte(const uint8_t* src, const uint32_t* byteCounts) {
    uint32_t starts[byteValues];
    uint32_t next[byteValues];
    uint32_t sum = 0;
    for (uint32_t byte = 0; byte < byteValues; ++byte) {
      starts[byte] = next[byte] = sum;
      sum += byteCounts[byte];
    }
    for (uint32_t p = 0; p < length_; ++p) {
      order_[next[src[p]]++] = static_cast<uint16_t>(p);
      ranks_[p] = static_cast<uint16_t>(starts[src[p]]);
    }
    for (uint32_t byte = 0; byte < byteValues; ++byte) {
      if (byteCounts[byte] > 0) order_[starts[byte]] |= groupMark;
    }
  }

  // Divides all groups once. False when none had more than one rotation.
  bool divideAll() {
    bool divided = false;
    for (uint32_t begin = 0; begin < length_;) {
      uint32_t end = begin + 1;
      while (end < length_ && order_[end] < groupMark) ++end;
      if (end - begin > 1) {
        divide(begin, end);
        divided = true;
      }
      begin = end;
    }
    return divided;
  }

  void divide(uint32_t begin, uint32_t end) {
    order_[begin] = static_cast<uint16_t>(position(begin));
    sortByKey(begin, end);
    // Marks first, ranks afterwards: the keys must not change before all are compared.
    uint16_t key = keyOf(position(begin));
    for (uint32_t row = begin + 1; row < end; ++row) {
      const uint16_t nextKey = keyOf(order_[row]);
      if (nextKey != key) order_[row] |= groupMark;
      key = nextKey;
    }
    order_[begin] |= groupMark;
    uint32_t rank = begin;
    for (uint32_t row = begin; row < end; ++row) {
      if (order_[row] >= groupMark) rank = row;
      ranks_[position(row)] = static_cast<uint16_t>(rank);
    }
  }

  void sortByKey(uint32_t begin, uint32_t end) {
    constexpr uint32_t shortGroup = 5;
    while (end - begin >= shortGroup) {
      const auto [equal, above] = partition(begin, end, choosePivot(begin, end));
      // The smaller part first, so that calls nest no deeper than the logarithm of the length.
      if (equal - begin < end - above) {
        sortByKey(begin, equal);
        begin = above;
      } else {
        sortByKey(above, end);
        end = equal;
      }
    }
    for (uint32_t row = begin + 1; row < end; ++row) {
      const uint16_t p = order_[row];
      uint32_t hole = row;
      for (; hole > begin && keyOf(order_[hole - 1]) > keyOf(p); --hole) {
        order_[hole] = order_[hole - 1];
      }
      order_[hole] = p;
    }
  }

  uint16_t choosePivot(uint32_t begin, uint32_t end) const {
    const uint16_t first = keyOf(order_[begin]);
    const uint16_t middle = keyOf(order_[begin + (end - begin) / 2]);
    const uint16_t last = keyOf(order_[end - 1]);
    return std::max(std::min(first, middle), std::min(std::max(first, middle), last));
  }

  struct Borders {
    uint32_t equal;
    uint32_t above;
  };

  Borders partition(uint32_t begin, uint32_t end, uint16_t pivot) {
    uint32_t equal = begin;
    uint32_t row = begin;
    while (row < end) {
      const uint16_t key = keyOf(order_[row]);
      if (key < pivot) {
        std::swap(order_[equal++], order_[row++]);
      } else if (key == pivot) {
        ++row;
      } else {
        std::swap(order_[row], order_[--end]);
      }
    }
    return {equal, end};
  }

  uint32_t length_;
  uint16_t* order_;
  uint16_t* ranks_;
  uint32_t distance_ = 0;
};

bool sortByComparison(const uint8_t* text, const Root& root, uint16_t* order) {
  uint32_t next[byteValues];
  uint32_t sum = 0;
  for (uint32_t byte = 0; byte < byteValues; ++byte) {
    next[byte] = sum;
    sum += root.byteCounts[byte];
  }
  for (uint32_t p = 0; p < root.length; ++p) order[next[text[p]]++] = static_cast<uint16_t>(p);
  int64_t budget = comparisonsPerByte * root.length;
  uint32_t begin = 0;
  for (const uint32_t end : next) {
    kernels::sortRotations(text, root.length, order + begin, end - begin, 1, &budget);
    if (budget < 0) return false;
    begin = end;
  }
  return true;
}

}  // namespace

uint32_t transformSmall(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch) {
  const Root root = findRoot(src, length);
  uint16_t* const order = scratch.take<uint16_t>(root.length);
  const auto takeText = [&](Scratch area) {
    return copyTwice(src, root.length, kernels::bwtCompareMargin, area);
  };
  const uint8_t* text = takeText(scratch);
  if (!sortByComparison(text, root, order)) {
    // The ranks stand where the text stood.
    Scratch area = scratch;
    PrefixDoubler(root.length, order, area.take<uint16_t>(root.length)).sort(src, root.byteCounts);
    text = takeText(scratch);
  }
  return repeatColumn(root, kernels::writeColumn(text, root.length, order, dst), dst);
}

}  // namespace zebdc::bzip2
