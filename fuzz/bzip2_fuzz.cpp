// The stages of block-sorting compression against their plain rules: in every cut and with every
// kernel tier the same results, for what the encoders made and for anything at all. Whole streams
// come back, and damaged ones are refused or harmless.

#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "bzip2/bzip2_stream.h"
#include "bzip2/plain_bwt.h"
#include "bzip2/plain_huffman.h"
#include "bzip2/plain_move_to_front.h"
#include "bzip2/plain_run_length.h"
#include "bzip2/plain_zero_runs.h"
#include "fuzz.h"
#include "kernels/tier.h"

namespace {

using zebdc::fuzz::Input;
using zebdc::test::Accumulator;
using zebdc::test::Bytes;
using zebdc::test::PlainDecoded;
using zebdc::test::Symbols;

template <class Run>
void withEveryTier(Run run) {
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    run();
  }
}

// What run returns, the same from every tier.
template <class Run>
auto sameFromEveryTier(Run run) {
  zebdc::kernels::activeTier = 0;
  const auto first = run();
  withEveryTier([&] { FUZZ_CHECK(run() == first); });
  return first;
}

int intOf(size_t size) {
  return static_cast<int>(size);
}

// An allocation of just this size, at whose end the sanitizers stand guard.
template <class T>
std::unique_ptr<T[]> exact(size_t count) {
  return std::unique_ptr<T[]>(new T[count]);
}

template <class T>
std::unique_ptr<T[]> exactCopy(std::span<const T> elements) {
  auto copy = exact<T>(elements.size());
  std::copy(elements.begin(), elements.end(), copy.get());
  return copy;
}

// The input's rest several times over, each time with one byte changed, and runs stretched.
Bytes repeatedRest(Input& input) {
  const size_t repetitions = 1 + input.takeBelow(20);
  const size_t longestRun = 1 + input.takeBelow(input.takeBelow(2) == 0 ? 3 : 600);
  const auto seed = input.rest();
  Bytes bytes;
  constexpr size_t limit = 20000;
  for (size_t i = 0; i < repetitions && bytes.size() < limit; ++i) {
    for (const uint8_t byte : seed) {
      if (bytes.size() >= limit) break;
      bytes.insert(bytes.end(), byte % 8 == 0 ? longestRun : 1, byte);
    }
    if (!seed.empty()) bytes[bytes.size() - 1 - i % seed.size()] ^= static_cast<uint8_t>(i);
  }
  return bytes;
}

Symbols symbolsFrom(Input& input, size_t limit) {
  const auto rest = input.rest();
  Symbols symbols;
  for (size_t i = 0; i + 1 < rest.size(); i += 2) {
    symbols.push_back(static_cast<uint16_t>((rest[i] << 8 | rest[i + 1]) % limit));
  }
  return symbols;
}

// Sizes for pieces and rooms, the same each time they are asked for.
class Sizes {
 public:
  Sizes(uint32_t seed, size_t limit) : random_(seed), limit_(limit) {}

  size_t next() { return 1 + zebdc::test::below(random_, limit_); }

 private:
  zebdc::test::Random random_;
  size_t limit_;
};

// ---- Run-length stages

struct RunRecord {
  alignas(16) uint8_t bytes[264];

  ZebRLEState_BZ2* get() { return reinterpret_cast<ZebRLEState_BZ2*>(bytes); }
};

Bytes encodedRuns(const Bytes& source, Sizes sizes) {
  RunRecord record;
  zebsEncodeRLEInit_BZ2_8u(record.get());
  Bytes out;
  for (size_t at = 0; at < source.size();) {
    const size_t piece = std::min(sizes.next(), source.size() - at);
    const size_t room = sizes.next();
    const auto src = exactCopy(std::span(source).subspan(at, piece));
    const auto dst = exact<uint8_t>(room);
    const uint8_t* pSrc = src.get();
    int srcLen = intOf(piece);
    int dstLen = intOf(room);
    const ZebStatus status = zebsEncodeRLE_BZ2_8u(&pSrc, &srcLen, dst.get(), &dstLen, record.get());
    FUZZ_CHECK(status == (srcLen > 0 ? zebWarnDstFull : zebOk));
    FUZZ_CHECK(pSrc + srcLen == src.get() + piece);
    out.insert(out.end(), dst.get(), dst.get() + dstLen);
    at += piece - static_cast<size_t>(srcLen);
  }
  uint8_t last = 0;
  int lastLen = 1;
  FUZZ_CHECK(zebsEncodeRLEFlush_BZ2_8u(&last, &lastLen, record.get()) == zebOk);
  out.insert(out.end(), static_cast<size_t>(lastLen), last);
  Bytes inUse(256);
  FUZZ_CHECK(zebsRLEGetInUseTable_8u(inUse.data(), record.get()) == zebOk);
  Bytes expected(256);
  for (const uint8_t byte : out) expected[byte] = 1;
  FUZZ_CHECK(inUse == expected);
  return out;
}

PlainDecoded decodedBlock(std::span<const uint8_t> source, size_t capacity) {
  const auto src = exactCopy(source);
  const auto dst = exact<uint8_t>(capacity);
  const uint8_t* pSrc = src.get();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status = zebsDecodeRLE_BZ2_8u(&pSrc, &srcLen, dst.get(), &dstLen);
  FUZZ_CHECK(pSrc + srcLen == src.get() + source.size());
  return {status, source.size() - static_cast<size_t>(srcLen),
          Bytes(dst.get(), dst.get() + dstLen)};
}

// Also what the caller promises not to do: pieces end anywhere.
void decodeRunsInPieces(const Bytes& source, Sizes sizes) {
  RunRecord record;
  zebsDecodeRLEStateInit_BZ2_8u(record.get());
  zebdc::test::PlainRunDecoder plain;
  for (size_t at = 0; at < source.size();) {
    const auto piece = std::span(source).subspan(at, std::min(sizes.next(), source.size() - at));
    const size_t room = sizes.next();
    const auto src = exactCopy(piece);
    const auto dst = exact<uint8_t>(room);
    const uint8_t* pSrc = src.get();
    uint8_t* pDst = dst.get();
    int srcLen = intOf(piece.size());
    int dstLen = intOf(room);
    const ZebStatus status =
        zebsDecodeRLEState_BZ2_8u(&pSrc, &srcLen, &pDst, &dstLen, record.get());
    FUZZ_CHECK(pSrc + srcLen == src.get() + piece.size() && pDst + dstLen == dst.get() + room);
    const PlainDecoded result = {status, piece.size() - static_cast<size_t>(srcLen),
                                 Bytes(dst.get(), pDst)};
    FUZZ_CHECK(result == plain.decode(piece, room));
    at += result.consumed;
  }
  ZebStatus status = zebWarnDstFull;
  while (status == zebWarnDstFull) {
    const size_t room = sizes.next();
    const auto dst = exact<uint8_t>(room);
    uint8_t* pDst = dst.get();
    int dstLen = intOf(room);
    status = zebsDecodeRLEStateFlush_BZ2_8u(record.get(), &pDst, &dstLen);
    FUZZ_CHECK((PlainDecoded{status, 0, Bytes(dst.get(), pDst)} == plain.flush(room)));
  }
}

void checkRunLength(Input& input) {
  const Sizes sizes(input.takeWord(), 1 + input.takeBelow(3000));
  const size_t capacity = 1 + input.takeBelow(20000);
  const Bytes source = repeatedRest(input);
  if (source.empty()) return;
  zebdc::test::PlainRunEncoder plain;
  Bytes expected;
  plain.encode(source, 2 * source.size() + 2, expected);
  plain.flush(expected);
  withEveryTier([&] {
    FUZZ_CHECK(encodedRuns(source, sizes) == expected);
    FUZZ_CHECK(decodedBlock(expected, source.size() + 1).out == source);
    for (const Bytes& runs : {expected, source}) {
      FUZZ_CHECK(decodedBlock(runs, capacity) == zebdc::test::plainDecodeRuns(runs, capacity));
      decodeRunsInPieces(runs, sizes);
    }
  });
}

// ---- Move-to-front

void checkMoveToFront(Input& input) {
  const Sizes sizes(input.takeWord(), 1 + input.takeBelow(20000));
  const Bytes source = repeatedRest(input);
  if (source.empty()) return;
  Bytes ranks(source.size());
  Bytes values(source.size());
  zebdc::test::PlainMoveToFront().forward(source.data(), ranks.data(), source.size());
  zebdc::test::PlainMoveToFront().inverse(source.data(), values.data(), source.size());
  const auto inPieces = [&](const auto& transform) {
    alignas(16) uint8_t record[256];
    ZebMTFState_8u* const state = reinterpret_cast<ZebMTFState_8u*>(record);
    zebsMTFInit_8u(state);
    Bytes out;
    for (Sizes own = sizes; out.size() < source.size();) {
      const size_t piece = std::min(own.next(), source.size() - out.size());
      const auto src = exactCopy(std::span(source).subspan(out.size(), piece));
      const auto dst = exact<uint8_t>(piece);
      FUZZ_CHECK(transform(src.get(), dst.get(), intOf(piece), state) == zebOk);
      out.insert(out.end(), dst.get(), dst.get() + piece);
    }
    return out;
  };
  withEveryTier([&] {
    FUZZ_CHECK(inPieces(zebsMTFFwd_8u) == ranks);
    FUZZ_CHECK(inPieces(zebsMTFInv_8u) == values);
  });
}

// ---- Burrows-Wheeler transform

struct Transformed {
  Bytes column;
  int index;

  bool operator==(const Transformed&) const = default;
};

// forward(source, column, len, index, scratch)
template <class Forward>
Transformed transformedBy(Forward forward, const Bytes& block, int scratchSize) {
  const int len = intOf(block.size());
  const auto scratch = exact<uint8_t>(static_cast<size_t>(scratchSize));
  const auto source = exactCopy<uint8_t>(block);
  const auto column = exact<uint8_t>(block.size());
  int index = -1;
  FUZZ_CHECK(forward(source.get(), column.get(), len, &index, scratch.get()) == zebOk);
  FUZZ_CHECK(index >= 0 && index < len);
  return {Bytes(column.get(), column.get() + len), index};
}

Transformed transformed(const Bytes& block) {
  int size = 0;
  FUZZ_CHECK(zebsBWTFwdGetSize_8u(intOf(block.size()), &size) == zebOk);
  return transformedBy(zebsBWTFwd_8u, block, size);
}

Transformed transformedByMethod(const Bytes& block, ZebBWTSortMethod method) {
  int size = 0;
  FUZZ_CHECK(zebsBWTFwdGetBufSize_SelectSort_8u(intOf(block.size()), &size, method) == zebOk);
  const auto forward = [=](const uint8_t* source, uint8_t* column, int len, int* index,
                           uint8_t* scratch) {
    return zebsBWTFwd_SelectSort_8u(source, column, len, index, scratch, method);
  };
  return transformedBy(forward, block, size);
}

Transformed transformedSmall(const Bytes& block) {
  int size = 0;
  FUZZ_CHECK(zebsBWTGetSize_SmallBlock_8u(intOf(block.size()), &size) == zebOk);
  return transformedBy(zebsBWTFwd_SmallBlock_8u, block, size);
}

template <auto invert>
Bytes inverse(const Bytes& column, int index, size_t scratchSize) {
  const auto scratch = exact<uint8_t>(scratchSize);
  const auto source = exactCopy<uint8_t>(column);
  const auto block = exact<uint8_t>(column.size());
  FUZZ_CHECK(invert(source.get(), block.get(), intOf(column.size()), index, scratch.get()) ==
             zebOk);
  return Bytes(block.get(), block.get() + column.size());
}

constexpr size_t smallBlockLimit = 32768;

void checkInverse(const Bytes& column, size_t index) {
  const Bytes expected = zebdc::test::plainInverse(column, index);
  const size_t size = column.size();
  withEveryTier([&] {
    FUZZ_CHECK(inverse<zebsBWTInv_8u>(column, intOf(index), 4 * size + 1024) == expected);
    if (size > smallBlockLimit) return;
    FUZZ_CHECK(inverse<zebsBWTInv_SmallBlock_8u>(column, intOf(index), 2 * size + 512) == expected);
  });
}

// Negative indices are not refused, but must be harmless.
void checkNegativeIndex(const Bytes& column) {
  withEveryTier([&] {
    inverse<zebsBWTInv_8u>(column, -1, 4 * column.size() + 1024);
    if (column.size() <= smallBlockLimit) {
      inverse<zebsBWTInv_SmallBlock_8u>(column, INT32_MIN, 2 * column.size() + 512);
    }
  });
}

void checkTransform(Input& input) {
  const size_t index = input.takeWord();
  const Bytes block = repeatedRest(input);
  if (block.empty()) return;
  const Transformed expected = sameFromEveryTier([&] {
    const Transformed result = transformed(block);
    FUZZ_CHECK(transformedByMethod(block, zebBWTSortSuffix) == result);
    return result;
  });
  // These are the same in all tiers.
  FUZZ_CHECK(transformedByMethod(block, zebBWTSortAuto) == expected);
  if (block.size() <= smallBlockLimit) FUZZ_CHECK(transformedSmall(block) == expected);
  FUZZ_CHECK(zebdc::test::plainInverse(expected.column, static_cast<size_t>(expected.index)) ==
             block);
  checkInverse(expected.column, static_cast<size_t>(expected.index));
  checkInverse(block, index % block.size());
  checkNegativeIndex(block);
}

// ---- Zero-run coding

using EncodedZeros = zebdc::test::PlainZeroRuns<Symbols>;
using DecodedZeros = zebdc::test::PlainZeroRuns<Bytes>;

EncodedZeros encodedZeros(const Bytes& source, size_t capacity, std::vector<uint32_t>& counts) {
  const auto src = exactCopy<uint8_t>(source);
  const auto dst = exact<uint16_t>(capacity);
  const uint8_t* pSrc = src.get();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status =
      zebsEncodeZ1Z2_BZ2_8u16u(&pSrc, &srcLen, dst.get(), &dstLen, counts.data());
  FUZZ_CHECK(pSrc + srcLen == src.get() + source.size());
  return {status, source.size() - static_cast<size_t>(srcLen),
          Symbols(dst.get(), dst.get() + dstLen)};
}

DecodedZeros decodedZeros(const Symbols& source, size_t capacity) {
  const auto src = exactCopy<uint16_t>(source);
  const auto dst = exact<uint8_t>(capacity);
  const uint16_t* pSrc = src.get();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status = zebsDecodeZ1Z2_BZ2_16u8u(&pSrc, &srcLen, dst.get(), &dstLen);
  FUZZ_CHECK(pSrc + srcLen == src.get() + source.size());
  return {status, source.size() - static_cast<size_t>(srcLen),
          Bytes(dst.get(), dst.get() + dstLen)};
}

void checkZeroRuns(Input& input) {
  const size_t capacity = 1 + input.takeBelow(3000);
  Input same = input;
  Bytes source = repeatedRest(input);
  if (source.empty()) return;
  for (uint8_t& byte : source) byte = byte % 8 == 0 ? 0 : byte;
  for (const size_t room : {capacity, 2 * source.size() + 21}) {
    const EncodedZeros expected = zebdc::test::plainEncodeZeroRuns(source, room);
    std::vector<uint32_t> expectedCounts(258);
    for (const uint16_t symbol : expected.out) ++expectedCounts[symbol];
    withEveryTier([&] {
      std::vector<uint32_t> counts(258);
      FUZZ_CHECK(encodedZeros(source, room, counts) == expected && counts == expectedCounts);
      if (expected.status == zebOk) {
        FUZZ_CHECK(decodedZeros(expected.out, source.size()).out == source);
      }
    });
  }
  const Symbols symbols = symbolsFrom(same, 5);
  if (symbols.empty()) return;
  const DecodedZeros expected = zebdc::test::plainDecodeZeroRuns(symbols, capacity);
  withEveryTier([&] { FUZZ_CHECK(decodedZeros(symbols, capacity) == expected); });
}

// ---- Multi-table Huffman coding

struct Freed {
  void operator()(ZebEncodeHuffState_BZ2* state) const { zebsEncodeHuffFree_BZ2_16u8u(state); }
  void operator()(ZebDecodeHuffState_BZ2* state) const { zebsDecodeHuffFree_BZ2_8u16u(state); }
};
using HuffEncoder = std::unique_ptr<ZebEncodeHuffState_BZ2, Freed>;
using HuffDecoder = std::unique_ptr<ZebDecodeHuffState_BZ2, Freed>;

// Context and block, ended by the accumulator's bits and four bytes for the decoder to look ahead.
Bytes encodedSymbols(const Symbols& symbols, int alphaSize) {
  std::vector<uint32_t> frequencies(static_cast<size_t>(alphaSize));
  for (const uint16_t symbol : symbols) ++frequencies[symbol];
  ZebEncodeHuffState_BZ2* made = nullptr;
  const int count = intOf(symbols.size());
  FUZZ_CHECK(zebsEncodeHuffInitAlloc_BZ2_16u8u(count, alphaSize, frequencies.data(), symbols.data(),
                                               count, &made) == zebOk);
  const HuffEncoder encoder(made);
  Accumulator bits;
  Bytes out(20000 + 3 * symbols.size());
  int packed = intOf(out.size());
  FUZZ_CHECK(zebsPackHuffContext_BZ2_16u8u(&bits.code, &bits.count, out.data(), &packed,
                                           encoder.get()) == zebOk);
  const uint16_t* pSrc = symbols.data();
  int srcLen = count;
  int coded = intOf(out.size()) - packed;
  FUZZ_CHECK(zebsEncodeHuff_BZ2_16u8u(&bits.code, &bits.count, &pSrc, &srcLen, out.data() + packed,
                                      &coded, encoder.get()) == zebOk);
  out.resize(static_cast<size_t>(packed + coded));
  for (; bits.count > 0; bits.count -= 8, bits.code <<= 8) {
    out.push_back(static_cast<uint8_t>(bits.code >> 24));
  }
  out.insert(out.end(), 4, 0);
  return out;
}

struct DecodedSymbols {
  ZebStatus status = zebWarnSrcExhausted;
  size_t consumed = 0;
  Symbols symbols;
  Accumulator bits;

  bool operator==(const DecodedSymbols&) const = default;
};

// Context and block, in pieces of the source and rooms of the sizes. Ends at an error and where
// neither more source nor more room is to be had.
DecodedSymbols decodedSymbols(const Bytes& source, int alphaSize, Sizes sizes) {
  constexpr int largestBlock = 1638350;
  constexpr size_t symbolLimit = 100000;
  ZebDecodeHuffState_BZ2* made = nullptr;
  FUZZ_CHECK(zebsDecodeHuffInitAlloc_BZ2_8u16u(largestBlock, alphaSize, &made) == zebOk);
  const HuffDecoder decoder(made);
  DecodedSymbols result;
  bool unpacked = false;
  while (result.consumed < source.size() && result.symbols.size() < symbolLimit) {
    const size_t piece = std::min(sizes.next(), source.size() - result.consumed);
    const auto src = exactCopy(std::span(source).subspan(result.consumed, piece));
    const uint8_t* pSrc = src.get();
    int srcLen = intOf(piece);
    if (!unpacked) {
      result.status = zebsUnpackHuffContext_BZ2_8u16u(&result.bits.code, &result.bits.count, &pSrc,
                                                      &srcLen, decoder.get());
      unpacked = result.status == zebOk;
    } else {
      const size_t room = sizes.next();
      const auto dst = exact<uint16_t>(room);
      int dstLen = intOf(room);
      result.status = zebsDecodeHuff_BZ2_8u16u(&result.bits.code, &result.bits.count, &pSrc,
                                               &srcLen, dst.get(), &dstLen, decoder.get());
      FUZZ_CHECK(dstLen >= 0 && static_cast<size_t>(dstLen) <= room);
      result.symbols.insert(result.symbols.end(), dst.get(), dst.get() + dstLen);
      if (result.status == zebOk) return result;
    }
    FUZZ_CHECK(pSrc + srcLen == src.get() + piece);
    result.consumed += piece - static_cast<size_t>(srcLen);
    if (result.status < 0) return result;
  }
  return result;
}

void checkHuffman(Input& input) {
  const Sizes sizes(input.takeWord(), 1 + input.takeBelow(input.takeBelow(2) == 0 ? 300 : 20000));
  const int alphaSize = static_cast<int>(3 + input.takeBelow(256));
  const size_t damages = input.takeBelow(3);
  Input settings = input;
  Symbols symbols;
  for (const uint8_t byte : repeatedRest(input)) {
    symbols.push_back(static_cast<uint16_t>(byte % (alphaSize - 1)));
  }
  symbols.push_back(static_cast<uint16_t>(alphaSize - 1));
  Bytes coded = sameFromEveryTier([&] { return encodedSymbols(symbols, alphaSize); });
  symbols.pop_back();
  const auto decode = [&] { return decodedSymbols(coded, alphaSize, sizes); };
  const DecodedSymbols back = sameFromEveryTier(decode);
  FUZZ_CHECK(back.status == zebOk && back.symbols == symbols);
  for (size_t i = 0; i < damages; ++i) {
    coded[settings.takeBelow(coded.size())] ^= static_cast<uint8_t>(1 + settings.takeBelow(255));
  }
  sameFromEveryTier(decode);
}

void checkHostileHuffman(Input& input) {
  const Sizes sizes(input.takeWord(), 1 + input.takeBelow(300));
  const int alphaSize = static_cast<int>(1 + input.takeBelow(258));
  const auto rest = input.rest();
  const Bytes source(rest.begin(), rest.end());
  sameFromEveryTier([&] { return decodedSymbols(source, alphaSize, sizes); });
}

// Complete and incomplete codes of all lengths, shortest ones wherever the input wants them.
zebdc::test::Context hostileContext(Input& input) {
  constexpr int longest = 20;
  zebdc::test::Context context;
  const size_t alphaSize = 1 + input.takeBelow(258);
  context.alphaSize = intOf(alphaSize);
  const size_t tables = 2 + input.takeBelow(5);
  for (size_t t = 0; t < tables; ++t) {
    Bytes& lengths = context.lengths.emplace_back(alphaSize);
    uint32_t left = 1u << longest;  // of the code space
    const size_t first = input.takeBelow(alphaSize);
    for (size_t i = 0; i < alphaSize; ++i) {
      int length = 1 + input.takeByte() % longest;
      while (left < (1u << (longest - length)) + (alphaSize - 1 - i)) ++length;
      left -= 1u << (longest - length);
      lengths[(first + i) % alphaSize] = static_cast<uint8_t>(length);
    }
  }
  context.selectors.resize(1 + input.takeBelow(120));
  zebdc::test::Random random(input.takeWord());
  for (uint8_t& selector : context.selectors) {
    selector = static_cast<uint8_t>(zebdc::test::below(random, tables));
  }
  return context;
}

using HuffResult = zebdc::test::PlainHuffmanDecoder::Result;

// The results of decode(accumulator, piece, room), call by call until nothing more can come.
template <class Decode>
std::vector<HuffResult> decodedInPieces(const Bytes& source, Sizes sizes, Decode decode) {
  std::vector<HuffResult> results;
  Accumulator bits;
  size_t at = 0;
  for (;;) {
    const size_t piece = std::min(sizes.next(), source.size() - at);
    results.push_back(decode(bits, std::span(source).subspan(at, piece), sizes.next()));
    const HuffResult& result = results.back();
    bits = result.accumulator;
    at += result.consumed;
    if (result.status <= 0) return results;
    if (result.status == zebWarnSrcExhausted && at == source.size()) return results;
  }
}

HuffResult decodedPiece(ZebDecodeHuffState_BZ2* decoder, Accumulator bits,
                        std::span<const uint8_t> piece, size_t room) {
  const auto src = exactCopy(piece);
  const auto dst = exact<uint16_t>(room);
  const uint8_t* pSrc = src.get();
  int srcLen = intOf(piece.size());
  int dstLen = intOf(room);
  const ZebStatus status = zebsDecodeHuff_BZ2_8u16u(&bits.code, &bits.count, &pSrc, &srcLen,
                                                    dst.get(), &dstLen, decoder);
  FUZZ_CHECK(pSrc + srcLen == src.get() + piece.size());
  return {status, static_cast<size_t>(pSrc - src.get()), Symbols(dst.get(), dst.get() + dstLen),
          bits};
}

void checkHostileTables(Input& input) {
  const Sizes sizes(input.takeWord(), 1 + input.takeBelow(input.takeBelow(2) == 0 ? 300 : 20000));
  const zebdc::test::Context context = hostileContext(input);
  const Bytes packed = zebdc::test::packBits(zebdc::test::contextBits(context));
  const Bytes source = repeatedRest(input);
  zebdc::test::PlainHuffmanDecoder plain(context);
  const auto expected =
      decodedInPieces(source, sizes, [&](Accumulator bits, const auto& piece, size_t room) {
        return plain.decode(bits, piece, room);
      });
  withEveryTier([&] {
    ZebDecodeHuffState_BZ2* made = nullptr;
    FUZZ_CHECK(zebsDecodeHuffInitAlloc_BZ2_8u16u(intOf(50 * context.selectors.size()),
                                                 context.alphaSize, &made) == zebOk);
    const HuffDecoder decoder(made);
    Accumulator none;
    const uint8_t* pSrc = packed.data();
    int srcLen = intOf(packed.size());
    FUZZ_CHECK(zebsUnpackHuffContext_BZ2_8u16u(&none.code, &none.count, &pSrc, &srcLen,
                                               decoder.get()) == zebOk);
    FUZZ_CHECK(
        decodedInPieces(source, sizes, [&](Accumulator bits, const auto& piece, size_t room) {
          return decodedPiece(decoder.get(), bits, piece, room);
        }) == expected);
  });
}

// ---- Whole blocks and streams

struct DecodedBlock {
  ZebStatus status;
  Bytes bytes;

  bool operator==(const DecodedBlock&) const = default;
};

void checkBlock(Input& input) {
  constexpr size_t symbolLimits[] = {3, 20, 258, 300, 65536};
  Bytes map(256);
  Bytes list;
  const size_t step = 1 + input.takeBelow(80);
  for (size_t value = input.takeBelow(256); value < 256; value += step) {
    map[value] = static_cast<uint8_t>(1 + value);
    if (map[value] != 0) list.push_back(static_cast<uint8_t>(value));
  }
  const size_t capacity = 1 + input.takeBelow(30000);
  const size_t index = input.takeBelow(capacity);
  const Symbols symbols = symbolsFrom(input, symbolLimits[input.takeBelow(5)]);
  if (symbols.empty()) return;
  const std::optional<Bytes> column = zebdc::test::plainDecodeSymbols(symbols, list, capacity);
  withEveryTier([&] {
    const auto source = exactCopy<uint16_t>(symbols);
    const auto scratch = exact<uint8_t>(4 * capacity);
    const auto out = exact<uint8_t>(capacity);
    int length = intOf(capacity);
    const ZebStatus status =
        zebsDecodeBlock_BZ2_16u8u(source.get(), intOf(symbols.size()), out.get(), &length,
                                  intOf(index), intOf(list.size()), map.data(), scratch.get());
    FUZZ_CHECK(status == (column ? zebOk : zebErrGeneral));
    if (!column) return;
    FUZZ_CHECK(length == intOf(column->size()));
    if (index >= column->size()) return;
    FUZZ_CHECK(Bytes(out.get(), out.get() + length) == zebdc::test::plainInverse(*column, index));
  });
}

void checkStream(Input& input) {
  using zebdc::test::Bzip2Decompressor;
  const size_t damages = 1 + input.takeBelow(3);
  Input settings = input;
  const Bytes content = repeatedRest(input);
  Bytes stream =
      sameFromEveryTier([&] { return zebdc::test::Bzip2Compressor(1).compress(content); });
  constexpr Bzip2Decompressor::Inverse inverses[] = {Bzip2Decompressor::Inverse::wholeBlock,
                                                     Bzip2Decompressor::Inverse::separateStages};
  for (const auto inverse : inverses) {
    Bzip2Decompressor decompressor(inverse);
    FUZZ_CHECK(decompressor.decompress(stream) == content && !decompressor.failed());
  }
  for (size_t i = 0; i < damages; ++i) {
    stream[settings.takeBelow(stream.size())] ^= static_cast<uint8_t>(1 + settings.takeBelow(255));
  }
  sameFromEveryTier([&] {
    Bzip2Decompressor decompressor(inverses[damages % 2]);
    decompressor.decompress(stream);
    return decompressor.failed();
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  constexpr void (*checks[])(Input&) = {checkRunLength,     checkMoveToFront, checkTransform,
                                        checkZeroRuns,      checkHuffman,     checkHostileHuffman,
                                        checkHostileTables, checkBlock,       checkStream};
  checks[input.takeBelow(std::size(checks))](input);
  return 0;
}
