// Multi-table Huffman coding and its context.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include "bzip2/huffman_support.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::Accumulator;
using test::below;
using test::Bits;
using test::Bytes;
using test::Context;
using test::Decoder;
using test::Encoder;
using test::intOf;
using test::PlainBitWriter;
using test::PlainHuffmanDecoder;
using test::Random;
using test::Symbols;

Accumulator randomAccumulator(Random& random) {
  const int count = static_cast<int>(below(random, 33));
  const uint64_t valid = ~(~uint64_t{0} >> count);
  return {static_cast<uint32_t>((random() & valid) >> 32), count};
}

// ---- Sizes and checks

TEST(Bzip2Huffman, RecordSizes) {
  int size = 0;
  EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(1, &size), zebOk);
  EXPECT_EQ(size, 7782);
  EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(900000, &size), zebOk);
  EXPECT_EQ(size, 36000 + 7780);
  EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(INT32_MAX, &size), zebOk);
  EXPECT_EQ(size, 42949673 * 2 + 7780);
  EXPECT_EQ(zebsDecodeHuffGetSize_BZ2_8u16u(51, &size), zebOk);
  EXPECT_EQ(size, 9366);
  EXPECT_EQ(zebsDecodeHuffGetSize_BZ2_8u16u(INT32_MAX, &size), zebOk);
  EXPECT_EQ(size, 42949673 + 9364);
  size = 7;
  for (const int bad : {0, -1, INT32_MIN}) {
    EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(bad, &size), zebErrSize);
    EXPECT_EQ(zebsDecodeHuffGetSize_BZ2_8u16u(bad, &size), zebErrSize);
  }
  EXPECT_EQ(size, 7);
  EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffGetSize_BZ2_8u16u(0, nullptr), zebErrNullPtr);
}

TEST(Bzip2Huffman, InitChecksPointersBeforeSizes) {
  const test::GuardedBuffer memory(Encoder::sizeFor(10));
  ZebEncodeHuffState_BZ2* const state = memory.as<ZebEncodeHuffState_BZ2>();
  const uint32_t frequencies[258] = {};
  const uint16_t symbols[2] = {0, 1};
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(0, nullptr, symbols, 0, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(0, frequencies, nullptr, 0, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(0, frequencies, symbols, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(0, frequencies, symbols, 2, state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(-1, frequencies, symbols, 2, state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(259, frequencies, symbols, 2, state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(2, frequencies, symbols, 0, state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(2, frequencies, symbols, -1, state), zebErrSize);
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(2, frequencies, symbols, 1638351, state), zebErrSize);
  EXPECT_EQ(zebsDecodeHuffInit_BZ2_8u16u(0, nullptr), zebErrNullPtr);
  const Decoder decoder(3);
  EXPECT_EQ(zebsDecodeHuffInit_BZ2_8u16u(0, decoder.get()), zebErrSize);
  EXPECT_EQ(zebsDecodeHuffInit_BZ2_8u16u(259, decoder.get()), zebErrSize);
}

TEST(Bzip2Huffman, SymbolsOutsideTheAlphabetAreRefused) {
  const test::GuardedBuffer memory(Encoder::sizeFor(10));
  const std::vector<uint32_t> frequencies(258);
  const Symbols symbols = {0, 5, 1};
  EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(5, frequencies.data(), symbols.data(), 3,
                                         memory.as<ZebEncodeHuffState_BZ2>()),
            zebErrSize);
  const Encoder encoder({0, 1, 4}, 5);
  for (const Symbols& bad : {symbols, Symbols{0, 1, 65535}, Symbols(51, 0)}) {
    const uint16_t* pSrc = bad.data();
    int srcLen = intOf(bad.size());
    uint8_t dst[100];
    int dstLen = 100;
    Accumulator accumulator;
    EXPECT_EQ(zebsEncodeHuff_BZ2_16u8u(&accumulator.code, &accumulator.count, &pSrc, &srcLen, dst,
                                       &dstLen, encoder.get()),
              zebErrSize);
    EXPECT_EQ(pSrc, bad.data());
    EXPECT_EQ(dstLen, 100);
  }
}

TEST(Bzip2Huffman, InitAllocStoresNothingForBadArguments) {
  const Symbols symbols = {0, 1, 2};
  const uint32_t frequencies[3] = {1, 1, 1};
  const auto allocate = [&](int wndSize, const uint32_t* freq, const uint16_t* src, int srcLen,
                            ZebEncodeHuffState_BZ2** state) {
    return zebsEncodeHuffInitAlloc_BZ2_16u8u(wndSize, 3, freq, src, srcLen, state);
  };
  ZebEncodeHuffState_BZ2* encoder = nullptr;
  EXPECT_EQ(allocate(0, nullptr, symbols.data(), 3, &encoder), zebErrNullPtr);
  EXPECT_EQ(allocate(0, frequencies, nullptr, 3, &encoder), zebErrNullPtr);
  EXPECT_EQ(allocate(0, frequencies, symbols.data(), 3, nullptr), zebErrNullPtr);
  EXPECT_EQ(allocate(0, frequencies, symbols.data(), 3, &encoder), zebErrSize);
  EXPECT_EQ(allocate(2, frequencies, symbols.data(), 3, &encoder), zebErrSize);
  EXPECT_EQ(encoder, nullptr);
  EXPECT_EQ(allocate(3, frequencies, symbols.data(), 3, &encoder), zebOk);
  EXPECT_NE(encoder, nullptr);
  zebsEncodeHuffFree_BZ2_16u8u(encoder);

  ZebDecodeHuffState_BZ2* decoder = nullptr;
  EXPECT_EQ(zebsDecodeHuffInitAlloc_BZ2_8u16u(0, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_BZ2_8u16u(0, 3, &decoder), zebErrSize);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_BZ2_8u16u(3, 0, &decoder), zebErrSize);
  EXPECT_EQ(decoder, nullptr);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_BZ2_8u16u(3, 3, &decoder), zebOk);
  EXPECT_NE(decoder, nullptr);
  zebsDecodeHuffFree_BZ2_8u16u(decoder);
}

TEST(Bzip2Huffman, WritersAndReadersCheckPointersInOrderBeforeLengths) {
  const Encoder encoder({0, 1, 2}, 3);
  const Decoder decoder(3);
  uint32_t code = 0;
  int count = 0;
  int zero = 0;
  uint16_t word = 0;
  uint8_t byte = 7;
  const uint16_t* words = &word;
  const uint16_t* noWords = nullptr;
  const uint8_t* bytes = &byte;
  const uint8_t* noBytes = nullptr;
  ZebEncodeHuffState_BZ2* const e = encoder.get();
  ZebDecodeHuffState_BZ2* const d = decoder.get();

  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(nullptr, &count, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, nullptr, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, &count, nullptr, &zero, e), zebErrNullPtr);
  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, &count, &byte, nullptr, e), zebErrNullPtr);
  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, &count, &byte, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, &count, &byte, &zero, e), zebErrSize);

  const auto encode = [&](uint32_t* pCode, int* pCount, const uint16_t** ppSrc, int* pSrcLen,
                          uint8_t* pDst, int* pDstLen, ZebEncodeHuffState_BZ2* state) {
    return zebsEncodeHuff_BZ2_16u8u(pCode, pCount, ppSrc, pSrcLen, pDst, pDstLen, state);
  };
  EXPECT_EQ(encode(nullptr, &count, &words, &zero, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, nullptr, &words, &zero, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, nullptr, &zero, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &words, nullptr, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &words, &zero, nullptr, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &words, &zero, &byte, nullptr, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &words, &zero, &byte, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &noWords, &zero, &byte, &zero, e), zebErrNullPtr);
  EXPECT_EQ(encode(&code, &count, &words, &zero, &byte, &zero, e), zebErrSize);

  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(nullptr, &count, &bytes, &zero, d), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, nullptr, &bytes, &zero, d), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, nullptr, &zero, d), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, &bytes, nullptr, d), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, &bytes, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, &noBytes, &zero, d), zebErrNullPtr);
  EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, &bytes, &zero, d), zebErrSize);

  const auto decode = [&](uint32_t* pCode, int* pCount, const uint8_t** ppSrc, int* pSrcLen,
                          uint16_t* pDst, int* pDstLen, ZebDecodeHuffState_BZ2* state) {
    return zebsDecodeHuff_BZ2_8u16u(pCode, pCount, ppSrc, pSrcLen, pDst, pDstLen, state);
  };
  EXPECT_EQ(decode(nullptr, &count, &bytes, &zero, &word, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, nullptr, &bytes, &zero, &word, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, nullptr, &zero, &word, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &bytes, nullptr, &word, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &bytes, &zero, nullptr, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &bytes, &zero, &word, nullptr, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &bytes, &zero, &word, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &noBytes, &zero, &word, &zero, d), zebErrNullPtr);
  EXPECT_EQ(decode(&code, &count, &bytes, &zero, &word, &zero, d), zebErrSize);

  EXPECT_EQ(byte, 7);
  EXPECT_EQ(code, 0u);
  EXPECT_EQ(count, 0);
}

TEST(Bzip2Huffman, RefusesLengthsBelowOneAndLeavesItsArguments) {
  const Encoder encoder({0, 1, 2}, 3);
  const Decoder decoder(3);
  const uint16_t word = 1;
  const uint8_t in = 1;
  for (const int bad : {0, -1, INT32_MIN}) {
    uint32_t code = 0xABC00000;
    int count = 12;
    int good = 1;
    int len = bad;
    uint8_t out = 7;
    uint16_t symbol = 7;
    const uint16_t* words = &word;
    const uint8_t* bytes = &in;
    EXPECT_EQ(zebsPackHuffContext_BZ2_16u8u(&code, &count, &out, &len, encoder.get()), zebErrSize);
    EXPECT_EQ(zebsEncodeHuff_BZ2_16u8u(&code, &count, &words, &good, &out, &len, encoder.get()),
              zebErrSize);
    EXPECT_EQ(zebsUnpackHuffContext_BZ2_8u16u(&code, &count, &bytes, &len, decoder.get()),
              zebErrSize);
    EXPECT_EQ(zebsDecodeHuff_BZ2_8u16u(&code, &count, &bytes, &good, &symbol, &len, decoder.get()),
              zebErrSize);
    EXPECT_EQ(code, 0xABC00000);
    EXPECT_EQ(count, 12);
    EXPECT_EQ(good, 1);
    EXPECT_EQ(len, bad);
    EXPECT_EQ(words, &word);
    EXPECT_EQ(bytes, &in);
    EXPECT_EQ(out, 7);
    EXPECT_EQ(symbol, 7);
  }
}

// ---- Encoding

TEST(EncodeBzip2Huffman, TableCountFollowsTheSymbolCount) {
  const std::pair<size_t, size_t> expected[] = {{1, 2},    {199, 2},  {200, 3},  {599, 3}, {600, 4},
                                                {1199, 4}, {1200, 5}, {2399, 5}, {2400, 6}};
  for (const auto& [symbols, tables] : expected) {
    const Context context = test::contextOf(Encoder(test::blockOf(symbols, 20, 1), 20), 20);
    EXPECT_EQ(context.lengths.size(), tables) << symbols;
    EXPECT_EQ(context.selectors.size(), (symbols + 49) / 50);
  }
}

TEST(EncodeBzip2Huffman, FiftyOneSymbolsAreTwoGroups) {
  const Context context = test::contextOf(Encoder(test::blockOf(51, 9, 1), 9), 9);
  EXPECT_EQ(context.selectors.size(), 2u);
}

TEST(EncodeBzip2Huffman, LengthsFormCompleteCodesOfAtMost17Bits) {
  for (const int alphaSize : {2, 3, 17, 100, 258}) {
    for (const size_t size : {1, 60, 700, 5000, 60000}) {
      const Context context =
          test::contextOf(Encoder(test::blockOf(size, alphaSize, size), alphaSize), alphaSize);
      for (const Bytes& lengths : context.lengths) {
        uint32_t kraft = 0;
        for (const uint8_t length : lengths) {
          ASSERT_GE(length, 1);
          ASSERT_LE(length, 17);
          kraft += 1u << (17 - length);
        }
        EXPECT_EQ(kraft, 1u << 17);
      }
    }
  }
}

TEST(EncodeBzip2Huffman, AnAlphabetOfOneSymbolHasOneBitCodes) {
  const Symbols symbols = {0};
  const Encoder encoder(symbols, 1);
  EXPECT_EQ(test::contextOf(encoder, 1).lengths, (std::vector<Bytes>{{1}, {1}}));
  EXPECT_EQ(encoder.encode(symbols, {}, 1).accumulator, (Accumulator{0, 1}));
}

TEST(EncodeBzip2Huffman, PacksTheContextAsTheFormatSays) {
  Random random(1);
  for (const size_t size : {1, 51, 300, 5000}) {
    const Encoder encoder(test::blockOf(size, 40, size), 40);
    const Context context = test::contextOf(encoder, 40);
    const Bits bits = test::contextBits(context);
    for (int round = 0; round < 20; ++round) {
      const Accumulator start = randomAccumulator(random);
      PlainBitWriter plain(start, 100000);
      for (const bool bit : bits) plain.put(bit, 1);
      const Encoder::Written written = encoder.pack(start, 100000);
      EXPECT_EQ(written.status, zebOk);
      EXPECT_EQ(written.out, plain.out);
      EXPECT_EQ(written.accumulator, plain.accumulator());
    }
  }
}

TEST(EncodeBzip2Huffman, WritesTheSymbolsAsTheFormatSays) {
  Random random(2);
  for (const size_t size : {1, 49, 50, 51, 300, 5000}) {
    const int alphaSize = 2 + static_cast<int>(below(random, 257));
    const Symbols symbols = test::blockOf(size, alphaSize, size);
    const Encoder encoder(symbols, alphaSize);
    const Context context = test::contextOf(encoder, alphaSize);
    std::vector<std::vector<uint32_t>> codes;
    for (const Bytes& lengths : context.lengths) codes.push_back(test::canonicalCodes(lengths));
    for (int round = 0; round < 20; ++round) {
      const Accumulator start = randomAccumulator(random);
      const size_t room = round % 2 == 0 ? 20000 : 1 + below(random, size * 2);
      PlainBitWriter plain(start, room);
      for (size_t i = 0; i < symbols.size(); ++i) {
        const uint8_t table = context.selectors[i / 50];
        plain.put(codes[table][symbols[i]], context.lengths[table][symbols[i]]);
      }
      const Encoder::Written written = encoder.encode(symbols, start, room);
      EXPECT_EQ(written.out, plain.out);
      EXPECT_EQ(written.accumulator.count, plain.pendingCount());
      EXPECT_EQ(written.status, plain.pendingCount() > 32 ? zebWarnDstFull : zebOk);
      if (written.status == zebOk) {
        EXPECT_EQ(written.accumulator, plain.accumulator());
      }
    }
  }
}

// 32 bits may be left pending, 33 are too many.
TEST(EncodeBzip2Huffman, EveryRoomIsRespected) {
  const Symbols symbols = test::blockOf(400, 30, 1);
  const Encoder encoder(symbols, 30);
  const size_t needed = test::finished(encoder.encode(symbols, {}, 1000)).size();
  const size_t context = test::finished(encoder.pack({}, 1000)).size();
  const auto expectStatus = [](const Encoder::Written& written, size_t room, size_t size) {
    EXPECT_LE(written.out.size(), room);
    EXPECT_EQ(written.status, written.accumulator.count > 32 ? zebWarnDstFull : zebOk);
    EXPECT_EQ(written.status, room + 4 < size ? zebWarnDstFull : zebOk) << room;
  };
  for (size_t room = 1; room < 500; ++room) {
    expectStatus(encoder.encode(symbols, {}, room), room, needed);
    expectStatus(encoder.pack({}, room), room, context);
  }
}

TEST(EncodeBzip2Huffman, AnEmptySourceWritesNothing) {
  const Encoder encoder({0, 1, 2}, 3);
  const Encoder::Written written = encoder.encode({}, {0xABC00000, 12}, 5);
  EXPECT_EQ(written.status, zebOk);
  EXPECT_TRUE(written.out.empty());
  EXPECT_EQ(written.accumulator, (Accumulator{0xABC00000, 12}));
}

// ---- The context's reader

struct Stream {
  int alphaSize;
  Symbols symbols;
  Context context;
  Bytes contextBytes;  // with the accumulator that is left
  Accumulator left;
  Bytes coded;  // the symbols behind them, and some bytes more
};

Stream streamOf(size_t size, int alphaSize, uint64_t seed) {
  Stream s;
  s.alphaSize = alphaSize;
  s.symbols = test::blockOf(size, alphaSize, seed);
  const Encoder encoder(s.symbols, alphaSize);
  s.context = test::contextOf(encoder, alphaSize);
  const Encoder::Written context = encoder.pack({}, 100000);
  s.contextBytes = context.out;
  s.left = context.accumulator;
  s.coded = test::finished(encoder.encode(s.symbols, s.left, size * 3 + 10));
  for (const uint8_t byte : {0x17, 0x72, 0x45, 0x38}) s.coded.push_back(byte);
  return s;
}

Bytes joined(const Bytes& a, const Bytes& b) {
  Bytes out = a;
  out.insert(out.end(), b.begin(), b.end());
  return out;
}

// The decoded symbols and the end-of-block symbol.
void expectDecodes(const Decoder& decoder, Accumulator accumulator, std::span<const uint8_t> rest,
                   const Symbols& symbols) {
  const auto result = decoder.decode(accumulator, rest, symbols.size());
  EXPECT_EQ(result.status, zebOk);
  EXPECT_EQ(result.out, Symbols(symbols.begin(), symbols.end() - 1));
}

TEST(UnpackBzip2Context, CutAtEveryByteUnpacksTheSame) {
  const Stream s = streamOf(700, 30, 1);
  const Bytes bytes = joined(s.contextBytes, s.coded);
  const Decoder whole(s.alphaSize);
  const auto expected = whole.unpack({}, bytes);
  ASSERT_EQ(expected.status, zebOk);
  for (size_t cut = 1; cut < expected.consumed; ++cut) {
    const Decoder decoder(s.alphaSize);
    const auto first = decoder.unpack({}, std::span(bytes).first(cut));
    ASSERT_EQ(first.status, zebWarnSrcExhausted);
    ASSERT_EQ(first.consumed, cut);
    const auto second = decoder.unpack(first.accumulator, std::span(bytes).subspan(cut));
    ASSERT_EQ(second.status, zebOk);
    ASSERT_EQ(cut + second.consumed, expected.consumed);
    ASSERT_EQ(second.accumulator, expected.accumulator);
    expectDecodes(decoder, second.accumulator, std::span(bytes).subspan(cut + second.consumed),
                  s.symbols);
  }
}

TEST(UnpackBzip2Context, ByteByByte) {
  const Stream s = streamOf(3000, 258, 2);
  const Bytes bytes = joined(s.contextBytes, s.coded);
  const Decoder decoder(s.alphaSize);
  Accumulator accumulator;
  size_t at = 0;
  ZebStatus status = zebWarnSrcExhausted;
  while (status == zebWarnSrcExhausted) {
    const auto step = decoder.unpack(accumulator, std::span(bytes).subspan(at, 1));
    ASSERT_EQ(step.consumed, 1u);
    status = step.status;
    accumulator = step.accumulator;
    ++at;
  }
  ASSERT_EQ(status, zebOk);
  expectDecodes(decoder, accumulator, std::span(bytes).subspan(at), s.symbols);
}

TEST(UnpackBzip2Context, ReadsNoFurtherThanTheContext) {
  for (int ones = 0; ones < 32; ++ones) {
    Context context = {5, std::vector<Bytes>(2, Bytes{1, 2, 3, 4, 4}), Bytes(1 + size_t(ones), 0)};
    const Bits bits = test::contextBits(context);
    Bytes packed = test::packBits(bits);
    const Decoder decoder(5);
    const auto result = decoder.unpack({}, packed);
    EXPECT_EQ(result.status, zebOk);
    EXPECT_EQ(result.consumed, packed.size());
    EXPECT_EQ(result.accumulator.count, intOf(packed.size() * 8 - bits.size()));
  }
}

ZebStatus unpackBits(Bits bits, int alphaSize) {
  bits.resize(bits.size() + 64);
  return Decoder(alphaSize).unpack({}, test::packBits(bits)).status;
}

TEST(UnpackBzip2Context, RefusesInvalidContexts) {
  for (const uint32_t tables : {0, 1, 7}) {
    Bits bits;
    test::putBits(bits, tables, 3);
    test::putBits(bits, 1, 15);
    EXPECT_EQ(unpackBits(bits, 3), zebErrBadData);
  }
  const auto header = [](uint32_t tables, uint32_t selectors) {
    Bits bits;
    test::putBits(bits, tables, 3);
    test::putBits(bits, selectors, 15);
    return bits;
  };
  EXPECT_EQ(unpackBits(header(2, 0), 3), zebErrBadData);
  for (uint32_t tables = 2; tables <= 6; ++tables) {
    Bits bits = header(tables, 1);
    for (uint32_t i = 0; i < tables; ++i) bits.push_back(true);
    EXPECT_EQ(unpackBits(bits, 3), zebErrBadData) << tables;
  }
  for (const uint32_t start : {0, 21, 31}) {
    Bits bits = header(2, 1);
    bits.push_back(false);
    test::putBits(bits, start, 5);
    EXPECT_EQ(unpackBits(bits, 3), zebErrBadData) << start;
  }
  const auto steps = [&](uint32_t start, uint32_t step) {
    Bits bits = header(2, 1);
    bits.push_back(false);
    test::putBits(bits, start, 5);
    test::putBits(bits, step, 2);
    return bits;
  };
  EXPECT_EQ(unpackBits(steps(20, 2), 3), zebErrBadData);
  EXPECT_EQ(unpackBits(steps(1, 3), 3), zebErrBadData);
  const Context overfull = {3, std::vector<Bytes>(2, Bytes{1, 1, 1}), {0}};
  EXPECT_EQ(unpackBits(test::contextBits(overfull), 3), zebErrBadData);
  const Context incomplete = {3, std::vector<Bytes>(2, Bytes{20, 20, 20}), {0}};
  EXPECT_EQ(unpackBits(test::contextBits(incomplete), 3), zebOk);
}

// What is refused leaves nothing to decode, and Init starts the record anew.
TEST(UnpackBzip2Context, InitMendsARecordThatHasRefusedAContext) {
  const Stream s = streamOf(700, 20, 1);
  const Bytes good = joined(s.contextBytes, s.coded);
  Bits noTables;
  test::putBits(noTables, 1, 3);
  test::putBits(noTables, 1, 15);
  Bits noSelector;
  test::putBits(noSelector, 2, 3);
  test::putBits(noSelector, 1, 15);
  test::putBits(noSelector, 3, 2);
  Context tooLong = {20, std::vector<Bytes>(2, Bytes(20, 5)), {0}};
  tooLong.lengths[1].back() = 21;
  for (const Bits& bad : {noTables, noSelector, test::contextBits(tooLong)}) {
    const Decoder decoder(s.alphaSize);
    const auto before = decoder.unpack({}, good);
    ASSERT_EQ(before.status, zebOk);
    EXPECT_EQ(decoder.unpack({}, joined(test::packBits(bad), Bytes(8))).status, zebErrBadData);
    EXPECT_EQ(decoder.decode({}, Bytes(10), 5).status, zebErrGeneral);
    ASSERT_EQ(zebsDecodeHuffInit_BZ2_8u16u(s.alphaSize, decoder.get()), zebOk);
    const auto unpacked = decoder.unpack({}, good);
    ASSERT_EQ(unpacked.status, zebOk);
    expectDecodes(decoder, unpacked.accumulator, std::span(good).subspan(unpacked.consumed),
                  s.symbols);
  }
}

TEST(UnpackBzip2Context, RefusesRecordsInNoPhase) {
  const Decoder decoder(3);
  memset(static_cast<void*>(decoder.get()), 0xFF, 200);
  EXPECT_EQ(decoder.unpack({}, Bytes(10)).status, zebErrGeneral);
}

TEST(UnpackBzip2Context, TakesTheLargestSelectorCount) {
  Context context = {3, std::vector<Bytes>(6, Bytes{1, 2, 2}), Bytes(32767)};
  Random random(1);
  for (uint8_t& selector : context.selectors) selector = static_cast<uint8_t>(below(random, 6));
  Symbols symbols(1638349);
  for (uint16_t& symbol : symbols) symbol = static_cast<uint16_t>(below(random, 2));
  symbols.push_back(2);
  Bits bits = test::contextBits(context);
  const Bits coded = test::codedBits(context, symbols);
  bits.insert(bits.end(), coded.begin(), coded.end());
  bits.resize(bits.size() + 40);
  const Bytes bytes = test::packBits(bits);
  const Decoder decoder(3);
  const auto unpacked = decoder.unpack({}, bytes);
  ASSERT_EQ(unpacked.status, zebOk);
  expectDecodes(decoder, unpacked.accumulator, std::span(bytes).subspan(unpacked.consumed),
                symbols);
}

// ---- The decoder

TEST(DecodeBzip2Huffman, LeavesTheBitsBehindTheEndOfTheBlock) {
  const Context context = {3, std::vector<Bytes>(2, Bytes{1, 2, 2}), {0}};
  const Decoder decoder(3);
  const auto unpacked = decoder.unpack({}, test::packBits(test::contextBits(context)));
  ASSERT_EQ(unpacked.status, zebOk);
  // Symbols 0, 1, end: 0 10 11, then 19 bits of something else.
  const auto result = decoder.decode({0x5B6DB6C0, 24}, {}, 3);
  EXPECT_EQ(result.status, zebOk);
  EXPECT_EQ(result.out, Symbols({0, 1}));
  EXPECT_EQ(result.accumulator, (Accumulator{0x6DB6C000, 19}));
}

// The room for the end-of-block symbol is needed, too.
TEST(DecodeBzip2Huffman, ARoomForTheSymbolsAloneIsFull) {
  const Stream s = streamOf(6000, 40, 3);
  const Bytes bytes = joined(s.contextBytes, s.coded);
  const Decoder decoder(s.alphaSize);
  const auto unpacked = decoder.unpack({}, bytes);
  ASSERT_EQ(unpacked.status, zebOk);
  const auto rest = std::span(bytes).subspan(unpacked.consumed);
  const auto first = decoder.decode(unpacked.accumulator, rest, s.symbols.size() - 1);
  EXPECT_EQ(first.status, zebWarnDstFull);
  EXPECT_EQ(first.out, Symbols(s.symbols.begin(), s.symbols.end() - 1));
  const auto second = decoder.decode(first.accumulator, rest.subspan(first.consumed), 1);
  EXPECT_EQ(second.status, zebOk);
  EXPECT_TRUE(second.out.empty());
}

TEST(DecodeBzip2Huffman, BeforeAContextThereIsNothingToDecode) {
  const Decoder decoder(20);
  EXPECT_EQ(decoder.decode({}, Bytes(10), 5).status, zebErrGeneral);
  EXPECT_EQ(decoder.decode({}, {}, 5).status, zebWarnSrcExhausted);
  // Neither is there in the middle of one.
  const Stream s = streamOf(500, 20, 1);
  EXPECT_EQ(decoder.unpack({}, std::span(s.contextBytes).first(9)).status, zebWarnSrcExhausted);
  EXPECT_EQ(decoder.decode({}, Bytes(10), 5).status, zebErrGeneral);
}

TEST(DecodeBzip2Huffman, PatternsWithoutACodeEndTheCall) {
  const Context context = {3, std::vector<Bytes>(2, Bytes{1, 3, 20}), {0, 1}};
  const Bytes packed = test::packBits(test::contextBits(context));
  for (const uint8_t first : {0xFF, 0xE0, 0xB0}) {
    const Decoder decoder(3);
    ASSERT_EQ(decoder.unpack({}, packed).status, zebOk);
    const auto result = decoder.decode({}, Bytes{first, 0, 0, 0, 0}, 9);
    EXPECT_EQ(result.status, zebErrGeneral);
    EXPECT_EQ(result.consumed, 3u);
    // Without source behind the pattern the call asks for more.
    EXPECT_EQ(decoder.decode({}, Bytes{first, 0, 0}, 9).status, zebWarnSrcExhausted);
  }
}

TEST(DecodeBzip2Huffman, MoreGroupsThanSelectorsAreAnError) {
  const Context context = {3, std::vector<Bytes>(2, Bytes{1, 2, 2}), {0, 1}};
  const Decoder decoder(3);
  ASSERT_EQ(decoder.unpack({}, test::packBits(test::contextBits(context))).status, zebOk);
  const auto result = decoder.decode({}, Bytes(100), 500);
  EXPECT_EQ(result.status, zebErrGeneral);
  EXPECT_EQ(result.out, Symbols(100));
}

// An encoder may send more selectors than it uses, and the end-of-block symbol may have a code of
// any length.
TEST(DecodeBzip2Huffman, TheBlockMayEndInAnyGroup) {
  Random random(6);
  for (int length = 1; length <= 20; ++length) {
    // A code of each length but one, which two have: symbol 20 is the end of the block.
    Bytes lengths;
    for (int other = 1; other <= 20; ++other) {
      if (other != length) lengths.push_back(static_cast<uint8_t>(other));
    }
    lengths.push_back(20);
    lengths.push_back(static_cast<uint8_t>(length));
    const Context context = {21, std::vector<Bytes>(2, lengths), Bytes(700)};
    const Decoder decoder(context.alphaSize);
    ASSERT_EQ(decoder.unpack({}, test::packBits(test::contextBits(context))).status, zebOk);
    for (const size_t size : {1, 49, 50, 51, 3000}) {
      Symbols symbols(size);
      for (uint16_t& symbol : symbols) symbol = static_cast<uint16_t>(below(random, 20));
      symbols.back() = 20;
      Bytes stream = test::packBits(test::codedBits(context, symbols));
      stream.resize(stream.size() + 6000, 0x5A);
      const auto result = decoder.decode({}, stream, 5000);
      ASSERT_EQ(result.status, zebOk) << length;
      symbols.pop_back();
      ASSERT_EQ(result.out, symbols);
      PlainHuffmanDecoder plain(context);
      ASSERT_EQ(result, plain.decode({}, stream, 5000));
    }
  }
}

TEST(DecodeBzip2Huffman, OneRecordDecodesBlockAfterBlock) {
  const Stream first = streamOf(5000, 60, 1);
  const Stream second = streamOf(20000, 60, 2);
  const Decoder decoder(60);
  for (const Stream* s : {&first, &second, &first}) {
    const Bytes bytes = joined(s->contextBytes, s->coded);
    const auto unpacked = decoder.unpack({}, bytes);
    ASSERT_EQ(unpacked.status, zebOk);
    expectDecodes(decoder, unpacked.accumulator, std::span(bytes).subspan(unpacked.consumed),
                  s->symbols);
  }
}

// Cursors, accumulator and symbols after every call, whatever the pieces and rooms.
void expectSameAsPlain(const Decoder& decoder, const Context& context, Accumulator accumulator,
                       const Bytes& source, size_t longestPiece, size_t largestRoom,
                       Random& random) {
  PlainHuffmanDecoder plain(context);
  size_t at = 0;
  for (int call = 0; call < 20000; ++call) {
    const size_t piece = std::min(source.size() - at, below(random, longestPiece + 1));
    const size_t room = 1 + below(random, largestRoom);
    const auto slice = std::span(source).subspan(at, piece);
    const auto result = decoder.decode(accumulator, slice, room);
    ASSERT_EQ(result, plain.decode(accumulator, slice, room));
    accumulator = result.accumulator;
    at += result.consumed;
    if (result.status <= 0) break;
    if (result.status == zebWarnSrcExhausted && at == source.size()) break;
  }
}

TEST(DecodeBzip2Huffman, MatchesThePlainRuleInAnyPiecesAndRooms) {
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    const size_t size = 1 + below(random, round % 4 == 0 ? 30000 : 2000);
    const Stream s = streamOf(size, 2 + static_cast<int>(below(random, 257)), random());
    const Bytes bytes = joined(s.contextBytes, s.coded);
    const Decoder decoder(s.alphaSize);
    const auto unpacked = decoder.unpack({}, bytes);
    ASSERT_EQ(unpacked.status, zebOk);
    const Bytes rest(bytes.begin() + static_cast<ptrdiff_t>(unpacked.consumed), bytes.end());
    const size_t longest = round % 3 == 0 ? 3 : rest.size();
    expectSameAsPlain(decoder, s.context, unpacked.accumulator, rest, longest,
                      round % 2 == 0 ? size + 10 : 300, random);
  }
}

// Codes of all lengths up to 20, also incomplete ones, in long and in mutated streams.
TEST(DecodeBzip2Huffman, HostileTablesAndStreamsMatchThePlainRule) {
  Random random(4);
  for (int round = 0; round < 80; ++round) {
    const int alphaSize = 2 + static_cast<int>(below(random, 257));
    Context context;
    context.alphaSize = alphaSize;
    const size_t tables = 2 + below(random, 5);
    for (size_t t = 0; t < tables; ++t) {
      Bytes& lengths = context.lengths.emplace_back();
      double left = 1;  // of the code space
      for (int s = 0; s < alphaSize; ++s) {
        int length = 1 + static_cast<int>(below(random, 20));
        while (length < 20 && 1.0 / (1 << length) + (alphaSize - s) * 0x1p-20 > left) ++length;
        left -= 1.0 / (1 << length);
        lengths.push_back(static_cast<uint8_t>(length));
      }
    }
    const size_t size = 1 + below(random, 12000);
    for (size_t g = 0; g < (size + 49) / 50; ++g) {
      context.selectors.push_back(static_cast<uint8_t>(below(random, tables)));
    }
    const Decoder decoder(alphaSize);
    ASSERT_EQ(decoder.unpack({}, test::packBits(test::contextBits(context))).status, zebOk);
    Bytes stream = test::packBits(test::codedBits(context, test::blockOf(size, alphaSize, 1)));
    if (round % 2 == 0) stream = test::mutated(stream, random);
    expectSameAsPlain(decoder, context, {}, stream, round % 3 == 0 ? 900 : stream.size(), size + 60,
                      random);
  }
}

// Counts of bits that no accumulator can hold are taken for the nearest that it can, and what it
// holds beyond its count is ignored.
TEST(Bzip2Huffman, AccumulatorsOutOfRangeAreHarmless) {
  const Stream s = streamOf(300, 20, 1);
  const Encoder encoder(s.symbols, s.alphaSize);
  const Bytes bytes = joined(s.contextBytes, s.coded);
  const std::pair<Accumulator, Accumulator> cases[] = {{{0xFFFFFFFF, -1}, {0, 0}},
                                                       {{0xFFFFFFFF, INT32_MIN}, {0, 0}},
                                                       {{0xFFFFFFFF, 0}, {0, 0}},
                                                       {{0xFFFFFFFF, 5}, {0xF8000000, 5}},
                                                       {{0x2468ACE0, 33}, {0x2468ACE0, 32}},
                                                       {{0x2468ACE0, INT32_MAX}, {0x2468ACE0, 32}}};
  for (const auto& [given, taken] : cases) {
    const auto packed = encoder.pack(given, 2000);
    EXPECT_EQ(packed.out, encoder.pack(taken, 2000).out);
    EXPECT_EQ(packed.accumulator, encoder.pack(taken, 2000).accumulator);
    const auto encoded = encoder.encode(s.symbols, given, 2000);
    EXPECT_EQ(encoded.out, encoder.encode(s.symbols, taken, 2000).out);
    EXPECT_EQ(encoded.accumulator, encoder.encode(s.symbols, taken, 2000).accumulator);
    const Decoder one(s.alphaSize);
    const Decoder other(s.alphaSize);
    const auto unpacked = one.unpack(given, bytes);
    const auto expected = other.unpack(taken, bytes);
    EXPECT_EQ(unpacked.status, expected.status);
    EXPECT_EQ(unpacked.accumulator, expected.accumulator);
    EXPECT_EQ(one.decode(given, bytes, 100), other.decode(taken, bytes, 100));
  }
}

TEST(Bzip2Huffman, MutatedContextsNeverLeaveTheRecord) {
  Random random(5);
  for (int round = 0; round < 400; ++round) {
    const Stream s =
        streamOf(1 + below(random, 3000), 2 + static_cast<int>(below(random, 257)), random());
    const Bytes bytes = test::mutated(joined(s.contextBytes, s.coded), random);
    const Decoder decoder(s.alphaSize);
    const auto unpacked = decoder.unpack({}, bytes);
    if (unpacked.status != zebOk) continue;
    decoder.decode(unpacked.accumulator, std::span(bytes).subspan(unpacked.consumed), 5000);
  }
}

}  // namespace
}  // namespace zebdc
