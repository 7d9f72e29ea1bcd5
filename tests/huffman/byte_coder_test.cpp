// Byte Huffman coding: codes, single symbols, blocks, and the record that blocks leave.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <memory>

#include "huffman/reference_coder.h"
#include "huffman/state.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;
using Frequencies = std::array<uint32_t, 256>;
using Lengths = std::array<int, 256>;

Frequencies frequenciesOf(const Bytes& bytes) {
  Frequencies frequencies{};
  for (const uint8_t byte : bytes) ++frequencies[byte];
  return frequencies;
}

Lengths lengthsOf(ZebHuffState_8u& state) {
  Lengths lengths;
  EXPECT_EQ(zebsHuffGetLenCodeTable_8u(lengths.data(), &state), zebOk);
  return lengths;
}

// A record between guard bytes, aligned as badly as it may be.
struct Record {
  GuardedBuffer memory{2608, GuardedBuffer::Edge::none};
  ZebHuffState_8u& state = *memory.as<ZebHuffState_8u>();
};

// A code for a set of bytes; every value that occurs has one.
struct Code : Record {
  explicit Code(const Frequencies& frequencies) {
    EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &state), zebOk);
    lengths = lengthsOf(state);
  }
  explicit Code(const Bytes& bytes) : Code(frequenciesOf(bytes)) {}
  Lengths lengths;
};

Bytes encodeWhole(Code& code, const Bytes& src) {
  int capacity = 0;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(code.lengths.data(), static_cast<int>(src.size()), &capacity,
                                      nullptr),
            zebOk);
  GuardedBuffer in(src);
  GuardedBuffer out(static_cast<size_t>(capacity));
  int written = -1;
  EXPECT_EQ(
      zebsEncodeHuff_8u(in.data(), static_cast<int>(src.size()), out.data(), &written, &code.state),
      zebOk);
  EXPECT_EQ(written % 4, 0);
  int rest = -1;
  EXPECT_EQ(zebsEncodeHuffFinal_8u(out.data() + written, &rest, &code.state), zebOk);
  return {out.data(), out.data() + written + rest};
}

// Decodes a block in one call into a destination of exactly the given size.
Bytes decodeWhole(const Lengths& lengths, const Bytes& coded, size_t size) {
  Record record;
  EXPECT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &record.state), zebOk);
  GuardedBuffer in(coded);
  GuardedBuffer out(size);
  int written = static_cast<int>(size);
  EXPECT_EQ(zebsDecodeHuff_8u(in.data(), static_cast<int>(coded.size()), out.data(), &written,
                              &record.state),
            zebOk);
  return {out.data(), out.data() + written};
}

Frequencies fibonacciFrequencies(int count) {
  Frequencies frequencies{};
  uint32_t a = 1;
  uint32_t b = 1;
  for (int i = 0; i < count; ++i) {
    frequencies[static_cast<size_t>(i)] = a;
    b += a;
    std::swap(a, b);
  }
  return frequencies;
}

// Bytes that use long codes often, since each value is drawn with equal chance.
Bytes uniformOver(const Frequencies& frequencies, size_t size, uint64_t seed) {
  Bytes values;
  for (size_t value = 0; value < 256; ++value) {
    if (frequencies[value] != 0) values.push_back(static_cast<uint8_t>(value));
  }
  test::Random random(seed);
  Bytes out(size);
  for (uint8_t& byte : out) byte = values[test::below(random, values.size())];
  return out;
}

// --- the code

TEST(HuffCode, SizeOfTheRecord) {
  int size = 0;
  EXPECT_EQ(zebsHuffGetSize_8u(&size), zebOk);
  EXPECT_EQ(size, 2608);
  EXPECT_EQ(zebsHuffGetSize_8u(nullptr), zebErrNullPtr);
}

TEST(HuffCode, SingleValueGetsTheOneBitCodeZero) {
  Frequencies frequencies{};
  frequencies[77] = 1000;
  Code code(frequencies);
  EXPECT_EQ(code.lengths[77], 1);
  EXPECT_EQ(std::count(code.lengths.begin(), code.lengths.end(), 0), 255);
  EXPECT_EQ(code.state.code[77], 0u);
}

TEST(HuffCode, NodeGoesBehindEntriesOfEqualWeight) {
  Frequencies frequencies{};
  frequencies[0] = 1;
  frequencies[1] = 1;
  frequencies[2] = 2;
  Code code(frequencies);
  EXPECT_EQ(code.lengths[0], 2);
  EXPECT_EQ(code.lengths[1], 2);
  EXPECT_EQ(code.lengths[2], 1);
  EXPECT_EQ(code.state.code[0], 1u);
  EXPECT_EQ(code.state.code[1], 0u);
  EXPECT_EQ(code.state.code[2], 1u);
}

TEST(HuffCode, TwoValuesTakeOneBitEach) {
  Frequencies frequencies{};
  frequencies[10] = 5;
  frequencies[20] = 5;
  Code code(frequencies);
  EXPECT_EQ(code.lengths[10], 1);
  EXPECT_EQ(code.lengths[20], 1);
  EXPECT_EQ(code.state.code[20], 0u);
  EXPECT_EQ(code.state.code[10], 1u);
}

TEST(HuffCode, OrientationOfTheDocumentedExample) {
  Lengths lengths{};
  lengths['A'] = 1;
  lengths['B'] = lengths['C'] = 2;
  Record record;
  ASSERT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &record.state), zebOk);
  EXPECT_EQ(record.state.code['C'], 0u);
  EXPECT_EQ(record.state.code['B'], 1u);
  EXPECT_EQ(record.state.code['A'], 1u);
  EXPECT_EQ(record.state.zeroSymbol, 'C');
  EXPECT_EQ(record.state.maxLen, 2);
  EXPECT_EQ(record.state.minLen, 1);
}

TEST(HuffCode, EqualFrequenciesOf256ValuesTakeEightBits) {
  Frequencies frequencies;
  frequencies.fill(3);
  Code code(frequencies);
  EXPECT_THAT(code.lengths, testing::Each(8));
}

TEST(HuffCode, LengthsAreOptimal) {
  test::Random random(1);
  for (int round = 0; round < 400; ++round) {
    Frequencies frequencies{};
    const size_t spread = size_t{1} << test::below(random, 22);
    const size_t values = 1 + test::below(random, 256);
    for (size_t i = 0; i < values; ++i) {
      frequencies[test::below(random, 256)] = static_cast<uint32_t>(test::below(random, spread));
    }
    frequencies[test::below(random, 256)] += 1;
    Code code(frequencies);
    uint64_t cost = 0;
    for (size_t i = 0; i < 256; ++i) {
      cost += static_cast<uint64_t>(frequencies[i]) * static_cast<uint64_t>(code.lengths[i]);
    }
    ASSERT_EQ(cost, test::optimalCost(frequencies));
  }
}

TEST(HuffCode, CodesAreThoseOfTheRule) {
  for (const auto& [name, bytes] : test::oneOfEachKind(5000)) {
    Code code(bytes);
    const test::ReferenceEncoder reference(code.lengths);
    for (size_t i = 0; i < 256; ++i) {
      ASSERT_EQ(code.state.code[i], reference.codes()[i]) << name << " value " << i;
    }
  }
}

TEST(HuffCode, DeepTreesUpTo32Levels) {
  for (int count = 2; count <= 33; ++count) {
    Code code(fibonacciFrequencies(count));
    EXPECT_EQ(*std::max_element(code.lengths.begin(), code.lengths.end()), count - 1);
  }
  Record record;
  for (int count = 34; count <= 40; ++count) {
    const Frequencies frequencies = fibonacciFrequencies(count);
    EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebErrCodeTooLong) << count;
  }
}

TEST(HuffCode, UnusableFrequencies) {
  Record record;
  Frequencies frequencies{};
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebErrFreqTable);
  frequencies[3] = 0x80000000u;
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebErrFreqTable);
  frequencies[3] = 0x7FFFFFFFu;
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebOk);
  frequencies[200] = 1;
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebErrFreqTable);
  // A sum that wraps around all of 32 bits is caught on the way.
  frequencies[4] = frequencies[5] = 0x7FFFFFFFu;
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), &record.state), zebErrFreqTable);
}

TEST(HuffCode, UnusableLengths) {
  Record record;
  Lengths lengths{};
  EXPECT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &record.state), zebErrCodeLenTable);
  for (const int bad : {33, 1000, INT32_MAX, -1, INT32_MIN}) {
    lengths[9] = bad;
    EXPECT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &record.state), zebErrCodeLenTable) << bad;
  }
  lengths[9] = 32;
  EXPECT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &record.state), zebOk);
}

TEST(HuffCode, NullPointers) {
  Record record;
  const Frequencies frequencies{};
  const Lengths lengths{};
  EXPECT_EQ(zebsEncodeHuffInit_8u(nullptr, &record.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffInit_8u(frequencies.data(), nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInit_8u(nullptr, &record.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInit_8u(lengths.data(), nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsHuffGetLenCodeTable_8u(nullptr, &record.state), zebErrNullPtr);
  Lengths out;
  EXPECT_EQ(zebsHuffGetLenCodeTable_8u(out.data(), nullptr), zebErrNullPtr);

  ZebHuffState_8u* const untouched = &record.state;
  ZebHuffState_8u* state = untouched;
  EXPECT_EQ(zebsEncodeHuffInitAlloc_8u(nullptr, &state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffInitAlloc_8u(frequencies.data(), nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_8u(nullptr, &state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_8u(lengths.data(), nullptr), zebErrNullPtr);
  EXPECT_EQ(state, untouched);
}

TEST(HuffCode, InitAllocStoresTheRecordEvenWhenInitRefuses) {
  const Frequencies frequencies{};
  ZebHuffState_8u* state = nullptr;
  EXPECT_EQ(zebsEncodeHuffInitAlloc_8u(frequencies.data(), &state), zebErrFreqTable);
  EXPECT_NE(state, nullptr);
  zebsHuffFree_8u(state);
  const Lengths lengths{};
  state = nullptr;
  EXPECT_EQ(zebsDecodeHuffInitAlloc_8u(lengths.data(), &state), zebErrCodeLenTable);
  EXPECT_NE(state, nullptr);
  zebsHuffFree_8u(state);
}

// --- bounds

TEST(HuffBounds, FormulasAndStatuses) {
  Lengths lengths{};
  int encoded = -1;
  int decoded = -1;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(nullptr, 0, &encoded, &decoded), zebErrNullPtr);
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 0, &encoded, &decoded), zebErrSize);
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), -1, &encoded, &decoded), zebErrSize);
  EXPECT_EQ(encoded, -1);
  EXPECT_EQ(decoded, -1);
  // An empty table counts as a longest length of 1 and a shortest of 32.
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 100, &encoded, &decoded), zebOk);
  EXPECT_EQ(encoded, (100 + 1 + 7) >> 3);
  EXPECT_EQ(decoded, 200);
  lengths[1] = 3;
  lengths[2] = 12;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 1000, &encoded, &decoded), zebOk);
  EXPECT_EQ(encoded, (1000 * 12 + 12 + 7) >> 3);
  EXPECT_EQ(decoded, 1000 * 64 / 3);
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 1000, nullptr, nullptr), zebOk);
  lengths[3] = -1;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 1, &encoded, &decoded), zebErrCodeLenTable);
  lengths[3] = 33;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 1, &encoded, &decoded), zebErrCodeLenTable);
}

TEST(HuffBounds, AnswersBeyond31BitsAreRefusedOnlyWhenAskedFor) {
  Lengths lengths{};
  lengths[1] = 1;
  lengths[2] = 12;
  int encoded = -1;
  int decoded = -1;
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 100'000'000, &encoded, &decoded), zebErrSize);
  EXPECT_EQ(encoded, -1);
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), 100'000'000, &encoded, nullptr), zebOk);
  EXPECT_EQ(encoded, 150'000'002);
  EXPECT_EQ(zebsHuffGetDstBuffSize_8u(lengths.data(), INT32_MAX, &encoded, nullptr), zebErrSize);
}

// --- single symbols

TEST(HuffOne, EveryCodeAtEveryOffset) {
  const Frequencies frequencies = fibonacciFrequencies(33);
  Code code(frequencies);
  Record decoder;
  ASSERT_EQ(zebsDecodeHuffInit_8u(code.lengths.data(), &decoder.state), zebOk);
  for (int value = 0; value < 33; ++value) {
    const int length = code.lengths[static_cast<size_t>(value)];
    for (int offset = 0; offset < 8; ++offset) {
      const size_t bytes = static_cast<size_t>(length + offset + 7) / 8;
      GuardedBuffer exact(bytes);
      memset(exact.data(), 0xFF, bytes);
      ASSERT_EQ(
          zebsEncodeHuffOne_8u(static_cast<uint8_t>(value), exact.data(), offset, &code.state),
          zebOk);
      uint64_t bits = 0;
      for (size_t i = 0; i < 8; ++i) bits = bits << 8 | (i < bytes ? exact[i] : 0);
      // At an offset the first byte keeps its bits, and those where the code was ORed in.
      uint64_t expected = static_cast<uint64_t>(code.state.code[value]) << (64 - length - offset);
      if (offset != 0) expected |= uint64_t{0xFF} << 56;
      ASSERT_EQ(bits, expected) << "value " << value << " offset " << offset;

      memset(exact.data(), 0, bytes);
      zebsEncodeHuffOne_8u(static_cast<uint8_t>(value), exact.data(), offset, &code.state);
      GuardedBuffer padded(static_cast<size_t>(offset + decoder.state.maxLen + 7) / 8);
      memset(padded.data(), 0, padded.size());
      memcpy(padded.data(), exact.data(), bytes);
      uint8_t symbol = 255;
      ASSERT_EQ(zebsDecodeHuffOne_8u(padded.data(), offset, &symbol, &decoder.state), zebOk);
      ASSERT_EQ(symbol, value);
    }
  }
}

TEST(HuffOne, StatusesAndTheirOrder) {
  Code code(Bytes{1, 2, 2});
  uint8_t byte = 7;
  EXPECT_EQ(zebsEncodeHuffOne_8u(9, nullptr, 8, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffOne_8u(9, &byte, 8, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffOne_8u(9, &byte, 8, &code.state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffOne_8u(9, &byte, -1, &code.state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffOne_8u(9, &byte, 0, &code.state), zebErrCodeLenTable);
  EXPECT_EQ(byte, 7);

  Record decoder;
  ASSERT_EQ(zebsDecodeHuffInit_8u(code.lengths.data(), &decoder.state), zebOk);
  uint8_t symbol = 99;
  EXPECT_EQ(zebsDecodeHuffOne_8u(nullptr, 8, &symbol, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 8, nullptr, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 8, &symbol, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 8, &symbol, &decoder.state), zebErrSize);
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, -1, &symbol, &decoder.state), zebErrSize);
  const int32_t maxLen = decoder.state.maxLen;
  decoder.state.maxLen = 0;
  decoder.state.limitTable = nullptr;
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 0, &symbol, &decoder.state), zebErrSize);
  decoder.state.maxLen = maxLen;
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 0, &symbol, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(symbol, 99);
}

TEST(HuffOne, BitsWithoutACodeAreReported) {
  Lengths lengths{};
  lengths[5] = 2;  // the codes 01, 10 and 11 belong to nothing
  Record decoder;
  ASSERT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &decoder.state), zebOk);
  uint8_t symbol = 99;
  uint8_t byte = 0x3F;
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 0, &symbol, &decoder.state), zebOk);
  EXPECT_EQ(symbol, 5);
  byte = 0xC0;
  symbol = 99;
  EXPECT_EQ(zebsDecodeHuffOne_8u(&byte, 0, &symbol, &decoder.state), zebErrCodeLenTable);
  EXPECT_EQ(symbol, 99);
}

// --- blocks

TEST(HuffBlock, ArgumentChecks) {
  Code code(Bytes{1, 2, 2});
  const uint8_t src = 1;
  uint8_t dst = 7;
  int size = 4;
  EXPECT_EQ(zebsEncodeHuff_8u(nullptr, 0, &dst, &size, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuff_8u(&src, 0, nullptr, &size, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuff_8u(&src, 0, &dst, nullptr, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuff_8u(&src, 0, &dst, &size, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuff_8u(&src, 0, &dst, &size, &code.state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffFinal_8u(nullptr, &size, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffFinal_8u(&dst, nullptr, &code.state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffFinal_8u(&dst, &size, nullptr), zebErrNullPtr);

  Record decoder;
  ASSERT_EQ(zebsDecodeHuffInit_8u(code.lengths.data(), &decoder.state), zebOk);
  EXPECT_EQ(zebsDecodeHuff_8u(nullptr, 0, &dst, &size, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuff_8u(&src, 0, nullptr, &size, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuff_8u(&src, 0, &dst, nullptr, &decoder.state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuff_8u(&src, 0, &dst, &size, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuff_8u(&src, 0, &dst, &size, &decoder.state), zebErrSize);
  for (const int capacity : {0, -1}) {
    size = capacity;
    EXPECT_EQ(zebsDecodeHuff_8u(&src, 1, &dst, &size, &decoder.state), zebErrSize);
    EXPECT_EQ(size, capacity);
  }
  EXPECT_EQ(dst, 7);
}

TEST(HuffBlock, FewBitsWaitForFinal) {
  Code code(Bytes{1, 2, 2, 3});
  const Bytes src = {1, 2, 3};
  uint8_t dst[4] = {};
  int written = -1;
  EXPECT_EQ(zebsEncodeHuff_8u(src.data(), 3, dst, &written, &code.state), zebOk);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(zebsEncodeHuffFinal_8u(dst, &written, &code.state), zebOk);
  EXPECT_EQ(written, 1);
  EXPECT_EQ(zebsEncodeHuffFinal_8u(dst, &written, &code.state), zebOk);
  EXPECT_EQ(written, 1) << "the record stays as it was";
}

TEST(HuffBlock, RoundTripsOfAllKindsAndSizesReachTheBound) {
  for (const size_t size : {1u, 2u, 3u, 31u, 511u, 512u, 513u, 4000u, 70000u}) {
    for (const auto& [name, bytes] : test::oneOfEachKind(size)) {
      Code code(bytes);
      const Bytes coded = encodeWhole(code, bytes);
      const uint64_t bits = test::optimalCost(frequenciesOf(bytes));
      ASSERT_EQ(coded.size(), (bits + 7) / 8) << name << " " << size;
      ASSERT_EQ(decodeWhole(code.lengths, coded, size), bytes) << name << " " << size;
    }
  }
}

TEST(HuffBlock, EncoderInPiecesIsTheRule) {
  test::Random random(4);
  std::vector<Frequencies> codes = {fibonacciFrequencies(9), fibonacciFrequencies(12),
                                    fibonacciFrequencies(17), fibonacciFrequencies(33)};
  codes.push_back(frequenciesOf(test::textLike(20000, 1)));
  codes.push_back(frequenciesOf(test::randomBytes(20000, 1)));
  for (const Frequencies& frequencies : codes) {
    for (int round = 0; round < 8; ++round) {
      Bytes src = uniformOver(frequencies, 12000, random());
      // Values without a code are passed over.
      if (round % 2 == 1) src[test::below(random, src.size())] = 254;
      Code code(frequencies);
      test::ReferenceEncoder reference(code.lengths);
      Bytes expected;
      const size_t largest = size_t{1} << (2 * (1 + round));
      for (size_t at = 0; at < src.size();) {
        const size_t piece = std::min(1 + test::below(random, largest), src.size() - at);
        const size_t before = expected.size();
        reference.encode(src.data() + at, piece, expected);
        GuardedBuffer in(std::span<const uint8_t>(src).subspan(at, piece));
        GuardedBuffer out(expected.size() - before);
        int written = -1;
        ASSERT_EQ(zebsEncodeHuff_8u(in.data(), static_cast<int>(piece), out.data(), &written,
                                    &code.state),
                  zebOk);
        ASSERT_EQ(static_cast<size_t>(written), out.size());
        ASSERT_TRUE(
            std::equal(out.begin(), out.end(), expected.begin() + static_cast<int>(before)));
        ASSERT_EQ(code.state.bitBuffer, reference.bitBuffer());
        ASSERT_EQ(code.state.bitCount, reference.bitCount());
        at += piece;
      }
    }
  }
}

void expectSameAsReference(const Lengths& lengths, const Bytes& coded, size_t largestPiece,
                           size_t largestRoom, test::Random& random) {
  Record decoder;
  ASSERT_EQ(zebsDecodeHuffInit_8u(lengths.data(), &decoder.state), zebOk);
  test::ReferenceDecoder reference(lengths);
  for (size_t at = 0; at < coded.size();) {
    const size_t piece = std::min(1 + test::below(random, largestPiece), coded.size() - at);
    const size_t room = 1 + test::below(random, largestRoom);
    GuardedBuffer in(std::span<const uint8_t>(coded).subspan(at, piece));
    Bytes expected(room);
    expected.resize(reference.decode(in.data(), piece, expected.data(), room));
    GuardedBuffer out(room);
    int written = static_cast<int>(room);
    ASSERT_EQ(
        zebsDecodeHuff_8u(in.data(), static_cast<int>(piece), out.data(), &written, &decoder.state),
        zebOk);
    ASSERT_EQ(Bytes(out.data(), out.data() + written), expected);
    ASSERT_EQ(decoder.state.bitBuffer, reference.bitBuffer());
    ASSERT_EQ(decoder.state.bitCount, reference.bitCount());
    ASSERT_EQ(decoder.state.zeroBits, reference.zeroBits());
    at += piece;
  }
}

TEST(HuffBlock, DecoderInPiecesIsTheRule) {
  test::Random random(5);
  for (const auto& [name, bytes] : test::oneOfEachKind(60000)) {
    SCOPED_TRACE(name);
    Code code(bytes);
    const Bytes coded = encodeWhole(code, bytes);
    constexpr size_t largestPieceAndRoom[][2] = {{1, 3},       {40, 500},      {5000, 3},
                                                 {5000, 9000}, {100000, 5000}, {100000, 200000}};
    for (const auto& [piece, room] : largestPieceAndRoom) {
      expectSameAsReference(code.lengths, coded, piece, room, random);
    }
  }
}

TEST(HuffBlock, DecoderOfDeepCodesIsTheRule) {
  test::Random random(6);
  for (const int count : {2, 3, 9, 12, 13, 20, 25, 33}) {
    SCOPED_TRACE(count);
    const Frequencies frequencies = fibonacciFrequencies(count);
    Code code(frequencies);
    const Bytes coded = encodeWhole(code, uniformOver(frequencies, 30000, random()));
    for (int round = 0; round < 4; ++round) {
      expectSameAsReference(code.lengths, coded, 100000, 100000, random);
    }
    // Long runs of the all-zero code, with single other symbols between them.
    Bytes zeros(40000, static_cast<uint8_t>(count > 1 ? 1 : 0));
    for (int i = 0; i < 20; ++i) zeros[test::below(random, zeros.size())] = 0;
    const Bytes codedZeros = encodeWhole(*std::make_unique<Code>(frequencies), zeros);
    for (int round = 0; round < 4; ++round) {
      expectSameAsReference(code.lengths, codedZeros, 100000, 100000, random);
    }
  }
}

TEST(HuffBlock, TrailingZeroBitsDecodeAsTheZeroSymbol) {
  Code code(Bytes{1, 1, 2, 3});
  const Bytes coded = encodeWhole(code, {1, 2, 3});
  ASSERT_EQ(coded.size(), 1u);
  EXPECT_GT(decodeWhole(code.lengths, coded, 8).size(), 3u);
  EXPECT_EQ(decodeWhole(code.lengths, coded, 3), (Bytes{1, 2, 3}));
}

TEST(HuffBlock, AnyLengthsAndBytesStayInBounds) {
  test::Random random(7);
  for (int round = 0; round < 600; ++round) {
    Lengths lengths{};
    const size_t values = 1 + test::below(random, 256);
    const size_t longest = 1 + test::below(random, 32);
    for (size_t i = 0; i < values; ++i) {
      lengths[test::below(random, 256)] = static_cast<int>(test::below(random, longest + 1));
    }
    lengths[test::below(random, 256)] = static_cast<int>(longest);
    expectSameAsReference(lengths, test::randomBytes(round % 8 == 0 ? 6000 : 200, random()), 8000,
                          16000, random);
  }
}

}  // namespace
}  // namespace zebdc
