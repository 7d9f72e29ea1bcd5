// Move-to-front kernels: what only callers inside the library rely on.

#include <gtest/gtest.h>
#include <string.h>

#include "bzip2/plain_move_to_front.h"
#include "kernels/move_to_front.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::PlainMoveToFront;

Bytes identity() {
  Bytes table(256);
  for (size_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i);
  return table;
}

TEST(MoveToFrontKernels, WorkInPlace) {
  for (const size_t size : {1, 7, 64, 1000, 8191, 20000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      Bytes ranks(size);
      PlainMoveToFront().forward(source.data(), ranks.data(), size);
      GuardedBuffer data(source);
      Bytes positions = identity();
      kernels::moveToFrontForward()(data.data(), data.data(), static_cast<int>(size),
                                    positions.data());
      EXPECT_EQ(memcmp(data.data(), ranks.data(), size), 0);
      Bytes list = identity();
      kernels::moveToFrontInverse()(data.data(), data.data(), static_cast<int>(size), list.data());
      EXPECT_EQ(memcmp(data.data(), source.data(), size), 0);
      for (size_t i = 0; i < 256; ++i) EXPECT_EQ(positions[list[i]], i);
    }
  }
}

// Such tables come from records that no Init has seen.
TEST(MoveToFrontKernels, StayInBoundsWithTablesThatAreNoPermutations) {
  const Bytes source = test::randomBytes(9000, 1);
  for (const uint64_t seed : {0, 1, 2}) {
    GuardedBuffer table(seed == 0 ? Bytes(256, 9) : test::randomBytes(256, seed));
    GuardedBuffer out(source.size());
    kernels::moveToFrontForward()(source.data(), out.data(), 9000, table.data());
    kernels::moveToFrontInverse()(source.data(), out.data(), 9000, table.data());
    kernels::moveToFrontForward()(Bytes(9000, 5).data(), out.data(), 9000, table.data());
  }
}

}  // namespace
}  // namespace zebdc
