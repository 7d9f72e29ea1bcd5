// Whole-block decoding.

#include <gtest/gtest.h>
#include <limits.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "bzip2/plain_bwt.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::PlainBwt;
using test::plainDecodeSymbols;
using test::plainInverse;
using test::Random;

using Symbols = std::vector<uint16_t>;

struct Alphabet {
  Bytes map = Bytes(256, 0);
  Bytes list;
};

Alphabet alphabetOf(const Bytes& values) {
  Alphabet alphabet;
  for (const uint8_t value : values) alphabet.map[value] = 1;
  for (int value = 0; value < 256; ++value) {
    if (alphabet.map[static_cast<size_t>(value)] != 0) {
      alphabet.list.push_back(static_cast<uint8_t>(value));
    }
  }
  return alphabet;
}

Alphabet firstValues(size_t count) {
  Bytes values;
  for (size_t i = 0; i < count; ++i) values.push_back(static_cast<uint8_t>(i * 5 + 3));
  return alphabetOf(values);
}

struct Decoded {
  ZebStatus status;
  int length;
  Bytes bytes;  // the whole room
};

// All buffers end at inaccessible pages.
Decoded decode(const Symbols& symbols, const Alphabet& alphabet, int index, size_t capacity) {
  const GuardedBuffer src(std::span(reinterpret_cast<const uint8_t*>(symbols.data()),
                                    symbols.size() * sizeof(uint16_t)));
  const GuardedBuffer map(alphabet.map);
  const GuardedBuffer dst(capacity);
  const GuardedBuffer scratch(4 * capacity);
  std::fill(dst.begin(), dst.end(), uint8_t{0xEE});
  int length = static_cast<int>(capacity);
  const ZebStatus status = zebsDecodeBlock_BZ2_16u8u(
      src.as<const uint16_t>(), static_cast<int>(symbols.size()), dst.data(), &length, index,
      static_cast<int>(alphabet.list.size()), map.data(), scratch.data());
  return {status, length, Bytes(dst.begin(), dst.end())};
}

void appendNumeral(Symbols& symbols, size_t run) {
  for (; run > 0; run = (run - 1) / 2) symbols.push_back(static_cast<uint16_t>((run - 1) % 2));
}

// Zero-run coding of a column's move-to-front positions.
Symbols symbolsOf(const Bytes& column, Bytes list) {
  Symbols symbols;
  size_t run = 0;
  for (const uint8_t byte : column) {
    const auto at = std::find(list.begin(), list.end(), byte);
    if (at == list.begin()) {
      ++run;
      continue;
    }
    appendNumeral(symbols, run);
    run = 0;
    symbols.push_back(static_cast<uint16_t>(at - list.begin() + 1));
    std::rotate(list.begin(), at, at + 1);
  }
  appendNumeral(symbols, run);
  return symbols;
}

TEST(DecodeBlockSize, IsFourBytesForEach) {
  int size = 77;
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(900000, &size), zebOk);
  EXPECT_EQ(size, 3600000);
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(0, &size), zebOk);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(16777215, &size), zebOk);
  EXPECT_EQ(size, 67108860);
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(16777216, &size), zebErrSize);
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(UINT32_MAX, &size), zebErrSize);
  EXPECT_EQ(size, 67108860);
  EXPECT_EQ(zebsDecodeBlockGetSize_BZ2_8u(UINT32_MAX, nullptr), zebErrNullPtr);
}

TEST(DecodeBlock, ChecksItsArgumentsInOrder) {
  const uint16_t symbol = 0;
  uint8_t byte = 5;
  int length = 1;
  const Bytes map(256, 1);
  uint8_t scratch[4];
  // Sizes are out of range as well.
  EXPECT_EQ(zebsDecodeBlock_BZ2_16u8u(nullptr, 0, &byte, &length, 9, 999, map.data(), scratch),
            zebErrNullPtr);
  EXPECT_EQ(zebsDecodeBlock_BZ2_16u8u(&symbol, 0, nullptr, &length, 9, 999, map.data(), scratch),
            zebErrNullPtr);
  EXPECT_EQ(zebsDecodeBlock_BZ2_16u8u(&symbol, 0, &byte, nullptr, 9, 999, map.data(), scratch),
            zebErrNullPtr);
  EXPECT_EQ(zebsDecodeBlock_BZ2_16u8u(&symbol, 0, &byte, &length, 9, 999, nullptr, scratch),
            zebErrNullPtr);
  EXPECT_EQ(zebsDecodeBlock_BZ2_16u8u(&symbol, 0, &byte, &length, 9, 999, map.data(), nullptr),
            zebErrNullPtr);
  // The map has 256 values: a consistent count would decode, any other one end at once.
  const auto call = [&](int srcLen, int dstLen, int index, int numInUse) {
    length = dstLen;
    const ZebStatus status = zebsDecodeBlock_BZ2_16u8u(&symbol, srcLen, &byte, &length, index,
                                                       numInUse, map.data(), scratch);
    EXPECT_EQ(length, dstLen);
    return status;
  };
  EXPECT_EQ(call(0, 1, 0, 256), zebErrSize);
  EXPECT_EQ(call(-1, 1, 0, 256), zebErrSize);
  EXPECT_EQ(call(1, 16777216, 0, 256), zebErrSize);
  EXPECT_EQ(call(1, -1, -2, 256), zebErrSize);
  EXPECT_EQ(call(1, INT_MIN, 0, 256), zebErrSize);
  EXPECT_EQ(call(1, 1, -1, 256), zebErrSize);
  EXPECT_EQ(call(1, 0, 0, 256), zebErrSize);
  EXPECT_EQ(call(1, 1, 1, 256), zebErrSize);
  EXPECT_EQ(call(1, 1, 0, 257), zebErrSize);
  EXPECT_EQ(call(1, 1, 0, -1), zebErrSize);
  EXPECT_EQ(byte, 5);
  EXPECT_EQ(call(1, 1, 0, 256), zebOk);
  EXPECT_EQ(byte, 0);
}

TEST(DecodeBlock, AMapThatDoesNotMatchItsCountDecodesNothing) {
  Alphabet alphabet = firstValues(3);
  alphabet.list.push_back(99);
  const Decoded decoded = decode({0, 2, 3}, alphabet, 0, 8);
  EXPECT_EQ(decoded.status, zebOk);
  EXPECT_EQ(decoded.length, 8);
  EXPECT_EQ(decoded.bytes, Bytes(8, 0xEE));
  alphabet.list.clear();
  EXPECT_EQ(decode({0, 2, 3}, alphabet, 0, 8).bytes, Bytes(8, 0xEE));
}

// An entry of the scratch holds links of 24 bits.
TEST(DecodeBlock, TheLargestBlock) {
  constexpr int largest = (1 << 24) - 1;
  const Symbols digits(24, 0);
  const Alphabet alphabet = alphabetOf({'q'});
  const GuardedBuffer dst(largest);
  const GuardedBuffer scratch(size_t{4} * largest);
  int length = largest;
  const auto decodeAll = [&] {
    return zebsDecodeBlock_BZ2_16u8u(digits.data(), 24, dst.data(), &length, length - 1, 1,
                                     alphabet.map.data(), scratch.data());
  };
  EXPECT_EQ(decodeAll(), zebOk);
  EXPECT_EQ(length, largest);
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t byte) { return byte == 'q'; }));
  length = largest - 1;
  EXPECT_EQ(decodeAll(), zebErrGeneral);
}

TEST(DecodeBlock, MapEntriesCountWhenNotZero) {
  Alphabet alphabet = firstValues(1);
  alphabet.map[3] = 0x80;
  EXPECT_EQ(decode({0}, alphabet, 0, 1).bytes, Bytes(1, 3));
}

TEST(DecodeBlock, NumeralOfOneValue) {
  const Alphabet alphabet = alphabetOf({'q'});
  const Decoded decoded = decode({1, 0}, alphabet, 0, 9);  // RUNB RUNA: 2 + 2
  EXPECT_EQ(decoded.status, zebOk);
  EXPECT_EQ(decoded.length, 4);
  EXPECT_EQ(Bytes(decoded.bytes.begin(), decoded.bytes.begin() + 4), Bytes(4, 'q'));
}

TEST(DecodeBlock, RunsOfEveryLength) {
  const Alphabet alphabet = firstValues(2);
  for (size_t run = 1; run <= 600; ++run) {
    Symbols symbols = {2};
    appendNumeral(symbols, run);
    symbols.push_back(2);
    const Bytes column = *plainDecodeSymbols(symbols, alphabet.list, 1000);
    ASSERT_EQ(column.size(), run + 2);
    const Decoded exact = decode(symbols, alphabet, 1, run + 2);
    ASSERT_EQ(exact.status, zebOk);
    ASSERT_EQ(exact.length, static_cast<int>(run + 2));
    ASSERT_EQ(exact.bytes, plainInverse(column, 1));
    ASSERT_EQ(decode(symbols, alphabet, 0, run + 1).status, zebErrGeneral);
    ASSERT_EQ(decode(symbols, alphabet, 0, run).status, zebErrGeneral);
  }
}

TEST(DecodeBlock, RealBlocksComeBack) {
  for (const size_t size : {1, 2, 100, 5000, 12000}) {
    for (const auto& [name, block] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name + " of " + std::to_string(size));
      const PlainBwt bwt = test::plainForward(block);
      const Alphabet alphabet = alphabetOf(block);
      const Symbols symbols = symbolsOf(bwt.column, alphabet.list);
      const Decoded exact = decode(symbols, alphabet, bwt.index, size);
      ASSERT_EQ(exact.status, zebOk);
      ASSERT_EQ(exact.length, static_cast<int>(size));
      ASSERT_EQ(exact.bytes, block);
      const Decoded roomy = decode(symbols, alphabet, bwt.index, size + 37);
      ASSERT_EQ(roomy.status, zebOk);
      ASSERT_EQ(roomy.length, static_cast<int>(size));
      ASSERT_TRUE(std::equal(block.begin(), block.end(), roomy.bytes.begin()));
      if (size > 1) {
        const Decoded tight = decode(symbols, alphabet, 0, size - 1);
        ASSERT_EQ(tight.status, zebErrGeneral);
        ASSERT_EQ(tight.length, static_cast<int>(size) - 1);
      }
    }
  }
}

// Any symbols at all, those beyond the alphabet included, against the plain definition.
TEST(DecodeBlock, HostileSymbols) {
  Random random(1);
  for (int round = 0; round < 3000; ++round) {
    const Alphabet alphabet = firstValues(below(random, 52));
    Symbols symbols(1 + below(random, 200));
    const size_t kinds[] = {3, 20, 258, 300, 65536};
    const size_t kind = kinds[below(random, 5)];
    for (uint16_t& symbol : symbols) symbol = static_cast<uint16_t>(below(random, kind));
    const size_t capacity = 1 + below(random, round % 2 == 0 ? 300 : 20000);
    const int index = static_cast<int>(below(random, capacity));
    const auto column = plainDecodeSymbols(symbols, alphabet.list, capacity);
    const Decoded decoded = decode(symbols, alphabet, index, capacity);
    if (!column) {
      ASSERT_EQ(decoded.status, zebErrGeneral);
      ASSERT_EQ(decoded.length, static_cast<int>(capacity));
      continue;
    }
    ASSERT_EQ(decoded.status, zebOk);
    ASSERT_EQ(decoded.length, static_cast<int>(column->size()));
    if (static_cast<size_t>(index) >= column->size()) continue;  // bytes without meaning
    const Bytes expected = plainInverse(*column, static_cast<size_t>(index));
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), decoded.bytes.begin()));
  }
}

TEST(DecodeBlock, NumeralsOfAnyLengthAreRefusedWithoutWrapping) {
  const Alphabet alphabet = firstValues(2);
  for (size_t digits = 1; digits <= 200; ++digits) {
    for (const uint16_t digit : {uint16_t{0}, uint16_t{1}}) {
      const ZebStatus status = decode(Symbols(digits, digit), alphabet, 0, 1000).status;
      const size_t longest = digit == 0 ? 9 : 8;  // 511 and 510
      ASSERT_EQ(status, digits <= longest ? zebOk : zebErrGeneral) << digits;
    }
  }
}

TEST(DecodeBlock, EveryPositionOfTheList) {
  Bytes all;
  for (int value = 0; value < 256; ++value) all.push_back(static_cast<uint8_t>(value));
  const Alphabet alphabet = alphabetOf(all);
  Symbols symbols;
  for (uint16_t position = 1; position < 256; ++position) {
    for (const uint16_t next : {position, uint16_t{255}, position, uint16_t{17}, uint16_t{16}}) {
      symbols.push_back(static_cast<uint16_t>(next + 1));
    }
  }
  const Bytes column = *plainDecodeSymbols(symbols, alphabet.list, 10000);
  const Decoded decoded = decode(symbols, alphabet, 5, column.size());
  ASSERT_EQ(decoded.status, zebOk);
  ASSERT_EQ(decoded.bytes, plainInverse(column, 5));
}

TEST(DecodeBlock, AnIndexBeyondTheBytesDecodedIsHarmless) {
  const Alphabet alphabet = firstValues(3);
  for (const int index : {2, 3, 100, 9999}) {
    const Decoded decoded = decode({0, 3}, alphabet, index, 10000);
    EXPECT_EQ(decoded.status, zebOk);
    EXPECT_EQ(decoded.length, 2);
  }
}

TEST(DecodeBlock, ScratchMayHaveAnyAlignment) {
  const Bytes block = test::textLike(20000, 2);
  const PlainBwt bwt = test::plainForward(block);
  const Alphabet alphabet = alphabetOf(block);
  const Symbols symbols = symbolsOf(bwt.column, alphabet.list);
  for (size_t shift = 0; shift < 8; ++shift) {
    Bytes scratch(4 * block.size() + 8);
    Bytes out(block.size());
    int length = static_cast<int>(out.size());
    ASSERT_EQ(
        zebsDecodeBlock_BZ2_16u8u(symbols.data(), static_cast<int>(symbols.size()), out.data(),
                                  &length, bwt.index, static_cast<int>(alphabet.list.size()),
                                  alphabet.map.data(), scratch.data() + shift),
        zebOk);
    ASSERT_EQ(out, block);
  }
}

}  // namespace
}  // namespace zebdc
