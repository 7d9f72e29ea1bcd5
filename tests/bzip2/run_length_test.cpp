// The run-length stages.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "bzip2/plain_run_length.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::below;
using test::Bytes;
using test::GuardedBuffer;
using test::PlainDecoded;
using test::PlainRunDecoder;
using test::PlainRunEncoder;
using test::Random;

int intOf(size_t size) {
  return static_cast<int>(size);
}

Bytes times(size_t count, uint8_t byte) {
  return Bytes(count, byte);
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

class Record {
 public:
  Record() : memory_(264, GuardedBuffer::Edge::none) {
    EXPECT_EQ(zebsEncodeRLEInit_BZ2_8u(get()), zebOk);
  }
  ZebRLEState_BZ2* get() const { return memory_.as<ZebRLEState_BZ2>(); }

 private:
  GuardedBuffer memory_;
};

// One encoder call; returns how much was consumed.
size_t encode(const Record& record, std::span<const uint8_t> source, size_t room, Bytes& out) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(room);
  const uint8_t* pSrc = src.data();
  int srcLen = intOf(source.size());
  int dstLen = intOf(room);
  const ZebStatus status = zebsEncodeRLE_BZ2_8u(&pSrc, &srcLen, dst.data(), &dstLen, record.get());
  EXPECT_EQ(status, srcLen > 0 ? zebWarnDstFull : zebOk);
  EXPECT_EQ(pSrc + srcLen, src.end());
  out.insert(out.end(), dst.begin(), dst.begin() + dstLen);
  return static_cast<size_t>(pSrc - src.data());
}

void flush(const Record& record, Bytes& out) {
  uint8_t byte = 0;
  int len = 1;
  EXPECT_EQ(zebsEncodeRLEFlush_BZ2_8u(&byte, &len, record.get()), zebOk);
  if (len == 1) out.push_back(byte);
}

Bytes inUse(const Record& record) {
  const GuardedBuffer table(256);
  EXPECT_EQ(zebsRLEGetInUseTable_8u(table.data(), record.get()), zebOk);
  return Bytes(table.begin(), table.end());
}

Bytes encoded(const Bytes& source) {
  const Record record;
  Bytes out;
  EXPECT_EQ(encode(record, source, source.size() * 5 / 4, out), source.size());
  flush(record, out);
  EXPECT_LE(out.size(), source.size() * 5 / 4);
  return out;
}

PlainDecoded decodeWhole(std::span<const uint8_t> source, size_t capacity) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(capacity);
  const uint8_t* pSrc = src.data();
  int srcLen = intOf(source.size());
  int dstLen = intOf(capacity);
  const ZebStatus status = zebsDecodeRLE_BZ2_8u(&pSrc, &srcLen, dst.data(), &dstLen);
  EXPECT_EQ(pSrc + srcLen, src.end());
  return {status, static_cast<size_t>(pSrc - src.data()), Bytes(dst.begin(), dst.begin() + dstLen)};
}

PlainDecoded decodePiece(const Record& record, std::span<const uint8_t> source, size_t room) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(room);
  const uint8_t* pSrc = src.data();
  int srcLen = intOf(source.size());
  uint8_t* pDst = dst.data();
  int dstLen = intOf(room);
  const ZebStatus status = zebsDecodeRLEState_BZ2_8u(&pSrc, &srcLen, &pDst, &dstLen, record.get());
  EXPECT_EQ(pSrc + srcLen, src.end());
  EXPECT_EQ(pDst + dstLen, dst.end());
  return {status, static_cast<size_t>(pSrc - src.data()), Bytes(dst.data(), pDst)};
}

PlainDecoded flushPending(const Record& record, size_t room) {
  const GuardedBuffer dst(room);
  uint8_t* pDst = dst.data();
  int dstLen = intOf(room);
  const ZebStatus status = zebsDecodeRLEStateFlush_BZ2_8u(record.get(), &pDst, &dstLen);
  EXPECT_EQ(pDst + dstLen, dst.end());
  return {status, 0, Bytes(dst.data(), pDst)};
}

// Runs of every length between stretches of other bytes.
Bytes withRuns(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  while (out.size() < size) {
    const size_t stretch = below(random, 1 + below(random, 60));
    for (size_t i = 0; i < stretch; ++i) out.push_back(static_cast<uint8_t>(random() % 7));
    const size_t longest = below(random, 8) == 0 ? 1200 : 12;
    out.insert(out.end(), below(random, longest), static_cast<uint8_t>(random() % 7));
  }
  out.resize(size);
  return out;
}

TEST(Bzip2RunLength, RecordHas264Bytes) {
  int size = 0;
  EXPECT_EQ(zebsRLEGetSize_BZ2_8u(&size), zebOk);
  EXPECT_EQ(size, 264);
  ZebRLEState_BZ2* state = nullptr;
  ASSERT_EQ(zebsEncodeRLEInitAlloc_BZ2_8u(&state), zebOk);
  ASSERT_NE(state, nullptr);
  Bytes table(256, 9);
  EXPECT_EQ(zebsRLEGetInUseTable_8u(table.data(), state), zebOk);
  EXPECT_EQ(table, Bytes(256, 0));
  zebsRLEFree_BZ2_8u(state);
}

TEST(Bzip2RunLength, ChecksPointersInOrderBeforeLengths) {
  const Record record;
  uint8_t byte = 7;
  uint8_t* dst = &byte;
  uint8_t* nullDst = nullptr;
  const uint8_t* src = &byte;
  const uint8_t* nullSrc = nullptr;
  int zero = 0;
  ZebRLEState_BZ2* const state = record.get();

  EXPECT_EQ(zebsRLEGetSize_BZ2_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLEInit_BZ2_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLEInitAlloc_BZ2_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsRLEGetInUseTable_8u(nullptr, state), zebErrNullPtr);
  EXPECT_EQ(zebsRLEGetInUseTable_8u(&byte, nullptr), zebErrNullPtr);

  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(nullptr, &zero, dst, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, nullptr, dst, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, &zero, nullptr, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, &zero, dst, nullptr, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, &zero, dst, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&nullSrc, &zero, dst, &zero, state), zebErrNullPtr);

  EXPECT_EQ(zebsEncodeRLEFlush_BZ2_8u(nullptr, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLEFlush_BZ2_8u(dst, nullptr, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeRLEFlush_BZ2_8u(dst, &zero, nullptr), zebErrNullPtr);

  EXPECT_EQ(zebsDecodeRLE_BZ2_8u(nullptr, &zero, dst, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&src, nullptr, dst, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&src, &zero, nullptr, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&src, &zero, dst, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&nullSrc, &zero, dst, &zero), zebErrNullPtr);

  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(nullptr, &zero, &dst, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, nullptr, &dst, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &zero, nullptr, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &zero, &dst, nullptr, state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &zero, &dst, &zero, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&nullSrc, &zero, &dst, &zero, state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &zero, &nullDst, &zero, state), zebErrNullPtr);

  EXPECT_EQ(zebsDecodeRLEStateFlush_BZ2_8u(nullptr, &dst, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEStateFlush_BZ2_8u(state, nullptr, &zero), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEStateFlush_BZ2_8u(state, &dst, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeRLEStateFlush_BZ2_8u(state, &nullDst, &zero), zebErrNullPtr);

  EXPECT_EQ(byte, 7);
  EXPECT_EQ(zero, 0);
}

TEST(Bzip2RunLength, RefusesLengthsThatAreTooSmall) {
  const Record record;
  const uint8_t in = 1;
  uint8_t out = 7;
  for (const int bad : {0, -1, INT32_MIN}) {
    const uint8_t* src = &in;
    uint8_t* dst = &out;
    int good = 1;
    int len = bad;
    EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, &len, &out, &good, record.get()), zebErrSize);
    EXPECT_EQ(zebsEncodeRLE_BZ2_8u(&src, &good, &out, &len, record.get()), zebErrSize);
    EXPECT_EQ(zebsEncodeRLEFlush_BZ2_8u(&out, &len, record.get()), zebErrSize);
    EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&src, &good, &out, &len), zebErrSize);
    EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &len, &dst, &good, record.get()), zebErrSize);
    EXPECT_EQ(zebsDecodeRLEState_BZ2_8u(&src, &good, &dst, &len, record.get()), zebErrSize);
    if (bad < 0) {
      EXPECT_EQ(zebsDecodeRLE_BZ2_8u(&src, &len, &out, &good), zebErrSize);
    }
    EXPECT_EQ(len, bad);
    EXPECT_EQ(good, 1);
    EXPECT_EQ(src, &in);
    EXPECT_EQ(dst, &out);
  }
  EXPECT_EQ(out, 7);
}

TEST(EncodeBzip2Runs, SplitsRunsAt259) {
  EXPECT_EQ(encoded(times(3, 'a')), times(3, 'a'));
  EXPECT_EQ(encoded(times(4, 'a')), joined({times(4, 'a'), {0}}));
  EXPECT_EQ(encoded(times(259, 'a')), joined({times(4, 'a'), {255}}));
  EXPECT_EQ(encoded(times(260, 'a')), joined({times(4, 'a'), {255, 'a'}}));
  EXPECT_EQ(encoded(times(263, 'a')), joined({times(4, 'a'), {255}, times(4, 'a'), {0}}));
  EXPECT_EQ(encoded(times(300, 'a')), joined({times(4, 'a'), {255}, times(4, 'a'), {37}}));
}

TEST(EncodeBzip2Runs, MarksLiteralsAndCountBytesAsInUse) {
  const Record record;
  Bytes out;
  encode(record, times(300, 'a'), 100, out);
  Bytes expected(256);
  expected['a'] = expected[255] = 1;
  EXPECT_EQ(inUse(record), expected);
  flush(record, out);
  expected[37] = 1;
  EXPECT_EQ(inUse(record), expected);
}

TEST(EncodeBzip2Runs, TheTableMayBeCopiedOverItsRecord) {
  for (const size_t shift : {0, 1, 8, 100, 255}) {
    alignas(16) uint8_t memory[264 + 256] = {};
    ZebRLEState_BZ2* const state = reinterpret_cast<ZebRLEState_BZ2*>(memory);
    ASSERT_EQ(zebsEncodeRLEInit_BZ2_8u(state), zebOk);
    const Bytes source = test::randomBytes(100, shift);
    const uint8_t* pSrc = source.data();
    int srcLen = 100;
    uint8_t dst[200];
    int dstLen = 200;
    ASSERT_EQ(zebsEncodeRLE_BZ2_8u(&pSrc, &srcLen, dst, &dstLen, state), zebOk);
    Bytes expected(256);
    ASSERT_EQ(zebsRLEGetInUseTable_8u(expected.data(), state), zebOk);
    ASSERT_EQ(zebsRLEGetInUseTable_8u(memory + shift, state), zebOk);
    EXPECT_EQ(Bytes(memory + shift, memory + shift + 256), expected) << shift;
  }
}

TEST(EncodeBzip2Runs, FlushWritesTheCountOfAnOpenRunOnce) {
  const Record record;
  Bytes out;
  encode(record, times(4, 'a'), 4, out);
  EXPECT_EQ(out, times(4, 'a'));
  flush(record, out);
  EXPECT_EQ(out, joined({times(4, 'a'), {0}}));
  flush(record, out);
  EXPECT_EQ(out.size(), 5u);
  // The next byte begins a new run although it is the same.
  encode(record, times(3, 'a'), 10, out);
  flush(record, out);
  EXPECT_EQ(out, joined({times(4, 'a'), {0}, times(3, 'a')}));
}

TEST(EncodeBzip2Runs, ResumesBehindTheFourthByte) {
  const Record record;
  Bytes out;
  const Bytes source = joined({times(9, 'a'), {'b'}});
  EXPECT_EQ(encode(record, source, 4, out), 4u);
  EXPECT_EQ(encode(record, std::span(source).subspan(4), 1, out), 5u);
  EXPECT_EQ(encode(record, std::span(source).subspan(9), 1, out), 1u);
  flush(record, out);
  EXPECT_EQ(out, joined({times(4, 'a'), {5, 'b'}}));
}

// A run that is as long as one count byte reaches stays open until something follows it.
TEST(EncodeBzip2Runs, ARunOf259WaitsForWhatFollows) {
  const Record record;
  Bytes out;
  EXPECT_EQ(encode(record, times(259, 'a'), 10, out), 259u);
  EXPECT_EQ(out, times(4, 'a'));
  EXPECT_EQ(encode(record, times(1, 'a'), 1, out), 0u);
  EXPECT_EQ(out, joined({times(4, 'a'), {255}}));
  EXPECT_EQ(encode(record, times(1, 'a'), 1, out), 1u);
  flush(record, out);
  EXPECT_EQ(out, joined({times(4, 'a'), {255, 'a'}}));
}

TEST(EncodeBzip2Runs, MatchesThePlainRuleInAnyPieces) {
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const Bytes source = withRuns(1 + below(random, 3000), random());
    const size_t longest = round % 4 == 0 ? 3 : 1 + below(random, 2000);
    const Record record;
    PlainRunEncoder plain;
    Bytes out;
    Bytes expected;
    for (size_t at = 0; at < source.size();) {
      const size_t piece = std::min(source.size() - at, 1 + below(random, longest));
      const size_t room = 1 + below(random, longest);
      const auto slice = std::span(source).subspan(at, piece);
      const size_t consumed = encode(record, slice, room, out);
      ASSERT_EQ(consumed, plain.encode(slice, room, expected));
      ASSERT_EQ(out, expected);
      at += consumed;
    }
    flush(record, out);
    plain.flush(expected);
    ASSERT_EQ(out, expected);
    ASSERT_EQ(inUse(record), plain.inUse);
    ASSERT_EQ(decodeWhole(out, source.size() + 1), (PlainDecoded{zebOk, out.size(), source}));
  }
}

TEST(DecodeBzip2Block, AcceptsAnEmptySource) {
  EXPECT_EQ(decodeWhole({}, 5), (PlainDecoded{zebOk, 0, {}}));
}

TEST(DecodeBzip2Block, FourBytesWithoutACountAreFour) {
  EXPECT_EQ(decodeWhole(times(4, 'a'), 5), (PlainDecoded{zebOk, 4, times(4, 'a')}));
  EXPECT_EQ(decodeWhole(times(4, 'a'), 4), (PlainDecoded{zebWarnDstFull, 4, times(4, 'a')}));
}

TEST(DecodeBzip2Block, ConsumesTheCountOfARunThatDoesNotFit) {
  const Bytes source = joined({times(4, 'a'), {3, 'b'}});
  EXPECT_EQ(decodeWhole(source, 6), (PlainDecoded{zebWarnDstFull, 5, times(4, 'a')}));
  EXPECT_EQ(decodeWhole(source, 7), (PlainDecoded{zebWarnDstFull, 6, times(7, 'a')}));
  EXPECT_EQ(decodeWhole(source, 8),
            (PlainDecoded{zebWarnDstFull, 6, joined({times(7, 'a'), {'b'}})}));
  EXPECT_EQ(decodeWhole(source, 9), (PlainDecoded{zebOk, 6, joined({times(7, 'a'), {'b'}})}));
}

TEST(DecodeBzip2Block, TakesBytesBehindAFullDestinationForCounts) {
  EXPECT_EQ(decodeWhole(Bytes{'a', 'b', 0, 0, 7, 'c'}, 2),
            (PlainDecoded{zebWarnDstFull, 5, {'a', 'b'}}));
}

TEST(DecodeBzip2Block, MatchesThePlainRuleForAnyBytesAndRooms) {
  Random random(2);
  for (int round = 0; round < 3000; ++round) {
    const Bytes source = round % 2 == 0 ? withRuns(1 + below(random, 400), random())
                                        : encoded(withRuns(1 + below(random, 400), random()));
    const size_t capacity = 1 + below(random, round % 3 == 0 ? 20000 : 500);
    ASSERT_EQ(decodeWhole(source, capacity), test::plainDecodeRuns(source, capacity));
  }
}

TEST(DecodeBzip2Pieces, KeepsWhatOfARunDoesNotFit) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  const Bytes source = joined({times(4, 'a'), {20, 'b', 'c', 'd', 'e'}});
  EXPECT_EQ(decodePiece(record, source, 10), (PlainDecoded{zebWarnDstFull, 5, times(10, 'a')}));
  const auto rest = std::span(source).subspan(5);
  EXPECT_EQ(decodePiece(record, rest, 9), (PlainDecoded{zebWarnDstFull, 0, times(9, 'a')}));
  EXPECT_EQ(decodePiece(record, rest, 9),
            (PlainDecoded{zebOk, 4, joined({times(5, 'a'), test::fromText("bcde")})}));
}

// A pending run that just fits fills the room: what follows in the source is looked at already.
TEST(DecodeBzip2Pieces, APendingRunMayFillTheRoom) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  const Bytes source = joined({times(4, 'a'), {20}, times(3, 'a'), {9}, test::fromText("bcdef")});
  EXPECT_EQ(decodePiece(record, source, 10), (PlainDecoded{zebWarnDstFull, 5, times(10, 'a')}));
  const auto rest = std::span(source).subspan(5);
  EXPECT_EQ(decodePiece(record, rest, 14), (PlainDecoded{zebWarnDstFull, 4, times(14, 'a')}));
  EXPECT_EQ(flushPending(record, 12), (PlainDecoded{zebOk, 0, times(12, 'a')}));
  // Three bytes of source are too few to look at.
  EXPECT_EQ(decodePiece(record, source, 10).status, zebWarnDstFull);
  EXPECT_EQ(decodePiece(record, times(3, 'a'), 14), (PlainDecoded{zebOk, 0, times(14, 'a')}));
}

TEST(DecodeBzip2Pieces, FlushWritesThePendingRun) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  EXPECT_EQ(flushPending(record, 0), (PlainDecoded{zebOk, 0, {}}));
  const Bytes source = joined({times(4, 'a'), {20}});
  EXPECT_EQ(decodePiece(record, source, 10), (PlainDecoded{zebWarnDstFull, 5, times(10, 'a')}));
  EXPECT_EQ(flushPending(record, 0), (PlainDecoded{zebWarnDstFull, 0, {}}));
  EXPECT_EQ(flushPending(record, 13), (PlainDecoded{zebWarnDstFull, 0, times(13, 'a')}));
  EXPECT_EQ(flushPending(record, 13), (PlainDecoded{zebOk, 0, times(1, 'a')}));
}

TEST(DecodeBzip2Pieces, MergesGroupsOfTheSameByte) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  const Bytes source = encoded(times(700, 'a'));
  EXPECT_EQ(decodePiece(record, source, 1),
            (PlainDecoded{zebWarnDstFull, source.size(), times(1, 'a')}));
  EXPECT_EQ(flushPending(record, 1000), (PlainDecoded{zebOk, 0, times(699, 'a')}));
}

TEST(DecodeBzip2Pieces, LooksAheadWhereTheRoomIsFull) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  // Behind a run that fills the room, three more bytes of its value and the one after them are read
  // as a group although only the three are meant.
  const Bytes source = joined({times(4, 'a'), {0}, times(3, 'a'), {9}, test::fromText("bcdef")});
  EXPECT_EQ(decodePiece(record, source, 4), (PlainDecoded{zebWarnDstFull, 9, times(4, 'a')}));
  EXPECT_EQ(flushPending(record, 100), (PlainDecoded{zebOk, 0, times(12, 'a')}));
  // With room for all nothing is misread.
  const auto whole = joined({times(7, 'a'), {9}, test::fromText("bcdef")});
  EXPECT_EQ(decodePiece(record, source, 20), (PlainDecoded{zebOk, source.size(), whole}));
}

TEST(DecodeBzip2Pieces, EndsWithZebOkWhenTheLastBytesDoNotFit) {
  const Record record;
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  EXPECT_EQ(decodePiece(record, test::fromText("abc"), 2),
            (PlainDecoded{zebOk, 2, test::fromText("ab")}));
  EXPECT_EQ(decodePiece(record, test::fromText("abcd"), 2),
            (PlainDecoded{zebOk, 2, test::fromText("ab")}));
}

TEST(DecodeBzip2Pieces, StateInitLeavesTheTableOfValuesInUse) {
  const Record record;
  Bytes out;
  encode(record, test::fromText("abc"), 3, out);
  const Bytes before = inUse(record);
  EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
  EXPECT_EQ(inUse(record), before);
}

// Any bytes, cut anywhere, with any rooms: also what the rules read wrongly must be read so.
TEST(DecodeBzip2Pieces, MatchThePlainRuleForAnyBytesPiecesAndRooms) {
  Random random(3);
  for (int round = 0; round < 2000; ++round) {
    Bytes source = withRuns(1 + below(random, 600), random());
    if (round % 2 == 0) source = encoded(source);
    if (round % 4 == 0) source = test::mutated(source, random);
    if (source.empty()) continue;
    const size_t longest = 1 + below(random, 700);
    const Record record;
    EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
    PlainRunDecoder plain;
    for (size_t at = 0; at < source.size();) {
      const auto piece =
          std::span(source).subspan(at, std::min(source.size() - at, 1 + below(random, longest)));
      const size_t room = 1 + below(random, longest);
      const PlainDecoded result = decodePiece(record, piece, room);
      ASSERT_EQ(result, plain.decode(piece, room));
      at += result.consumed;
    }
    PlainDecoded last = {};
    do {
      const size_t room = below(random, longest);
      last = flushPending(record, room);
      ASSERT_EQ(last, plain.flush(room));
    } while (last.status == zebWarnDstFull);
  }
}

// What the header promises: pieces that end between groups, and a room for the whole block.
TEST(DecodeBzip2Pieces, WholeGroupsWithRoomForTheBlockComeOutRight) {
  Random random(4);
  for (int round = 0; round < 300; ++round) {
    const Bytes source = withRuns(1 + below(random, 3000), random());
    const Record record;
    EXPECT_EQ(zebsDecodeRLEStateInit_BZ2_8u(record.get()), zebOk);
    const Bytes code = encoded(source);
    const PlainDecoded result = decodePiece(record, code, source.size() + 4);
    ASSERT_EQ(result, (PlainDecoded{zebOk, code.size(), source}));
  }
}

TEST(Bzip2RunLength, RoundTripsAllKindsOfData) {
  for (const size_t size : {1, 5, 1000, 70000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      const Bytes code = encoded(source);
      EXPECT_EQ(decodeWhole(code, size + 1), (PlainDecoded{zebOk, code.size(), source}));
    }
  }
}

}  // namespace
}  // namespace zebdc
