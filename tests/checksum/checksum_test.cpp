// The four checksums against their byte-at-a-time definitions.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <memory>
#include <span>

#include "checksum/plain_checksums.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::plainAdler32;
using test::plainCrc32;
using test::plainCrc32Bzip2;
using test::plainCrc32c;

// One checksum with its start value, its definition and the check value of "123456789".
struct Checksum {
  const char* name;
  uint32_t start;
  uint32_t checkValue;
  uint32_t (*plain)(uint32_t value, std::span<const uint8_t> bytes);
  ZebStatus (*run)(const uint8_t* src, size_t len, uint32_t* value);
};

constexpr Checksum checksums[] = {
    {"Adler32", 1, 0x091E01DE, plainAdler32,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsAdler32_8u(src, static_cast<int>(len), value);
     }},
    {"CRC32", 0, 0xCBF43926, plainCrc32,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32_8u(src, static_cast<int>(len), value);
     }},
    {"CRC32C", 0xFFFFFFFF, 0x1CF96D7C, plainCrc32c,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32C_8u(src, static_cast<uint32_t>(len), value);
     }},
    {"CRC32_BZ2", 0, 0xFC891918, plainCrc32Bzip2,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32_BZ2_8u(src, static_cast<int>(len), value);
     }},
};

class EveryChecksum : public testing::TestWithParam<Checksum> {
 protected:
  static uint32_t run(uint32_t value, std::span<const uint8_t> bytes) {
    EXPECT_EQ(GetParam().run(bytes.data(), bytes.size(), &value), zebOk);
    return value;
  }

  static uint32_t plain(uint32_t value, std::span<const uint8_t> bytes) {
    return GetParam().plain(value, bytes);
  }
};

INSTANTIATE_TEST_SUITE_P(Checksums, EveryChecksum, testing::ValuesIn(checksums),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(EveryChecksum, GivesTheCheckValue) {
  EXPECT_EQ(run(GetParam().start, test::fromText("123456789")), GetParam().checkValue);
  EXPECT_EQ(plain(GetParam().start, test::fromText("123456789")), GetParam().checkValue);
}

// Every length from which a kernel might change its way of working, at both edges of accessible
// memory and at every alignment.
TEST_P(EveryChecksum, EveryShortLengthAndAlignmentAsDefined) {
  const Bytes bytes = test::randomBytes(700, 1);
  for (size_t length = 1; length <= 600; ++length) {
    const std::span<const uint8_t> all = bytes;
    for (size_t shift = 0; shift < 64; shift += length < 80 ? 1 : 21) {
      const auto piece = all.subspan(shift, length);
      ASSERT_EQ(run(0x12345678, piece), plain(0x12345678, piece)) << length << " at " << shift;
    }
    const GuardedBuffer atEnd(all.first(length), GuardedBuffer::Edge::end);
    ASSERT_EQ(run(0, atEnd.bytes()), plain(0, atEnd.bytes())) << length;
    const GuardedBuffer atBegin(all.first(length), GuardedBuffer::Edge::begin);
    ASSERT_EQ(run(0, atBegin.bytes()), plain(0, atBegin.bytes())) << length;
  }
}

TEST_P(EveryChecksum, LongLengthsAtEveryAlignmentAsDefined) {
  const Bytes bytes = test::randomBytes(5600 + 64, 2);
  for (const size_t length : {1023u, 1024u, 1025u, 2047u, 4095u, 4097u, 5535u, 5536u, 5537u, 5552u,
                              5553u, 5567u, 5568u}) {
    for (size_t shift = 0; shift < 64; ++shift) {
      const auto piece = std::span<const uint8_t>(bytes).subspan(shift, length);
      ASSERT_EQ(run(0xFEDCBA98, piece), plain(0xFEDCBA98, piece)) << length << " at " << shift;
    }
  }
}

TEST_P(EveryChecksum, EverySplitOfTwoPiecesGivesTheSame) {
  const Bytes bytes = test::textLike(600, 3);
  const std::span<const uint8_t> all = bytes;
  const uint32_t whole = run(GetParam().start, all);
  for (size_t cut = 1; cut < all.size(); ++cut) {
    ASSERT_EQ(run(run(GetParam().start, all.first(cut)), all.subspan(cut)), whole) << cut;
  }
}

TEST_P(EveryChecksum, RandomPiecesOfALongBufferGiveTheSame) {
  const Bytes bytes = test::binaryLike(400000, 4);
  const std::span<const uint8_t> all = bytes;
  const uint32_t whole = plain(GetParam().start, all);
  EXPECT_EQ(run(GetParam().start, all), whole);
  test::Random random(5);
  for (const size_t largest : {20u, 300u, 5000u, 100000u}) {
    uint32_t value = GetParam().start;
    for (size_t at = 0; at < all.size();) {
      const size_t length = std::min(1 + test::below(random, largest), all.size() - at);
      value = run(value, all.subspan(at, length));
      at += length;
    }
    EXPECT_EQ(value, whole) << largest;
  }
}

// Lanes that overflow show with the largest bytes, and with a start value of the largest sums.
TEST_P(EveryChecksum, ExtremeBytesAndStartValues) {
  for (const uint8_t byte : {0x00, 0xFF, 0x80, 0x7F}) {
    const Bytes bytes(300000, byte);
    for (const uint32_t start : {0u, 1u, 0xFFFFFFFFu, 0xFFF0FFF0u, 0xFFF1FFF1u, 0x0000FFFFu}) {
      for (const size_t length :
           {1u, 31u, 64u, 5536u, 5537u, 5552u, 5553u, 5583u, 70000u, 300000u}) {
        const auto piece = std::span<const uint8_t>(bytes).first(length);
        ASSERT_EQ(run(start, piece), plain(start, piece))
            << int{byte} << " from " << start << " length " << length;
      }
    }
  }
}

TEST_P(EveryChecksum, SingleBitsReachTheRegisterFromEveryPlace) {
  Bytes bytes(1500);
  for (size_t at = 0; at < bytes.size() * 8; at += 7) {
    bytes[at / 8] = static_cast<uint8_t>(1u << at % 8);
    ASSERT_EQ(run(0, bytes), plain(0, bytes)) << "bit " << at;
    bytes[at / 8] = 0;
  }
}

TEST(Adler32, NullSourceGivesTheStartValue) {
  for (const int length : {0, 5, -1, INT32_MIN}) {
    uint32_t value = 0xDEADBEEF;
    EXPECT_EQ(zebsAdler32_8u(nullptr, length, &value), zebOk);
    EXPECT_EQ(value, 1u);
  }
}

TEST(Adler32, NullValueIsAnErrorEvenWithoutASource) {
  const uint8_t byte = 0;
  EXPECT_EQ(zebsAdler32_8u(nullptr, 1, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsAdler32_8u(&byte, 1, nullptr), zebErrNullPtr);
}

TEST(Adler32, LengthsBelowOneOnlyReduceTheSums) {
  const uint8_t byte = 7;
  for (const int length : {0, -1, INT32_MIN}) {
    uint32_t value = 0xFFF2FFF3;
    EXPECT_EQ(zebsAdler32_8u(&byte, length, &value), zebOk);
    EXPECT_EQ(value, 0x00010002u);
  }
}

TEST(Crc32, NullPointersComeBeforeTheLength) {
  const uint8_t byte = 0;
  uint32_t value = 9;
  for (const int length : {0, 1, -1}) {
    EXPECT_EQ(zebsCRC32_8u(nullptr, length, &value), zebErrNullPtr);
    EXPECT_EQ(zebsCRC32_8u(&byte, length, nullptr), zebErrNullPtr);
    EXPECT_EQ(zebsCRC32_BZ2_8u(nullptr, length, &value), zebErrNullPtr);
    EXPECT_EQ(zebsCRC32_BZ2_8u(&byte, length, nullptr), zebErrNullPtr);
    EXPECT_EQ(zebsCRC32C_8u(nullptr, static_cast<uint32_t>(length), &value), zebErrNullPtr);
    EXPECT_EQ(zebsCRC32C_8u(&byte, static_cast<uint32_t>(length), nullptr), zebErrNullPtr);
  }
  EXPECT_EQ(value, 9u);
}

TEST(Crc32, LengthsBelowOneAreRefusedAndLeaveTheValue) {
  const uint8_t byte = 0;
  uint32_t value = 9;
  for (const int length : {0, -1, INT32_MIN}) {
    EXPECT_EQ(zebsCRC32_8u(&byte, length, &value), zebErrSize);
    EXPECT_EQ(zebsCRC32_BZ2_8u(&byte, length, &value), zebErrSize);
  }
  EXPECT_EQ(zebsCRC32C_8u(&byte, 0, &value), zebErrSize);
  EXPECT_EQ(value, 9u);
}

// The CRC of zero bytes alone, by squaring the step of one zero bit: slow kernels aside, the test
// needs no second pass over its huge buffer.
uint32_t crc32cOfZeros(uint32_t crc, uint64_t bytes) {
  uint32_t step[32];  // step[i]: what bit i of the register becomes
  for (uint32_t i = 0; i < 32; ++i) {
    const uint8_t zero = 0;
    step[i] = plainCrc32c(1u << i, {&zero, 1});
  }
  const auto apply = [&step](uint32_t value) {
    uint32_t result = 0;
    for (uint32_t i = 0; i < 32; ++i) result ^= (value >> i & 1) != 0 ? step[i] : 0;
    return result;
  };
  for (; bytes != 0; bytes >>= 1) {
    if ((bytes & 1) != 0) crc = apply(crc);
    uint32_t squared[32];
    for (uint32_t i = 0; i < 32; ++i) squared[i] = apply(step[i]);
    std::copy_n(squared, 32, step);
  }
  return crc;
}

TEST(Crc32c, LengthsBeyondTheSignedRangeAreLengths) {
  constexpr uint32_t length = 0x80000005;
  const std::unique_ptr<uint8_t, decltype(&free)> zeros(static_cast<uint8_t*>(calloc(length, 1)),
                                                        &free);
  if (zeros == nullptr) GTEST_SKIP() << "no memory for the buffer";
  uint32_t value = 0xFFFFFFFF;
  EXPECT_EQ(zebsCRC32C_8u(zeros.get(), length, &value), zebOk);
  EXPECT_EQ(value, crc32cOfZeros(0xFFFFFFFF, length));
}

}  // namespace
}  // namespace zebdc
