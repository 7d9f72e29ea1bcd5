// The sort of (symbol, frequency) entries that Huffman construction starts from.

#include "frame/frequency_sort.h"

#include <utility>

namespace zebdc {
namespace {

constexpr int selectionLimit = 9;

// Exchanges the first-found maximum with the last entry, again and again.
void sortBySelection(FrequencyEntry* low, FrequencyEntry* high) {
  for (; high > low; --high) {
    FrequencyEntry* maximum = low;
    for (FrequencyEntry* entry = low + 1; entry <= high; ++entry) {
      if (entry->frequency > maximum->frequency) maximum = entry;
    }
    std::swap(*maximum, *high);
  }
}

void exchangeIfGreater(FrequencyEntry& a, FrequencyEntry& b) {
  if (a.frequency > b.frequency) std::swap(a, b);
}

struct Parts {
  FrequencyEntry* lowEnd;     // last entry of the part below the pivot
  FrequencyEntry* highBegin;  // first entry of the part above it
};

// Partitions low..high around the middle entry, which is followed when an exchange moves it.
Parts partition(FrequencyEntry* low, FrequencyEntry* high) {
  FrequencyEntry* pivot = low + (high - low) / 2;
  exchangeIfGreater(*low, *pivot);
  exchangeIfGreater(*low, *high);
  exchangeIfGreater(*pivot, *high);

  FrequencyEntry* left = low;
  FrequencyEntry* right = high;
  for (;;) {
    const uint32_t border = pivot->frequency;
    do {
      ++left;
    } while (left <= high && left->frequency <= border);
    do {
      --right;
    } while (right > low && right->frequency > border);
    if (right < left) break;
    std::swap(*left, *right);
    if (pivot == right) pivot = left;
  }

  // Entries equal to the pivot that lie next to the border belong to neither part.
  const uint32_t border = pivot->frequency;
  ++right;
  do {
    --right;
  } while (right > low && right->frequency == border);
  return {right, left};
}

}  // namespace

void sortByFrequency(FrequencyEntry* entries, int count) {
  if (count < 2) return;
  struct Range {
    FrequencyEntry* low;
    FrequencyEntry* high;
  };
  // The larger part waits while the smaller one is sorted, so at most log2(2^31) ranges wait.
  Range waiting[32];
  int depth = 0;
  Range range = {entries, entries + count - 1};
  for (;;) {
    if (range.high - range.low + 1 <= selectionLimit) {
      sortBySelection(range.low, range.high);
      if (depth == 0) return;
      range = waiting[--depth];
      continue;
    }
    const Parts parts = partition(range.low, range.high);
    const Range low = {range.low, parts.lowEnd};
    const Range high = {parts.highBegin, range.high};
    const bool lowIsSmaller = low.high - low.low < high.high - high.low;
    const Range& smaller = lowIsSmaller ? low : high;
    const Range& larger = lowIsSmaller ? high : low;
    if (larger.low < larger.high) waiting[depth++] = larger;
    range = smaller;
  }
}

}  // namespace zebdc
