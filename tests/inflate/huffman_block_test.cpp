// Fixed and dynamic blocks built by hand: edge cases, statuses, headers and codes of every shape,
// in both forms.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <iterator>

#if !defined(_WIN32)
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "inflate/drivers.h"
#include "inflate/streams.h"

namespace zebdc::inflate {
namespace {

using test::BitWriter;
using test::BlockWriter;
using test::Bytes;
using test::Decoder;
using test::fromText;
using test::GuardedBuffer;
using test::Lengths;
using BytesDecoder = decltype(zebsDecodeLZ77FixedHuffFull_8u)*;
using PairsDecoder = decltype(zebsDecodeLZ77FixedHuff_8u)*;

struct Outcome {
  ZebStatus status;
  Bytes output;
  int srcLeft;
};

Outcome toBytes(BytesDecoder decode, Decoder& decoder, const Bytes& source, size_t room) {
  const GuardedBuffer input(source);
  const GuardedBuffer output(room);
  const uint8_t* src = input.data();
  uint8_t* dst = output.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room);
  const ZebStatus status = decode(&src, &srcLen, &dst, &dstLen, 0, decoder.record());
  EXPECT_EQ(src + srcLen, input.end());
  EXPECT_EQ(dst + dstLen, output.end());
  return {status, Bytes(output.data(), dst), srcLen};
}

Outcome fixedBytes(Decoder& decoder, const Bytes& source, size_t room = 1000) {
  return toBytes(zebsDecodeLZ77FixedHuffFull_8u, decoder, source, room);
}

Outcome dynamicBytes(Decoder& decoder, const Bytes& source, size_t room = 1000) {
  return toBytes(zebsDecodeLZ77DynamicHuffFull_8u, decoder, source, room);
}

struct PairsOutcome {
  ZebStatus status;
  std::vector<std::pair<int, int>> pairs;
  int srcLeft;
};

PairsOutcome toPairs(PairsDecoder decode, Decoder& decoder, const Bytes& source, size_t room,
                     ZebLZ77Flush flush = zebLZ77FlushNone) {
  const GuardedBuffer input(source);
  const GuardedBuffer output(room * sizeof(ZebLZ77Pair));
  const uint8_t* src = input.data();
  ZebLZ77Pair* pairs = output.as<ZebLZ77Pair>();
  int srcLen = static_cast<int>(source.size());
  int pairsLen = static_cast<int>(room);
  const ZebStatus status = decode(&src, &srcLen, &pairs, &pairsLen, flush, decoder.record());
  EXPECT_EQ(src + srcLen, input.end());
  EXPECT_EQ(reinterpret_cast<uint8_t*>(pairs + pairsLen), output.end());
  PairsOutcome outcome = {status, {}, srcLen};
  for (const ZebLZ77Pair* p = output.as<ZebLZ77Pair>(); p != pairs; ++p) {
    outcome.pairs.emplace_back(p->length, p->offset);
  }
  return outcome;
}

PairsOutcome fixedPairs(Decoder& decoder, const Bytes& source, size_t room = 1000) {
  return toPairs(zebsDecodeLZ77FixedHuff_8u, decoder, source, room);
}

PairsOutcome dynamicPairs(Decoder& decoder, const Bytes& source, size_t room = 1000) {
  return toPairs(zebsDecodeLZ77DynamicHuff_8u, decoder, source, room);
}

BlockWriter plainDynamicBlock(BitWriter& out, bool final) {
  return test::dynamicBlock(out, final, test::plainLitLenLengths(), test::plainDistanceLengths());
}

// Arguments ---------------------------------------------------------------------------------------

TEST(HuffmanToBytes, ChecksItsArguments) {
  Decoder decoder;
  ZebLZ77State_8u* const record = decoder.record();
  const uint8_t byte = 0;
  uint8_t room = 0;
  const uint8_t* src = &byte;
  const uint8_t* noSrc = nullptr;
  uint8_t* dst = &room;
  uint8_t* noDst = nullptr;
  int one = 1;
  int zero = 0;
  int negative = -1;
  for (const BytesDecoder decode :
       {zebsDecodeLZ77FixedHuffFull_8u, zebsDecodeLZ77DynamicHuffFull_8u}) {
    EXPECT_EQ(decode(nullptr, &negative, &dst, &one, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, nullptr, &dst, &one, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, &negative, nullptr, &one, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, &negative, &dst, nullptr, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, &negative, &dst, &one, 0, nullptr), zebErrNullPtr);
    EXPECT_EQ(decode(&noSrc, &negative, &dst, &one, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, &negative, &noDst, &one, 0, record), zebErrNullPtr);
    EXPECT_EQ(decode(&src, &negative, &dst, &zero, 0, record), zebErrSize);
    EXPECT_EQ(decode(&src, &one, &dst, &negative, 0, record), zebErrSize);
    EXPECT_EQ(decode(&src, &one, &dst, &zero, 0, record), zebWarnDstFull);
  }
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(dst, &room);
  EXPECT_EQ(decoder.state().bitCount, 0);
}

TEST(HuffmanToPairs, ChecksItsArguments) {
  Decoder decoder;
  ZebLZ77State_8u* const record = decoder.record();
  const uint8_t byte = 0;
  ZebLZ77Pair room = {};
  const uint8_t* src = &byte;
  const uint8_t* noSrc = nullptr;
  ZebLZ77Pair* dst = &room;
  ZebLZ77Pair* noDst = nullptr;
  int one = 1;
  int zero = 0;
  int negative = -1;
  for (const PairsDecoder decode : {zebsDecodeLZ77FixedHuff_8u, zebsDecodeLZ77DynamicHuff_8u}) {
    for (const ZebLZ77Flush flush : {0, 1, 2, 3}) {
      EXPECT_EQ(decode(nullptr, &negative, &dst, &one, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, nullptr, &dst, &one, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, &negative, nullptr, &one, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, &negative, &dst, nullptr, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, &negative, &dst, &one, flush, nullptr), zebErrNullPtr);
      EXPECT_EQ(decode(&noSrc, &negative, &dst, &one, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, &negative, &noDst, &one, flush, record), zebErrNullPtr);
      EXPECT_EQ(decode(&src, &negative, &dst, &zero, flush, record), zebErrSize);
      EXPECT_EQ(decode(&src, &one, &dst, &negative, flush, record), zebErrSize);
      EXPECT_EQ(decode(&src, &one, &dst, &zero, flush, record), zebWarnDstFull);
    }
    EXPECT_EQ(decode(&noSrc, &zero, &dst, &one, 0, record), zebWarnSrcExhausted);
  }
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(dst, &room);
}

// Headers -----------------------------------------------------------------------------------------

TEST(HuffmanBlocks, OtherKindsAreRefusedWithTheirBitsInHand) {
  for (uint8_t header = 0; header < 8; ++header) {
    const int btype = header >> 1;
    if (btype != 1) {
      Decoder decoder;
      EXPECT_EQ(fixedBytes(decoder, {header}).status, zebErrGeneral);
      EXPECT_EQ(fixedPairs(decoder, {}).status, zebErrGeneral);
      EXPECT_EQ(decoder.state().bitBuffer, header);
      EXPECT_EQ(decoder.state().bitCount, 8);
      EXPECT_EQ(decoder.state().blockState, betweenBlocks);
      EXPECT_EQ(decoder.state().finalBlock, 0u);
    }
    if (btype != 2) {
      Decoder decoder;
      EXPECT_EQ(dynamicBytes(decoder, {header}).status, zebErrGeneral);
      EXPECT_EQ(dynamicPairs(decoder, {}).status, zebErrGeneral);
      EXPECT_EQ(decoder.state().bitBuffer, header);
      EXPECT_EQ(decoder.state().blockState, betweenBlocks);
    }
  }
}

TEST(HuffmanBlocks, RefusedHeaderServesTheDecoderOfItsKind) {
  BitWriter out;
  fixedBlock(out, false).literals("first").end();
  plainDynamicBlock(out, true).literals("second").end();
  const Bytes& stream = out.finished();
  Decoder decoder;
  const Outcome refused = dynamicBytes(decoder, stream);
  EXPECT_EQ(refused.status, zebErrGeneral);
  const Bytes rest(stream.end() - refused.srcLeft, stream.end());
  const Outcome first = fixedBytes(decoder, rest);
  EXPECT_EQ(first.status, zebOk);
  EXPECT_EQ(first.output, fromText("first"));
  const Outcome second = dynamicBytes(decoder, Bytes(rest.end() - first.srcLeft, rest.end()));
  EXPECT_EQ(second.status, zebWarnFinalBlockDone);
  EXPECT_EQ(second.output, fromText("second"));
}

TEST(HuffmanBlocks, HeaderNeedsSource) {
  Decoder decoder;
  EXPECT_EQ(fixedBytes(decoder, {}).status, zebWarnSrcExhausted);
  EXPECT_EQ(dynamicBytes(decoder, {}).status, zebWarnSrcExhausted);
  EXPECT_EQ(fixedPairs(decoder, {}).status, zebWarnSrcExhausted);
  EXPECT_EQ(dynamicPairs(decoder, {}).status, zebWarnSrcExhausted);
}

TEST(HuffmanBlocks, HeaderTakesTwoBytesFromAnEvenAddress) {
  alignas(2) const uint8_t storedHeader[3] = {};
  for (const BytesDecoder decode :
       {zebsDecodeLZ77FixedHuffFull_8u, zebsDecodeLZ77DynamicHuffFull_8u}) {
    for (const int offset : {0, 1}) {
      for (const int length : {1, 2}) {
        Decoder decoder;
        const uint8_t* src = storedHeader + offset;
        int srcLen = length;
        uint8_t room = 0;
        uint8_t* dst = &room;
        int dstLen = 1;
        EXPECT_EQ(decode(&src, &srcLen, &dst, &dstLen, 0, decoder.record()), zebErrGeneral);
        const int taken = offset == 0 ? length : 1;
        EXPECT_EQ(src, storedHeader + offset + taken);
        EXPECT_EQ(srcLen, length - taken);
        EXPECT_EQ(decoder.state().bitCount, 8 * taken);
      }
    }
  }
}

TEST(HuffmanBlocks, GoOnBehindGetBlockType) {
  for (const bool dynamic : {false, true}) {
    BitWriter out;
    (dynamic ? plainDynamicBlock(out, true) : fixedBlock(out, true)).literals("go on").end();
    for (const bool pairs : {false, true}) {
      Decoder decoder;
      const uint8_t* src = out.finished().data();
      int srcLen = 1;
      ZebLZ77BlockType type = -1;
      ASSERT_EQ(zebsDecodeLZ77GetBlockType_8u(&src, &srcLen, &type, decoder.record()), zebOk);
      EXPECT_EQ(type, dynamic ? zebLZ77BlockDynamic : zebLZ77BlockFixed);
      const Bytes rest(out.finished().begin() + 1, out.finished().end());
      if (pairs) {
        EXPECT_EQ((dynamic ? dynamicPairs : fixedPairs)(decoder, rest, 100).status,
                  zebWarnFinalBlockDone);
      } else {
        EXPECT_EQ((dynamic ? dynamicBytes : fixedBytes)(decoder, rest, 100).output,
                  fromText("go on"));
      }
    }
  }
}

// Symbols -----------------------------------------------------------------------------------------

TEST(FixedBlock, EverySymbolDecodes) {
  BitWriter out;
  BlockWriter block = fixedBlock(out, true);
  std::vector<std::pair<int, int>> expected;
  for (int byte = 0; byte < 256; ++byte) {
    block.literal(static_cast<uint8_t>(byte));
    expected.emplace_back(byte, 0);
  }
  for (int length = 3; length <= 258; ++length) {
    block.match(length, 1 + length);
    expected.emplace_back(length, 1 + length);
  }
  for (int distance = 1; distance <= 32768; distance += 1 + distance / 50) {
    block.match(3, distance);
    expected.emplace_back(3, distance);
  }
  block.match(258, 32768).end();
  expected.emplace_back(258, 32768);
  Decoder decoder;
  const PairsOutcome outcome = fixedPairs(decoder, out.finished(), expected.size() + 1);
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.pairs, expected);
  EXPECT_EQ(decoder.state().streamEnded, 1u);
}

// Length 258 may also be sent as symbol 284 with all its extra bits set.
TEST(FixedBlock, SecondSpellingOfTheLongestMatch) {
  BitWriter out;
  fixedBlock(out, true).literal('a').lengthSymbol(284, 31, 5).distanceSymbol(0, 0, 0).end();
  Decoder decoder;
  EXPECT_EQ(fixedBytes(decoder, out.finished()).output, Bytes(259, 'a'));
}

TEST(HuffmanBlocks, InvalidSymbolsAreRefusedAndStayInHand) {
  struct Case {
    const char* name;
    int lengthSymbol, distanceSymbol;
  };
  for (const Case& c : {Case{"length 286", 286, -1}, Case{"length 287", 287, -1},
                        Case{"distance 30", 257, 30}, Case{"distance 31", 257, 31}}) {
    SCOPED_TRACE(c.name);
    const auto addBadSymbol = [&](BlockWriter block) {
      block.literals("ab").lengthSymbol(c.lengthSymbol, 0, 0);
      if (c.distanceSymbol >= 0) block.distanceSymbol(c.distanceSymbol, 0, 0);
    };
    Lengths litLen = test::plainLitLenLengths();
    litLen.back() = 7;
    litLen.insert(litLen.end(), {8, 8});  // with the one of 7 bits as many patterns as one of 6
    BitWriter fixed;
    addBadSymbol(fixedBlock(fixed, true));
    BitWriter dynamic;
    addBadSymbol(dynamicBlock(dynamic, true, litLen, Lengths(32, 5)));
    Bytes fixedStream = fixed.finished();
    Bytes dynamicStream = dynamic.finished();
    for (Bytes* stream : {&fixedStream, &dynamicStream}) stream->insert(stream->end(), 20, 0);

    Decoder bytes;
    const Outcome first = fixedBytes(bytes, fixedStream);
    EXPECT_EQ(first.status, zebErrSize);
    EXPECT_EQ(first.output, fromText("ab"));
    EXPECT_EQ(memcmp(bytes.state().window, "ab", 2), 0);
    EXPECT_EQ(bytes.state().windowPos, 2);
    EXPECT_EQ(fixedBytes(bytes, {0, 0}).status, zebErrSize);
    Decoder pairs;
    const PairsOutcome second = fixedPairs(pairs, fixedStream);
    EXPECT_EQ(second.status, zebErrSize);
    EXPECT_EQ(second.pairs.size(), 2u);
    EXPECT_EQ(fixedPairs(pairs, {}).status, zebErrSize);
    Decoder dynamicToBytes;
    EXPECT_EQ(dynamicBytes(dynamicToBytes, dynamicStream).output, fromText("ab"));
    EXPECT_EQ(dynamicBytes(dynamicToBytes, {}).status, zebErrSize);
    Decoder dynamicToPairs;
    EXPECT_EQ(dynamicPairs(dynamicToPairs, dynamicStream).status, zebErrSize);
  }
}

// End of block ------------------------------------------------------------------------------------

TEST(HuffmanBlocks, FinalBlockGivesUnusedBytesBack) {
  for (const bool dynamic : {false, true}) {
    BitWriter out;
    (dynamic ? plainDynamicBlock(out, true) : fixedBlock(out, true)).literals("end").end();
    Bytes stream = out.finished();
    const size_t size = stream.size();
    for (int trailing = 0; trailing < 12; ++trailing, stream.push_back(0xC3)) {
      Decoder bytes;
      const Outcome outcome = (dynamic ? dynamicBytes : fixedBytes)(bytes, stream, 100);
      EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
      EXPECT_EQ(outcome.srcLeft, trailing);
      EXPECT_EQ(bytes.state().bitCount, 0);
      EXPECT_EQ(bytes.state().bitBuffer, 0u);
      EXPECT_EQ(bytes.state().streamEnded, 1u);
      EXPECT_EQ(bytes.state().windowPos, 0) << "the history is left as it was";
      Decoder pairs;
      EXPECT_EQ((dynamic ? dynamicPairs : fixedPairs)(pairs, stream, 100).srcLeft, trailing);
      EXPECT_EQ(pairs.state().bitCount, 0);
    }
    EXPECT_EQ(stream.size(), size + 12);
  }
}

TEST(HuffmanBlocks, FinalBlockGivesBackBytesOfEarlierCallsToo) {
  BitWriter out;
  fixedBlock(out, true).literals("ab").end();
  Bytes stream = out.finished();
  const size_t size = stream.size();
  stream.insert(stream.end(), {1, 2, 3});
  Decoder decoder;
  EXPECT_EQ(fixedBytes(decoder, stream, 1).status, zebWarnDstFull);
  // All source has been taken. The cursor moves back into it.
  const uint8_t* src = stream.data() + stream.size();
  int srcLen = 0;
  uint8_t room[9];
  uint8_t* dst = room;
  int dstLen = 9;
  EXPECT_EQ(zebsDecodeLZ77FixedHuffFull_8u(&src, &srcLen, &dst, &dstLen, 0, decoder.record()),
            zebWarnFinalBlockDone);
  EXPECT_EQ(srcLen, 3);
  EXPECT_EQ(src, stream.data() + size);
}

TEST(HuffmanBlocks, EndOfAnotherBlockGivesThisCallsUnusedBytesBack) {
  for (const bool dynamic : {false, true}) {
    BitWriter out;
    (dynamic ? plainDynamicBlock(out, false) : fixedBlock(out, false)).literals("end").end();
    Bytes stream = out.finished();
    stream.insert(stream.end(), 20, 0xC3);
    Decoder decoder;
    const Outcome outcome = (dynamic ? dynamicBytes : fixedBytes)(decoder, stream, 100);
    EXPECT_EQ(outcome.status, zebOk);
    EXPECT_EQ(outcome.srcLeft, 20);
    EXPECT_EQ(decoder.state().bitCount,
              static_cast<int>(out.finished().size() * 8 - out.bitCount()));
    EXPECT_EQ(decoder.state().windowPos, 3);
  }
}

TEST(HuffmanBlocks, BulkStreamWithAStoredBlockBetweenIsRightInOnePass) {
  BitWriter out;
  fixedBlock(out, false).literals("huffman").end();
  test::storedBlock(out, false, fromText("stored bytes"));
  plainDynamicBlock(out, true).match(12, 12).match(19, 31).end();
  const Bytes stream = out.finished();
  Decoder decoder;
  const test::Decoded decoded = decodeOnePass(decoder, stream, test::wholeStream(1000));
  EXPECT_EQ(decoded.status, zebWarnFinalBlockDone);
  EXPECT_EQ(decoded.output, fromText("huffmanstored bytesstored byteshuffmanstored bytes"));
}

TEST(HuffmanBlocks, RoomOfExactlyTheBlockSuffices) {
  for (const bool dynamic : {false, true}) {
    BitWriter out;
    (dynamic ? plainDynamicBlock(out, true) : fixedBlock(out, true))
        .literals("abc")
        .match(5, 3)
        .end();
    Decoder bytes;
    EXPECT_EQ((dynamic ? dynamicBytes : fixedBytes)(bytes, out.finished(), 8).status,
              zebWarnFinalBlockDone);
    Decoder pairs;
    EXPECT_EQ((dynamic ? dynamicPairs : fixedPairs)(pairs, out.finished(), 4).status,
              zebWarnFinalBlockDone);
  }
}

// The last symbols of a stream have fewer bits behind them than a symbol may have.
TEST(HuffmanBlocks, StreamOfAFewBitsFinishes) {
  BitWriter fixed;
  fixedBlock(fixed, true).end();
  Decoder decoder;
  EXPECT_EQ(fixedBytes(decoder, fixed.finished()).status, zebWarnFinalBlockDone);

  // The end of block is the only literal/length code, of one bit, and the lengths end with a run
  // that leaves fewer than 14 bits of input.
  BitWriter dynamic;
  const test::Code lengthCode = test::beginDynamicBlock(dynamic, true, 257, 1);
  lengthCode.put(dynamic, 18);
  dynamic.put(127, 7);
  lengthCode.put(dynamic, 18);
  dynamic.put(256 - 138 - 11, 7);
  lengthCode.put(dynamic, 1);
  lengthCode.put(dynamic, 0);
  dynamic.put(0, 1);
  for (const bool bytewise : {false, true}) {
    Decoder one;
    test::Cuts cuts = test::wholeStream(10);
    if (bytewise) cuts.source = [](size_t) { return 1; };
    const test::Decoded decoded = decodeOnePass(one, dynamic.finished(), cuts);
    EXPECT_EQ(decoded.status, zebWarnFinalBlockDone);
    EXPECT_EQ(decoded.consumed, dynamic.finished().size());
    Decoder two;
    EXPECT_EQ(decodeTwoPass(two, dynamic.finished(), cuts).status, zebWarnFinalBlockDone);
  }
}

// Pending matches ---------------------------------------------------------------------------------

TEST(HuffmanToBytes, MatchLongerThanTheRoomIsFinishedFirst) {
  for (const bool dynamic : {false, true}) {
    BitWriter out;
    (dynamic ? plainDynamicBlock(out, true) : fixedBlock(out, true))
        .literals("xy")
        .match(258, 2)
        .literals("z")
        .end();
    const auto decode = dynamic ? dynamicBytes : fixedBytes;
    Decoder decoder;
    const Outcome first = decode(decoder, out.finished(), 100);
    EXPECT_EQ(first.status, zebWarnDstFull);
    EXPECT_EQ(first.output, test::repeated(100, "xy"));
    EXPECT_EQ(decoder.state().pendingLength, 160);
    EXPECT_EQ(decoder.state().pendingDistance, 2u);
    const Bytes rest(out.finished().end() - first.srcLeft, out.finished().end());
    EXPECT_EQ(decode(decoder, rest, 10).output, test::repeated(10, "xy"));
    const Outcome last = decode(decoder, rest, 1000);
    Bytes expected = test::repeated(150, "xy");
    expected.push_back('z');
    EXPECT_EQ(last.output, expected);
    EXPECT_EQ(last.status, zebWarnFinalBlockDone);
  }
}

TEST(DynamicBlock, FullRoomGivesOneByteBackWhenTheSourceIsUsedUp) {
  BitWriter out;
  plainDynamicBlock(out, true).literals("0123456789").end();
  Decoder decoder;
  const Outcome outcome = dynamicBytes(decoder, out.finished(), 9);
  EXPECT_EQ(outcome.status, zebWarnDstFull);
  EXPECT_EQ(outcome.srcLeft, 1);
  const int held = decoder.state().bitCount;
  EXPECT_EQ(decoder.state().bitBuffer >> held, 0u);
  const Outcome last = dynamicBytes(decoder, {out.finished().back()}, 9);
  EXPECT_EQ(last.status, zebWarnFinalBlockDone);
  EXPECT_EQ(last.output, fromText("9"));

  Decoder fixedDecoder;
  BitWriter fixed;
  fixedBlock(fixed, true).literals("0123456789").end();
  EXPECT_EQ(fixedBytes(fixedDecoder, fixed.finished(), 9).srcLeft, 0);
  Decoder pairs;
  EXPECT_EQ(dynamicPairs(pairs, out.finished(), 9).srcLeft, 0);
}

TEST(DynamicBlock, NoByteGoesBackThatTheCallDidNotTake) {
  BitWriter out;
  plainDynamicBlock(out, true).literals("0123456789").end();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished(), 7).srcLeft, 1);
  EXPECT_EQ(dynamicBytes(decoder, {}, 1).srcLeft, 0);
}

// History -----------------------------------------------------------------------------------------

TEST(HuffmanToBytes, MatchesReachTheWholeCircularHistory) {
  const Bytes history = test::randomBytes(40000, 1);
  test::Random random(2);
  for (int round = 0; round < 200; ++round) {
    Decoder decoder;
    const size_t entered = 32768 + test::below(random, 7000);
    BitWriter stored;
    Bytes expected;
    for (size_t position = 0; position < entered;) {
      const size_t count = std::min(entered - position, 1 + test::below(random, 20000));
      const auto begin = history.begin() + static_cast<ptrdiff_t>(position);
      test::storedBlock(stored, false, Bytes(begin, begin + static_cast<ptrdiff_t>(count)));
      position += count;
    }
    BlockWriter block = fixedBlock(stored, true);
    Bytes all(history.begin(), history.begin() + static_cast<ptrdiff_t>(entered));
    for (int i = 0; i < 30; ++i) {
      const int distance = static_cast<int>(1 + test::below(random, i % 2 ? 32768 : 40));
      const int length = static_cast<int>(3 + test::below(random, 256));
      block.match(length, distance);
      for (int k = 0; k < length; ++k)
        all.push_back(all[all.size() - static_cast<size_t>(distance)]);
    }
    block.end();
    const test::Decoded decoded =
        decodeOnePass(decoder, stored.finished(), test::wholeStream(60000));
    EXPECT_EQ(decoded.status, zebWarnFinalBlockDone);
    ASSERT_EQ(decoded.output, all);
  }
}

TEST(HuffmanToBytes, DictionaryIsHistory) {
  BitWriter out;
  fixedBlock(out, true).match(10, 32768).match(6, 16).end();
  Bytes dictionary = test::randomBytes(32768, 4);
  memcpy(dictionary.data(), "0123456789", 10);
  memcpy(dictionary.data() + 32762, "sixsix", 6);
  Decoder decoder;
  zebsDecodeLZ77SetDictionary_8u(dictionary.data(), 32768, decoder.record());
  EXPECT_EQ(fixedBytes(decoder, out.finished()).output, fromText("0123456789sixsix"));
}

TEST(HuffmanToBytes, DistanceBeyondTheStreamReadsTheRecordsOwnMemory) {
  BitWriter out;
  fixedBlock(out, true).literal('a').match(258, 32768).match(258, 2).end();
  Decoder decoder;
  const Outcome outcome = fixedBytes(decoder, out.finished());
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.output.size(), 517u);
  EXPECT_EQ(outcome.output[1], 0xEE);
}

// Dynamic headers ---------------------------------------------------------------------------------

TEST(DynamicBlock, CodeLengthLengthsMaySplitOverCalls) {
  BitWriter out;
  plainDynamicBlock(out, true).literals("split").end();
  const Bytes& stream = out.finished();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, {stream[0]}).status, zebWarnSrcExhausted);
  EXPECT_EQ(decoder.state().blockState, dynamicCounts);
  EXPECT_EQ(dynamicBytes(decoder, Bytes(stream.begin() + 1, stream.begin() + 5)).status,
            zebWarnSrcExhausted);
  EXPECT_EQ(decoder.state().blockState, dynamicCodeLengths);
  EXPECT_EQ(decoder.state().litLenCount, 286u);
  EXPECT_EQ(decoder.state().distanceCount, 30u);
  EXPECT_EQ(decoder.state().codeLengthCount, 19u);
  EXPECT_EQ(decoder.state().bitCount, 5 * 8 - 17);
  EXPECT_EQ(dynamicBytes(decoder, Bytes(stream.begin() + 5, stream.begin() + 12)).status,
            zebWarnSrcExhausted);
  EXPECT_EQ(decoder.state().blockState, dynamicLengths);
  EXPECT_EQ(dynamicBytes(decoder, Bytes(stream.begin() + 12, stream.end())).output,
            fromText("split"));
}

TEST(DynamicBlock, OneDistanceCodeOfOneBit) {
  Lengths litLen = test::plainLitLenLengths();
  BitWriter out;
  dynamicBlock(out, true, litLen, {1}).literal('r').match(100, 1).end();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).output, Bytes(101, 'r'));

  // The other bit pattern belongs to no code.
  BitWriter bad;
  dynamicBlock(bad, true, litLen, {1}).literal('r').lengthSymbol(257, 0, 0);
  bad.put(1, 1).put(0, 64);
  Decoder other;
  EXPECT_EQ(dynamicBytes(other, bad.finished()).status, zebErrSize);
}

TEST(DynamicBlock, SmallestCounts) {
  Lengths litLen(257, 0);
  litLen['a'] = 1;
  litLen[256] = 1;
  BitWriter out;
  dynamicBlock(out, true, litLen, {0}).literals("aaaa").end();
  Decoder decoder;
  const Outcome outcome = dynamicBytes(decoder, out.finished());
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.output, fromText("aaaa"));
  EXPECT_EQ(decoder.state().litLenCount, 257u);
  EXPECT_EQ(decoder.state().distanceCount, 1u);
}

TEST(DynamicBlock, LargestCountsAreTaken) {
  Lengths litLen(288, 0);
  litLen['a'] = 1;
  litLen[256] = 2;
  litLen[287] = 2;
  BitWriter out;
  dynamicBlock(out, true, litLen, Lengths(32, 5)).literals("aaaa").end();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).output, fromText("aaaa"));
  EXPECT_EQ(decoder.state().litLenCount, 288u);
  EXPECT_EQ(decoder.state().distanceCount, 32u);
}

TEST(DynamicBlock, LongestCodes) {
  const std::vector<size_t> symbols = {'e', 't', 'a', 'o', 'i', 'n', 's', 'h',
                                       'r', 'd', 256, 257, 264, 265, 284, 285};
  const Lengths litLen = test::longestLengths(286, symbols);
  const Lengths distance =
      test::longestLengths(30, {29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 10, 5, 3, 2, 1, 0});
  Bytes expected = fromText("etaoinshrdteh");
  BitWriter out;
  BlockWriter block = dynamicBlock(out, true, litLen, distance);
  block.literals("etaoinshrdteh");
  const std::vector<std::pair<int, int>> matches = {{3, 1},   {10, 2},  {11, 3},   {12, 4},
                                                    {227, 7}, {257, 8}, {258, 33}, {258, 1}};
  for (const auto& [length, distanceBack] : matches) {
    block.match(length, distanceBack);
    for (int k = 0; k < length; ++k) {
      expected.push_back(expected[expected.size() - static_cast<size_t>(distanceBack)]);
    }
  }
  block.end();
  for (const size_t piece : {1u, 3u, 1000u}) {
    Decoder one;
    test::Cuts cuts = test::wholeStream(piece == 1000 ? 2000 : piece);
    cuts.source = [=](size_t) { return piece; };
    EXPECT_EQ(decodeOnePass(one, out.finished(), cuts).output, expected);
    Decoder two;
    EXPECT_EQ(decodeTwoPass(two, out.finished(), cuts).output, expected);
  }
}

// Code lengths sent as runs, from a list of symbols and the values of their extra bits.
using Runs = std::vector<std::pair<size_t, uint32_t>>;

Bytes blockOfRuns(int litLenCount, int distanceCount, const Runs& runs) {
  BitWriter out;
  const test::Code code = test::beginDynamicBlock(out, true, litLenCount, distanceCount);
  for (const auto& [symbol, extra] : runs) {
    code.put(out, symbol);
    out.put(extra, symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0);
  }
  out.put(0, 64);
  return out.finished();
}

TEST(DynamicBlock, RunMayEndWithTheTableButNotPassIt) {
  // 256 lengths of 8 and the end of block of 8 would over-subscribe: 255 of 8, then two of 9.
  const Runs begin = {{8, 0}, {16, 3}, {16, 3}, {16, 3}};
  const auto attempt = [&](size_t symbol, uint32_t extra, int already) {
    Runs runs = begin;  // 19 lengths
    int lengths = 19;
    for (; lengths + 138 <= already; lengths += 138) runs.push_back({18, 127});
    for (; lengths < already; ++lengths) runs.push_back({0, 0});
    runs.push_back({symbol, extra});
    Decoder decoder;
    const ZebStatus status = dynamicBytes(decoder, blockOfRuns(257, 1, runs)).status;
    const bool stillReading = decoder.state().blockState == dynamicLengths;
    EXPECT_EQ(stillReading, status == zebErrSize);
    return status;
  };
  for (const auto& [symbol, extraBits, shortest] :
       {std::tuple{size_t{16}, 2, 3}, std::tuple{size_t{17}, 3, 3},
        std::tuple{size_t{18}, 7, 11}}) {
    for (uint32_t extra = 0; extra < 1u << extraBits; ++extra) {
      const int run = shortest + static_cast<int>(extra);
      EXPECT_NE(attempt(symbol, extra, 258 - run), zebErrSize) << symbol << " " << extra;
      EXPECT_EQ(attempt(symbol, extra, 259 - run), zebErrSize) << symbol << " " << extra;
    }
  }
}

TEST(DynamicBlock, RunPastTheTableIsRefusedAgain) {
  Runs runs = {{18, 127}, {18, 127}};
  Decoder decoder;
  EXPECT_EQ(dynamicPairs(decoder, blockOfRuns(257, 1, runs)).status, zebErrSize);
  EXPECT_EQ(decoder.state().lengthsRead, 138u);
  EXPECT_EQ(dynamicPairs(decoder, {}).status, zebErrSize);
}

TEST(DynamicBlock, RepeatAtTheVeryStartRepeatsZero) {
  // 16 three times makes 18 zeros; then 238 more, the end of block, one distance length.
  Runs runs = {{16, 3}, {16, 3}, {16, 3}, {18, 127}, {18, 89}, {1, 0}, {0, 0}};
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, blockOfRuns(257, 1, runs)).status, zebWarnFinalBlockDone);
  EXPECT_TRUE(std::all_of(decoder.state().codeLengths, decoder.state().codeLengths + 256,
                          [](uint16_t length) { return length == 0; }));
}

TEST(DynamicBlock, RepeatCrossesFromTheLengthsToTheDistances) {
  Lengths litLen(257, 0);
  BitWriter out;
  const test::Code code = test::beginDynamicBlock(out, true, 258, 4);
  code.put(out, 18);
  out.put(127, 7);
  code.put(out, 18);
  out.put(256 - 138 - 11 - 1, 7);
  code.put(out, 2);  // literal 255, then end of block, 257 and all four distances
  code.put(out, 16);
  out.put(3, 2);
  litLen[255] = litLen[256] = 2;
  litLen.push_back(2);
  BlockWriter(out, test::Code(litLen), test::Code(Lengths(4, 2))).literal(255).match(3, 1).end();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).output, Bytes(4, 255));
}

TEST(DynamicBlock, CodeLengthPatternWithoutCodeIsRefused) {
  BitWriter out;
  out.put(1, 1).put(2, 2).put(0, 5).put(0, 5).put(0, 4);  // four code-length codes
  out.put(1, 3).put(0, 9);                                // only 16 has one, of one bit: 0
  out.put(1, 1).put(0, 64);
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).status, zebErrSize);
  EXPECT_EQ(decoder.state().blockState, dynamicLengths);

  Decoder cut;  // to three bits of the pattern
  const Bytes& stream = out.finished();
  EXPECT_EQ(dynamicBytes(cut, Bytes(stream.begin(), stream.begin() + 4)).status,
            zebWarnSrcExhausted);
  EXPECT_EQ(dynamicBytes(cut, Bytes(stream.begin() + 4, stream.end())).status, zebErrSize);

  BitWriter none;
  none.put(1, 1).put(2, 2).put(0, 5).put(0, 5).put(0, 4).put(0, 12).put(0, 64);
  Decoder other;
  EXPECT_EQ(dynamicBytes(other, none.finished()).status, zebErrSize);
}

TEST(DynamicBlock, BitsWithoutCodeAreRefused) {
  Lengths litLen(257, 0);
  litLen['a'] = 2;
  litLen['b'] = 2;
  litLen[256] = 13;  // 11 followed by eleven zeros
  for (const int prefix : {0, 1, 2}) {
    BitWriter out;
    BlockWriter block = dynamicBlock(out, true, litLen, {0});
    block.literals("ab");
    // 11 and then zeros up to a one: in the root, at its last bit, or in the subtable.
    out.put(3, 2).put(0, prefix * 5).put(1, 1).put(0, 64);
    Decoder decoder;
    const Outcome outcome = dynamicBytes(decoder, out.finished());
    EXPECT_EQ(outcome.status, zebErrSize) << prefix;
    EXPECT_EQ(outcome.output, fromText("ab"));
  }
  BitWriter out;
  dynamicBlock(out, true, litLen, {0}).literals("abba").end();
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).output, fromText("abba"));
}

TEST(DynamicBlock, BlockWithoutAnyCodeIsRefusedAtItsFirstSymbol) {
  BitWriter out;
  dynamicBlock(out, true, Lengths(257, 0), {0});
  out.put(0, 64);
  Decoder decoder;
  EXPECT_EQ(dynamicBytes(decoder, out.finished()).status, zebErrSize);
}

TEST(DynamicBlock, MatchWithoutDistanceCodesIsRefused) {
  BitWriter out;
  dynamicBlock(out, true, test::plainLitLenLengths(), {0}).literal('a').lengthSymbol(257, 0, 0);
  out.put(0, 64);
  Decoder decoder;
  const Outcome outcome = dynamicBytes(decoder, out.finished());
  EXPECT_EQ(outcome.status, zebErrSize);
  EXPECT_EQ(outcome.output, fromText("a"));
}

// Over-subscribed lengths give the codes that fit to the first symbols.
TEST(DynamicBlock, OverSubscribedLengthsLeaveTheLastSymbolsWithoutCode) {
  Lengths litLen(257, 0);
  litLen['a'] = litLen['b'] = 2;
  litLen[256] = 1;
  litLen['c'] = 2;  // one too many: codes 10 and 11 are a and b
  BitWriter out;
  BlockWriter block = dynamicBlock(out, true, litLen, {1, 1, 1});
  block.literals("ab").end();
  Decoder decoder;
  const Outcome outcome = dynamicBytes(decoder, out.finished());
  EXPECT_EQ(outcome.status, zebWarnFinalBlockDone);
  EXPECT_EQ(outcome.output, fromText("ab"));
}

// Resynchronisation -------------------------------------------------------------------------------

TEST(Resynchronisation, FindsTheMarkAndABlockBehindIt) {
  for (const ZebLZ77Flush flush : {1, 2}) {
    for (const PairsDecoder decode : {zebsDecodeLZ77FixedHuff_8u, zebsDecodeLZ77DynamicHuff_8u}) {
      BitWriter out;
      out.bytes(test::fromText("damaged data 00000\xFF"));
      test::storedBlock(out, false, {});
      fixedBlock(out, true).literals("found").end();
      Decoder decoder;
      EXPECT_EQ(fixedBytes(decoder, {0b011, 0b111}).status, zebWarnSrcExhausted);
      EXPECT_EQ(decoder.state().blockState, huffmanSymbols);
      const PairsOutcome outcome = toPairs(decode, decoder, out.finished(), 1, flush);
      EXPECT_EQ(outcome.status, zebOk);
      EXPECT_EQ(decoder.state().bitCount, 0);
      EXPECT_EQ(decoder.state().bitBuffer, 0u);
      const Bytes rest(out.finished().end() - outcome.srcLeft, out.finished().end());
      const PairsOutcome behind = fixedPairs(decoder, rest);
      EXPECT_EQ(behind.status, zebWarnFinalBlockDone);
      const std::vector<std::pair<int, int>> found = {
          {'f', 0}, {'o', 0}, {'u', 0}, {'n', 0}, {'d', 0}};
      EXPECT_EQ(behind.pairs, found);
    }
  }
}

TEST(Resynchronisation, GoesOnOverCalls) {
  const Bytes marked = {0, 0, 0, 0xFF, 0xFF};
  Decoder decoder;
  for (size_t i = 0; i < marked.size(); ++i) {
    const PairsOutcome outcome =
        toPairs(zebsDecodeLZ77FixedHuff_8u, decoder, {marked[i]}, 1, zebLZ77FlushSync);
    EXPECT_EQ(outcome.status, i + 1 < marked.size() ? zebWarnSrcExhausted : zebOk);
    EXPECT_EQ(outcome.srcLeft, 0);
  }
  EXPECT_EQ(decoder.state().bitCount, 0);
}

TEST(Resynchronisation, KeepsWhatIsInHandBehindTheMark) {
  Decoder decoder;
  decoder.state().bitBuffer = uint64_t{0xAB} << 37 | uint64_t{0xFFFF0000} << 5 | 0x15;
  decoder.state().bitCount = 45;
  EXPECT_EQ(toPairs(zebsDecodeLZ77FixedHuff_8u, decoder, {1}, 1, zebLZ77FlushFull).srcLeft, 1);
  EXPECT_EQ(decoder.state().bitBuffer, 0xABu);
  EXPECT_EQ(decoder.state().bitCount, 8);
}

TEST(Resynchronisation, OtherFlushValuesDecode) {
  for (const ZebLZ77Flush flush : {0, 3, 4, -1}) {
    BitWriter out;
    fixedBlock(out, true).literals("x").end();
    Decoder decoder;
    EXPECT_EQ(toPairs(zebsDecodeLZ77FixedHuff_8u, decoder, out.finished(), 9, flush).status,
              zebWarnFinalBlockDone);
  }
}

// Wrong phases ------------------------------------------------------------------------------------

#if !defined(_WIN32)

// Whether a call is still running after a while: it is made in a child process.
template <class Call>
bool keepsRunning(Call call) {
  const pid_t child = fork();
  if (child == 0) {
    call();
    _exit(0);
  }
  usleep(30000);
  int status = 0;
  if (waitpid(child, &status, WNOHANG) != 0) return false;
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return true;
}

TEST(WrongPhase, CallsNeverReturn) {
  Decoder decoder;
  const auto inState = [&](uint32_t state) { decoder.state().blockState = state; };
  inState(storedAlign);
  EXPECT_TRUE(keepsRunning([&] { fixedBytes(decoder, {1}); }));
  EXPECT_TRUE(keepsRunning([&] { fixedPairs(decoder, {1}); }));
  EXPECT_TRUE(keepsRunning([&] { dynamicBytes(decoder, {1}); }));
  EXPECT_TRUE(keepsRunning([&] { dynamicPairs(decoder, {1}); }));
  inState(dynamicCounts);
  EXPECT_TRUE(keepsRunning([&] { fixedBytes(decoder, {1}); }));
  inState(storedCopy);
  EXPECT_TRUE(keepsRunning([&] {
    const uint8_t byte = 0;
    const uint8_t* src = &byte;
    int srcLen = 1;
    ZebLZ77Pair pair;
    ZebLZ77Pair* pairs = &pair;
    int pairsLen = 1;
    zebsDecodeLZ77StoredHuff_8u(&src, &srcLen, &pairs, &pairsLen, decoder.record());
  }));
  // The checks of the arguments come first.
  EXPECT_EQ(fixedBytes(decoder, {1}, 0).status, zebWarnDstFull);
}

#endif

}  // namespace
}  // namespace zebdc::inflate
