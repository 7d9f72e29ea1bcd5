// The sort of (symbol, frequency) entries that Huffman construction starts from.
//
// Its order among equal frequencies is part of the library's output: codes of tied symbols depend
// on it. So it is written out here instead of being left to a standard sort. Ranges of more than
// nine entries are partitioned around the median of three; shorter ones are finished by selecting
// the maximum. The smaller part is always sorted first, which bounds the stack.
#ifndef ZEBDC_FRAME_FREQUENCY_SORT_H
#define ZEBDC_FRAME_FREQUENCY_SORT_H

#include <stdint.h>

namespace zebdc {

struct FrequencyEntry {
  uint32_t symbol;
  uint32_t frequency;
};

// Sorts entries[0 .. count - 1] by ascending frequency.
void sortByFrequency(FrequencyEntry* entries, int count);

}  // namespace zebdc

#endif
