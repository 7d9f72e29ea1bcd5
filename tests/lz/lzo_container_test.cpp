// LZO: containers of several streams, and plain streams that look like one.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include "lz/lzo_helpers.h"
#include "lz/plain_lzo.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::expectLzoDecodesTo;
using test::lzoDecoded;
using test::LzoDecoded;
using test::lzoEncoded;

constexpr uint8_t mark = 0x55;

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

void appendNumber(Bytes& to, size_t number) {
  for (int shift = 0; shift < 32; shift += 8) to.push_back(static_cast<uint8_t>(number >> shift));
}

Bytes headerOf(size_t parts, size_t length, const std::vector<size_t>& sizes) {
  Bytes out = {mark, static_cast<uint8_t>(parts), static_cast<uint8_t>(parts ^ mark)};
  appendNumber(out, length);
  for (const size_t size : sizes) appendNumber(out, size);
  return out;
}

// The streams of the parts of a source.
std::vector<Bytes> streamsOf(const Bytes& source, size_t parts) {
  std::vector<Bytes> streams;
  const size_t each = source.size() / parts;
  for (size_t part = 0; part < parts; ++part) {
    const auto begin = source.begin() + static_cast<ptrdiff_t>(part * each);
    const Bytes slice(begin,
                      part + 1 == parts ? source.end() : begin + static_cast<ptrdiff_t>(each));
    streams.push_back(slice.empty() ? Bytes{0x11, 0, 0} : lzoEncoded(slice));
  }
  return streams;
}

Bytes containerOf(size_t length, const std::vector<Bytes>& streams) {
  std::vector<size_t> sizes;
  for (size_t part = 0; part + 1 < streams.size(); ++part) sizes.push_back(streams[part].size());
  Bytes out = headerOf(streams.size(), length, sizes);
  for (const Bytes& stream : streams) append(out, stream);
  return out;
}

Bytes containerOf(const Bytes& source, size_t parts) {
  return containerOf(source.size(), streamsOf(source, parts));
}

TEST(LzoContainer, TwoTo32PartsDecode) {
  for (size_t parts = 2; parts <= 32; ++parts) {
    for (const size_t size : {parts - 1, parts, 5 * parts + 3, size_t{1000}, size_t{40'000}}) {
      const Bytes source = test::textLike(size, parts);
      expectLzoDecodesTo(containerOf(source, parts), source);
    }
  }
}

// The size at offset 7 of a container of one part is the beginning of its stream: it is recognized
// only where these bytes happen to be the stream's size.
TEST(LzoContainer, OnePartIsRecognizedWhereItsStreamBeginsWithItsSize) {
  // 21 = 0x15: four zero bytes; seven more from distance 1; ten literals; the end. 21 bytes.
  Bytes stream = {21, 0, 0, 0, 0, 0xC0, 0x00, 7};
  const Bytes tail = test::randomBytes(10, 1);
  append(stream, tail);
  append(stream, {0x11, 0, 0});
  ASSERT_EQ(stream.size(), 21u);
  Bytes source(11, 0);
  append(source, tail);
  Bytes container = headerOf(1, source.size(), {});
  append(container, stream);
  expectLzoDecodesTo(container, source);

  // One literal more, and it is a plain stream that begins with a match.
  container.insert(container.end() - 3, 7);
  ++container[14];
  EXPECT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, container, 100), (LzoDecoded{zebErrLZOData, {}}));
}

TEST(LzoContainer, PlainStreamThatLooksLikeOneIsTakenForOne) {
  // 0x55 = 17 + 68: the container of two parts is the first run of a plain stream.
  const Bytes source = test::randomBytes(40, 1);
  Bytes stream = containerOf(source, 2);
  ASSERT_EQ(stream[0], 17 + 68);
  while (stream.size() < 69) stream.push_back(9);
  append(stream, {0x11, 0, 0});
  const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, stream, 100);
  EXPECT_EQ(result, (LzoDecoded{zebOk, source}));
}

// What a plain stream that begins with these bytes decodes to: its 68 literals.
void expectIsPlain(Bytes stream) {
  ASSERT_LE(stream.size(), 69u);
  while (stream.size() < 69) stream.push_back(9);
  const Bytes literals(stream.begin() + 1, stream.end());
  append(stream, {0x11, 0, 0});
  expectLzoDecodesTo(stream, literals);
}

TEST(LzoContainer, AnyOtherHeaderIsPlain) {
  const Bytes container = containerOf(test::randomBytes(40, 1), 2);
  ASSERT_EQ(container.size(), 11 + 2 * 24u);
  for (const size_t parts : {0, 33, 64, 255}) {
    Bytes wrong = container;
    wrong[1] = static_cast<uint8_t>(parts);
    wrong[2] = static_cast<uint8_t>(parts ^ mark);
    expectIsPlain(wrong);
  }
  for (int bit = 0; bit < 8; ++bit) {
    Bytes wrong = container;
    wrong[2] ^= static_cast<uint8_t>(1 << bit);
    expectIsPlain(wrong);
  }
  for (const size_t at : {8 + 24, 8 + 25, 8 + 26}) {  // the end instruction of the first part
    for (int bit = 0; bit < 8; ++bit) {
      Bytes wrong = container;
      wrong[at] ^= static_cast<uint8_t>(1 << bit);
      expectIsPlain(wrong);
    }
  }
  for (const size_t size : {size_t{0}, size_t{23}, size_t{25}, size_t{62}, size_t{65},
                            size_t{0x7FFFFFFF}, size_t{0xFFFFFFF8}, size_t{0xFFFFFFFF}}) {
    Bytes wrong = headerOf(2, 40, {size});
    wrong.insert(wrong.end(), container.begin() + 11, container.end());
    expectIsPlain(wrong);
  }
}

TEST(LzoContainer, HeadersOfEveryShortLengthStayInsideTheSource) {
  const Bytes container = containerOf(test::randomBytes(40, 1), 2);
  const size_t firstEnd = 11 + 24;
  ASSERT_EQ(container.size(), firstEnd + 24);
  for (size_t size = 1; size < container.size(); ++size) {
    SCOPED_TRACE(size);
    const Bytes cut(container.begin(), container.begin() + static_cast<ptrdiff_t>(size));
    const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, cut, 100);
    // A truncated plain stream, up to the end of the first part; then a container with a second
    // part that is empty, has a truncated run, or lacks bytes of its end instruction.
    const bool atBorder = size == firstEnd || size == firstEnd + 21;
    EXPECT_EQ(result.status, atBorder ? zebOk : zebErrLZOData);
    EXPECT_EQ(result.out.size(), size < firstEnd ? 0u : size < firstEnd + 21 ? 20u : 40u);
  }
}

TEST(LzoContainer, PartThatDoesNotFitMakesNothing) {
  const Bytes source = test::randomBytes(60, 2);
  std::vector<Bytes> streams = streamsOf(source, 3);
  const Bytes good = containerOf(60, streams);
  const Bytes firstTwo(source.begin(), source.begin() + 40);
  for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
    // The capacity is too small for the last slice.
    EXPECT_EQ(lzoDecoded(decode, good, 59), (LzoDecoded{zebErrLZOData, firstTwo}));
    EXPECT_EQ(lzoDecoded(decode, good, 19), (LzoDecoded{zebErrLZOData, {}}));
    // The second size leaves the source.
    Bytes tooLong = good;
    tooLong[11] = 0xFF;
    EXPECT_EQ(lzoDecoded(decode, tooLong, 60).status, zebErrLZOData);
    EXPECT_EQ(lzoDecoded(decode, tooLong, 60).out.size(), 20u);
    // A declared length beyond every capacity.
    Bytes vast = good;
    for (size_t i = 3; i < 7; ++i) vast[i] = 0xFF;
    EXPECT_EQ(lzoDecoded(decode, vast, 60), (LzoDecoded{zebErrLZOData, {}}));
  }
}

TEST(LzoContainer, ReportsTheLastErrorAndTheSumOfTheOutputs) {
  const Bytes source = test::randomBytes(60, 3);
  for (size_t bad = 0; bad < 3; ++bad) {
    std::vector<Bytes> streams = streamsOf(source, 3);
    // Behind ten literals an invalid instruction; the end instruction stays where it is.
    streams[bad][0] = 17 + 10;
    streams[bad][11] = 3;
    const Bytes container = containerOf(60, streams);
    for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
      const LzoDecoded result = lzoDecoded(decode, container, 60);
      EXPECT_EQ(result.status, zebErrLZOData);
      EXPECT_EQ(result.out.size(), 50u);
    }
  }
}

// Whatever is wrong, the decoder does what the plain rendering does.
void expectDecodesLikePlain(const Bytes& hostile, size_t capacity) {
  const test::PlainLzoResult plain = test::plainDecodeAnyLzo(hostile, capacity);
  const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, hostile, capacity);
  ASSERT_EQ(result.status, plain.valid ? zebOk : zebErrLZOData);
  ASSERT_EQ(result.out.size(), plain.out.size());
  if (plain.gapless) {
    ASSERT_EQ(result.out, plain.out);
  }
}

TEST(LzoContainer, TruncationAtEveryByte) {
  for (const size_t parts : {2, 7, 32}) {
    const Bytes source = test::textLike(900, parts);
    const Bytes container = containerOf(source, parts);
    for (size_t size = 0; size < container.size(); ++size) {
      const Bytes cut(container.begin(), container.begin() + static_cast<ptrdiff_t>(size));
      ASSERT_NO_FATAL_FAILURE(expectDecodesLikePlain(cut, source.size())) << parts << ", " << size;
    }
  }
}

TEST(LzoContainer, MutatedContainersDecodeLikeThePlainRendering) {
  test::Random random(6);
  std::vector<Bytes> containers;
  for (size_t parts = 1; parts <= 32; ++parts) {
    containers.push_back(containerOf(test::textLike(200 + 10 * parts, parts), parts));
  }
  for (int round = 0; round < 8000; ++round) {
    Bytes hostile = containers[static_cast<size_t>(round) % containers.size()];
    if (round % 2 == 0) {
      hostile[3 + test::below(random, 40)] = static_cast<uint8_t>(random());  // length or sizes
    } else {
      hostile = test::mutated(hostile, random);
    }
    ASSERT_NO_FATAL_FAILURE(expectDecodesLikePlain(hostile, test::below(random, 1200))) << round;
  }
}

TEST(LzoContainer, PartsDoNotReachIntoOneAnother) {
  // The second part begins with a match into the first one.
  const Bytes first = lzoEncoded(test::randomBytes(20, 4));
  const Bytes container = containerOf(40, {first, {18, 'x', 0x20 | 18, 19 << 2, 0, 0x11, 0, 0}});
  const LzoDecoded result = lzoDecoded(zebsDecodeLZOSafe_8u, container, 40);
  EXPECT_EQ(result.status, zebErrLZOData);
  EXPECT_EQ(result.out.size(), 21u);

  // A part that makes more than its slice.
  const Bytes longer = lzoEncoded(test::randomBytes(21, 5));
  EXPECT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, containerOf(40, {longer, first}), 40).status,
            zebErrLZOData);
}

}  // namespace
}  // namespace zebdc
