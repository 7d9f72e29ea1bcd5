// LZSS: round trips at every size. CTest runs the two halves apart, so that they take two cores.

#include <gtest/gtest.h>

#include "lz/lzss_helpers.h"
#include "support/data.h"

namespace zebdc {
namespace {

void roundTripEverySecondSizeFrom(size_t first) {
  const test::LzssSizes sizes(test::skewed(300, 12, 8));
  for (size_t size = first; size <= test::LzssSizes::largest; size += 2) {
    ASSERT_NO_FATAL_FAILURE(sizes.roundTrip(size)) << size;
  }
}

TEST(LzssSizes, Odd) {
  roundTripEverySecondSizeFrom(1);
}

TEST(LzssSizes, Even) {
  roundTripEverySecondSizeFrom(2);
}

}  // namespace
}  // namespace zebdc
