// The second pass: pairs to bytes.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include "inflate/drivers.h"

namespace zebdc::inflate {
namespace {

using test::Bytes;
using test::Decoder;
using test::GuardedBuffer;
using Pairs = std::vector<ZebLZ77Pair>;

struct Outcome {
  ZebStatus status;
  Bytes output;
  size_t pairsLeft;
};

Outcome expand(Decoder& decoder, const Pairs& pairs, size_t room) {
  const size_t bytes = pairs.size() * sizeof(ZebLZ77Pair);
  const GuardedBuffer input({reinterpret_cast<const uint8_t*>(pairs.data()), bytes});
  const GuardedBuffer output(room);
  const ZebLZ77Pair* next = input.as<const ZebLZ77Pair>();
  int pairsLen = static_cast<int>(pairs.size());
  uint8_t* dst = output.data();
  int dstLen = static_cast<int>(room);
  const ZebStatus status = zebsDecodeLZ77_8u(&next, &pairsLen, &dst, &dstLen, 0, decoder.record());
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(next + pairsLen), input.end());
  EXPECT_EQ(dst + dstLen, output.end());
  return {status, Bytes(output.data(), dst), static_cast<size_t>(pairsLen)};
}

constexpr ZebLZ77Pair literal(char c) {
  return {static_cast<uint16_t>(c), 0};
}

constexpr ZebLZ77Pair match(int length, int distance) {
  return {static_cast<uint16_t>(length), static_cast<uint16_t>(distance)};
}

TEST(ExpandPairs, LiteralsAndMatches) {
  Decoder decoder;
  const Outcome outcome =
      expand(decoder, {literal('a'), literal('b'), match(5, 2), literal('c'), match(3, 8)}, 100);
  EXPECT_EQ(outcome.status, zebOk);
  EXPECT_EQ(outcome.output, test::fromText("abababacaba"));
  EXPECT_EQ(decoder.state().historyLen, 11);
  EXPECT_EQ(memcmp(decoder.state().window, "abababacaba", 11), 0);
}

TEST(ExpandPairs, NoPairsIsFineEvenWithoutRoom) {
  Decoder decoder;
  EXPECT_EQ(expand(decoder, {}, 0).status, zebOk);
  EXPECT_EQ(expand(decoder, {}, 5).status, zebOk);
  EXPECT_EQ(expand(decoder, {literal('a')}, 0).status, zebWarnDstFull);
}

TEST(ExpandPairs, LongRunIsFinishedBeforeAnyFurtherPair) {
  Decoder decoder;
  expand(decoder, {literal('x')}, 1);
  const Outcome first = expand(decoder, {match(258, 1), literal('y')}, 100);
  EXPECT_EQ(first.status, zebWarnDstFull);
  EXPECT_EQ(first.output, Bytes(100, 'x'));
  EXPECT_EQ(first.pairsLeft, 1u);
  EXPECT_EQ(decoder.state().pendingLength, 158);
  EXPECT_EQ(decoder.state().pendingDistance, 1u);
  const Outcome second = expand(decoder, {literal('y')}, 200);
  Bytes expected(158, 'x');
  expected.push_back('y');
  EXPECT_EQ(second.status, zebOk);
  EXPECT_EQ(second.output, expected);
}

TEST(ExpandPairs, CallWithoutPairsFinishesThePendingMatch) {
  Decoder decoder;
  expand(decoder, {literal('x'), match(10, 1)}, 4);
  EXPECT_EQ(expand(decoder, {}, 0).status, zebOk);
  EXPECT_EQ(expand(decoder, {}, 3).status, zebWarnDstFull);
  const Outcome last = expand(decoder, {}, 9);
  EXPECT_EQ(last.status, zebOk);
  EXPECT_EQ(last.output, Bytes(4, 'x'));
}

TEST(ExpandPairs, MatchReachesFromTheHistoryIntoThisCallsOutput) {
  Decoder decoder;
  expand(decoder, {literal('a'), literal('b'), literal('c')}, 3);
  EXPECT_EQ(expand(decoder, {literal('d'), match(6, 3)}, 10).output, test::fromText("dbcdbcd"));
}

TEST(ExpandPairs, HistoryKeepsTheLast32768Bytes) {
  Decoder decoder;
  const Bytes content = test::randomBytes(100000, 1);
  Bytes output;
  Pairs pairs;
  for (const uint8_t byte : content) pairs.push_back({byte, 0});
  size_t position = 0;
  for (const size_t count : {10u, 20000u, 20000u, 40000u, 1u}) {
    const auto begin = pairs.begin() + static_cast<ptrdiff_t>(position);
    expand(decoder, Pairs(begin, begin + static_cast<ptrdiff_t>(count)), count);
    position += count;
    const size_t valid = std::min<size_t>(position, 32768);
    EXPECT_EQ(decoder.state().historyLen, static_cast<int>(valid));
    EXPECT_EQ(memcmp(decoder.state().window, content.data() + position - valid, valid), 0);
  }
}

TEST(ExpandPairs, DictionaryIsHistory) {
  Decoder decoder;
  const Bytes dictionary = test::fromText("0123456789");
  zebsDecodeLZ77SetDictionary_8u(dictionary.data(), 10, decoder.record());
  EXPECT_EQ(expand(decoder, {match(4, 10), match(3, 14)}, 10).output, test::fromText("0123012"));
}

TEST(ExpandPairs, EndOfStreamIsToldAndLeavesTheHistory) {
  Decoder decoder;
  expand(decoder, {literal('a')}, 1);
  decoder.state().streamEnded = 1;
  EXPECT_EQ(expand(decoder, {literal('b'), literal('c')}, 1).status, zebWarnDstFull);
  EXPECT_EQ(decoder.state().historyLen, 2);
  EXPECT_EQ(expand(decoder, {literal('c')}, 1).status, zebWarnFinalBlockDone);
  EXPECT_EQ(decoder.state().historyLen, 2);
  EXPECT_EQ(expand(decoder, {}, 1).status, zebOk);
}

// Any pair: nothing outside the record is read, and as much is written as the pair says.
TEST(ExpandPairs, NoDistanceLeadsOutOfTheRecord) {
  test::Random random(7);
  for (int round = 0; round < 300; ++round) {
    Decoder decoder;
    expand(decoder, Pairs(test::below(random, 3) * 50, literal('h')), 200);
    Pairs pairs;
    size_t total = 0;
    for (int i = 0; i < 20; ++i) {
      const auto length = static_cast<uint16_t>(1 + random() % (i % 5 == 0 ? 65535 : 300));
      pairs.push_back({length, static_cast<uint16_t>(random() | 1)});
      total += length;
    }
    const Outcome outcome = expand(decoder, pairs, total);
    EXPECT_EQ(outcome.status, zebOk);
    EXPECT_EQ(outcome.output.size(), total);
  }
}

// Against the plain definition, in pieces of every size.
TEST(ExpandPairs, RandomPairsInRandomRooms) {
  test::Random random(11);
  for (int round = 0; round < 20; ++round) {
    Pairs pairs;
    Bytes expected;
    for (int i = 0; i < 400; ++i) {
      if (expected.empty() || test::below(random, 3) == 0) {
        expected.push_back(static_cast<uint8_t>(random()));
        pairs.push_back({expected.back(), 0});
        continue;
      }
      const size_t reach = test::below(random, 3) == 0 ? 20 : 32768;
      const size_t distance = 1 + test::below(random, std::min(expected.size(), reach));
      const size_t length = 3 + test::below(random, test::below(random, 4) == 0 ? 256 : 30);
      pairs.push_back(match(static_cast<int>(length), static_cast<int>(distance)));
      for (size_t k = 0; k < length; ++k) expected.push_back(expected[expected.size() - distance]);
    }
    Decoder decoder;
    Bytes output;
    size_t next = 0;
    const size_t largestRoom = 1 + test::below(random, round % 2 ? 40 : 3000);
    ZebStatus status = zebWarnDstFull;
    while (next < pairs.size() || status == zebWarnDstFull) {
      if (test::below(random, 10) == 0) decoder.moveToCopy();
      const size_t count = std::min(test::below(random, 50), pairs.size() - next);
      const auto begin = pairs.begin() + static_cast<ptrdiff_t>(next);
      const Outcome outcome = expand(decoder, Pairs(begin, begin + static_cast<ptrdiff_t>(count)),
                                     1 + test::below(random, largestRoom));
      status = outcome.status;
      next += count - outcome.pairsLeft;
      output.insert(output.end(), outcome.output.begin(), outcome.output.end());
    }
    ASSERT_EQ(output, expected);
  }
}

TEST(ExpandPairs, ChecksItsArguments) {
  Decoder decoder;
  ZebLZ77State_8u* const record = decoder.record();
  const ZebLZ77Pair pair = {};
  uint8_t room = 0;
  const ZebLZ77Pair* pairs = &pair;
  const ZebLZ77Pair* noPairs = nullptr;
  uint8_t* dst = &room;
  uint8_t* noDst = nullptr;
  int one = 1;
  int zero = 0;
  int negative = -1;
  EXPECT_EQ(zebsDecodeLZ77_8u(nullptr, &negative, &dst, &one, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, nullptr, &dst, &one, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &negative, nullptr, &one, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &negative, &dst, nullptr, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &negative, &dst, &one, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&noPairs, &negative, &dst, &one, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &one, &noDst, &one, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &negative, &dst, &one, 0, record), zebErrSize);
  EXPECT_EQ(zebsDecodeLZ77_8u(&pairs, &zero, &dst, &negative, 0, record), zebErrSize);
  EXPECT_EQ(zebsDecodeLZ77_8u(&noPairs, &zero, &noDst, &zero, 0, record), zebOk);
  EXPECT_EQ(pairs, &pair);
  EXPECT_EQ(dst, &room);
}

}  // namespace
}  // namespace zebdc::inflate
