// Move-to-front through the exported functions.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "bzip2/plain_move_to_front.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::PlainMoveToFront;
using test::Random;

using Transform = ZebStatus (*)(const uint8_t*, uint8_t*, int, ZebMTFState_8u*);

class Record {
 public:
  Record() : memory_(256, GuardedBuffer::Edge::none) { EXPECT_EQ(zebsMTFInit_8u(get()), zebOk); }
  ZebMTFState_8u* get() const { return memory_.as<ZebMTFState_8u>(); }

 private:
  GuardedBuffer memory_;
};

Bytes run(Transform transform, const Bytes& source, const Record& record) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(source.size());
  EXPECT_EQ(transform(src.data(), dst.data(), static_cast<int>(source.size()), record.get()),
            zebOk);
  return Bytes(dst.begin(), dst.end());
}

Bytes plainRanks(const Bytes& source) {
  Bytes ranks(source.size());
  PlainMoveToFront().forward(source.data(), ranks.data(), source.size());
  return ranks;
}

// Data as a block sort leaves it: values that change now and then, most often to a recent one.
Bytes sortedLike(size_t size, uint64_t seed, int alphabetSize) {
  Random random(seed);
  Bytes ranks(size);
  for (uint8_t& rank : ranks) {
    if (below(random, 5) < 3) continue;
    const size_t depth = below(random, 1 + below(random, static_cast<size_t>(alphabetSize)));
    rank = static_cast<uint8_t>(below(random, 1 + depth));
  }
  Bytes out(size);
  PlainMoveToFront().inverse(ranks.data(), out.data(), size);
  return out;
}

TEST(MoveToFront, RecordHas256Bytes) {
  int size = 0;
  EXPECT_EQ(zebsMTFGetSize_8u(&size), zebOk);
  EXPECT_EQ(size, 256);
  EXPECT_EQ(zebsMTFGetSize_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsMTFInit_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsMTFInitAlloc_8u(nullptr), zebErrNullPtr);
}

TEST(MoveToFront, ChecksPointersBeforeTheLength) {
  const Record record;
  uint8_t byte = 7;
  for (const Transform transform : {zebsMTFFwd_8u, zebsMTFInv_8u}) {
    EXPECT_EQ(transform(nullptr, &byte, 0, record.get()), zebErrNullPtr);
    EXPECT_EQ(transform(&byte, nullptr, 0, record.get()), zebErrNullPtr);
    EXPECT_EQ(transform(&byte, &byte, 0, nullptr), zebErrNullPtr);
    EXPECT_EQ(transform(&byte, &byte, 0, record.get()), zebErrSize);
    EXPECT_EQ(transform(&byte, &byte, -1, record.get()), zebErrSize);
    EXPECT_EQ(transform(&byte, &byte, INT32_MIN, record.get()), zebErrSize);
  }
  EXPECT_EQ(byte, 7);
}

TEST(MoveToFront, MapsRecentValuesToSmallPositions) {
  const Bytes source = {0x41, 0x41, 0x42, 0x41};
  const Bytes ranks = {0x41, 0x00, 0x42, 0x01};
  EXPECT_EQ(run(zebsMTFFwd_8u, source, Record()), ranks);
  EXPECT_EQ(run(zebsMTFInv_8u, ranks, Record()), source);
}

TEST(MoveToFront, AllocatedRecordsStartFromTheIdentity) {
  ZebMTFState_8u* state = nullptr;
  ASSERT_EQ(zebsMTFInitAlloc_8u(&state), zebOk);
  ASSERT_NE(state, nullptr);
  for (int value = 0; value < 256; ++value) {
    const uint8_t byte = static_cast<uint8_t>(value);
    uint8_t rank = 0;
    EXPECT_EQ(zebsMTFInit_8u(state), zebOk);
    EXPECT_EQ(zebsMTFFwd_8u(&byte, &rank, 1, state), zebOk);
    EXPECT_EQ(rank, byte);
  }
  zebsMTFFree_8u(state);
}

TEST(MoveToFront, EverySmallSizeMatchesThePlainRule) {
  for (size_t size = 1; size <= 300; ++size) {
    for (const int alphabet : {2, 20, 256}) {
      const Bytes source = sortedLike(size, size, alphabet);
      const Bytes ranks = plainRanks(source);
      ASSERT_EQ(run(zebsMTFFwd_8u, source, Record()), ranks) << size;
      ASSERT_EQ(run(zebsMTFInv_8u, ranks, Record()), source) << size;
    }
  }
}

TEST(MoveToFront, AllKindsOfDataMatchThePlainRule) {
  for (const size_t size : {4000, 8192, 8193, 50000}) {
    auto inputs = test::oneOfEachKind(size);
    for (const int alphabet : {2, 12, 40, 100, 140, 256}) {
      inputs.push_back({"sorted" + std::to_string(alphabet), sortedLike(size, 1, alphabet)});
    }
    for (const auto& [name, source] : inputs) {
      SCOPED_TRACE(name);
      const Bytes ranks = plainRanks(source);
      EXPECT_EQ(run(zebsMTFFwd_8u, source, Record()), ranks);
      EXPECT_EQ(run(zebsMTFInv_8u, ranks, Record()), source);
    }
  }
}

// Every position, including those that lie just before and behind the edges of vectors.
TEST(MoveToFront, EveryPositionIsFoundAndShifted) {
  Bytes ranks;
  for (int round = 0; round < 60; ++round) {
    for (int rank = 0; rank < 256; ++rank) {
      ranks.push_back(static_cast<uint8_t>((rank * (2 * round + 1) + round) % 256));
    }
  }
  const Bytes values = run(zebsMTFInv_8u, ranks, Record());
  EXPECT_EQ(plainRanks(values), ranks);
  EXPECT_EQ(run(zebsMTFFwd_8u, values, Record()), ranks);
}

TEST(MoveToFront, DataMayBeCutAnywhere) {
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    const Bytes source = sortedLike(1 + below(random, 20000), random(), 1 + round * 4);
    const Bytes ranks = plainRanks(source);
    const Record forward;
    const Record inverse;
    for (size_t at = 0; at < source.size();) {
      const size_t piece = std::min(source.size() - at, 1 + below(random, 1 + below(random, 9000)));
      const auto slice = [&](const Bytes& bytes) {
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(at);
        return Bytes(begin, begin + static_cast<ptrdiff_t>(piece));
      };
      ASSERT_EQ(run(zebsMTFFwd_8u, slice(source), forward), slice(ranks));
      ASSERT_EQ(run(zebsMTFInv_8u, slice(ranks), inverse), slice(source));
      at += piece;
    }
  }
}

}  // namespace
}  // namespace zebdc
