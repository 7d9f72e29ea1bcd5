// The sort that Huffman construction starts from.

#include "frame/frequency_sort.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(FrequencySort, ShortRangesReverseTiedPairs) {
  const std::vector<FrequencyEntry> result = sorted({{10, 5}, {20, 5}});
  EXPECT_EQ(result[0].symbol, 20u);
  EXPECT_EQ(result[1].symbol, 10u);
}

}  // namespace
}  // namespace zebdc
