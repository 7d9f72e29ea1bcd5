// The packed code-length table.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::GuardedBuffer;
using Lengths = std::array<int, 256>;
using testing::ElementsAre;

struct Packed {
  ZebStatus status;
  std::vector<uint8_t> bytes;
};

Packed pack(const Lengths& lengths, int capacity = 512) {
  GuardedBuffer dst(static_cast<size_t>(capacity));
  int written = capacity;
  const ZebStatus status = zebsHuffLenCodeTablePack_8u(lengths.data(), dst.data(), &written);
  return {status, {dst.data(), dst.data() + written}};
}

struct Unpacked {
  ZebStatus status;
  Lengths lengths;
  int consumed;
};

Unpacked unpack(const std::vector<uint8_t>& packed) {
  GuardedBuffer src(packed);
  Unpacked result = {zebOk, {}, static_cast<int>(packed.size())};
  result.status =
      zebsHuffLenCodeTableUnpack_8u(src.data(), &result.consumed, result.lengths.data());
  return result;
}

std::string nibbles(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

TEST(LengthTablePack, LeadingZerosRepeatTheInitialValue) {
  Lengths lengths;
  lengths.fill(5);
  lengths[0] = lengths[1] = 0;
  // 0 0 and a count of 0; then 5, and groups of 34: 5 5 and 32, which is 6 on base 26 (f).
  EXPECT_TRUE(nibbles(pack(lengths).bytes)
                  .starts_with("0005"
                               "55f6"
                               "d55f6"
                               "d55f6"));
}

TEST(LengthTablePack, AllEqualLengthsAreOneValueAndGroups) {
  Lengths lengths;
  lengths.fill(8);
  // 8; 255 repeats are seven groups of 34 and one of 17, whose counts are 32 (base 26) and 15 (base
  // 13).
  std::string expected = "8";
  for (int group = 0; group < 7; ++group) expected += group == 0 ? "88f6" : "d88f6";
  expected += "d88e2";
  if (expected.size() % 2 != 0) expected += "0";
  const Packed packed = pack(lengths);
  EXPECT_EQ(packed.status, zebOk);
  EXPECT_EQ(nibbles(packed.bytes), expected);
}

TEST(LengthTablePack, RunsOfEveryLengthRoundTrip) {
  for (int run = 1; run <= 256; ++run) {
    for (const int value : {0, 1, 12, 13, 25, 26, 32}) {
      Lengths lengths{};
      for (int i = 0; i < 256; ++i) lengths[static_cast<size_t>(i)] = i % 2 == 0 ? 3 : 4;
      std::fill_n(lengths.end() - run, run, value);
      const Packed packed = pack(lengths);
      ASSERT_EQ(packed.status, zebOk);
      const Unpacked back = unpack(packed.bytes);
      ASSERT_EQ(back.status, zebOk);
      ASSERT_EQ(back.lengths, lengths) << "run " << run << " of " << value;
      ASSERT_EQ(back.consumed, static_cast<int>(packed.bytes.size()));
    }
  }
}

TEST(LengthTablePack, RandomTablesRoundTripAndLeaveWhatFollows) {
  test::Random random(1);
  for (int round = 0; round < 2000; ++round) {
    Lengths lengths;
    const size_t spread = 1 + test::below(random, 33);
    int value = 0;
    for (int& length : lengths) {
      if (test::below(random, 1 + static_cast<size_t>(round) % 40) == 0) {
        value = static_cast<int>(test::below(random, spread));
      }
      length = value;
    }
    Packed packed = pack(lengths);
    ASSERT_EQ(packed.status, zebOk);
    const size_t size = packed.bytes.size();
    ASSERT_LE(size, 256u);
    packed.bytes.push_back(0xFF);
    packed.bytes.push_back(0xFF);
    const Unpacked back = unpack(packed.bytes);
    ASSERT_EQ(back.status, zebOk);
    ASSERT_EQ(back.lengths, lengths);
    ASSERT_EQ(back.consumed, static_cast<int>(size));
  }
}

TEST(LengthTablePack, LargestTableNeeds256Bytes) {
  // Alternating bases: a switch and a data nibble for each length.
  Lengths lengths;
  for (size_t i = 0; i < 256; ++i) lengths[i] = i % 2 == 0 ? 26 : 0;
  EXPECT_EQ(pack(lengths, 256).status, zebOk);
  EXPECT_EQ(pack(lengths, 256).bytes.size(), 256u);
  EXPECT_EQ(pack(lengths, 255).status, zebErrSize);
}

TEST(LengthTablePack, ExactRoomSucceedsAndOneByteLessIsRefused) {
  test::Random random(2);
  for (int round = 0; round < 50; ++round) {
    Lengths lengths;
    for (int& length : lengths) length = static_cast<int>(test::below(random, 33));
    const Packed whole = pack(lengths);
    const int size = static_cast<int>(whole.bytes.size());
    EXPECT_EQ(pack(lengths, size).status, zebOk);
    for (int capacity = 1; capacity < size; capacity += 1 + capacity / 8) {
      const Packed cut = pack(lengths, capacity);
      EXPECT_EQ(cut.status, zebErrSize);
      EXPECT_EQ(cut.bytes,
                std::vector<uint8_t>(whole.bytes.begin(), whole.bytes.begin() + capacity));
    }
  }
}

TEST(LengthTablePack, RefusesLengthsOutsideTheRangeAfterWriting) {
  for (const int bad : {-1, 33, 38, 39, 1000, INT32_MAX, INT32_MIN}) {
    Lengths lengths{};
    lengths[100] = bad;
    EXPECT_EQ(pack(lengths).status, zebErrCodeLenTable) << bad;
    // Also where the room is too small: the range is looked at first.
    EXPECT_EQ(pack(lengths, 1).status, zebErrCodeLenTable) << bad;
  }
}

TEST(LengthTablePack, ChecksPointersThenCapacity) {
  const Lengths lengths{};
  uint8_t dst = 7;
  int size = 0;
  EXPECT_EQ(zebsHuffLenCodeTablePack_8u(nullptr, &dst, &size), zebErrNullPtr);
  EXPECT_EQ(zebsHuffLenCodeTablePack_8u(lengths.data(), nullptr, &size), zebErrNullPtr);
  EXPECT_EQ(zebsHuffLenCodeTablePack_8u(lengths.data(), &dst, nullptr), zebErrNullPtr);
  for (const int capacity : {0, -1}) {
    size = capacity;
    EXPECT_EQ(zebsHuffLenCodeTablePack_8u(lengths.data(), &dst, &size), zebErrSize);
    EXPECT_EQ(size, capacity);
  }
  EXPECT_EQ(dst, 7);
}

TEST(LengthTableUnpack, ChecksPointersThenLength) {
  Lengths lengths;
  lengths.fill(-7);
  const uint8_t src = 0;
  int size = 0;
  EXPECT_EQ(zebsHuffLenCodeTableUnpack_8u(nullptr, &size, lengths.data()), zebErrNullPtr);
  EXPECT_EQ(zebsHuffLenCodeTableUnpack_8u(&src, nullptr, lengths.data()), zebErrNullPtr);
  EXPECT_EQ(zebsHuffLenCodeTableUnpack_8u(&src, &size, nullptr), zebErrNullPtr);
  for (const int available : {0, -1}) {
    size = available;
    EXPECT_EQ(zebsHuffLenCodeTableUnpack_8u(&src, &size, lengths.data()), zebErrSize);
    EXPECT_EQ(size, available);
  }
  EXPECT_EQ(lengths[0], -7);
}

TEST(LengthTableUnpack, TruncationAtEveryByteIsRefused) {
  Lengths lengths;
  for (size_t i = 0; i < 256; ++i) lengths[i] = static_cast<int>(i * 7 % 33);
  const Packed packed = pack(lengths);
  for (size_t size = 1; size < packed.bytes.size(); ++size) {
    const Unpacked cut =
        unpack({packed.bytes.begin(), packed.bytes.begin() + static_cast<int>(size)});
    ASSERT_EQ(cut.status, zebErrSize) << size;
    ASSERT_EQ(cut.consumed, static_cast<int>(size));
  }
}

TEST(LengthTableUnpack, StopsInTheMiddleOfARun) {
  // Five nibbles stand for 40 zeros: base 0, two zeros, and a count of 38 (base 26 plus 12). The
  // seventh group passes the table's end.
  std::vector<uint8_t> packed;
  for (int i = 0; i < 4; ++i) packed.insert(packed.end(), {0xD0, 0x0F, 0xCD, 0x00, 0xFC});
  const Unpacked back = unpack(packed);
  EXPECT_EQ(back.status, zebOk);
  EXPECT_EQ(back.consumed, 18);
  EXPECT_THAT(back.lengths, testing::Each(0));
}

TEST(LengthTableUnpack, DoubleSwitchGivesLengthsOfUpTo41) {
  const Unpacked back = unpack(std::vector<uint8_t>(256, 0xFF));
  EXPECT_EQ(back.status, zebOk);
  EXPECT_EQ(back.lengths[0], 41);
  ZebHuffState_8u* state = nullptr;
  EXPECT_EQ(zebsDecodeHuffInitAlloc_8u(back.lengths.data(), &state), zebErrCodeLenTable);
  zebsHuffFree_8u(state);
}

TEST(LengthTableUnpack, AnyBytesGiveLengthsWithinBounds) {
  test::Random random(3);
  for (int round = 0; round < 5000; ++round) {
    const Unpacked back = unpack(test::randomBytes(1 + test::below(random, 300), random()));
    ASSERT_TRUE(back.status == zebOk || back.status == zebErrSize);
    const auto [least, greatest] = std::minmax_element(back.lengths.begin(), back.lengths.end());
    ASSERT_GE(*least, 0);
    ASSERT_LE(*greatest, 41);
  }
}

}  // namespace
}  // namespace zebdc
