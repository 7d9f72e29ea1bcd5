// Zero-run coding.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "bzip2/plain_zero_runs.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::Random;
using test::Symbols;
using Encoded = test::PlainZeroRuns<Symbols>;
using Decoded = test::PlainZeroRuns<Bytes>;
using Counters = std::vector<uint32_t>;

constexpr uint16_t runA = 0;
constexpr uint16_t runB = 1;

int intOf(size_t size) {
  return static_cast<int>(size);
}

Encoded encode(const Bytes& source, size_t capacity, Counters& frequencies) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(capacity * sizeof(uint16_t));
  const GuardedBuffer counters(257 * sizeof(uint32_t));
  std::copy_n(frequencies.begin(), 257, counters.as<uint32_t>());
  const uint8_t* pSrc = src.data();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status = zebsEncodeZ1Z2_BZ2_8u16u(&pSrc, &srcLen, dst.as<uint16_t>(), &dstLen,
                                                    counters.as<uint32_t>());
  EXPECT_EQ(pSrc + srcLen, src.end());
  std::copy_n(counters.as<uint32_t>(), 257, frequencies.begin());
  return {status, static_cast<size_t>(pSrc - src.data()),
          Symbols(dst.as<uint16_t>(), dst.as<uint16_t>() + dstLen)};
}

// Also checks that the frequencies count the symbols.
Encoded encode(const Bytes& source, size_t capacity) {
  Counters frequencies(257, 5);
  const Encoded result = encode(source, capacity, frequencies);
  Counters expected(257, 5);
  for (const uint16_t symbol : result.out) ++expected[symbol];
  EXPECT_EQ(frequencies, expected);
  return result;
}

Decoded decode(const Symbols& source, size_t capacity) {
  const GuardedBuffer src(source.size() * sizeof(uint16_t));
  std::copy(source.begin(), source.end(), src.as<uint16_t>());
  const GuardedBuffer dst(capacity);
  const uint16_t* pSrc = src.as<uint16_t>();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status = zebsDecodeZ1Z2_BZ2_16u8u(&pSrc, &srcLen, dst.data(), &dstLen);
  EXPECT_EQ(pSrc + srcLen, src.as<uint16_t>() + source.size());
  return {status, static_cast<size_t>(pSrc - src.as<uint16_t>()),
          Bytes(dst.begin(), dst.begin() + dstLen)};
}

// Zero runs of all lengths, most of them short, between other bytes.
Bytes withZeroRuns(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  while (out.size() < size) {
    const size_t longest = below(random, 20) == 0 ? 3000 : 6;
    out.insert(out.end(), below(random, longest), 0);
    const size_t others = below(random, 1 + below(random, 12));
    for (size_t i = 0; i < others; ++i) out.push_back(static_cast<uint8_t>(1 + below(random, 255)));
  }
  out.resize(size);
  return out;
}

Bytes zerosThen(size_t zeros, uint8_t byte) {
  Bytes out(zeros);
  out.push_back(byte);
  return out;
}

TEST(ZeroRuns, CheckPointersInOrderBeforeLengths) {
  uint8_t byte = 7;
  uint16_t word = 7;
  const uint8_t* bytes = &byte;
  const uint16_t* words = &word;
  const uint8_t* noBytes = nullptr;
  const uint16_t* noWords = nullptr;
  int zero = 0;
  uint32_t counters[258] = {};
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(nullptr, &zero, &word, &zero, counters), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, nullptr, &word, &zero, counters), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, &zero, nullptr, &zero, counters), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, &zero, &word, nullptr, counters), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, &zero, &word, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&noBytes, &zero, &word, &zero, counters), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(nullptr, &zero, &byte, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&words, nullptr, &byte, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&words, &zero, nullptr, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&words, &zero, &byte, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&noWords, &zero, &byte, &zero), zebErrNullPtr);
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(word, 7);
  EXPECT_EQ(zero, 0);
}

TEST(ZeroRuns, RefuseLengthsBelowOne) {
  uint8_t byte = 7;
  uint16_t word = 7;
  uint32_t counters[258] = {};
  for (const int bad : {0, -1, INT32_MIN}) {
    const uint8_t* bytes = &byte;
    const uint16_t* words = &word;
    int good = 1;
    int len = bad;
    EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, &len, &word, &good, counters), zebErrSize);
    EXPECT_EQ(zebsEncodeZ1Z2_BZ2_8u16u(&bytes, &good, &word, &len, counters), zebErrSize);
    EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&words, &len, &byte, &good), zebErrSize);
    EXPECT_EQ(zebsDecodeZ1Z2_BZ2_16u8u(&words, &good, &byte, &len), zebErrSize);
    EXPECT_EQ(len, bad);
    EXPECT_EQ(good, 1);
  }
  EXPECT_EQ(counters[8], 0u);
}

TEST(EncodeZeroRuns, WritesRunsInBijectiveBaseTwo) {
  EXPECT_EQ(encode({0}, 30).out, Symbols({runA}));
  EXPECT_EQ(encode({0, 0}, 30).out, Symbols({runB}));
  EXPECT_EQ(encode(Bytes(3), 30).out, Symbols({runA, runA}));
  EXPECT_EQ(encode(Bytes(4), 30).out, Symbols({runB, runA}));
  EXPECT_EQ(encode(Bytes(5), 30).out, Symbols({runA, runB}));
  EXPECT_EQ(encode(Bytes(6), 30).out, Symbols({runB, runB}));
  EXPECT_EQ(encode(Bytes(7), 30).out, Symbols({runA, runA, runA}));
  EXPECT_EQ(encode({255, 1}, 30).out, Symbols({256, 2}));
}

TEST(EncodeZeroRuns, CountsTheSymbols) {
  Counters frequencies(257);
  EXPECT_EQ(encode({0, 0, 0, 5, 0}, 30, frequencies).out, Symbols({runA, runA, 6, runA}));
  Counters expected(257);
  expected[0] = 3;
  expected[6] = 1;
  EXPECT_EQ(frequencies, expected);
}

TEST(EncodeZeroRuns, RoomOfTwentyTakesNoRunInFrontOfAByte) {
  EXPECT_EQ(encode({0, 7}, 21), (Encoded{zebOk, 2, {runA, 8}}));
  EXPECT_EQ(encode({0, 7}, 20), (Encoded{zebWarnDstFull, 0, {}}));
  EXPECT_EQ(encode({0, 7}, 19), (Encoded{zebOk, 2, {runA, 8}}));
  EXPECT_EQ(encode({7, 0, 7}, 21), (Encoded{zebWarnDstFull, 1, {8}}));
  EXPECT_EQ(encode({7, 0}, 21), (Encoded{zebOk, 2, {8, runA}}));
  EXPECT_EQ(encode({7, 7, 7}, 20), (Encoded{zebOk, 3, {8, 8, 8}}));
}

TEST(EncodeZeroRuns, LongestRunForEachSmallRoom) {
  for (size_t room = 1; room < 20; ++room) {
    const size_t longest = (size_t{2} << room) - 2;
    const Symbols numeral(room, runB);
    EXPECT_EQ(encode(Bytes(longest), room), (Encoded{zebOk, longest, numeral}));
    EXPECT_EQ(encode(Bytes(longest + 1), room), (Encoded{zebWarnDstFull, longest, numeral}));
    EXPECT_EQ(encode(zerosThen(longest + 1, 9), room), (Encoded{zebWarnDstFull, longest, numeral}));
    // The numeral just fits, the byte behind it does not.
    EXPECT_EQ(encode(zerosThen(longest, 9), room), (Encoded{zebWarnDstFull, longest, numeral}));
  }
}

TEST(EncodeZeroRuns, RunsOfMoreThanTheReserveStayInsideTheRoom) {
  const size_t longest = (size_t{2} << 20) - 2;
  EXPECT_EQ(encode(zerosThen(longest, 9), 21).status, zebOk);
  const Bytes longer = zerosThen(longest + 1, 9);
  EXPECT_EQ(encode(longer, 21), (Encoded{zebWarnDstFull, longest + 1, Symbols(21, runA)}));
  EXPECT_EQ(encode(Bytes(longest + 5), 20), (Encoded{zebWarnDstFull, longest, Symbols(20, runB)}));
}

TEST(EncodeZeroRuns, MatchesThePlainRuleForAnyRoom) {
  Random random(1);
  for (int round = 0; round < 3000; ++round) {
    const Bytes source = withZeroRuns(1 + below(random, 1 + below(random, 1500)), random());
    const size_t capacity = 1 + below(random, round % 2 == 0 ? source.size() + 150 : 60);
    ASSERT_EQ(encode(source, capacity), test::plainEncodeZeroRuns(source, capacity));
  }
}

TEST(DecodeZeroRuns, NeedsRoomForTheByteBehindARun) {
  const Symbols run = {runB, runA, runA};
  EXPECT_EQ(decode(run, 8), (Decoded{zebOk, 3, Bytes(8)}));
  EXPECT_EQ(decode(run, 7), (Decoded{zebWarnDstFull, 3, {}}));
  const Symbols withByte = {runB, runA, runA, 5};
  EXPECT_EQ(decode(withByte, 9), (Decoded{zebOk, 4, zerosThen(8, 4)}));
  EXPECT_EQ(decode(withByte, 8), (Decoded{zebWarnDstFull, 3, {}}));
  EXPECT_EQ(decode({5, 6}, 1), (Decoded{zebWarnDstFull, 1, {4}}));
}

TEST(DecodeZeroRuns, TruncatesSymbolsAbove256) {
  EXPECT_EQ(decode({256, 257, 258, 65535}, 9), (Decoded{zebOk, 4, {255, 0, 1, 254}}));
}

TEST(DecodeZeroRuns, RunsThatNoRoomHoldsAreRefused) {
  for (const size_t digits : {30, 31, 32, 62, 63, 64, 65, 200, 5000}) {
    for (const uint16_t digit : {runA, runB}) {
      Symbols source(digits, digit);
      EXPECT_EQ(decode(source, 100000), (Decoded{zebWarnDstFull, digits, {}})) << digits;
      source.push_back(9);
      EXPECT_EQ(decode(source, 100000), (Decoded{zebWarnDstFull, digits, {}})) << digits;
    }
  }
}

TEST(DecodeZeroRuns, MatchesThePlainRuleForAnySymbolsAndRooms) {
  Random random(2);
  for (int round = 0; round < 2000; ++round) {
    Symbols source = encode(withZeroRuns(1 + below(random, 1500), random()), 4000).out;
    if (round % 3 == 0) {
      for (uint16_t& symbol : source) {
        if (below(random, 10) == 0) symbol = static_cast<uint16_t>(random() >> below(random, 16));
      }
    }
    const size_t capacity = 1 + below(random, round % 2 == 0 ? 40000 : 1500);
    ASSERT_EQ(decode(source, capacity), test::plainDecodeZeroRuns(source, capacity));
  }
}

TEST(ZeroRuns, RoundTripAllKindsOfData) {
  for (const size_t size : {1, 63, 64, 65, 1000, 70000}) {
    auto inputs = test::oneOfEachKind(size);
    inputs.push_back({"runs of zeros", withZeroRuns(size, 1)});
    for (const auto& [name, source] : inputs) {
      SCOPED_TRACE(name);
      const Encoded code = encode(source, size + 20);
      EXPECT_EQ(code, test::plainEncodeZeroRuns(source, size + 20));
      EXPECT_LE(code.out.size(), size);
      EXPECT_EQ(decode(code.out, size), (Decoded{zebOk, code.out.size(), source}));
    }
  }
}

}  // namespace
}  // namespace zebdc
