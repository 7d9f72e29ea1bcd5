// LZSS.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <bitset>
#include <deque>
#include <span>

#include "lz/lzss_helpers.h"
#include "lz/plain_lzss.h"
#include "support/data.h"
#include "support/guarded_buffer.h"
#include "support/sanitizers.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::callLzss;
using test::flushLzss;
using test::GuardedBuffer;
using test::lzssWorstCase;
using test::Random;
using test::randomBytes;
using FlushResult = test::LzssFlushResult;
using Record = test::LzssRecord;
using Result = test::LzssResult;

constexpr int mutationRounds = test::underSanitizers ? 20'000 : 60'000;

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

Bytes encoded(const Bytes& source) {
  const Record record(zebsEncodeLZSSInit_8u);
  Result result = callLzss(zebsEncodeLZSS_8u, record, source, lzssWorstCase(source.size()));
  EXPECT_EQ(result.status, zebOk);
  EXPECT_EQ(result.consumed, source.size());
  append(result.out, flushLzss(record, 4).out);
  return result.out;
}

Bytes decoded(const Bytes& stream, size_t room) {
  const Record record(zebsDecodeLZSSInit_8u);
  return callLzss(zebsDecodeLZSS_8u, record, stream, room).out;
}

// ---- Records and arguments

TEST(Lzss, RecordHas327744Bytes) {
  int size = 0;
  EXPECT_EQ(zebsLZSSGetSize_8u(&size), zebOk);
  EXPECT_EQ(size, 327744);
  EXPECT_EQ(zebsLZSSGetSize_8u(nullptr), zebErrNullPtr);
}

TEST(Lzss, InitRefusesNull) {
  EXPECT_EQ(zebsEncodeLZSSInit_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZSSInit_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZSSInitAlloc_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeLZSSInitAlloc_8u(nullptr), zebErrNullPtr);
}

TEST(Lzss, AllocatedRecordsServe) {
  ZebLZSSState_8u* encoder = nullptr;
  ZebLZSSState_8u* decoder = nullptr;
  ASSERT_EQ(zebsEncodeLZSSInitAlloc_8u(&encoder), zebOk);
  ASSERT_EQ(zebsDecodeLZSSInitAlloc_8u(&decoder), zebOk);
  const Bytes source = test::textLike(1000, 1);
  Bytes code(lzssWorstCase(source.size()));
  const uint8_t* pSrc = source.data();
  uint8_t* pDst = code.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(code.size());
  EXPECT_EQ(zebsEncodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, encoder), zebOk);
  EXPECT_EQ(zebsEncodeLZSSFlush_8u(&pDst, &dstLen, encoder), zebOk);
  code.resize(static_cast<size_t>(pDst - code.data()));
  EXPECT_EQ(code, encoded(source));

  Bytes whole(source.size() + 1);
  pSrc = code.data();
  pDst = whole.data();
  srcLen = static_cast<int>(code.size());
  dstLen = static_cast<int>(whole.size());
  EXPECT_EQ(zebsDecodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, decoder), zebOk);
  EXPECT_EQ(dstLen, 1);
  whole.pop_back();
  EXPECT_EQ(whole, source);
  zebsLZSSFree_8u(encoder);
  zebsLZSSFree_8u(decoder);
  zebsLZSSFree_8u(nullptr);
}

TEST(Lzss, CodersCheckPointersInOrderBeforeLengths) {
  const Record encoder(zebsEncodeLZSSInit_8u);
  const Record decoder(zebsDecodeLZSSInit_8u);
  uint8_t byte = 7;
  const uint8_t* src = &byte;
  uint8_t* dst = &byte;
  const uint8_t* nullSrc = nullptr;
  uint8_t* nullDst = nullptr;
  for (const auto& [coder, state] : {std::pair{&zebsEncodeLZSS_8u, encoder.state()},
                                     std::pair{&zebsDecodeLZSS_8u, decoder.state()}}) {
    int bad = -1;
    EXPECT_EQ(coder(nullptr, &bad, &dst, &bad, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, nullptr, &dst, &bad, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, &bad, nullptr, &bad, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, &bad, &dst, nullptr, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, &bad, &dst, &bad, nullptr), zebErrNullPtr);
    EXPECT_EQ(coder(&nullSrc, &bad, &dst, &bad, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, &bad, &nullDst, &bad, state), zebErrNullPtr);
    EXPECT_EQ(coder(&src, &bad, &dst, &bad, state), zebErrSize);
    int good = 1;
    EXPECT_EQ(coder(&src, &bad, &dst, &good, state), zebErrSize);
    EXPECT_EQ(coder(&src, &good, &dst, &bad, state), zebErrSize);
    EXPECT_EQ(good, 1);
    EXPECT_EQ(bad, -1);
  }
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(dst, &byte);
  EXPECT_EQ(byte, 7);
}

TEST(Lzss, FlushChecksPointersBeforeLengths) {
  const Record record(zebsEncodeLZSSInit_8u);
  uint8_t byte = 7;
  uint8_t* dst = &byte;
  uint8_t* null = nullptr;
  int bad = 0;
  EXPECT_EQ(zebsEncodeLZSSFlush_8u(nullptr, &bad, record.state()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZSSFlush_8u(&dst, nullptr, record.state()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZSSFlush_8u(&dst, &bad, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZSSFlush_8u(&null, &bad, record.state()), zebErrNullPtr);
  for (const int length : {0, -1, INT32_MIN}) {
    bad = length;
    EXPECT_EQ(zebsEncodeLZSSFlush_8u(&dst, &bad, record.state()), zebErrSize);
    EXPECT_EQ(bad, length);
  }
  EXPECT_EQ(byte, 7);
}

TEST(EncodeLzss, NoRoomComesBeforeNoSource) {
  const Record record(zebsEncodeLZSSInit_8u);
  const Bytes some = {1, 2, 3};
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, some, 0), (Result{zebWarnDstFull, 0, {}}));
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, {}, 0), (Result{zebWarnDstFull, 0, {}}));
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, {}, 5), (Result{zebOk, 0, {}}));
}

TEST(DecodeLzss, TakesAnEmptySourceButNoEmptyRoom) {
  const Record record(zebsDecodeLZSSInit_8u);
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, {}, 5), (Result{zebOk, 0, {}}));
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, {}, 0), (Result{zebErrSize, 0, {}}));
}

// ---- What the encoder writes

// The bytes of a row of bits.
Bytes packed(std::string_view bits) {
  Bytes out;
  size_t count = 0;
  for (const char bit : bits) {
    if (bit == ' ') continue;
    if (count % 8 == 0) out.push_back(0);
    if (bit == '1') out.back() |= static_cast<uint8_t>(0x80 >> count % 8);
    ++count;
  }
  return out;
}

TEST(EncodeLzss, WorkedExample) {
  EXPECT_EQ(encoded(test::fromText("aaaaaaaa")), Bytes({0xB0, 0x80, 0x00, 0x81, 0x58, 0x6C, 0x20}));
}

TEST(EncodeLzss, ThreeEqualBytesAreThreeLiterals) {
  EXPECT_EQ(encoded(test::fromText("aaa")), packed("1 01100001 1 01100001 1 01100001"));
}

TEST(EncodeLzss, RunOf258BehindALiteralIsAMatchOfAllButTwo) {
  const Bytes source(259, 'a');
  // 259 - 1 - 2 = 256 = 253 + 3.
  EXPECT_EQ(encoded(source), packed("1 01100001 0 000000000000001 11111101 1 01100001 1 01100001"));
  EXPECT_EQ(encoded(Bytes(261, 'a')),
            packed("1 01100001 0 000000000000001 11111111 1 01100001 1 01100001"));
}

TEST(EncodeLzss, DistancesReach32767AndNoFarther) {
  const auto sizeWithDistance = [](size_t distance) {
    const Bytes needle = test::fromText("needle");
    Bytes source = needle;
    source.resize(distance, 0);
    append(source, needle);
    append(source, {1, 2});
    const Bytes stream = encoded(source);
    EXPECT_EQ(decoded(stream, source.size()), source);
    return stream.size();
  };
  // A match has 24 bits, six literals have 54.
  EXPECT_EQ(sizeWithDistance(32767), sizeWithDistance(32766));
  EXPECT_GE(sizeWithDistance(32768), sizeWithDistance(32767) + 3);
}

TEST(EncodeLzss, MatchesReachIntoTheBytesOfEarlierCalls) {
  const Record record(zebsEncodeLZSSInit_8u);
  const Bytes block = randomBytes(2000, 1);
  Bytes stream = callLzss(zebsEncodeLZSS_8u, record, block, 4000).out;
  const size_t first = stream.size();
  append(stream, callLzss(zebsEncodeLZSS_8u, record, block, 4000).out);
  append(stream, flushLzss(record, 4).out);
  EXPECT_LT(stream.size() - first, 50u);
  Bytes twice = block;
  append(twice, block);
  EXPECT_EQ(decoded(stream, 4000), twice);
}

// The encoder's calls and flushes by the rules, on top of the plain tokens.
class PlainStream {
 public:
  Result encode(std::span<const uint8_t> source, size_t room) {
    if (room == 0) return {zebWarnDstFull, 0, {}};
    if (source.empty()) return {zebOk, 0, {}};
    Bytes out;
    drain(out, room);
    size_t at = 0;
    while (at < source.size() && out.size() < room) {
      const test::PlainToken token = tokens_.next(source.data() + at, source.size() - at);
      for (const bool bit : bitsOf(token)) bits_.push_back(bit);
      at += token.length;
      drain(out, room);
    }
    return {out.size() == room ? zebWarnDstFull : zebOk, at, out};
  }

  FlushResult flush(size_t room) {
    Bytes out;
    std::deque<bool> left = bits_;
    while (!left.empty() && out.size() < room) out.push_back(takeByte(left));
    if (out.size() < room) return {zebOk, out};
    bits_ = left;
    return {zebWarnDstFull, out};
  }

 private:
  static uint8_t takeByte(std::deque<bool>& bits) {
    int byte = 0;
    for (int i = 0; i < 8; ++i) {
      byte <<= 1;
      if (bits.empty()) continue;
      byte |= bits.front() ? 1 : 0;
      bits.pop_front();
    }
    return static_cast<uint8_t>(byte);
  }

  void drain(Bytes& out, size_t room) {
    while (bits_.size() >= 8 && out.size() < room) out.push_back(takeByte(bits_));
  }

  test::PlainLzssEncoder tokens_;
  std::deque<bool> bits_;
};

TEST(EncodeLzss, WritesThePlainTokensOfAllKindsOfData) {
  for (const size_t size : {3, 4, 5, 100, 300, 5000, 80'000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      ASSERT_EQ(encoded(source), test::plainEncodeLzss(source));
    }
  }
}

// Pieces and rooms of all sizes, from one byte to more than the history holds.
size_t anyPiece(Random& random) {
  constexpr size_t limits[] = {2, 5, 20, 300, 3000, 40'000};
  return 1 + below(random, limits[below(random, 6)]);
}

Bytes manyKinds(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  while (out.size() < size) {
    const size_t length = 1 + below(random, 3000);
    switch (below(random, 4)) {
      case 0:
        append(out, randomBytes(below(random, 100), random()));
        break;
      case 1:
        append(out, test::textLike(length, below(random, 3)));
        break;
      case 2:
        append(out, test::skewed(length, random(), 6));
        break;
      default:
        append(out, test::runs(below(random, 600), random()));
        break;
    }
  }
  out.resize(size);
  return out;
}

TEST(EncodeLzss, PiecesGiveThePlainStreamCallByCall) {
  Random random(3);
  for (int round = 0; round < 12; ++round) {
    const Bytes source = manyKinds(round == 0 ? 300'000 : 20'000 + below(random, 60'000), random());
    const Record record(zebsEncodeLZSSInit_8u);
    PlainStream plain;
    Bytes stream;
    for (size_t at = 0; at < source.size();) {
      const auto piece =
          std::span(source).subspan(at, std::min(anyPiece(random), source.size() - at));
      const size_t room = below(random, 8) == 0 ? below(random, 4) : anyPiece(random);
      const Result result = callLzss(zebsEncodeLZSS_8u, record, piece, room);
      ASSERT_EQ(result, plain.encode(piece, room));
      at += result.consumed;
      append(stream, result.out);
    }
    for (;;) {
      const size_t room = 1 + below(random, 3);
      const FlushResult result = flushLzss(record, room);
      ASSERT_EQ(result, plain.flush(room));
      append(stream, result.out);
      if (result.status == zebOk) break;
    }
    ASSERT_EQ(decoded(stream, source.size()), source);
  }
}

TEST(EncodeLzss, ByteByByte) {
  const Bytes source = test::textLike(3000, 4);
  const Record record(zebsEncodeLZSSInit_8u);
  Bytes stream;
  for (size_t at = 0; at < source.size();) {
    const Result result = callLzss(zebsEncodeLZSS_8u, record, std::span(source).subspan(at, 1), 1);
    at += result.consumed;
    append(stream, result.out);
  }
  append(stream, flushLzss(record, 4).out);
  // Nothing but literals: each call's last two bytes are.
  EXPECT_EQ(stream.size(), (9 * source.size() + 7) / 8);
  EXPECT_EQ(decoded(stream, source.size()), source);
}

TEST(EncodeLzss, WarningKeepsBitsForTheNextCall) {
  const Record record(zebsEncodeLZSSInit_8u);
  const Bytes source = {0xAA, 0xBB, 0xCC};
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, source, 1), (Result{zebWarnDstFull, 1, {0xD5}}));
  // One bit is pending; another literal has 9.
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, std::span(source).subspan(1), 1),
            (Result{zebWarnDstFull, 1, {0x6E}}));
  EXPECT_EQ(flushLzss(record, 1), (FlushResult{zebWarnDstFull, {0xC0}}));
  EXPECT_EQ(flushLzss(record, 1), (FlushResult{zebOk, {}}));
}

TEST(EncodeLzss, WholePendingBytesGoOutBeforeANewToken) {
  const Record record(zebsEncodeLZSSInit_8u);
  const Bytes source(300, 'a');
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, source, 2).consumed, 1u + 258u);
  // The match has 24 bits, of which 7 went out: 17 are pending.
  const auto rest = std::span(source).subspan(259);
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, {}, 1), (Result{zebOk, 0, {}}));
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, rest, 1).consumed, 0u);
  EXPECT_EQ(callLzss(zebsEncodeLZSS_8u, record, rest, 1).consumed, 0u);
  EXPECT_GT(callLzss(zebsEncodeLZSS_8u, record, rest, 1).consumed, 0u);
}

TEST(EncodeLzss, SecondFlushWritesTheSameBitsAgain) {
  const Record record(zebsEncodeLZSSInit_8u);
  callLzss(zebsEncodeLZSS_8u, record, Bytes{0xAA}, 5);
  EXPECT_EQ(flushLzss(record, 2), (FlushResult{zebOk, {0x00}}));
  EXPECT_EQ(flushLzss(record, 2), (FlushResult{zebOk, {0x00}}));
  EXPECT_EQ(flushLzss(record, 1), (FlushResult{zebWarnDstFull, {0x00}}));
  EXPECT_EQ(flushLzss(record, 1), (FlushResult{zebOk, {}}));
}

TEST(EncodeLzss, InitBeginsANewStream) {
  const Record record(zebsEncodeLZSSInit_8u);
  const Bytes source = test::textLike(50'000, 5);
  Bytes first;
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(zebsEncodeLZSSInit_8u(record.state()), zebOk);
    Bytes stream = callLzss(zebsEncodeLZSS_8u, record, source, lzssWorstCase(source.size())).out;
    append(stream, flushLzss(record, 4).out);
    if (round == 0) first = stream;
    EXPECT_EQ(stream, first);
  }
}

// ---- Decoding

TEST(Lzss, RoundTripsAtManySizes) {
  const Bytes whole = manyKinds(70'000, 6);
  for (size_t size = 1; size <= whole.size(); size += size < 300 ? 1 : 1 + size / 29) {
    const Bytes source(whole.end() - static_cast<ptrdiff_t>(size), whole.end());
    const Bytes stream = encoded(source);
    ASSERT_EQ(decoded(stream, size), source) << size;
    ASSERT_EQ(decoded(stream, size + 400), source) << size;
  }
}

TEST(Lzss, EmptySourceGivesNothing) {
  EXPECT_EQ(encoded({}), Bytes());
}

// All sizes that are small or around the capacities of the history, and every 67th between them.
size_t nextSize(size_t size) {
  for (const size_t middle : {0, 32'768, 65'536}) {
    if (size + 280 >= middle && size < middle + 280) return size + 1;
  }
  return size + 67;
}

// Release builds run all sizes too, as tests of their own.
TEST(Lzss, RoundTripsAtSizesUpTo70000) {
  const test::LzssSizes sizes(manyKinds(300, 12));
  for (size_t size = 1; size <= test::LzssSizes::largest; size = nextSize(size)) {
    ASSERT_NO_FATAL_FAILURE(sizes.roundTrip(size)) << size;
  }
}

TEST(Lzss, RoundTripsAllKindsOfData) {
  for (const auto& [name, source] : test::oneOfEachKind(200'000)) {
    SCOPED_TRACE(name);
    EXPECT_EQ(decoded(encoded(source), source.size()), source);
  }
}

TEST(DecodeLzss, StatusTellsWhatRanOut) {
  const Bytes source = test::fromText("abcabcabcabcxyz");
  const Bytes stream = encoded(source);
  {
    const Record record(zebsDecodeLZSSInit_8u);
    EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, stream, 15),
              (Result{zebWarnDstFull, stream.size(), source}));
  }
  const Record record(zebsDecodeLZSSInit_8u);
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, stream, 16),
            (Result{zebOk, stream.size(), source}));
}

TEST(DecodeLzss, CutMatchGoesOnInTheNextCalls) {
  const Bytes source(100, 'a');
  const Bytes stream = encoded(source);
  const Record record(zebsDecodeLZSSInit_8u);
  Result result = callLzss(zebsDecodeLZSS_8u, record, stream, 10);
  EXPECT_EQ(result.status, zebWarnDstFull);
  EXPECT_EQ(result.out, Bytes(10, 'a'));
  size_t at = result.consumed;
  // 88 bytes are pending; they need no source.
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, {}, 50),
            (Result{zebWarnDstFull, 0, Bytes(50, 'a')}));
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, {}, 38),
            (Result{zebWarnDstFull, 0, Bytes(38, 'a')}));
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, {}, 9), (Result{zebOk, 0, {}}));
  EXPECT_EQ(callLzss(zebsDecodeLZSS_8u, record, std::span(stream).subspan(at), 9).out,
            Bytes(2, 'a'));
}

TEST(DecodeLzss, PiecesOfSourceAndRoomGiveTheWhole) {
  Random random(7);
  for (int round = 0; round < 20; ++round) {
    const Bytes source = manyKinds(30'000 + below(random, 70'000), random());
    const Bytes stream = encoded(source);
    const Record record(zebsDecodeLZSSInit_8u);
    Bytes whole;
    size_t at = 0;
    while (whole.size() < source.size()) {
      const auto piece =
          std::span(stream).subspan(at, std::min(anyPiece(random) - 1, stream.size() - at));
      const size_t room = anyPiece(random);
      const Result result = callLzss(zebsDecodeLZSS_8u, record, piece, room);
      ASSERT_EQ(result.status, result.out.size() == room ? zebWarnDstFull : zebOk);
      if (result.status == zebOk) {
        ASSERT_EQ(result.consumed, piece.size());
      }
      at += result.consumed;
      append(whole, result.out);
    }
    ASSERT_EQ(whole, source);
    // No byte was taken ahead of its token.
    EXPECT_EQ(at, stream.size());
  }
}

TEST(DecodeLzss, ByteByByte) {
  const Bytes source = test::textLike(40'000, 8);
  const Bytes stream = encoded(source);
  const GuardedBuffer src(stream);
  GuardedBuffer dst(1);
  const Record record(zebsDecodeLZSSInit_8u);
  Bytes whole;
  for (size_t at = 0; at < stream.size();) {
    const uint8_t* pSrc = src.data() + at;
    uint8_t* pDst = dst.data();
    int srcLen = 1;
    int dstLen = 1;
    zebsDecodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, record.state());
    at += static_cast<size_t>(1 - srcLen);
    if (dstLen == 0) whole.push_back(dst[0]);
  }
  EXPECT_EQ(whole, source);
}

TEST(DecodeLzss, DistancesBeyondTheOutputReadZerosOrTheWholeWindow) {
  // 'a', then four bytes from distance 3, then four from distance 0, which means 32768.
  const Bytes stream =
      packed("1 01100001 0 000000000000011 00000001 0 000000000000000 00000001 1 01100010");
  EXPECT_EQ(decoded(stream, 100), Bytes({'a', 0, 0, 'a', 0, 0, 0, 0, 0, 'b'}));

  // 32768 literals, 258 bytes from distance 0.
  const Bytes before = randomBytes(32768, 9);
  std::string bits;
  for (const uint8_t byte : before) bits += std::bitset<9>(0x100u | byte).to_string();
  bits += "0 000000000000000 11111111";
  const Bytes whole = decoded(packed(bits), 40'000);
  ASSERT_EQ(whole.size(), 32768u + 258);
  EXPECT_TRUE(std::equal(whole.begin() + 32768, whole.end(), before.begin()));
}

TEST(DecodeLzss, TruncationAtEveryByte) {
  const Bytes source = manyKinds(2000, 10);
  const Bytes stream = encoded(source);
  for (size_t size = 0; size <= stream.size(); ++size) {
    const Bytes cut(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(size));
    const Record record(zebsDecodeLZSSInit_8u);
    ASSERT_EQ(callLzss(zebsDecodeLZSS_8u, record, cut, source.size() + 300),
              (Result{zebOk, size, test::plainDecodeLzss(cut, SIZE_MAX)}));
  }
}

TEST(DecodeLzss, AnyBytesDecodeLikeThePlainRendering) {
  Random random(11);
  const Record record(zebsDecodeLZSSInit_8u);
  const GuardedBuffer source(4096);
  const GuardedBuffer room(8192);
  std::vector<Bytes> streams;
  for (uint64_t seed = 0; seed < 8; ++seed) streams.push_back(encoded(manyKinds(600, seed)));
  for (int round = 0; round < mutationRounds; ++round) {
    const Bytes hostile = round % 4 == 0
                              ? randomBytes(below(random, 200), random())
                              : test::mutated(streams[below(random, streams.size())], random);
    ASSERT_LE(hostile.size(), source.size());
    std::copy(hostile.begin(), hostile.end(), source.end() - hostile.size());
    const size_t capacity = 1 + below(random, room.size());
    const uint8_t* pSrc = source.end() - hostile.size();
    uint8_t* const dst = room.end() - capacity;
    uint8_t* pDst = dst;
    int srcLen = static_cast<int>(hostile.size());
    int dstLen = static_cast<int>(capacity);
    ASSERT_EQ(zebsDecodeLZSSInit_8u(record.state()), zebOk);
    const ZebStatus status = zebsDecodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, record.state());
    ASSERT_EQ(status, dstLen == 0 ? zebWarnDstFull : zebOk);
    ASSERT_EQ(pDst + dstLen, room.end());
    if (round % 8 != 0) continue;
    ASSERT_EQ(Bytes(dst, pDst), test::plainDecodeLzss(hostile, capacity));
  }
}

TEST(DecodeLzss, AnyBytesDecodeTheSameInPieces) {
  Random random(13);
  for (int round = 0; round < 300; ++round) {
    const Bytes hostile = round % 2 == 0 ? randomBytes(below(random, 200), random())
                                         : test::mutated(encoded(manyKinds(300, random())), random);
    const size_t largestRoom = 1 + below(random, 300);
    const Record record(zebsDecodeLZSSInit_8u);
    Bytes whole;
    for (size_t at = 0;;) {
      const size_t piece = std::min(below(random, 12), hostile.size() - at);
      const Result result =
          callLzss(zebsDecodeLZSS_8u, record, std::span(hostile).subspan(at, piece),
                   1 + below(random, largestRoom));
      at += result.consumed;
      append(whole, result.out);
      if (result.status == zebOk && at == hostile.size()) break;
    }
    ASSERT_EQ(whole, test::plainDecodeLzss(hostile, SIZE_MAX));
  }
}

}  // namespace
}  // namespace zebdc
