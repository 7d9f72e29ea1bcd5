// Plain run-length coding.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <span>

#include "lz/plain_rle.h"
#include "support/data.h"
#include "support/guarded_buffer.h"
#include "support/sanitizers.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::PlainProgress;
using test::Random;

constexpr size_t largeSizeStep = test::underSanitizers ? 16 : 1;

using Coder = ZebStatus (*)(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen);
using PlainCoder = PlainProgress (*)(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                     size_t capacity);

struct Result {
  ZebStatus status;
  size_t consumed;
  Bytes out;

  bool operator==(const Result&) const = default;
};

// One call, source and room ending at inaccessible pages.
Result call(Coder coder, std::span<const uint8_t> source, size_t capacity) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(capacity);
  const uint8_t* pSrc = src.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(capacity);
  const ZebStatus status = coder(&pSrc, &srcLen, dst.data(), &dstLen);
  const size_t consumed = static_cast<size_t>(pSrc - src.data());
  EXPECT_EQ(consumed + static_cast<size_t>(srcLen), source.size());
  return {status, consumed, Bytes(dst.begin(), dst.begin() + dstLen)};
}

Result callPlain(PlainCoder coder, std::span<const uint8_t> source, size_t capacity) {
  Bytes out(capacity);
  const PlainProgress progress = coder(source.data(), source.size(), out.data(), capacity);
  out.resize(progress.written);
  return {progress.consumed < source.size() ? zebWarnDstFull : zebOk, progress.consumed, out};
}

size_t worstCase(size_t size) {
  return size + size / 2 + 2;
}

Bytes encoded(const Bytes& source) {
  const Result result = call(zebsEncodeRLE_8u, source, worstCase(source.size()));
  EXPECT_EQ(result.status, zebOk);
  return result.out;
}

Bytes times(size_t count, uint8_t byte) {
  return Bytes(count, byte);
}

// Bytes in which runs of chosen lengths stand at every place in the coder's blocks.
Bytes withRuns(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out = test::randomBytes(size, seed);
  for (size_t at = 0; at < size; at += below(random, 150)) {
    const size_t length = std::min(size - at, 1 + below(random, 1 + below(random, 300)));
    std::fill_n(out.begin() + static_cast<ptrdiff_t>(at), length, out[at]);
    at += length;
  }
  return out;
}

TEST(Rle, ChecksPointersInOrderBeforeLengths) {
  uint8_t byte = 7;
  const uint8_t* source = &byte;
  const uint8_t* null = nullptr;
  for (const Coder coder : {zebsEncodeRLE_8u, zebsDecodeRLE_8u}) {
    int zero = 0;
    EXPECT_EQ(coder(nullptr, &zero, &byte, &zero), zebErrNullPtr);
    EXPECT_EQ(coder(&source, nullptr, &byte, &zero), zebErrNullPtr);
    EXPECT_EQ(coder(&source, &zero, nullptr, &zero), zebErrNullPtr);
    EXPECT_EQ(coder(&source, &zero, &byte, nullptr), zebErrNullPtr);
    EXPECT_EQ(coder(&null, &zero, &byte, &zero), zebErrNullPtr);
    EXPECT_EQ(zero, 0);
  }
  EXPECT_EQ(source, &byte);
  EXPECT_EQ(byte, 7);
}

TEST(Rle, RefusesLengthsBelowOne) {
  const uint8_t in = 1;
  uint8_t out = 7;
  for (const Coder coder : {zebsEncodeRLE_8u, zebsDecodeRLE_8u}) {
    for (const int bad : {0, -1, INT32_MIN}) {
      const uint8_t* source = &in;
      int good = 1;
      int length = bad;
      EXPECT_EQ(coder(&source, &length, &out, &good), zebErrSize);
      EXPECT_EQ(coder(&source, &good, &out, &length), zebErrSize);
      EXPECT_EQ(length, bad);
      EXPECT_EQ(good, 1);
      EXPECT_EQ(source, &in);
    }
  }
  EXPECT_EQ(out, 7);
}

TEST(EncodeRle, AnnouncesRunsByTwoBytesAndACount) {
  EXPECT_EQ(encoded({'a'}), Bytes({'a'}));
  EXPECT_EQ(encoded({'a', 'b'}), Bytes({'a', 'b'}));
  EXPECT_EQ(encoded({'a', 'a'}), Bytes({'a', 'a', 0}));
  EXPECT_EQ(encoded({'a', 'a', 'a'}), Bytes({'a', 'a', 1}));
  EXPECT_EQ(encoded({'x', 'a', 'a', 'x'}), Bytes({'x', 'a', 'a', 0, 'x'}));
}

TEST(EncodeRle, SplitsRunsLongerThan257) {
  EXPECT_EQ(encoded(times(257, 'b')), Bytes({'b', 'b', 255}));
  EXPECT_EQ(encoded(times(258, 'b')), Bytes({'b', 'b', 255, 'b'}));
  EXPECT_EQ(encoded(times(259, 'b')), Bytes({'b', 'b', 255, 'b', 'b', 0}));
  EXPECT_EQ(encoded(times(514, 'b')), Bytes({'b', 'b', 255, 'b', 'b', 255}));
}

TEST(EncodeRle, FillsTheLastTwoPlacesWithPlainCopies) {
  EXPECT_EQ(call(zebsEncodeRLE_8u, times(9, 'a'), 1), (Result{zebWarnDstFull, 1, {'a'}}));
  EXPECT_EQ(call(zebsEncodeRLE_8u, times(9, 'a'), 2), (Result{zebWarnDstFull, 2, {'a', 'a'}}));
  EXPECT_EQ(call(zebsEncodeRLE_8u, times(2, 'a'), 2), (Result{zebOk, 2, {'a', 'a'}}));
  EXPECT_EQ(call(zebsEncodeRLE_8u, times(9, 'a'), 3), (Result{zebOk, 9, {'a', 'a', 7}}));
  const Bytes source = {'x', 'a', 'a', 'a', 'a'};
  EXPECT_EQ(call(zebsEncodeRLE_8u, source, 3), (Result{zebWarnDstFull, 3, {'x', 'a', 'a'}}));
  EXPECT_EQ(call(zebsEncodeRLE_8u, source, 4), (Result{zebOk, 5, {'x', 'a', 'a', 2}}));
}

TEST(EncodeRle, WorstCaseIsTwoByteRuns) {
  for (size_t size = 1; size < 400; ++size) {
    Bytes source(size);
    for (size_t i = 0; i < size; ++i) source[i] = static_cast<uint8_t>(i / 2);
    EXPECT_EQ(encoded(source).size(), size / 2 * 3 + size % 2);
  }
}

TEST(DecodeRle, LastTwoBytesAreCopiedAsTheyAre) {
  const auto decode = [](const Bytes& source, size_t capacity) {
    return call(zebsDecodeRLE_8u, source, capacity);
  };
  EXPECT_EQ(decode({'a', 'a'}, 5), (Result{zebOk, 2, {'a', 'a'}}));
  EXPECT_EQ(decode({'x', 'a', 'a'}, 5), (Result{zebOk, 3, {'x', 'a', 'a'}}));
  EXPECT_EQ(decode({'a', 'a'}, 1), (Result{zebWarnDstFull, 1, {'a'}}));
  EXPECT_EQ(decode({'x', 'a', 'a'}, 1), (Result{zebWarnDstFull, 1, {'x'}}));
}

TEST(DecodeRle, RunThatDoesNotFitStaysInTheSource) {
  const Bytes source = {'x', 'a', 'a', 3, 'y'};
  for (size_t capacity = 1; capacity < 6; ++capacity) {
    EXPECT_EQ(call(zebsDecodeRLE_8u, source, capacity), (Result{zebWarnDstFull, 1, {'x'}}));
  }
  EXPECT_EQ(call(zebsDecodeRLE_8u, source, 6),
            (Result{zebWarnDstFull, 4, test::fromText("xaaaaa")}));
  EXPECT_EQ(call(zebsDecodeRLE_8u, source, 7), (Result{zebOk, 5, test::fromText("xaaaaay")}));
}

TEST(DecodeRle, CountsAreNotTakenForBytesOfThePair) {
  EXPECT_EQ(call(zebsDecodeRLE_8u, Bytes{0, 0, 0, 0, 0, 0, 5}, 9),
            (Result{zebOk, 7, {0, 0, 0, 0, 5}}));
}

TEST(Rle, RoundTripsAtEverySmallSize) {
  for (size_t size = 1; size <= 700; ++size) {
    const Bytes source = withRuns(size, size);
    const Bytes code = encoded(source);
    EXPECT_EQ(call(zebsDecodeRLE_8u, code, size), (Result{zebOk, code.size(), source}));
  }
}

TEST(Rle, RoundTripsAtAllSizesUpTo70000) {
  constexpr size_t largest = 70'000;
  constexpr size_t variedEnd = 500;
  GuardedBuffer source(largest);
  for (size_t i = 0; i < largest; ++i) source[i] = static_cast<uint8_t>(i / 1000);
  const Bytes end = withRuns(variedEnd, 9);
  std::copy(end.begin(), end.end(), source.end() - variedEnd);

  const GuardedBuffer code(worstCase(largest));
  const GuardedBuffer room(largest);
  for (size_t size = 1; size <= largest; size += size < 1000 ? 1 : largeSizeStep) {
    const uint8_t* pSrc = source.end() - size;
    uint8_t* const stream = code.end() - worstCase(size);
    int srcLen = static_cast<int>(size);
    int streamLen = static_cast<int>(worstCase(size));
    ASSERT_EQ(zebsEncodeRLE_8u(&pSrc, &srcLen, stream, &streamLen), zebOk);
    pSrc = stream;
    uint8_t* const dst = room.end() - size;
    memset(dst, 0xCD, size);
    int dstLen = static_cast<int>(size);
    ASSERT_EQ(zebsDecodeRLE_8u(&pSrc, &streamLen, dst, &dstLen), zebOk);
    ASSERT_EQ(dstLen, static_cast<int>(size));
    ASSERT_EQ(memcmp(source.end() - size, dst, size), 0) << size;
  }
}

TEST(DecodeRle, TruncationAtEveryByte) {
  const Bytes code = encoded(withRuns(1500, 10));
  for (size_t size = 1; size <= code.size(); ++size) {
    const auto cut = std::span(code).first(size);
    for (const size_t capacity : {size_t{100}, size_t{1500}, size_t{5000}}) {
      ASSERT_EQ(call(zebsDecodeRLE_8u, cut, capacity),
                callPlain(test::plainDecodeRle, cut, capacity));
    }
  }
}

TEST(Rle, RoundTripsAllKindsOfData) {
  for (const size_t size : {1000, 65536, 70000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      const Bytes code = encoded(source);
      EXPECT_EQ(call(zebsDecodeRLE_8u, code, size), (Result{zebOk, code.size(), source}));
    }
  }
}

// Any bytes are valid for both directions; any room ends a call somewhere.
TEST(Rle, MatchesThePlainRenderingForAnyBytesAndRooms) {
  Random random(5);
  for (int round = 0; round < 3000; ++round) {
    const size_t size = 1 + below(random, 1 + below(random, 600));
    const Bytes source =
        round % 2 == 0 ? withRuns(size, random()) : test::skewed(size, random(), 9);
    const size_t capacity = 1 + below(random, round % 3 == 0 ? 2 * size : size);
    EXPECT_EQ(call(zebsEncodeRLE_8u, source, capacity),
              callPlain(test::plainEncodeRle, source, capacity));
    EXPECT_EQ(call(zebsDecodeRLE_8u, source, 40 * capacity),
              callPlain(test::plainDecodeRle, source, 40 * capacity));
    EXPECT_EQ(call(zebsDecodeRLE_8u, source, capacity),
              callPlain(test::plainDecodeRle, source, capacity));
  }
}

TEST(Rle, MutatedStreamsDecodeLikeThePlainRendering) {
  Random random(6);
  const Bytes code = encoded(withRuns(500, 1));
  for (int round = 0; round < 20'000; ++round) {
    const Bytes hostile = test::mutated(code, random);
    const size_t capacity = 1 + below(random, 2000);
    ASSERT_EQ(call(zebsDecodeRLE_8u, hostile, capacity),
              callPlain(test::plainDecodeRle, hostile, capacity));
  }
}

// Pieces of the source may be cut anywhere: each call codes its piece for itself. Decoding goes on
// piece by piece too, as long as every cut is one that the encoder's calls made.
TEST(Rle, PiecewiseCodingDecodesToTheWhole) {
  Random random(7);
  for (int round = 0; round < 300; ++round) {
    const Bytes source = withRuns(1 + below(random, 2000), random());
    Bytes decoded;
    for (size_t at = 0; at < source.size();) {
      const size_t piece = std::min(source.size() - at, 1 + below(random, 1 + below(random, 300)));
      const Bytes part(source.begin() + static_cast<ptrdiff_t>(at),
                       source.begin() + static_cast<ptrdiff_t>(at + piece));
      const Result result = call(zebsDecodeRLE_8u, encoded(part), piece);
      ASSERT_EQ(result.status, zebOk);
      decoded.insert(decoded.end(), result.out.begin(), result.out.end());
      at += piece;
    }
    ASSERT_EQ(decoded, source);
  }
}

// A whole stream comes out the same however small the rooms are, as long as every run fits.
TEST(DecodeRle, ContinuesWhereTheRoomRanOut) {
  Random random(8);
  for (int round = 0; round < 300; ++round) {
    const Bytes source = withRuns(1 + below(random, 3000), random());
    const Bytes code = encoded(source);
    Bytes decoded;
    size_t at = 0;
    while (at < code.size()) {
      const Result result =
          call(zebsDecodeRLE_8u, std::span(code).subspan(at), 257 + below(random, 300));
      decoded.insert(decoded.end(), result.out.begin(), result.out.end());
      at += result.consumed;
      ASSERT_EQ(result.status, at < code.size() ? zebWarnDstFull : zebOk);
    }
    ASSERT_EQ(decoded, source);
  }
}

}  // namespace
}  // namespace zebdc
