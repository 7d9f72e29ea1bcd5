// The match finder and the encoder's dictionary: the pairs are those of a plain rendering of the
// rules, whatever the pieces, rooms and flushes, and stand for the source.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <algorithm>
#include <functional>
#include <span>

#include "deflate/encoder_state.h"
#include "deflate/pairs.h"
#include "deflate/reference_match_finder.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::deflate {
namespace {

using test::below;
using test::Bytes;
using test::expand;
using test::GuardedBuffer;
using test::Pairs;
using test::Random;
using test::ReferenceMatchFinder;

class Encoder {
 public:
  explicit Encoder(int level, int checksum = zebLZ77ChecksumNone)
      : memory_(encoderStateBytes, GuardedBuffer::Edge::none) {
    zebsEncodeLZ77Init_8u(level, checksum, record());
  }

  ZebLZ77State_8u* record() const { return memory_.as<ZebLZ77State_8u>(); }
  EncoderState& state() const { return encoderState(record()); }

  // As if so many bytes had gone before, all of them unknown.
  void startAt(int32_t windowPos) {
    state().windowPos = state().windowStart = state().refreshedAt = windowPos;
    if (state().comprLevel != zebLZ77LevelFast) {
      const uint32_t none = 0xFFFF0000 | ((static_cast<uint32_t>(windowPos) - 32768) & 0xFFFF);
      std::fill_n(state().headTable, hashEntries, static_cast<int32_t>(none));
    }
    state().historyBase = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(state().history) -
                                                     static_cast<uintptr_t>(windowPos));
  }

 private:
  GuardedBuffer memory_;
};

struct CallResult {
  ZebStatus status;
  int consumed;
  Pairs pairs;
};

// One call with source and room that end at inaccessible pages.
CallResult call(const Encoder& encoder, std::span<const uint8_t> source, int room, int flush) {
  const GuardedBuffer guardedSource(source);
  const GuardedBuffer guardedPairs(static_cast<size_t>(room) * sizeof(ZebLZ77Pair));
  const uint8_t* src = guardedSource.data();
  int srcLen = static_cast<int>(source.size());
  ZebLZ77Pair* const begin = guardedPairs.as<ZebLZ77Pair>();
  ZebLZ77Pair* pairs = begin;
  int pairsLen = room;
  const ZebStatus status =
      zebsEncodeLZ77_8u(&src, &srcLen, &pairs, &pairsLen, flush, encoder.record());
  EXPECT_EQ(pairs - begin, room - pairsLen);
  EXPECT_EQ(guardedSource.end() - src, srcLen);
  EXPECT_EQ(encoder.state().callSrcLen, srcLen);
  EXPECT_EQ(encoder.state().lastFlush, flush);
  return {status, static_cast<int>(source.size()) - srcLen, Pairs(begin, pairs)};
}

// Drives library and reference side by side.
class Comparison {
 public:
  explicit Comparison(int level, int32_t windowPos = 0)
      : encoder_(level), reference_(level, windowPos) {
    encoder_.startAt(windowPos);
  }

  const Encoder& encoder() const { return encoder_; }

  void setDictionary(const Bytes& dictionary) {
    const GuardedBuffer guarded(dictionary);
    ASSERT_EQ(zebsEncodeLZ77SetDictionary_8u(guarded.data(), static_cast<int>(dictionary.size()),
                                             encoder_.record()),
              zebOk);
    reference_.setDictionary(dictionary);
    output_ = dictionary;
  }

  // Returns what was consumed.
  size_t step(std::span<const uint8_t> source, int room, int flush) {
    const CallResult result = call(encoder_, source, room, flush);
    Pairs expected(static_cast<size_t>(room));
    const ReferenceMatchFinder::Result reference =
        reference_.encode(source, expected.data(), room, flush);
    expected.resize(static_cast<size_t>(reference.pairs));

    EXPECT_EQ(result.consumed, reference.consumed);
    EXPECT_TRUE(result.pairs == expected) << firstDifference(result.pairs, expected);
    const bool full = static_cast<size_t>(result.consumed) < source.size() || room == 0;
    EXPECT_EQ(result.status, full ? zebWarnDstFull : zebOk);
    if (full) {
      EXPECT_EQ(result.pairs.size(), static_cast<size_t>(room));
    }

    const size_t before = output_.size();
    expand(result.pairs, output_);
    const auto consumed = source.first(static_cast<size_t>(result.consumed));
    EXPECT_TRUE(std::equal(consumed.begin(), consumed.end(),
                           output_.begin() + static_cast<ptrdiff_t>(before), output_.end()));
    return consumed.size();
  }

  // Whole source, in pieces and rooms of the given sizes.
  void run(const Bytes& source, const std::function<size_t()>& pieceSize,
           const std::function<int()>& room, const std::function<int()>& flush) {
    size_t at = 0;
    while (at < source.size() && !testing::Test::HasFailure()) {
      std::span<const uint8_t> piece(source);
      piece = piece.subspan(at, std::min(pieceSize(), source.size() - at));
      const int pieceFlush = flush();
      while (!piece.empty() && !testing::Test::HasFailure()) {
        const size_t consumed = step(piece, room(), pieceFlush);
        at += consumed;
        piece = piece.subspan(consumed);
      }
    }
  }

  void runAtOnce(const Bytes& source, int flush) {
    EXPECT_EQ(step(source, static_cast<int>(source.size()), flush), source.size());
  }

 private:
  static std::string firstDifference(const Pairs& found, const Pairs& expected) {
    const auto [a, b] = std::mismatch(found.begin(), found.end(), expected.begin(), expected.end());
    const auto text = [](auto at, auto end) {
      return at == end ? std::string("nothing") : testing::PrintToString(*at);
    };
    return "pair " + std::to_string(a - found.begin()) + ": " + text(a, found.end()) +
           " instead of " + text(b, expected.end());
  }

  Encoder encoder_;
  ReferenceMatchFinder reference_;
  Bytes output_;
};

class MatchFinderTest : public testing::TestWithParam<int> {
 protected:
  int level() const { return GetParam(); }
  size_t tail() const { return level() == zebLZ77LevelBest ? 3 : 2; }
};

INSTANTIATE_TEST_SUITE_P(Level, MatchFinderTest, testing::Values(0, 1, 2));

TEST_P(MatchFinderTest, ChecksComeInOrderAndChangeNothing) {
  const Encoder encoder(level());
  encoder.state().callSrcLen = 77;
  encoder.state().lastFlush = 77;
  const uint8_t byte = 1;
  const uint8_t* src = &byte;
  int srcLen = 1;
  ZebLZ77Pair pair = {};
  ZebLZ77Pair* pairs = &pair;
  int room = 1;
  ZebLZ77State_8u* const record = encoder.record();
  int negative = -1;
  EXPECT_EQ(zebsEncodeLZ77_8u(nullptr, &negative, &pairs, &negative, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, nullptr, &pairs, &negative, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, nullptr, &negative, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, &pairs, nullptr, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, &pairs, &negative, 0, nullptr), zebErrNullPtr);
  ZebLZ77Pair* noPairs = nullptr;
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, &noPairs, &negative, 0, record), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &srcLen, &pairs, &negative, 0, record), zebErrSize);
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, &pairs, &room, 0, record), zebErrSize);
  int zero = 0;
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &negative, &pairs, &zero, 0, record), zebErrSize);
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(pairs, &pair);
  EXPECT_EQ(srcLen, 1);
  EXPECT_EQ(room, 1);
  EXPECT_EQ(negative, -1);
  EXPECT_EQ(encoder.state().callSrcLen, 77);
  EXPECT_EQ(encoder.state().lastFlush, 77);
  EXPECT_EQ(encoder.state().windowPos, 0);
}

TEST_P(MatchFinderTest, NoRoomAndNoSourceAreNotedOnly) {
  const Encoder encoder(level(), zebLZ77ChecksumCRC32);
  encoder.state().altBitsActive = 1;
  const Bytes source = test::fromText("aaaa");
  CallResult result = call(encoder, source, 0, zebLZ77FlushSync);
  EXPECT_EQ(result.status, zebWarnDstFull);
  EXPECT_EQ(result.consumed, 0);
  result = call(encoder, {}, 0, zebLZ77FlushFinal);
  EXPECT_EQ(result.status, zebWarnDstFull);
  result = call(encoder, {}, 5, zebLZ77FlushFull);
  EXPECT_EQ(result.status, zebOk);
  EXPECT_EQ(encoder.state().altBitsActive, 1u);
  EXPECT_EQ(encoder.state().checksum, 0u);
  EXPECT_EQ(encoder.state().windowPos, 0);

  const uint8_t* src = nullptr;
  int srcLen = 0, room = 1;
  ZebLZ77Pair pair;
  ZebLZ77Pair* pairs = &pair;
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &srcLen, &pairs, &room, 0, encoder.record()), zebOk);
  EXPECT_EQ(src, nullptr);

  call(encoder, source, 1, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().altBitsActive, 0u);
}

TEST_P(MatchFinderTest, TheLastBytesOfACallAreLiterals) {
  for (size_t size = 1; size <= 12; ++size) {
    const Encoder encoder(level());
    const Bytes source(size, 'a');
    call(encoder, Bytes(100, 'a'), 200, 0);
    const CallResult result = call(encoder, source, 20, 0);
    ASSERT_EQ(result.status, zebOk);
    ASSERT_GE(result.pairs.size(), std::min(size, tail()));
    for (size_t i = 0; i < std::min(size, tail()); ++i) {
      EXPECT_EQ(result.pairs[result.pairs.size() - 1 - i], (ZebLZ77Pair{'a', 0})) << size;
    }
    if (size >= tail() + 4) {
      EXPECT_EQ(result.pairs.size(), tail() + 1) << size;
    }
  }
}

TEST_P(MatchFinderTest, ARunIsALiteralAndMatchesOfDistanceOne) {
  const Encoder encoder(level());
  const CallResult result = call(encoder, Bytes(1000, 'x'), 1000, 0);
  const size_t tailBytes = tail();
  ASSERT_GE(result.pairs.size(), 1 + 4 + tailBytes);
  EXPECT_EQ(result.pairs[0], (ZebLZ77Pair{'x', 0}));
  const size_t matches = result.pairs.size() - 1 - tailBytes;
  for (size_t i = 1; i <= matches; ++i) EXPECT_EQ(result.pairs[i].offset, 1);
  EXPECT_EQ(result.pairs[1].length, 258);
}

// Wherever in its call the string comes again, and however many bytes follow it.
TEST_P(MatchFinderTest, MatchesReachBackUpTo32767Bytes) {
  const Bytes text = test::fromText("A unique string of some length");
  for (const size_t gap : {size_t{32766}, size_t{32767}, size_t{32768}}) {
    for (size_t before = 0; before < 20; ++before) {
      for (const size_t size : {size_t{19}, text.size()}) {
        const Encoder encoder(level());
        Bytes first = test::fromText("A unique string");
        first.resize(gap - before, 0);
        // Nothing in between shares a hash with the string.
        Bytes second(before, 0);
        second.insert(second.end(), text.begin(), text.begin() + static_cast<ptrdiff_t>(size));
        size_t at = 0;
        while (at < first.size()) {
          at += static_cast<size_t>(
              call(encoder, std::span<const uint8_t>(first).subspan(at), 30000, 0).consumed);
        }
        const CallResult result = call(encoder, second, 100, 0);
        const ZebLZ77Pair* pair = result.pairs.data();
        for (at = 0; at < before; ++pair) at += pair->offset == 0 ? 1 : pair->length;
        ASSERT_EQ(at, before);
        if (gap == 32768) {
          EXPECT_EQ(pair->offset, 0);
        } else {
          EXPECT_EQ(pair->length, 15);
          EXPECT_EQ(pair->offset, gap);
        }
      }
    }
  }
}

TEST_P(MatchFinderTest, PairsOfWholeInputsAreTheReferences) {
  for (const size_t size : {size_t{1}, size_t{2}, size_t{3}, size_t{4}, size_t{5}, size_t{10},
                            size_t{300}, size_t{3000}, size_t{40000}, size_t{140000}}) {
    for (const test::NamedBytes& input : test::oneOfEachKind(size)) {
      for (const int flush : {0, 1, 2, 3}) {
        if (size == 140000 && flush % 2 == 1) continue;
        SCOPED_TRACE(input.name + " " + std::to_string(size) + " flush " + std::to_string(flush));
        Comparison comparison(level());
        comparison.runAtOnce(input.bytes, flush);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_P(MatchFinderTest, PairsOfPiecesAreTheReferences) {
  Random random(static_cast<uint64_t>(level()) + 10);
  for (const size_t largest : {size_t{1}, size_t{5}, size_t{300}, size_t{5000}, size_t{70000}}) {
    for (const test::NamedBytes& input :
         test::oneOfEachKind(std::min(largest * 200, size_t{150000}))) {
      SCOPED_TRACE(input.name + " in pieces up to " + std::to_string(largest));
      Comparison comparison(level());
      comparison.run(
          input.bytes, [&] { return 1 + below(random, largest); },
          [&] { return static_cast<int>(1 + below(random, 1 + below(random, largest))); },
          [] { return 0; });
      if (HasFailure()) return;
    }
  }
}

TEST_P(MatchFinderTest, PairsAcrossFullFlushesAreTheReferences) {
  Random random(static_cast<uint64_t>(level()) + 20);
  for (const size_t largest : {size_t{4}, size_t{50}, size_t{2000}, size_t{40000}}) {
    for (const test::NamedBytes& input :
         test::oneOfEachKind(std::min(largest * 50, size_t{120000}))) {
      SCOPED_TRACE(input.name + " in pieces up to " + std::to_string(largest));
      Comparison comparison(level());
      comparison.run(
          input.bytes, [&] { return 1 + below(random, largest); },
          [&] { return static_cast<int>(1 + below(random, largest)); },
          [&] { return static_cast<int>(below(random, 4)); });
      if (HasFailure()) return;
    }
  }
}

// Long calls at level 2 work by an index, short ones by chains, and each takes over from the other.
TEST_P(MatchFinderTest, LongAndShortCallsShareTheirHistory) {
  Random random(static_cast<uint64_t>(level()) + 60);
  for (const int32_t start : {0, INT32_MAX - 90000}) {
    for (const test::NamedBytes& input : test::oneOfEachKind(160000)) {
      SCOPED_TRACE(input.name + " from " + std::to_string(start));
      Comparison comparison(level(), start);
      size_t shortCalls = 0;
      comparison.run(
          input.bytes,
          [&]() -> size_t {
            if (shortCalls == 0) {
              shortCalls = below(random, 2) == 0 ? 1 : below(random, 150);
              return 12000 + below(random, 60000);
            }
            --shortCalls;
            return 1 + below(random, 100);
          },
          [&] { return static_cast<int>(1 + below(random, 40000)); },
          [&] { return below(random, 40) == 0 ? 2 : 0; });
      if (HasFailure()) return;
    }
  }
}

TEST_P(MatchFinderTest, NothingRefersBackBeforeAFullFlush) {
  const Bytes source = test::textLike(20000, 1);
  const Encoder encoder(level());
  const CallResult first = call(encoder, source, 20000, zebLZ77FlushFull);
  EXPECT_EQ(encoder.state().windowPos, 0);
  const CallResult second = call(encoder, source, 20000, zebLZ77FlushNone);
  EXPECT_EQ(encoder.state().windowPos, 20000);
  Bytes output;
  expand(second.pairs, output);
  EXPECT_EQ(output, source);
  EXPECT_FALSE(first.pairs.empty());
}

TEST_P(MatchFinderTest, AFullFlushRefusesPositionZero) {
  const Encoder encoder(level());
  const Bytes source = test::fromText("abcdefgh.abcdefgh.xyz");
  const CallResult plain = call(encoder, source, 100, zebLZ77FlushNone);
  EXPECT_EQ(plain.pairs[9].length, 9);
  zebsEncodeLZ77Reset_8u(encoder.record());
  const CallResult flushed = call(encoder, source, 100, zebLZ77FlushFull);
  EXPECT_EQ(flushed.pairs[9], (ZebLZ77Pair{'a', 0}));
  EXPECT_EQ(flushed.pairs[10], (ZebLZ77Pair{8, 9}));
}

TEST_P(MatchFinderTest, EveryRoomIsFilledExactly) {
  const Bytes source = test::textLike(2000, 3);
  for (int room = 1; room <= 300; ++room) {
    Comparison comparison(level());
    comparison.run(
        source, [&] { return source.size(); }, [&] { return room; }, [] { return 0; });
    ASSERT_FALSE(HasFailure()) << room;
  }
}

TEST_P(MatchFinderTest, PositionsAreRenumberedBeforeTheyOverflow) {
  Random random(static_cast<uint64_t>(level()) + 30);
  for (const int32_t before : {100, 33000, 70000}) {
    for (const test::NamedBytes& input : test::oneOfEachKind(100000)) {
      SCOPED_TRACE(input.name + " from " + std::to_string(before) + " before the last position");
      Comparison comparison(level(), INT32_MAX - before);
      comparison.run(
          input.bytes, [&] { return 1 + below(random, 20000); },
          [&] { return static_cast<int>(1 + below(random, 20000)); }, [] { return 0; });
      EXPECT_LT(comparison.encoder().state().windowPos, 32768 + 120000);
      if (HasFailure()) return;
    }
  }
}

TEST_P(MatchFinderTest, RenumberingKeepsThePositionModulo32768) {
  Comparison comparison(level(), INT32_MAX - 1000);
  const Bytes source = test::textLike(1000, 4);
  comparison.runAtOnce(source, 0);
  EXPECT_EQ(comparison.encoder().state().windowPos, INT32_MAX);
  comparison.runAtOnce(Bytes(source.begin(), source.begin() + 1), 0);
  EXPECT_EQ(comparison.encoder().state().windowPos, 32768);
}

TEST_P(MatchFinderTest, FullFlushesAfterRenumberingAreTheReferences) {
  Random random(static_cast<uint64_t>(level()) + 40);
  for (const test::NamedBytes& input : test::oneOfEachKind(60000)) {
    SCOPED_TRACE(input.name);
    Comparison comparison(level(), INT32_MAX - 20000);
    comparison.run(
        input.bytes, [&] { return 1 + below(random, 5000); },
        [&] { return static_cast<int>(1 + below(random, 5000)); },
        [&] { return below(random, 6) == 0 ? 2 : 0; });
    if (HasFailure()) return;
  }
}

TEST_P(MatchFinderTest, RunningChecksumsCoverTheConsumedSource) {
  const Bytes source = test::binaryLike(100000, 5);
  for (const int kind : {0, 1, 2, 3, -1}) {
    const Encoder encoder(level(), kind);
    Random random(6);
    size_t at = 0;
    while (at < source.size()) {
      const size_t size = std::min(1 + below(random, 50000), source.size() - at);
      const auto piece = std::span<const uint8_t>(source).subspan(at, size);
      const int room = static_cast<int>(1 + below(random, 9000));
      at += static_cast<size_t>(call(encoder, piece, room, 0).consumed);
      const uLong expected = kind == 1   ? adler32(0, source.data(), static_cast<uInt>(at))
                             : kind == 2 ? crc32(0, source.data(), static_cast<uInt>(at))
                                         : 0;
      ASSERT_EQ(encoder.state().checksum, expected) << kind << " " << at;
    }
  }
}

TEST_P(MatchFinderTest, AResetRecordIsAsGoodAsNew) {
  const Bytes first = test::textLike(90000, 7);
  const Bytes second = test::textLike(50000, 7);
  const Encoder fresh(level());
  const Encoder used(level());
  call(used, first, 70000, 0);
  zebsEncodeLZ77Reset_8u(used.record());
  const Pairs a = call(fresh, second, 50000, 0).pairs;
  const Pairs b = call(used, second, 50000, 0).pairs;
  EXPECT_EQ(a, b);
}

TEST_P(MatchFinderTest, DictionariesServeAsHistory) {
  Random random(static_cast<uint64_t>(level()) + 50);
  for (const size_t size : {size_t{3}, size_t{4}, size_t{100}, size_t{5000}, size_t{32767},
                            size_t{32768}, size_t{32769}, size_t{100000}}) {
    for (const test::NamedBytes& input : test::oneOfEachKind(size + 20000)) {
      SCOPED_TRACE(input.name + " dictionary of " + std::to_string(size));
      const Bytes dictionary(input.bytes.begin(),
                             input.bytes.begin() + static_cast<ptrdiff_t>(size));
      Comparison comparison(level());
      comparison.setDictionary(dictionary);
      EXPECT_EQ(comparison.encoder().state().windowPos,
                static_cast<int32_t>(std::min(size, size_t{32768})));
      const Bytes source(input.bytes.end() - 20000, input.bytes.end());
      comparison.run(
          source, [&] { return 1 + below(random, 20000); },
          [&] { return static_cast<int>(1 + below(random, 20000)); }, [] { return 0; });
      if (HasFailure()) return;
    }
  }
}

TEST_P(MatchFinderTest, ASecondDictionaryReplacesTheFirst) {
  for (const auto& [first, second] :
       {std::pair<size_t, size_t>{30000, 100}, {100, 30000}, {40000, 40000}, {50, 50}}) {
    Comparison comparison(level());
    comparison.setDictionary(test::textLike(first, 8));
    comparison.setDictionary(test::textLike(second, 9));
    comparison.runAtOnce(test::textLike(60000, 8), 0);
  }
}

// Only the status tells that a stream has begun, and that is the caller's.
TEST_P(MatchFinderTest, ADictionaryReplacesAStreamWhoseStatusIsIdle) {
  Comparison comparison(level());
  comparison.runAtOnce(test::textLike(100000, 8), 0);
  comparison.setDictionary(test::textLike(20000, 9));
  comparison.runAtOnce(test::textLike(60000, 9), 0);
}

TEST_P(MatchFinderTest, DictionaryChecksComeInOrder) {
  const Encoder encoder(level());
  const Bytes dictionary = test::fromText("dictionary");
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(nullptr, -1, encoder.record()), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), -1, nullptr), zebErrNullPtr);
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, encoder.record());
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), -1, encoder.record()), zebErrSize);
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), 2, encoder.record()), zebOk);
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), 0, encoder.record()), zebOk);
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), 3, encoder.record()), zebErrGeneral);
  EXPECT_EQ(encoder.state().windowPos, 0);
  EXPECT_TRUE(std::all_of(encoder.state().headTable, encoder.state().headTable + hashEntries,
                          [](int32_t entry) { return entry == noPosition; }));
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusIdle, encoder.record());
  EXPECT_EQ(zebsEncodeLZ77SetDictionary_8u(dictionary.data(), 10, encoder.record()), zebOk);
  EXPECT_EQ(encoder.state().windowPos, 10);
  EXPECT_EQ(memcmp(encoder.state().history, dictionary.data(), 10), 0);
}

#if defined(__linux__)
// The source is as long as a length can be; it is mapped and never wholly read.
TEST_P(MatchFinderTest, ALengthOfTwoGibibytesDoesNotOverflow) {
  constexpr size_t size = INT32_MAX;
  void* const mapping =
      mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) GTEST_SKIP() << "no address space";
  const Encoder encoder(level());
  call(encoder, Bytes(40000, 0), 5000, 0);
  EXPECT_EQ(encoder.state().windowPos, 40000);
  const uint8_t* src = static_cast<const uint8_t*>(mapping);
  int srcLen = INT32_MAX;
  Pairs buffer(1000);
  ZebLZ77Pair* pairs = buffer.data();
  int room = 1000;
  EXPECT_EQ(zebsEncodeLZ77_8u(&src, &srcLen, &pairs, &room, 0, encoder.record()), zebWarnDstFull);
  EXPECT_EQ(srcLen, INT32_MAX - 258000);
  EXPECT_EQ(room, 0);
  EXPECT_EQ(encoder.state().windowPos, (40000 & 32767) + 258000);
  EXPECT_TRUE(std::all_of(buffer.begin(), buffer.end(), [](const ZebLZ77Pair& pair) {
    return pair.length == 258 && pair.offset <= 4;
  }));
  munmap(mapping, size);
}
#endif

TEST(MatchFinderLevelFast, OnlyTheMostRecentCandidateCounts) {
  const Encoder encoder(zebLZ77LevelFast);
  const Pairs pairs = call(encoder, test::fromText("abcdefgh abcx abcdefgh ..."), 100, 0).pairs;
  ASSERT_EQ(pairs.size(), 16u);
  EXPECT_EQ(pairs[8], (ZebLZ77Pair{' ', 0}));
  EXPECT_EQ(pairs[9], (ZebLZ77Pair{3, 9}));
  EXPECT_EQ(pairs[10], (ZebLZ77Pair{'x', 0}));
  EXPECT_EQ(pairs[11], (ZebLZ77Pair{4, 5}));
  EXPECT_EQ(pairs[12], (ZebLZ77Pair{6, 14}));
}

TEST(MatchFinderLevelAverage, LooksAtSixteenCandidates) {
  for (const int between : {14, 15, 16}) {
    Bytes source = test::fromText("abcdefgh");
    for (int i = 0; i < between; ++i) {
      source.push_back('a'), source.push_back('b'), source.push_back('c');
      source.push_back(static_cast<uint8_t>(0x80 + i));
    }
    const size_t last = source.size();
    for (const char c : std::string_view("abcdefgh 0123"))
      source.push_back(static_cast<uint8_t>(c));
    const Encoder encoder(zebLZ77LevelAverage);
    const Pairs pairs = call(encoder, source, 1000, 0).pairs;
    const ZebLZ77Pair whole = {8, static_cast<uint16_t>(last)};
    const bool found = std::find(pairs.begin(), pairs.end(), whole) != pairs.end();
    EXPECT_EQ(found, between < 16) << between;
  }
}

// Each short call leaves bytes that are in no table. The 64 latest of such places are remembered:
// where more of them may lie in the window, a long call has no index.
TEST(MatchFinderLevelBest, LongCallsBehindManyShortOnes) {
  constexpr size_t longCall = 12'500;
  for (const size_t shortCall : {size_t{40}, size_t{505}, size_t{520}}) {
    for (const size_t calls : {size_t{63}, size_t{64}, size_t{80}}) {
      SCOPED_TRACE(std::to_string(calls) + " calls of " + std::to_string(shortCall));
      const Bytes source = test::textLike(2 * (calls * shortCall + longCall), calls);
      Comparison comparison(zebLZ77LevelBest);
      size_t call = 0;
      comparison.run(
          source, [&] { return call++ % (calls + 1) < calls ? shortCall : longCall; },
          [] { return 1 << 16; }, [] { return 0; });
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(MatchFinderLevelBest, ThreeByteMatchesStayWithin4096Bytes) {
  for (const size_t distance : {size_t{4096}, size_t{4097}}) {
    Bytes source = test::fromText("abc");
    for (size_t i = 3; i < distance; ++i)
      source.push_back(static_cast<uint8_t>(0x80 | (i * i >> 5)));
    for (const char c : std::string_view("abc!01234")) source.push_back(static_cast<uint8_t>(c));
    const Encoder encoder(zebLZ77LevelBest);
    const CallResult result = call(encoder, source, 10000, 0);
    const bool found = std::any_of(result.pairs.begin(), result.pairs.end(), [&](const auto& pair) {
      return pair.length == 3 && pair.offset == distance;
    });
    EXPECT_EQ(found, distance == 4096);
  }
}

TEST(MatchFinderLevelBest, ALongerMatchAtTheNextByteIsPreferred) {
  const Encoder encoder(zebLZ77LevelBest);
  const Pairs pairs = call(encoder, test::fromText("abcde.bcdefgh-abcdefgh!01234"), 100, 0).pairs;
  const auto longer = std::find(pairs.begin(), pairs.end(), (ZebLZ77Pair{7, 9}));
  ASSERT_NE(longer, pairs.end());
  EXPECT_EQ(*(longer - 1), (ZebLZ77Pair{'a', 0}));
}

}  // namespace
}  // namespace zebdc::deflate
