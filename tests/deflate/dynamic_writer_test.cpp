// Dynamic blocks: header, codes and bits; and the choice of the block kind.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "deflate/block_encoder.h"
#include "deflate/plain_deflate.h"

namespace zebdc::deflate {
namespace {

using test::below;
using test::BitString;
using test::BlockEncoder;
using test::BlockFrequencies;
using test::Bytes;
using test::DynamicHeader;
using test::Pairs;
using test::Random;
using test::rooms;

constexpr auto dynamicWriter = zebsEncodeLZ77DynamicHuff_8u;
constexpr auto fixedWriter = zebsEncodeLZ77FixedHuff_8u;

Pairs literals(const Bytes& bytes) {
  Pairs pairs;
  for (const uint8_t byte : bytes) pairs.push_back({byte, 0});
  return pairs;
}

// Pairs that never reach back before the first of them.
Pairs randomPairs(Random& random, size_t count) {
  Pairs pairs;
  size_t history = 0;
  const int alphabet = static_cast<int>(1 + below(random, 256));
  const size_t matchShare = below(random, 100);
  const size_t longest = 1 + below(random, 256);
  for (size_t i = 0; i < count; ++i) {
    if (history == 0 || below(random, 100) >= matchShare) {
      pairs.push_back({static_cast<uint16_t>(below(random, static_cast<size_t>(alphabet))), 0});
      history += 1;
    } else {
      const size_t length = 3 + below(random, longest);
      const size_t reach = std::min<size_t>(history, 32768) >> below(random, 15);
      pairs.push_back({static_cast<uint16_t>(length),
                       static_cast<uint16_t>(1 + below(random, std::max<size_t>(reach, 1)))});
      history += length;
    }
  }
  return pairs;
}

Bytes dynamicBlock(const Pairs& pairs) {
  BlockEncoder encoder;
  encoder.beginBlock(zebLZ77FlushFinal);
  EXPECT_EQ(encoder.write(dynamicWriter, pairs, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  return encoder.output();
}

DynamicHeader headerOf(const Bytes& stream) {
  const auto header = test::readDynamicHeader(stream, 0);
  EXPECT_TRUE(header.has_value());
  return header.value_or(DynamicHeader{});
}

int longest(const test::CodeLengths& lengths) {
  return *std::max_element(lengths.begin(), lengths.end());
}

// The first length, or distance, of symbols that differ.
constexpr uint16_t lengthBases[] = {3,  4,  5,  6,  7,  8,  9,  10, 11, 13, 15, 17,
                                    19, 23, 27, 31, 35, 43, 51, 59, 67, 83, 99, 115};
constexpr uint16_t distanceBases[] = {1,  2,  3,  4,   5,   7,   9,   13,  17,  25,   33,
                                      49, 65, 97, 129, 193, 257, 385, 513, 769, 1025, 1537};

// The items get the given frequencies and on from there, each the sum of the two before.
Pairs fibonacciPairs(const Pairs& items, size_t current, size_t next) {
  Pairs pairs;
  for (const ZebLZ77Pair& item : items) {
    pairs.insert(pairs.end(), current, item);
    current = std::exchange(next, current + next);
  }
  return pairs;
}

TEST(DynamicWriter, BlockIsTheHeaderAndThePairsUnderItsCodes) {
  Random random(1);
  for (int round = 0; round < 300; ++round) {
    const Pairs pairs = randomPairs(random, below(random, 3000));
    const Bytes block = dynamicBlock(pairs);
    const DynamicHeader header = headerOf(block);
    ASSERT_TRUE(header.isFinal);
    BitString expected;
    for (size_t bit = 0; bit < header.endBit; ++bit) {
      expected.put((block[bit / 8] >> (bit % 8)) & 1u, 1);
    }
    test::putPairs(expected, pairs, header.codes);
    ASSERT_EQ(block, expected.bytes());
    Bytes source;
    test::expand(pairs, source);
    ASSERT_EQ(test::inflateWithZlib(block), source);
  }
}

TEST(DynamicWriter, CodesCostWhatAnyHuffmanCodeCosts) {
  Random random(2);
  for (int round = 0; round < 300; ++round) {
    const Pairs pairs = randomPairs(random, 1 + below(random, 5000));
    const DynamicHeader header = headerOf(dynamicBlock(pairs));
    const BlockFrequencies frequencies = test::frequenciesOf(pairs);
    ASSERT_LT(longest(header.codes.literals), 15) << "the limit was not to bind here";
    EXPECT_EQ(test::codeBits(frequencies.literals, header.codes.literals),
              test::huffmanCost(frequencies.literals));
    if (longest(header.codes.distances) > 1) {
      EXPECT_EQ(test::codeBits(frequencies.distances, header.codes.distances),
                test::huffmanCost(frequencies.distances));
    }
  }
}

TEST(DynamicWriter, BlockIsWithinHalfAPercentOfTheBest) {
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    const Pairs pairs = randomPairs(random, 500 + below(random, 20000));
    const double bits = static_cast<double>(8 * dynamicBlock(pairs).size());
    const double best = static_cast<double>(test::bestDynamicBlockBits(pairs));
    EXPECT_LE(bits, best * 1.005 + 8);
  }
}

TEST(DynamicWriter, HeaderIsTrimmed) {
  const DynamicHeader header = headerOf(dynamicBlock(literals(test::fromText("abcabc"))));
  EXPECT_EQ(header.literalCodes, 257);
  EXPECT_EQ(header.distanceCodes, 2);  // two codes without any distance
  EXPECT_EQ(header.codes.distances[0], 1);
  EXPECT_EQ(header.codes.distances[1], 1);
  const DynamicHeader full = headerOf(dynamicBlock({{'a', 0}, {258, 32767}}));
  EXPECT_EQ(full.literalCodes, 286);
  EXPECT_EQ(full.distanceCodes, 30);
}

// Behind the lengths of the literals and the end of the block come the two distance lengths of a
// block without matches.
TEST(DynamicWriter, HeaderSendsLengthsInTheLongestRuns) {
  const auto lengthSymbolsOf = [](const Bytes& bytes) {
    return headerOf(dynamicBlock(literals(bytes))).lengthSymbols;
  };
  EXPECT_EQ(lengthSymbolsOf({0, 139}), 5 + 2) << "138 zeros, then 116";
  EXPECT_EQ(lengthSymbolsOf({0, 11}), 6 + 2) << "10 zeros, then 138 and 106";
  EXPECT_EQ(lengthSymbolsOf({0, 1, 2, 3, 4, 5, 6}), 5 + 2) << "a 3 six times more, then zeros";
}

TEST(DynamicWriter, NoPairsMakeAnEmptyBlock) {
  EXPECT_EQ(test::inflateWithZlib(dynamicBlock({})), Bytes());
}

TEST(DynamicWriter, LongestHeaderStaysInItsRoom) {
  // Every symbol, with frequencies that make neighbours' lengths differ as much as possible.
  Pairs pairs;
  for (int byte = 0; byte < 256; ++byte) {
    pairs.insert(pairs.end(), size_t{1} << (byte * 7 % 13), {static_cast<uint16_t>(byte), 0});
  }
  for (int length = 3; length <= 258; ++length) {
    pairs.insert(pairs.end(), size_t{1} << (length * 5 % 11),
                 {static_cast<uint16_t>(length), static_cast<uint16_t>(1 << (length % 16))});
  }
  const DynamicHeader header = headerOf(dynamicBlock(pairs));
  EXPECT_GT(header.endBit, 8u * 100);
  EXPECT_LE(header.endBit, 8u * dynamicHeaderRoom);
}

TEST(DynamicWriter, FibonacciFrequenciesKeepTheLimits) {
  Pairs lengths;
  for (const uint16_t length : lengthBases) lengths.push_back({length, 1});
  Pairs distances;
  for (const uint16_t distance : distanceBases) distances.push_back({3, distance});
  for (const Pairs& symbols : {lengths, distances}) {
    const Pairs pairs = fibonacciPairs(symbols, 1, 2);
    const Bytes block = dynamicBlock(pairs);
    const DynamicHeader header = headerOf(block);
    EXPECT_EQ(std::max(longest(header.codes.literals), longest(header.codes.distances)), 15);
    EXPECT_EQ(test::kraftSum(header.codes.literals), uint64_t{1} << 32);
    EXPECT_EQ(test::kraftSum(header.codes.distances), uint64_t{1} << 32);
    BitString expected;
    test::putPairs(expected, pairs, header.codes);
    EXPECT_EQ(block.size(), (header.endBit + expected.size() + 7) / 8);
  }
}

// The last pair has a length and a distance of 15 bits each, with 5 and 13 extra bits, and is
// followed by an end of block of 15 bits: in a room of one byte most of them wait in the record.
TEST(DynamicWriter, LongestWordsMeetTheSmallestRoom) {
  Pairs items;
  for (size_t i = 0; i < std::size(distanceBases); ++i) {
    items.push_back({lengthBases[i], distanceBases[i]});
  }
  const Pairs common = fibonacciPairs(items, 2, 3);
  for (size_t lead = 0; lead < 8; ++lead) {
    Pairs pairs(common.end() - static_cast<ptrdiff_t>(lead), common.end());
    pairs.push_back({200, 30000});
    BlockEncoder whole;
    BlockEncoder cut;
    for (BlockEncoder* encoder : {&whole, &cut}) {
      encoder->beginBlock();
      Pairs all = common;
      all.insert(all.end(), pairs.begin(), pairs.end());
      encoder->select(all);
      const bool isWhole = encoder == &whole;
      EXPECT_EQ(encoder->write(dynamicWriter, pairs, zebLZ77FlushNone, rooms(isWhole ? 1000 : 1)),
                zebOk);
    }
    const DynamicHeader header = headerOf(whole.output());
    EXPECT_EQ(header.codes.literals[256], 15);
    EXPECT_EQ(header.codes.literals[283], 15);
    EXPECT_EQ(header.codes.distances[29], 15);
    EXPECT_GE(cut.state().bitCount, 15 + 48 - 8);
    for (BlockEncoder* encoder : {&whole, &cut}) {
      encoder->beginBlock();
      EXPECT_EQ(encoder->write(fixedWriter, {}, zebLZ77FlushFinal, rooms(1)),
                zebWarnFinalBlockDone);
    }
    EXPECT_EQ(cut.output(), whole.output());
  }
}

TEST(DynamicWriter, AnyRoomGivesTheSameBytes) {
  Random random(4);
  for (int round = 0; round < 60; ++round) {
    const Pairs pairs = randomPairs(random, below(random, 400));
    for (const int flush : {0, 1, 2, 3}) {
      BlockEncoder whole;
      whole.beginBlock(flush);
      const ZebStatus status = whole.write(dynamicWriter, pairs, flush);
      BlockEncoder cut;
      cut.beginBlock(flush);
      EXPECT_EQ(cut.write(dynamicWriter, pairs, flush, test::smallRooms(random)), status);
      for (BlockEncoder* encoder : {&whole, &cut}) {
        encoder->beginBlock(zebLZ77FlushFinal);
        encoder->write(fixedWriter, {}, zebLZ77FlushFinal);
      }
      ASSERT_EQ(cut.output(), whole.output());
    }
  }
}

TEST(DynamicWriter, FinalMarkFollowsTheMatchFinder) {
  const Pairs pairs = literals(test::fromText("mark"));
  struct Case {
    int lastFlush;
    int callSrcLen;
    bool isFinal;
  };
  for (const Case& c :
       {Case{3, 0, true}, Case{3, 1, false}, Case{0, 0, false}, Case{2, 0, false}}) {
    BlockEncoder encoder;
    encoder.beginBlock(c.lastFlush);
    encoder.state().callSrcLen = c.callSrcLen;
    encoder.write(dynamicWriter, pairs, zebLZ77FlushSync);
    EXPECT_EQ(headerOf(encoder.output()).isFinal, c.isFinal);
  }
}

TEST(DynamicWriter, CompletedBlockLeavesItsFlushAndDropsTheHeader) {
  BlockEncoder encoder;
  encoder.beginBlock(zebLZ77FlushNone);
  const Pairs pairs = literals(test::fromText("dropped"));
  encoder.select(pairs);
  EXPECT_NE(encoder.state().preparedHeaderBytes, 0u);
  std::span<const ZebLZ77Pair> left = pairs;
  EXPECT_EQ(encoder.call(dynamicWriter, left, 1, zebLZ77FlushSync), zebWarnDstFull);
  EXPECT_EQ(encoder.state().lastFlush, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().altBitsActive, 1u);
  EXPECT_EQ(encoder.write(dynamicWriter, left, zebLZ77FlushSync), zebOk);
  EXPECT_EQ(encoder.state().lastFlush, zebLZ77FlushSync);
  EXPECT_EQ(encoder.state().altBitsActive, 0u);
  EXPECT_EQ(encoder.state().preparedHeaderBytes, 0u);
  EXPECT_EQ(encoder.state().headerBytesWritten, 0u);
}

TEST(DynamicWriter, RoomOfZeroKeepsTheHeaderForTheNextCall) {
  for (const bool selected : {false, true}) {
    for (const Pairs& pairs : {literals(test::fromText("zero")), Pairs()}) {
      BlockEncoder encoder;
      encoder.beginBlock(zebLZ77FlushFinal);
      if (selected) encoder.select(pairs.empty() ? Pairs{{'a', 0}} : pairs);
      std::span<const ZebLZ77Pair> left = pairs;
      EXPECT_EQ(encoder.call(dynamicWriter, left, 0, zebLZ77FlushFinal), zebWarnDstFull);
      EXPECT_EQ(encoder.write(dynamicWriter, pairs, zebLZ77FlushFinal), zebWarnFinalBlockDone);
      Bytes source;
      test::expand(pairs, source);
      EXPECT_EQ(test::inflateWithZlib(encoder.output()), source);
    }
  }
}

TEST(DynamicWriter, HeaderCutByTheRoomIsFinishedThoughThePairsAreWithheld) {
  const Bytes text = test::fromText("some text");
  const Pairs pairs = literals(text);
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.write(dynamicWriter, pairs, zebLZ77FlushNone);
  std::span<const ZebLZ77Pair> left = pairs;
  EXPECT_EQ(encoder.call(dynamicWriter, left, 3, zebLZ77FlushNone), zebWarnDstFull);
  EXPECT_EQ(left.size(), pairs.size());
  EXPECT_EQ(encoder.write(dynamicWriter, {}, zebLZ77FlushNone), zebOk);
  encoder.beginBlock(zebLZ77FlushFinal);
  EXPECT_EQ(encoder.write(fixedWriter, {}, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(test::inflateWithZlib(encoder.output()), text);
}

TEST(DynamicWriter, PairsThatWereNotPreparedForAreHarmless) {
  Random random(5);
  for (int round = 0; round < 50; ++round) {
    BlockEncoder encoder;
    encoder.beginBlock();
    encoder.select(literals(test::fromText("only these")));
    const Pairs pairs = randomPairs(random, 500);
    EXPECT_EQ(encoder.write(dynamicWriter, pairs, zebLZ77FlushFinal, test::anyRooms(random)),
              zebWarnFinalBlockDone);
  }
}

TEST(DynamicWriter, HostilePairsAreHarmless) {
  Random random(6);
  for (int round = 0; round < 200; ++round) {
    Pairs pairs(below(random, 300));
    for (ZebLZ77Pair& pair : pairs) {
      pair = {static_cast<uint16_t>(random()),
              static_cast<uint16_t>(random() >> below(random, 16))};
    }
    for (const test::PairWriter writer : {fixedWriter, dynamicWriter}) {
      BlockEncoder whole;
      whole.beginBlock();
      whole.select(pairs);
      EXPECT_EQ(whole.write(writer, pairs, zebLZ77FlushSync), zebOk);
      BlockEncoder cut;
      cut.beginBlock();
      cut.select(pairs);
      EXPECT_EQ(cut.write(writer, pairs, zebLZ77FlushSync, test::smallRooms(random)), zebOk);
      ASSERT_EQ(cut.output(), whole.output());
    }
  }
}

struct Estimates {
  uint64_t stored;
  uint64_t fixed;
  uint64_t dynamic;
};

Estimates estimate(const Pairs& pairs) {
  const BlockFrequencies frequencies = test::frequenciesOf(pairs);
  const uint64_t extra = test::extraBits(pairs);
  const auto bits = [&](const test::BlockCodes& codes) {
    return test::codeBits(frequencies.literals, codes.literals) -
           static_cast<uint64_t>(codes.literals[256]) +
           test::codeBits(frequencies.distances, codes.distances) + extra;
  };
  const DynamicHeader header = headerOf(dynamicBlock(pairs));
  Estimates result = {32, 3 + bits(test::fixedBlockCodes()),
                      8 * ((header.endBit + 7) / 8) + 3 + bits(header.codes)};
  for (const ZebLZ77Pair& pair : pairs) result.stored += 8u * (pair.offset == 0 ? 1 : pair.length);
  return result;
}

ZebLZ77HuffMode expectedMode(const Estimates& e) {
  if (e.stored < e.fixed && e.stored < e.dynamic) return zebLZ77HuffStored;
  return e.fixed >= e.dynamic ? zebLZ77HuffDynamic : zebLZ77HuffFixed;
}

TEST(SelectHuffMode, TakesTheCheapestAndTiesGoToTheDynamicBlock) {
  Random random(7);
  int chosen[3] = {};
  int fixedTies = 0;
  int storedTies = 0;
  for (int round = 0; round < 2000; ++round) {
    Pairs pairs;
    if (round % 4 == 0) {
      pairs = literals(test::randomBytes(below(random, 300), random()));
    } else {
      // Literals and lengths of about even frequency, where the fixed code is hard to beat.
      pairs = randomPairs(random, below(random, 400));
      if (round % 2 == 0) {
        for (ZebLZ77Pair& pair : pairs) {
          if (pair.offset == 0) pair.length = static_cast<uint16_t>(below(random, 144));
        }
      }
    }
    const Estimates e = estimate(pairs);
    BlockEncoder encoder;
    encoder.beginBlock(zebLZ77FlushFinal);
    const ZebLZ77HuffMode mode = encoder.select(pairs.empty() ? Pairs{{0, 0}} : pairs);
    if (pairs.empty()) continue;
    ASSERT_EQ(mode, expectedMode(e)) << e.stored << " " << e.fixed << " " << e.dynamic;
    ++chosen[mode];
    if (e.fixed == e.dynamic && e.stored > e.fixed) ++fixedTies;
    if (e.stored == std::min(e.fixed, e.dynamic)) ++storedTies;
  }
  EXPECT_GT(chosen[zebLZ77HuffFixed], 10);
  EXPECT_GT(chosen[zebLZ77HuffDynamic], 10);
  EXPECT_GT(chosen[zebLZ77HuffStored], 10);
  EXPECT_GT(fixedTies, 0);
  EXPECT_GT(storedTies, 0);
}

TEST(SelectHuffMode, NoPairsAreFixed) {
  BlockEncoder encoder;
  encoder.beginBlock();
  ZebLZ77Pair pair = {};
  ZebLZ77HuffMode mode = -1;
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(&pair, 0, &mode, encoder.record()), zebOk);
  EXPECT_EQ(mode, zebLZ77HuffFixed);
}

TEST(SelectHuffMode, RepeatsItsAnswerUntilTheBlockIsWritten) {
  const Pairs dynamicPairs = literals(Bytes(500, 'x'));
  const Bytes incompressible = test::randomBytes(500, 8);
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.select(dynamicPairs), zebLZ77HuffDynamic);
  EXPECT_EQ(encoder.select(literals(incompressible)), zebLZ77HuffDynamic);
  encoder.write(dynamicWriter, dynamicPairs, zebLZ77FlushNone);
  encoder.beginBlock();
  EXPECT_EQ(encoder.select(literals(incompressible)), zebLZ77HuffStored);
  EXPECT_EQ(encoder.select(dynamicPairs), zebLZ77HuffStored);
  std::span<const uint8_t> left = incompressible;
  encoder.callStored(left, 100, zebLZ77FlushNone);
  EXPECT_EQ(encoder.select(dynamicPairs), zebLZ77HuffStored);
  encoder.writeStored(left, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().bitCount, 0);
  EXPECT_EQ(encoder.state().altBitCount, 0);
  encoder.beginBlock();
  EXPECT_EQ(encoder.select(Pairs{{'a', 0}}), zebLZ77HuffFixed);
}

TEST(SelectHuffMode, DecidesAfreshOnceTheMatchFinderOrTheFixedWriterHasBegun) {
  const Pairs dynamicPairs = literals(Bytes(500, 'x'));
  const Pairs storedPairs = literals(test::randomBytes(500, 9));
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.select(dynamicPairs), zebLZ77HuffDynamic);
  const Bytes source = test::fromText("more");
  const uint8_t* src = source.data();
  int srcLen = static_cast<int>(source.size());
  Pairs found(source.size());
  ZebLZ77Pair* next = found.data();
  int room = static_cast<int>(found.size());
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &srcLen, &next, &room, zebLZ77FlushNone, encoder.record()),
            zebOk);
  EXPECT_EQ(encoder.select(storedPairs), zebLZ77HuffStored);

  std::span<const ZebLZ77Pair> left = storedPairs;
  EXPECT_EQ(encoder.call(fixedWriter, left, 10, zebLZ77FlushNone), zebWarnDstFull);
  EXPECT_EQ(encoder.select(dynamicPairs), zebLZ77HuffDynamic);
}

TEST(SelectHuffMode, ResetForgetsTheAnswerAndTheHeader) {
  BlockEncoder encoder;
  encoder.beginBlock();
  EXPECT_EQ(encoder.select(literals(Bytes(500, 'x'))), zebLZ77HuffDynamic);
  zebsEncodeLZ77Reset_8u(encoder.record());
  encoder.beginBlock(zebLZ77FlushFinal);
  const Pairs pairs = literals(test::fromText("ab"));
  EXPECT_EQ(encoder.select(pairs), zebLZ77HuffFixed);
  EXPECT_EQ(encoder.write(dynamicWriter, pairs, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(test::inflateWithZlib(encoder.output()), test::fromText("ab"));
}

TEST(SelectHuffMode, HeaderIsDroppedWhenAnotherWriterTakesTheBlock) {
  const Pairs pairs = literals(Bytes(500, 'x'));
  BlockEncoder encoder;
  encoder.beginBlock();
  encoder.select(pairs);
  encoder.write(fixedWriter, pairs, zebLZ77FlushNone);
  encoder.beginBlock();
  encoder.select(pairs);
  encoder.writeStored(Bytes(500, 'x'), zebLZ77FlushNone);
  encoder.beginBlock(zebLZ77FlushFinal);
  const Pairs others = literals(test::fromText("other bytes"));
  EXPECT_EQ(encoder.write(dynamicWriter, others, zebLZ77FlushFinal), zebWarnFinalBlockDone);
  EXPECT_EQ(test::inflateWithZlib(encoder.output()),
            test::fromText(std::string(1000, 'x') + "other bytes"));
}

TEST(SelectHuffMode, ChecksComeInOrder) {
  BlockEncoder encoder;
  const ZebLZ77Pair pair = {};
  ZebLZ77HuffMode mode = -1;
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(nullptr, -1, &mode, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(nullptr, 0, &mode, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(&pair, -1, nullptr, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(&pair, -1, &mode, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(&pair, -1, &mode, encoder.record()), zebErrSize);
  EXPECT_EQ(mode, -1);
  EXPECT_EQ(encoder.state().altBitsActive, 0u);
}

}  // namespace
}  // namespace zebdc::deflate
