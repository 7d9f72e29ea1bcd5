// Pairs in tests: comparison, and what they stand for.
#ifndef ZEBDC_TESTS_DEFLATE_PAIRS_H
#define ZEBDC_TESTS_DEFLATE_PAIRS_H

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <ostream>
#include <vector>

#include "support/data.h"

inline bool operator==(const ZebLZ77Pair& a, const ZebLZ77Pair& b) {
  return a.length == b.length && a.offset == b.offset;
}

inline std::ostream& operator<<(std::ostream& stream, const ZebLZ77Pair& pair) {
  return stream << pair.length << "," << pair.offset;
}

namespace zebdc::test {

using Pairs = std::vector<ZebLZ77Pair>;

// Appends what the pairs stand for; the output so far is their history.
inline void expand(const Pairs& pairs, Bytes& output) {
  for (const ZebLZ77Pair& pair : pairs) {
    if (pair.offset == 0) {
      ASSERT_LE(pair.length, 255);
      output.push_back(static_cast<uint8_t>(pair.length));
      continue;
    }
    ASSERT_GE(pair.length, 3);
    ASSERT_LE(pair.length, 258);
    ASSERT_LE(pair.offset, 32767);
    ASSERT_LE(pair.offset, output.size());
    for (int i = 0; i < pair.length; ++i) output.push_back(output[output.size() - pair.offset]);
  }
}

}  // namespace zebdc::test

#endif
