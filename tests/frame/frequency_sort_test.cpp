// The sort that Huffman construction starts from.

#include "frame/frequency_sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "support/data.h"

namespace zebdc {
namespace {

std::vector<FrequencyEntry> sorted(std::vector<FrequencyEntry> entries) {
  sortByFrequency(entries.data(), static_cast<int>(entries.size()));
  return entries;
}

TEST(FrequencySort, OrdersEverySizeAndLosesNothing) {
  test::Random random(1);
  for (uint32_t size = 0; size <= 320; ++size) {
    for (const size_t spread : {size_t{1}, size_t{2}, size_t{10}, size_t{1000000}}) {
      std::vector<FrequencyEntry> entries(size);
      for (uint32_t i = 0; i < size; ++i) {
        entries[i] = {i, static_cast<uint32_t>(test::below(random, spread))};
      }
      const std::vector<FrequencyEntry> result = sorted(entries);
      std::vector<bool> seen(size);
      for (uint32_t i = 0; i < size; ++i) {
        ASSERT_LE(result[i > 0 ? i - 1 : 0].frequency, result[i].frequency);
        ASSERT_EQ(result[i].frequency, entries[result[i].symbol].frequency);
        ASSERT_FALSE(seen[result[i].symbol]);
        seen[result[i].symbol] = true;
      }
    }
  }
}

TEST(FrequencySort, SurvivesSortedReversedAndOrganPipeOrders) {
  constexpr uint32_t size = 5000;
  for (int shape = 0; shape < 3; ++shape) {
    std::vector<FrequencyEntry> entries(size);
    for (uint32_t i = 0; i < size; ++i) {
      entries[i] = {i, shape == 0 ? i : shape == 1 ? size - i : std::min(i, size - i)};
    }
    const std::vector<FrequencyEntry> result = sorted(entries);
    EXPECT_TRUE(std::is_sorted(result.begin(), result.end(),
                               [](auto a, auto b) { return a.frequency < b.frequency; }));
  }
}

// The same order by the rules alone, on indices and by recursion. The order in which the two parts
// are sorted does not matter to it.
class PlainSort {
 public:
  explicit PlainSort(std::vector<FrequencyEntry>& entries) : entries_(entries) {}

  void run(int low, int high) {
    if (high - low < 9) return select(low, high);
    const auto [lowEnd, highBegin] = split(low, high);
    run(low, lowEnd);
    run(highBegin, high);
  }

 private:
  uint32_t frequency(int i) const { return entries_[static_cast<size_t>(i)].frequency; }
  void exchange(int i, int j) {
    std::swap(entries_[static_cast<size_t>(i)], entries_[static_cast<size_t>(j)]);
  }
  void order(int i, int j) {
    if (frequency(i) > frequency(j)) exchange(i, j);
  }

  void select(int low, int high) {
    for (; low < high; --high) {
      int greatest = low;
      for (int i = low; i <= high; ++i) {
        if (frequency(i) > frequency(greatest)) greatest = i;
      }
      exchange(greatest, high);
    }
  }

  // The pivot has the same frequency wherever it stands.
  std::pair<int, int> split(int low, int high) {
    const int middle = (low + high) / 2;
    order(low, middle);
    order(low, high);
    order(middle, high);
    const uint32_t pivot = frequency(middle);
    int left = low + 1;
    int right = high - 1;
    for (;; ++left, --right) {
      while (left <= high && frequency(left) <= pivot) ++left;
      while (right > low && frequency(right) > pivot) --right;
      if (left > right) break;
      exchange(left, right);
    }
    while (right > low && frequency(right) == pivot) --right;
    return {right, left};
  }

  std::vector<FrequencyEntry>& entries_;
};

TEST(FrequencySort, TiesAreOrderedByTheRules) {
  test::Random random(2);
  for (uint32_t size = 1; size <= 600; size += 1 + size / 50) {
    for (const size_t spread : {1, 2, 3, 8, 40, 1000}) {
      std::vector<FrequencyEntry> entries(size);
      for (uint32_t i = 0; i < size; ++i) {
        entries[i] = {i, static_cast<uint32_t>(test::below(random, spread))};
      }
      const std::vector<FrequencyEntry> result = sorted(entries);
      PlainSort(entries).run(0, static_cast<int>(size) - 1);
      for (uint32_t i = 0; i < size; ++i) ASSERT_EQ(result[i].symbol, entries[i].symbol) << size;
    }
  }
}

TEST(FrequencySort, ShortRangesReverseTiedPairs) {
  const std::vector<FrequencyEntry> result = sorted({{10, 5}, {20, 5}});
  EXPECT_EQ(result[0].symbol, 20u);
  EXPECT_EQ(result[1].symbol, 10u);
}

}  // namespace
}  // namespace zebdc
