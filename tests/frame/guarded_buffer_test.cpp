// The buffers of the tests: that they notice what they are there to notice.

#include "support/guarded_buffer.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace zebdc::test {
namespace {

using Edge = GuardedBuffer::Edge;

TEST(GuardedBuffer, BytesWrittenInsideAreNoFailure) {
  for (const Edge edge : {Edge::end, Edge::begin, Edge::none}) {
    for (const size_t size : {0, 1, 100, 4095, 4096, 4097}) {
      const GuardedBuffer buffer(size, edge);
      for (uint8_t& byte : buffer.bytes()) byte = 1;
    }
  }
}

TEST(GuardedBuffer, AByteWrittenInFrontIsAFailure) {
  for (const ptrdiff_t distance : {1, 2, 100, 4086}) {
    EXPECT_NONFATAL_FAILURE({ *(GuardedBuffer(10).data() - distance) = 1; },
                            "in front of a buffer of 10");
  }
}

TEST(GuardedBuffer, AByteWrittenBehindIsAFailure) {
  for (const size_t distance : {0, 1, 100, 4085}) {
    EXPECT_NONFATAL_FAILURE({ *(GuardedBuffer(10, Edge::begin).end() + distance) = 1; },
                            "behind a buffer of 10");
  }
}

TEST(GuardedBuffer, RecordsAreGuardedOnBothSides) {
  EXPECT_NONFATAL_FAILURE({ *(GuardedBuffer(10, Edge::none).data() - 16) = 1; }, "in front of");
  EXPECT_NONFATAL_FAILURE({ *GuardedBuffer(10, Edge::none).end() = 1; }, "behind");
}

TEST(GuardedBuffer, RecordsAreAlignedTo16BytesAndNoMore) {
  for (const size_t size : {1, 4080, 4081, 131104}) {
    const GuardedBuffer record(size, Edge::none);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(record.data()) % 32, 16u);
  }
}

}  // namespace
}  // namespace zebdc::test
