// LZO: the plain streams.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <span>

#include "lz/lzo_helpers.h"
#include "lz/plain_lzo.h"
#include "support/data.h"
#include "support/guarded_buffer.h"
#include "support/sanitizers.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::expectLzoDecodesTo;
using test::GuardedBuffer;
using test::lzoDecoded;
using test::LzoDecoded;
using test::lzoEncoded;
using test::LzoRecord;
using test::lzoWorstCase;
using test::Random;
using test::randomBytes;

constexpr size_t largeSizeStep = test::underSanitizers ? 16 : 1;

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

Bytes joined(std::initializer_list<Bytes> pieces) {
  Bytes out;
  for (const Bytes& piece : pieces) append(out, piece);
  return out;
}

const Bytes endInstruction = {0x11, 0, 0};

// ---- Arguments

TEST(LzoGetSize, IsThatOfTheRecordForBothMethods) {
  for (const ZebLZOMethod method : {zebLZOMethod1X1, zebLZOMethod1X1Parts}) {
    for (const uint32_t maxSrcLen : {0u, 1u, UINT32_MAX}) {
      uint32_t size = 7;
      EXPECT_EQ(zebsEncodeLZOGetSize(method, maxSrcLen, &size), zebOk);
      EXPECT_EQ(size, 131104u);
    }
  }
}

TEST(LzoGetSize, RefusesOtherMethodsWithSizeZero) {
  for (const ZebLZOMethod method : {-1, 2, INT32_MIN, INT32_MAX}) {
    uint32_t size = 7;
    EXPECT_EQ(zebsEncodeLZOGetSize(method, 0, &size), zebErrBadArg);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(zebsEncodeLZOGetSize(method, 0, nullptr), zebErrNullPtr);
  }
}

TEST(LzoInit, ChecksTheRecordBeforeTheMethod) {
  const LzoRecord record;
  EXPECT_EQ(zebsEncodeLZOInit_8u(2, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZOInit_8u(0, 0, nullptr), zebErrNullPtr);
  for (const ZebLZOMethod method : {-1, 2, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(zebsEncodeLZOInit_8u(method, 0, record.state()), zebErrBadArg);
  }
  // The record is as it was.
  const Bytes source = test::textLike(500, 1);
  EXPECT_EQ(lzoEncoded(record, source), lzoEncoded(source));
}

TEST(LzoInit, PartsMethodWritesPlainStreamsToo) {
  const Bytes source = test::textLike(5000, 1);
  EXPECT_EQ(lzoEncoded(LzoRecord(zebLZOMethod1X1Parts), source), lzoEncoded(source));
}

TEST(LzoEncode, NullPointersComeFirst) {
  const LzoRecord record;
  uint8_t byte = 7;
  uint32_t length = 7;
  for (const uint32_t srcLen : {0u, 1u}) {
    EXPECT_EQ(zebsEncodeLZO_8u(nullptr, srcLen, &byte, &length, record.state()), zebErrNullPtr);
    EXPECT_EQ(zebsEncodeLZO_8u(&byte, srcLen, nullptr, &length, record.state()), zebErrNullPtr);
    EXPECT_EQ(zebsEncodeLZO_8u(&byte, srcLen, &byte, nullptr, record.state()), zebErrNullPtr);
    EXPECT_EQ(zebsEncodeLZO_8u(&byte, srcLen, &byte, &length, nullptr), zebErrNullPtr);
  }
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(length, 7u);
}

TEST(LzoDecode, NullPointersComeFirst) {
  uint8_t byte = 7;
  uint32_t length = 7;
  for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
    for (const uint32_t srcLen : {0u, 1u}) {
      EXPECT_EQ(decode(nullptr, srcLen, &byte, &length), zebErrNullPtr);
      EXPECT_EQ(decode(&byte, srcLen, nullptr, &length), zebErrNullPtr);
      EXPECT_EQ(decode(&byte, srcLen, &byte, nullptr), zebErrNullPtr);
    }
  }
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(length, 7u);
}

TEST(Lzo, EmptySourceGivesEmptyOutputBothWays) {
  const LzoRecord record;
  uint8_t byte = 7;
  uint32_t length = 9;
  EXPECT_EQ(zebsEncodeLZO_8u(&byte, 0, &byte, &length, record.state()), zebOk);
  EXPECT_EQ(length, 0u);
  for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
    length = 1;
    EXPECT_EQ(decode(&byte, 0, &byte, &length), zebOk);
    EXPECT_EQ(length, 0u);
  }
  EXPECT_EQ(byte, 7);
}

// ---- What the encoder writes

TEST(LzoEncode, WorkedExample) {
  EXPECT_EQ(lzoEncoded(test::fromText("abcdabcdabcdabcd012345678901234567")),
            joined({{0x19},
                    test::fromText("abcdabcd"),
                    {0xEC, 0x00, 0x0F},
                    test::fromText("012345678901234567"),
                    endInstruction}));
}

TEST(LzoEncode, SourcesOfUpTo17BytesAreAllLiterals) {
  for (size_t size = 1; size <= 17; ++size) {
    const Bytes source(size, 'a');
    EXPECT_EQ(lzoEncoded(source),
              joined({{static_cast<uint8_t>(17 + size)}, source, endInstruction}));
  }
}

TEST(LzoEncode, LengthsOfAFirstRun) {
  const Bytes source = randomBytes(1000, 1);
  const auto prefix = [&](size_t size) {
    const Bytes stream = lzoEncoded(std::span(source).first(size));
    EXPECT_GE(stream.size(), size + 3);
    return Bytes(stream.begin(), stream.end() - static_cast<ptrdiff_t>(size + 3));
  };
  EXPECT_EQ(prefix(18), Bytes({35}));
  EXPECT_EQ(prefix(238), Bytes({255}));
  EXPECT_EQ(prefix(239), Bytes({0, 221}));
  EXPECT_EQ(prefix(18 + 255), Bytes({0, 255}));
  EXPECT_EQ(prefix(18 + 256), Bytes({0, 0, 1}));
  EXPECT_EQ(prefix(18 + 510), Bytes({0, 0, 255}));
  EXPECT_EQ(prefix(18 + 511), Bytes({0, 0, 0, 1}));
}

// A source whose bytes 4 to 11 appear once more, at the given distance, and then tail other bytes.
Bytes withOneRepeat(size_t distance, size_t length, size_t tail) {
  Bytes source = randomBytes(4 + distance, 12);
  for (size_t i = 0; i < length; ++i) source.push_back(source[4 + i]);
  const uint8_t different = static_cast<uint8_t>(source[4 + length] ^ 1);
  source.push_back(different);
  append(source, randomBytes(tail - 1, 13));
  return source;
}

// The stream behind the first literal run.
Bytes behindFirstRun(const Bytes& stream, size_t count) {
  size_t header = 1;
  if (count > 238) header = 1 + (count - 18 + 254) / 255;
  return Bytes(stream.begin() + static_cast<ptrdiff_t>(header + count), stream.end());
}

TEST(LzoEncode, KindsOfMatchInstructions) {
  struct Case {
    size_t distance;
    size_t length;
    Bytes instruction;
  };
  for (const Case& c :
       std::vector<Case>{{100, 4, {0x60 | 3 << 2, 12}},         // 99 = 8 * 12 + 3
                         {100, 8, {0xE0 | 3 << 2, 12}},         // the longest short match
                         {100, 9, {0x27, 99 << 2 & 0xFF, 1}},   // one more
                         {100, 33, {0x3F, 99 << 2 & 0xFF, 1}},  // the longest in one byte
                         {100, 34, {0x20, 1, 99 << 2 & 0xFF, 1}},
                         {400, 33 + 255, {0x20, 255, 0x3C, 0x06}},
                         {400, 33 + 256, {0x20, 0, 1, 0x3C, 0x06}},
                         {2048, 8, {0xFC, 255}},  // the farthest short match
                         {2049, 8, {0x26, 0x00, 0x20}},
                         {16384, 8, {0x26, 0xFC, 0xFF}},  // the farthest of the middle kind
                         {16385, 8, {0x16, 0x04, 0x00}},
                         {16385, 9, {0x17, 0x04, 0x00}},
                         {16385, 10, {0x10, 1, 0x04, 0x00}},
                         {32767, 8, {0x16, 0xFC, 0xFF}},
                         {32768, 8, {0x1E, 0x00, 0x00}},     // distance field 0, and not the end
                         {49151, 8, {0x1E, 0xFC, 0xFF}}}) {  // the farthest of all
    SCOPED_TRACE(testing::Message() << c.distance << ", " << c.length);
    const Bytes source = withOneRepeat(c.distance, c.length, 18);
    const Bytes tail(source.end() - 18, source.end());
    const Bytes stream = lzoEncoded(source);
    EXPECT_EQ(behindFirstRun(stream, 4 + c.distance),
              joined({c.instruction, {15}, tail, endInstruction}));
    expectLzoDecodesTo(stream, source);
  }
}

TEST(LzoEncode, OneToThreeLiteralsGoIntoTheMatchBeforeThem) {
  const Bytes unit = randomBytes(40, 21);
  for (size_t count = 0; count <= 4; ++count) {
    Bytes source = unit;
    append(source, Bytes(unit.begin() + 4, unit.begin() + 20));
    const Bytes between = randomBytes(count, 22);
    append(source, between);
    append(source, Bytes(unit.begin() + 24, unit.end()));
    append(source, randomBytes(13, 23));
    const Bytes stream = lzoEncoded(source);
    const size_t match = 1 + unit.size();  // behind the first run
    ASSERT_EQ(stream[match], 0x20 | (16 - 2));
    EXPECT_EQ(stream[match + 1] & 3, count < 4 ? static_cast<int>(count) : 0);
    EXPECT_EQ(stream[match + 3], count < 4 ? (count > 0 ? between[0] : 0x20 | (16 - 2)) : 1);
    expectLzoDecodesTo(stream, source);
  }
}

TEST(LzoEncode, FollowsTheRulesOfItsSearchAtEverySmallSize) {
  const LzoRecord record;
  for (const auto& [name, whole] : test::oneOfEachKind(420)) {
    SCOPED_TRACE(name);
    for (size_t size = 1; size <= whole.size(); ++size) {
      const Bytes source(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
      ASSERT_EQ(lzoEncoded(record, source), test::plainCompressLzo(source)) << size;
    }
  }
}

// Data over which candidates of every kind are met: near and far, in both slots, out of reach.
Bytes mixedData(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  while (out.size() < size) {
    const size_t length = 1 + below(random, 1 + below(random, 400));
    if (out.size() > 8 && below(random, 3) != 0) {
      const size_t distance =
          1 + below(random, std::min(out.size(), size_t{1} << below(random, 18)));
      for (size_t i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
    } else if (below(random, 2) == 0) {
      append(out, test::skewed(length, random(), 12));
    } else {
      append(out, randomBytes(length, random()));
    }
  }
  out.resize(size);
  return out;
}

TEST(LzoEncode, FollowsTheRulesOfItsSearchOnLargeSources) {
  const LzoRecord record;
  for (const auto& [name, source] : test::oneOfEachKind(150'000)) {
    SCOPED_TRACE(name);
    EXPECT_EQ(lzoEncoded(record, source), test::plainCompressLzo(source));
  }
  for (uint64_t seed = 0; seed < 8; ++seed) {
    const Bytes source = mixedData(100'000 + seed, seed);
    EXPECT_EQ(lzoEncoded(record, source), test::plainCompressLzo(source));
  }
}

TEST(LzoEncode, OutputDoesNotDependOnEarlierCallsOrGarbageInTheRecord) {
  const Bytes first = mixedData(30'000, 1);
  const Bytes second = mixedData(30'000, 2);
  const Bytes expected = lzoEncoded(second);
  const LzoRecord record;
  // The same memory holds one source after the other, so that old entries lie inside the new one.
  GuardedBuffer src(first);
  GuardedBuffer dst(lzoWorstCase(first.size()));
  for (const Bytes* source : {&first, &second}) {
    std::copy(source->begin(), source->end(), src.begin());
    uint32_t dstLen = 0;
    ASSERT_EQ(zebsEncodeLZO_8u(src.data(), static_cast<uint32_t>(src.size()), dst.data(), &dstLen,
                               record.state()),
              zebOk);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + dstLen),
              source == &second ? expected : lzoEncoded(first));
  }
}

TEST(LzoEncode, WorstCaseRoomSuffices) {
  for (size_t size = 1; size < 3000; size += 1 + size / 40) {
    // Literal runs of every length with the dearest matches between them.
    Bytes source = randomBytes(size, size);
    for (size_t at = 40; at + 4 < size; at += 23) {
      std::copy_n(source.begin() + static_cast<ptrdiff_t>(at - 36), 4,
                  source.begin() + static_cast<ptrdiff_t>(at));
    }
    EXPECT_LE(lzoEncoded(source).size(), lzoWorstCase(size));
  }
}

// ---- Round trips

TEST(Lzo, RoundTripsAtManySizes) {
  const LzoRecord record;
  const Bytes text = test::textLike(70'000, 31);
  const Bytes mixed = mixedData(70'000, 32);
  for (size_t size = 1; size <= 70'000; size += size < 700 ? 1 : 1 + size / 97) {
    SCOPED_TRACE(size);
    for (const Bytes* whole : {&text, &mixed}) {
      const Bytes source(whole->end() - static_cast<ptrdiff_t>(size), whole->end());
      expectLzoDecodesTo(lzoEncoded(record, source), source);
    }
  }
}

// What a size decides happens near both ends of a source. Between them the data is quick to code.
TEST(Lzo, RoundTripsAtAllSizesUpTo70000) {
  constexpr size_t largest = 70'000;
  constexpr size_t variedEnd = 400;
  GuardedBuffer source(largest);
  for (size_t i = 0; i < largest; ++i) source[i] = static_cast<uint8_t>(i / 1000);
  const Bytes end = mixedData(variedEnd, 33);
  std::copy(end.begin(), end.end(), source.end() - variedEnd);

  const LzoRecord record;
  const GuardedBuffer code(lzoWorstCase(largest));
  const GuardedBuffer room(largest);
  for (size_t size = 1; size <= largest; size += size < 1000 ? 1 : largeSizeStep) {
    const uint8_t* const src = source.end() - size;
    uint8_t* const stream = code.end() - lzoWorstCase(size);
    uint32_t streamLen = 0;
    ASSERT_EQ(
        zebsEncodeLZO_8u(src, static_cast<uint32_t>(size), stream, &streamLen, record.state()),
        zebOk);
    for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
      uint8_t* const dst = room.end() - size;
      memset(dst, 0xCD, size);
      uint32_t dstLen = static_cast<uint32_t>(size);
      ASSERT_EQ(decode(stream, streamLen, dst, &dstLen), zebOk);
      ASSERT_EQ(dstLen, size);
      ASSERT_EQ(memcmp(src, dst, size), 0) << size;
    }
  }
}

TEST(Lzo, RoundTripsAllKindsOfData) {
  const LzoRecord record;
  for (const size_t size : {100, 4096, 65536, 300'000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      expectLzoDecodesTo(lzoEncoded(record, source), source);
    }
  }
}

// ---- What the decoders read

// A valid stream of instructions of every kind, also such as the encoder never writes, and what it
// stands for.
struct MadeStream {
  Bytes stream;
  Bytes whole;
};

class StreamMaker {
 public:
  explicit StreamMaker(uint64_t seed) : random_(seed) {}

  MadeStream make(size_t instructions) {
    if (below(random_, 3) != 0) firstRun();
    for (size_t i = 0; i < instructions; ++i) {
      const bool mustMatch = behindLiterals_;
      if (made_.whole.empty() || (!mustMatch && below(random_, 2) == 0)) {
        literalRun();
      } else {
        match();
      }
    }
    append(made_.stream, endInstruction);
    return made_;
  }

 private:
  void put(size_t byte) { made_.stream.push_back(static_cast<uint8_t>(byte)); }

  void literals(size_t count) {
    const Bytes bytes = randomBytes(count, random_());
    append(made_.stream, bytes);
    append(made_.whole, bytes);
    behindLiterals_ = count > 0;
  }

  void firstRun() {
    const size_t count = 1 + below(random_, 1 + below(random_, 238));
    put(17 + count);
    literals(count);
  }

  void extension(size_t value) {
    for (; value > 255; value -= 255) put(0);
    put(value);
  }

  void literalRun() {
    size_t count = 4 + below(random_, 15);
    if (below(random_, 4) == 0) count = 19 + below(random_, 1 + below(random_, 900));
    if (count <= 18) {
      put(count - 3);
    } else {
      put(0);
      extension(count - 18);
    }
    literals(count);
  }

  size_t anyDistance(size_t least, size_t most) {
    const size_t limit = std::min(most, made_.whole.size());
    if (below(random_, 2) == 0) return std::min(limit, least + below(random_, 40));
    return least + below(random_, limit - least + 1);
  }

  void length(size_t kind, size_t count, size_t plain) {
    if (count <= plain) {
      put(kind | (count - 2));
    } else {
      put(kind);
      extension(count - plain);
    }
  }

  void match() {
    const size_t trailing = below(random_, 4);
    size_t count = 3 + below(random_, 1 + below(random_, 60));
    if (below(random_, 8) == 0) count += below(random_, 700);
    const size_t size = made_.whole.size();
    size_t distance = 0;
    if (size > 16384 && below(random_, 2) == 0) {
      distance = anyDistance(16385, 49151);
      const size_t coded = distance - 16384;
      length(0x10 | (coded >> 14) << 3, count, 9);
      put((coded << 2 & 0xFC) | trailing);
      put(coded >> 6 & 0xFF);
    } else if (below(random_, 2) == 0) {
      distance = anyDistance(1, 16384);
      length(0x20, count, 33);
      put(((distance - 1) << 2 & 0xFC) | trailing);
      put((distance - 1) >> 6);
    } else {
      distance = anyDistance(1, 2048);
      count = 3 + below(random_, 6);
      put((count - 1) << 5 | ((distance - 1) & 7) << 2 | trailing);
      put((distance - 1) >> 3);
    }
    for (size_t i = 0; i < count; ++i)
      made_.whole.push_back(made_.whole[made_.whole.size() - distance]);
    literals(trailing);
  }

  Random random_;
  MadeStream made_;
  bool behindLiterals_ = false;
};

TEST(LzoDecode, TakesInstructionsOfEveryKind) {
  for (uint64_t seed = 0; seed < 400; ++seed) {
    const MadeStream made = StreamMaker(seed).make(1 + seed * 2);
    ASSERT_NO_FATAL_FAILURE(expectLzoDecodesTo(made.stream, made.whole)) << seed;
  }
}

TEST(LzoDecode, CopiesEveryShortDistanceAndLength) {
  const Bytes head = randomBytes(40, 41);
  for (size_t distance = 1; distance <= 40; ++distance) {
    for (size_t count = 3; count <= 100; ++count) {
      Bytes stream = joined({{static_cast<uint8_t>(17 + 40)}, head});
      if (count <= 33) {
        stream.push_back(static_cast<uint8_t>(0x20 | (count - 2)));
      } else {
        append(stream, {0x20, static_cast<uint8_t>(count - 33)});
      }
      append(stream, {static_cast<uint8_t>((distance - 1) << 2), 0});
      append(stream, endInstruction);
      Bytes whole = head;
      for (size_t i = 0; i < count; ++i) whole.push_back(whole[whole.size() - distance]);
      // Once at the very end of the room, once far from it.
      ASSERT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, stream, whole.size()), (LzoDecoded{zebOk, whole}));
      ASSERT_EQ(lzoDecoded(zebsDecodeLZO_8u, stream, whole.size() + 200),
                (LzoDecoded{zebOk, whole}));
    }
  }
}

TEST(LzoDecode, TrustingDecoderDoesNotNeedATrueCapacity) {
  const Bytes source = mixedData(5000, 51);
  const Bytes stream = lzoEncoded(source);
  const GuardedBuffer dst(source.size());
  for (const uint32_t claimed : {0u, 1u, 100u, 4990u}) {
    uint32_t dstLen = claimed;
    EXPECT_EQ(
        zebsDecodeLZO_8u(stream.data(), static_cast<uint32_t>(stream.size()), dst.data(), &dstLen),
        zebOk);
    EXPECT_EQ(dstLen, source.size());
    EXPECT_TRUE(std::equal(source.begin(), source.end(), dst.begin()));
  }
}

TEST(LzoDecode, EndsWithTheSourceBetweenTwoInstructions) {
  const Bytes run = {21, 'a', 'b', 'c', 'd'};
  expectLzoDecodesTo(run, test::fromText("abcd"));
  expectLzoDecodesTo(joined({run, {0x2C, 0x0C, 0x00}}), test::fromText("abcdabcdabcdabcdab"));
  expectLzoDecodesTo(joined({run, {0x4D, 0x00, 'x'}}), test::fromText("abcdabcx"));
}

TEST(LzoDecode, IgnoresWhatFollowsTheEndInstruction) {
  const Bytes run = {21, 'a', 'b', 'c', 'd'};
  const Bytes rest = randomBytes(100, 3);
  expectLzoDecodesTo(joined({run, endInstruction, rest}), test::fromText("abcd"));
  // Any length with a distance field of zero ends the stream, whatever its two free bits are.
  expectLzoDecodesTo(joined({run, {0x17, 0x03, 0x00}, rest}), test::fromText("abcd"));
  expectLzoDecodesTo(joined({run, {0x10, 0x00, 0x05, 0x01, 0x00}, rest}), test::fromText("abcd"));
  expectLzoDecodesTo(joined({endInstruction, rest}), {});
}

TEST(LzoDecode, RefusesInstructionBytesBelow16BehindLiterals) {
  const Bytes more = randomBytes(100, 4);
  const Bytes abcd = test::fromText("abcd");
  for (uint8_t byte = 0; byte < 16; ++byte) {
    // Behind a first run, a short run, a long run, and behind one to three literals of a match. The
    // streams go on, so that margins are met.
    const std::vector<MadeStream> streams = {
        {{21, 'a', 'b', 'c', 'd', byte}, abcd},
        {{1, 'a', 'b', 'c', 'd', byte}, abcd},
        {joined({{0, 7}, Bytes(25, 'x'), {byte}}), Bytes(25, 'x')},
        {{21, 'a', 'b', 'c', 'd', 0x4D, 0x00, 'x', byte}, test::fromText("abcdabcx")},
        {{21, 'a', 'b', 'c', 'd', 0x21, 0x03, 0x00, 'x', 'y', 'z', byte},
         test::fromText("abcddddxyz")},
        {{18, 'a', byte}, {'a'}}};
    for (const MadeStream& made : streams) {
      for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
        EXPECT_EQ(lzoDecoded(decode, joined({made.stream, more}), 300),
                  (LzoDecoded{zebErrLZOData, made.whole}));
        EXPECT_EQ(lzoDecoded(decode, made.stream, made.whole.size()),
                  (LzoDecoded{zebErrLZOData, made.whole}));
      }
    }
  }
}

// ---- The safe decoder and hostile streams

LzoDecoded expected(const Bytes& stream, size_t capacity) {
  test::PlainLzoResult plain = test::plainDecodeLzo(stream, capacity);
  return {plain.valid ? zebOk : zebErrLZOData, std::move(plain.out)};
}

TEST(LzoDecodeSafe, DistanceBeforeTheStart) {
  for (const size_t distance : {1u, 4u, 5u, 100u}) {
    const Bytes stream = joined({{21, 'a', 'b', 'c', 'd', 0x22},
                                 {static_cast<uint8_t>((distance - 1) << 2)},
                                 {static_cast<uint8_t>((distance - 1) >> 6)},
                                 endInstruction,
                                 Bytes(50, 0)});
    const ZebStatus status = lzoDecoded(zebsDecodeLZOSafe_8u, stream, 200).status;
    EXPECT_EQ(status, distance <= 4 ? zebOk : zebErrLZOData);
  }
}

TEST(LzoDecodeSafe, TruncationAtEveryByte) {
  const Bytes source = mixedData(3000, 61);
  const Bytes stream = lzoEncoded(source);
  for (size_t size = 0; size < stream.size(); ++size) {
    const Bytes cut(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(size));
    const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, cut, source.size());
    ASSERT_EQ(result, expected(cut, source.size())) << size;
    if (size + 3 > stream.size()) {
      EXPECT_EQ(result.status, zebErrLZOData);
    }
  }
}

TEST(LzoDecodeSafe, EveryRoomThatIsTooSmall) {
  const Bytes source = mixedData(2500, 62);
  const Bytes stream = lzoEncoded(source);
  for (size_t capacity = 0; capacity < source.size(); ++capacity) {
    const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, stream, capacity);
    ASSERT_EQ(result, expected(stream, capacity)) << capacity;
    EXPECT_EQ(result.status, zebErrLZOData);
  }
}

TEST(LzoDecodeSafe, ExtendedLengthsThatNeverEndOrAreTooLong) {
  for (const size_t zeros : {1, 30, 100, 100'000}) {
    for (const Bytes& begin :
         {Bytes{0}, Bytes{21, 1, 2, 3, 4, 0x20}, Bytes{21, 1, 2, 3, 4, 0x10}}) {
      const Bytes endless = joined({begin, Bytes(zeros, 0)});
      EXPECT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, endless, 500).status, zebErrLZOData);
      const Bytes tooLong = joined({endless, {1, 0, 0}, Bytes(64, 0)});
      EXPECT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, tooLong, 200), expected(tooLong, 200));
    }
  }
}

// Changes one to four bytes, which stay where they are.
void mutate(std::span<uint8_t> stream, Random& random) {
  uint64_t choice = random();
  for (uint64_t changes = 1 + choice % 4; changes > 0; --changes) {
    choice = random();
    uint8_t& byte = stream[(choice >> 16) % stream.size()];
    byte = static_cast<uint8_t>(choice % 2 == 0 ? choice >> 8 : byte ^ 1 << (choice >> 8 & 7));
  }
}

// Source and room end at inaccessible pages.
TEST(LzoDecodeSafe, SurvivesAMillionMutations) {
  Random random(63);
  std::vector<Bytes> streams;
  for (uint64_t seed = 0; seed < 20; ++seed) {
    streams.push_back(lzoEncoded(mixedData(60 + 20 * seed, seed)));
    streams.push_back(StreamMaker(seed).make(12).stream);
  }
  const GuardedBuffer source(1 << 14);
  const GuardedBuffer room(4096);
  for (int round = 0; round < 1'000'000; ++round) {
    const Bytes& stream = streams[static_cast<size_t>(round) % streams.size()];
    ASSERT_LE(stream.size(), source.size());
    const std::span<uint8_t> hostile = source.bytes().last(stream.size());
    memcpy(hostile.data(), stream.data(), stream.size());
    mutate(hostile, random);
    const size_t capacity = below(random, room.size());
    uint8_t* const dst = room.end() - capacity;
    uint32_t dstLen = static_cast<uint32_t>(capacity);
    const ZebStatus status =
        zebsDecodeLZOSafe_8u(hostile.data(), static_cast<uint32_t>(hostile.size()), dst, &dstLen);
    if (round % 128 >= 2) continue;
    ASSERT_EQ((LzoDecoded{status, Bytes(dst, dst + dstLen)}),
              expected(Bytes(hostile.begin(), hostile.end()), capacity));
  }
}

TEST(LzoDecodeSafe, SurvivesRemovedAndInsertedBytes) {
  Random random(65);
  std::vector<Bytes> streams;
  for (uint64_t seed = 0; seed < 20; ++seed) {
    streams.push_back(lzoEncoded(mixedData(100 + 60 * seed, seed)));
  }
  for (int round = 0; round < 4000; ++round) {
    const Bytes hostile = test::mutated(streams[below(random, streams.size())], random);
    const size_t capacity = below(random, 4096);
    ASSERT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, hostile, capacity), expected(hostile, capacity));
  }
}

TEST(LzoDecodeSafe, SurvivesRandomBytes) {
  Random random(64);
  for (int round = 0; round < 5000; ++round) {
    const Bytes hostile = randomBytes(1 + below(random, 300), random());
    const size_t capacity = below(random, 3000);
    ASSERT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, hostile, capacity), expected(hostile, capacity));
  }
}

}  // namespace
}  // namespace zebdc
