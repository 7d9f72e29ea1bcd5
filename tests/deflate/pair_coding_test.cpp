// The kernels of the block writers against their plain definitions.

#include "kernels/pair_coding.h"

#include <gtest/gtest.h>

#include "deflate/block_encoder.h"
#include "deflate/plain_deflate.h"

namespace zebdc::kernels {
namespace {

using test::below;
using test::GuardedBuffer;
using test::Pairs;
using test::Random;

// Offsets beyond 32768 are no distances, but must be survived.
Pairs anyPairs(Random& random, size_t count, bool hostile) {
  Pairs pairs(count);
  for (ZebLZ77Pair& pair : pairs) {
    pair.length = static_cast<uint16_t>(random());
    pair.offset = below(random, 2) == 0 ? 0 : static_cast<uint16_t>(random() >> below(random, 16));
    if (!hostile) pair.offset &= 0x7FFF;
  }
  return pairs;
}

TEST(PairCoding, ClassesDecideTheDistanceSymbol) {
  Pairs previous;
  for (uint32_t offset = 1; offset <= 32768; ++offset) {
    const Pairs pair = {{3, static_cast<uint16_t>(offset)}};
    const bool sameClass = offset > 1 && distanceClass(offset) == distanceClass(offset - 1);
    const bool sameSymbol = offset > 1 && test::frequenciesOf(pair).distances ==
                                              test::frequenciesOf(previous).distances;
    ASSERT_EQ(sameClass, sameSymbol) << offset;
    previous = pair;
  }
  for (uint32_t offset = 0; offset <= 65535; ++offset) {
    ASSERT_LT(distanceClass(offset), static_cast<uint32_t>(distanceClasses));
    ASSERT_EQ(distanceClass(offset) == 0, offset == 0);
  }
}

TEST(PairCoding, CountsAddUpForAnyPairs) {
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const size_t size = below(random, round % 2 == 0 ? 70 : 6000);
    const Pairs pairs = anyPairs(random, size, true);
    const GuardedBuffer guarded(
        std::span(reinterpret_cast<const uint8_t*>(pairs.data()), size * sizeof(ZebLZ77Pair)));
    std::vector<uint32_t> items(pairItems, 5);
    std::vector<uint32_t> distances(distanceClasses, 7);
    pairCoding().count(guarded.as<ZebLZ77Pair>(), size, items.data(), distances.data());

    std::vector<uint32_t> expectedItems(pairItems, 5);
    std::vector<uint32_t> expectedDistances(distanceClasses, 7);
    for (const ZebLZ77Pair& pair : pairs) {
      ++expectedItems[(pair.offset != 0 ? 256u : 0u) + pair.length % 256u];
      ++expectedDistances[distanceClass(pair.offset)];
    }
    ASSERT_EQ(items, expectedItems);
    ASSERT_EQ(distances, expectedDistances);
  }
}

struct RandomCodes {
  explicit RandomCodes(Random& random, uint32_t longest)
      : items(pairItems), distances(distanceClasses) {
    for (uint32_t& item : items) {
      const uint32_t count = static_cast<uint32_t>(below(random, 1 + std::min(longest, 20u)));
      item = packItem(static_cast<uint32_t>(random() & ((1u << count) - 1)), count);
    }
    for (uint32_t offset = 1; offset <= 65535; ++offset) {
      if (offset > 1 && distanceClass(offset) == distanceClass(offset - 1)) continue;
      const uint32_t extra = static_cast<uint32_t>(offset < 5 ? 0 : std::bit_width(offset - 1) - 2);
      const uint32_t codeCount = static_cast<uint32_t>(below(random, 1 + std::min(longest, 15u)));
      distances[distanceClass(offset)] = packDistance(
          static_cast<uint32_t>(random() & ((1u << codeCount) - 1)), codeCount, offset, extra);
    }
  }
  PairCodes view() const { return {items.data(), distances.data()}; }

  std::vector<uint32_t> items;
  std::vector<uint64_t> distances;
};

TEST(PairCoding, WordsAreCodesWithExtraBitsOnTop) {
  Random random(2);
  const RandomCodes codes(random, 20);
  uint32_t first = 0;
  for (uint32_t offset = 1; offset <= 65535; ++offset) {
    if (offset == 1 || distanceClass(offset) != distanceClass(offset - 1)) first = offset;
    const uint64_t entry = codes.distances[distanceClass(offset)];
    const uint32_t codeBits = entry & 255;
    const uint32_t allBits = (entry >> 8) & 255;
    const uint32_t code = static_cast<uint32_t>(entry >> 32) + (first << codeBits);
    const uint32_t length = static_cast<uint32_t>(3 + offset % 256);
    const uint32_t item = codes.items[matchItem(length)];
    const CodeWord word =
        pairCodeWord(codes.view(), {static_cast<uint16_t>(length), static_cast<uint16_t>(offset)});
    const uint64_t distanceWord = code | uint64_t{offset - first} << codeBits;
    ASSERT_EQ(word.count, (item & 255) + allBits);
    ASSERT_EQ(word.bits, item >> 8 | distanceWord << (item & 255));
    ASSERT_EQ(word.bits >> word.count, 0u) << "bits beyond the count at " << offset;
  }
  for (uint32_t byte = 0; byte < 256; ++byte) {
    const CodeWord word = pairCodeWord(codes.view(), {static_cast<uint16_t>(byte), 0});
    ASSERT_EQ(packItem(static_cast<uint32_t>(word.bits), word.count), codes.items[byte]);
  }
}

TEST(PairCoding, FastLoopWritesWhatOneByOneWrites) {
  Random random(3);
  for (int round = 0; round < 600; ++round) {
    const RandomCodes codes(random, static_cast<uint32_t>(1 + below(random, 20)));
    const bool few = round % 2 == 0;
    const Pairs pairs = anyPairs(random, below(random, few ? 60 : 1000), below(random, 4) == 0);
    const size_t room = below(random, few ? 300 : 6000);
    const GuardedBuffer guarded(room);
    const uint32_t inHand = static_cast<uint32_t>(below(random, 8));
    const uint64_t bits = random() & ((1u << inHand) - 1);

    BitSink sink = {bits, inHand, guarded.data(), room};
    const size_t coded = pairCoding().code(codes.view(), pairs.data(), pairs.size(), sink);

    test::BitString expected;
    expected.put(bits, static_cast<int>(inHand));
    for (size_t i = 0; i < coded; ++i) {
      const CodeWord word = pairCodeWord(codes.view(), pairs[i]);
      expected.put(word.bits, static_cast<int>(word.count));
    }
    const size_t wholeBytes = expected.size() / 8;
    ASSERT_EQ(sink.count, expected.size() % 8);
    ASSERT_EQ(sink.bits, sink.count == 0 ? 0u : expected.bytes().back());
    ASSERT_EQ(sink.dst, guarded.data() + wholeBytes);
    ASSERT_EQ(sink.room, room - wholeBytes);
    ASSERT_TRUE(std::equal(guarded.data(), guarded.data() + wholeBytes, expected.bytes().begin()));
    ASSERT_TRUE(coded + 8 > pairs.size() || sink.room < 8 * pairCodingMargin)
        << "stopped with pairs and room left";
  }
}

}  // namespace
}  // namespace zebdc::kernels
