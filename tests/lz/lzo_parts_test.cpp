// LZO: the encoder's container path, which only a record prepared by hand reaches.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include "lz/lzo_helpers.h"
#include "lz/lzo_state.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;

Bytes encodedInParts(const Bytes& source, uint32_t parts) {
  const test::LzoRecord record;
  record.state()->method = zebLZOMethod1X1Parts;
  record.state()->partCount = parts;
  // Each part may need the worst case.
  const GuardedBuffer dst(test::lzoWorstCase(source.size()) + parts * 75);
  uint32_t dstLen = 0;
  EXPECT_EQ(zebsEncodeLZO_8u(source.data(), static_cast<uint32_t>(source.size()), dst.data(),
                             &dstLen, record.state()),
            zebOk);
  return Bytes(dst.begin(), dst.begin() + dstLen);
}

uint32_t numberAt(const Bytes& bytes, size_t at) {
  return bytes[at] | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

TEST(LzoParts, HeaderAndSizesDescribeTheStreams) {
  for (uint32_t parts = 1; parts <= 32; ++parts) {
    const Bytes source = test::textLike(1000 + 17 * parts, parts);
    const Bytes container = encodedInParts(source, parts);
    EXPECT_EQ(container[0], 0x55);
    EXPECT_EQ(container[1], parts);
    EXPECT_EQ(container[2], parts ^ 0x55);
    EXPECT_EQ(numberAt(container, 3), source.size());

    size_t at = 3 + 4 * parts;
    const size_t each = source.size() / parts;
    for (uint32_t part = 0; part < parts; ++part) {
      const bool isLast = part + 1 == parts;
      const size_t size = isLast ? container.size() - at : numberAt(container, 7 + 4 * part);
      const auto begin = source.begin() + static_cast<ptrdiff_t>(part * each);
      const Bytes slice(begin, isLast ? source.end() : begin + static_cast<ptrdiff_t>(each));
      ASSERT_LE(at + size, container.size());
      EXPECT_EQ(Bytes(container.begin() + static_cast<ptrdiff_t>(at),
                      container.begin() + static_cast<ptrdiff_t>(at + size)),
                test::lzoEncoded(slice));
      at += size;
    }
  }
}

TEST(LzoParts, ContainersDecode) {
  for (uint32_t parts = 2; parts <= 32; ++parts) {
    for (const auto& [name, source] : test::oneOfEachKind(20'000 + parts)) {
      SCOPED_TRACE(name);
      test::expectLzoDecodesTo(encodedInParts(source, parts), source);
    }
  }
}

TEST(LzoParts, FewerBytesThanParts) {
  const Bytes source = test::randomBytes(20, 1);
  test::expectLzoDecodesTo(encodedInParts(source, 32), source);
}

TEST(LzoParts, EmptySourceGivesEmptyOutput) {
  const test::LzoRecord record;
  record.state()->method = zebLZOMethod1X1Parts;
  record.state()->partCount = 4;
  uint8_t byte = 7;
  uint32_t length = 9;
  EXPECT_EQ(zebsEncodeLZO_8u(&byte, 0, &byte, &length, record.state()), zebOk);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(byte, 7);
}

TEST(LzoParts, InitNeverStoresTheMethod) {
  for (const ZebLZOMethod method : {zebLZOMethod1X1, zebLZOMethod1X1Parts}) {
    EXPECT_EQ(test::LzoRecord(method).state()->method, 0u);
  }
}

// The stream of one part must begin with its own size to be recognized. Here it does: 22 stands for
// five literals, of which the first three are zeros; a match, ten literals and the end follow.
TEST(LzoParts, OnePartDecodesWhereItIsRecognized) {
  Bytes source(10, 0);
  const Bytes tail = test::randomBytes(10, 1);
  source.insert(source.end(), tail.begin(), tail.end());
  const Bytes container = encodedInParts(source, 1);
  EXPECT_EQ(numberAt(container, 7), 22u);
  EXPECT_EQ(container.size(), 7 + 22u);
  test::expectLzoDecodesTo(container, source);
}

}  // namespace
}  // namespace zebdc
