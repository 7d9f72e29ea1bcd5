// Kernels of the interval transform: what only callers inside the library rely on.

#include <gtest/gtest.h>

#include <memory>

#include "huffman/reference_git.h"
#include "kernels/interval_transform.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using kernels::IntervalDecoder;
using kernels::IntervalEncoder;
using kernels::IntervalOrder;
using kernels::IntervalResult;
using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::Random;

void reset(kernels::IntervalLeaves& leaves, kernels::IntervalStatistics* statistics) {
  for (int i = 0; i < kernels::intervalPositions; ++i) {
    leaves.positionOf[i] = static_cast<uint8_t>(i);
    leaves.valueAt[i] = static_cast<uint8_t>(i);
    leaves.count[i] = 0;
    statistics[i] = {0, 0, 0, kernels::initialIntervalParameter};
  }
}

// An encoder whose streams take the given number of bytes and end, with their slack, at
// inaccessible pages.
struct NarrowEncoder {
  explicit NarrowEncoder(uint32_t limit) : model(new IntervalEncoder()) {
    reset(model->leaves, model->statistics);
    model->streamLimit = limit;
    for (kernels::IntervalStream& stream : model->streams) {
      buffers.push_back(std::make_unique<GuardedBuffer>(limit + kernels::intervalStreamSlack));
      stream.bytes = buffers.back()->data();
    }
  }

  std::vector<std::unique_ptr<GuardedBuffer>> buffers;
  std::unique_ptr<IntervalEncoder> model;
};

TEST(IntervalKernels, FullStreamsTakeNoInterval) {
  Random random(1);
  for (const uint32_t limit : {1u, 2u, 7u, 50u}) {
    NarrowEncoder encoder(limit);
    for (int stream = 0; stream < kernels::intervalPositions; ++stream) {
      kernels::IntervalStream& full = encoder.model->streams[stream];
      const auto put = [&] {
        const uint32_t interval = static_cast<uint32_t>(random() >> (33 + below(random, 31)));
        return kernels::intervalTransform().putInterval(encoder.model.get(), stream, interval);
      };
      while (put()) ASSERT_LT(full.byteIndex, limit + kernels::intervalStreamSlack);
      const uint32_t end = full.byteIndex;
      EXPECT_GE(end, limit);
      EXPECT_FALSE(put());
      EXPECT_EQ(full.byteIndex, end);
    }
  }
}

TEST(IntervalKernels, EncodingEndsAtAFullStream) {
  for (const IntervalOrder order :
       {IntervalOrder::towardFront, IntervalOrder::towardBack, IntervalOrder::fixed}) {
    NarrowEncoder encoder(20);
    const Bytes text = test::textLike(5000, 2);
    EXPECT_FALSE(
        kernels::intervalTransform().encode(encoder.model.get(), text.data(), text.size(), order));
    NarrowEncoder roomy(5000);
    EXPECT_TRUE(
        kernels::intervalTransform().encode(roomy.model.get(), text.data(), text.size(), order));
  }
}

// A decoder at the beginning of a block.
std::unique_ptr<IntervalDecoder> decoderOf(const Bytes& block) {
  auto model = std::make_unique<IntervalDecoder>();
  reset(model->leaves, model->statistics);
  const uint8_t* next = block.data();
  for (kernels::IntervalSource& source : model->sources) {
    uint32_t length = 0;
    for (int i = 0; i < 4; ++i) length = length << 8 | *next++;
    source = {next, 0, uint64_t{length} * 8, length};
    next += length;
  }
  kernels::IntervalSource& last = model->sources[kernels::intervalPositions - 1];
  kernels::IntervalSource reader = last;
  kernels::IntervalStatistics statistics = model->statistics[0];
  uint32_t interval = 0;
  uint64_t lastBegin = 0;
  for (uint64_t begin = 0; kernels::intervalTransform().getInterval(
                               &reader, &statistics, &interval) == IntervalResult::more;
       begin = reader.bit) {
    lastBegin = begin;
  }
  last.bitEnd = lastBegin;
  model->lastValueLeft = interval;
  EXPECT_EQ(kernels::intervalTransform().startDecoding(model.get()), IntervalResult::more);
  return model;
}

TEST(IntervalKernels, DecodingGoesOnWhereTheRoomEnded) {
  Random random(3);
  for (const auto& [name, bytes] : test::oneOfEachKind(3000)) {
    for (const int hint : {1, 2, 3}) {
      SCOPED_TRACE(name + ", hint " + std::to_string(hint));
      constexpr IntervalOrder orders[] = {IntervalOrder::towardFront, IntervalOrder::towardBack,
                                          IntervalOrder::fixed};
      Bytes expected;
      if (hint != 3) {
        for (int value = 255; value >= 0; --value) expected.push_back(static_cast<uint8_t>(value));
      }
      expected.insert(expected.end(), bytes.begin(), bytes.end());
      const Bytes block = test::referenceGitEncode(bytes.data(), bytes.size(), hint);
      const auto model = decoderOf(block);
      Bytes out;
      IntervalResult result = IntervalResult::more;
      while (result == IntervalResult::more) {
        const size_t room = below(random, 1 + below(random, 60));
        const GuardedBuffer piece(room);
        size_t written = 0;
        result = kernels::intervalTransform().decode(model.get(), piece.data(), room,
                                                     orders[hint - 1], &written);
        ASSERT_LE(written, room);
        out.insert(out.end(), piece.begin(), piece.begin() + written);
      }
      EXPECT_EQ(result, IntervalResult::done);
      EXPECT_EQ(out, expected);
    }
  }
}

}  // namespace
}  // namespace zebdc
