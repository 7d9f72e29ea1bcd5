// The inflater whose caller parses block headers itself.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <numeric>

#include "deflate/format.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;

Bytes deflated(const Bytes& bytes, int level, int strategy = Z_DEFAULT_STRATEGY) {
  z_stream stream = {};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, -15, 8, strategy), Z_OK);
  Bytes out(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 64);
  stream.next_in = const_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(::deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// How a stream is driven: at most so many source bytes and so much room for each call, drawn anew.
struct Cuts {
  size_t largestPiece;
  size_t largestRoom;
  uint64_t seed;
};

// A caller that parses headers bit by bit and leaves the symbols to the library. Source pieces and
// rooms end at inaccessible pages.
class Inflater {
 public:
  Inflater(const Bytes& coded, Cuts cuts, size_t limit)
      : coded_(coded), cuts_(cuts), random_(cuts.seed), limit_(limit) {}

  // The last status; zebErrSize also for malformed headers.
  ZebStatus run() {
    for (;;) {
      const uint32_t last = bits(1);
      const uint32_t kind = bits(2);
      ZebStatus status = zebErrSize;
      if (kind == 0) status = stored();
      if (kind == 1) status = fixedBlock();
      if (kind == 2) status = dynamicBlock();
      if (status != zebOk || overrun_) return status != zebOk ? status : zebErrSize;
      if (last != 0) return zebOk;
    }
  }

  const Bytes& output() const { return output_; }
  uint64_t stops[3] = {};

 private:
  uint32_t bits(uint32_t count) {
    while (held_ < count) {
      if (at_ == coded_.size()) {
        overrun_ = true;
        return 0;
      }
      code_ |= static_cast<uint64_t>(coded_[at_++]) << held_;
      held_ += 8;
    }
    const uint32_t value = static_cast<uint32_t>(code_ & ((uint64_t{1} << count) - 1));
    code_ >>= count;
    held_ -= count;
    return value;
  }

  ZebStatus stored() {
    bits(held_ % 8);
    const uint32_t length = bits(16);
    if ((bits(16) ^ length) != 0xFFFF) return zebErrSize;
    for (uint32_t i = 0; i < length && !overrun_; ++i) {
      output_.push_back(static_cast<uint8_t>(bits(8)));
    }
    return zebOk;
  }

  ZebStatus fixedBlock() {
    state().tableKind = zebInflateTablesFixed;
    return symbols();
  }

  ZebStatus dynamicBlock() {
    const uint32_t litLens = bits(5) + 257;
    const uint32_t distances = bits(5) + 1;
    const uint32_t codeLengths = bits(4) + 4;
    uint8_t lengths[19] = {};
    for (uint32_t i = 0; i < codeLengths; ++i) {
      lengths[deflate::codeLengthOrder[i]] = static_cast<uint8_t>(bits(3));
    }
    std::vector<uint16_t> all;
    while (all.size() < litLens + distances) {
      const int symbol = codeLengthSymbol(lengths);
      if (symbol < 0 || overrun_) return zebErrSize;
      if (symbol < 16) {
        all.push_back(static_cast<uint16_t>(symbol));
        continue;
      }
      const uint16_t value = symbol == 16 && !all.empty() ? all.back() : 0;
      const uint32_t times = symbol == 16 ? 3 + bits(2) : symbol == 17 ? 3 + bits(3) : 11 + bits(7);
      all.insert(all.end(), times, value);
    }
    if (all.size() > litLens + distances) return zebErrSize;
    GuardedBuffer table(all.size() * 2);
    memcpy(table.data(), all.data(), table.size());
    const ZebStatus status =
        zebsInflateBuildHuffTable(table.as<uint16_t>(), litLens, distances, &state());
    return status == zebOk ? symbols() : status;
  }

  // One canonical code, a bit at a time.
  int codeLengthSymbol(const uint8_t* lengths) {
    uint32_t code = 0;
    uint32_t first = 0;
    for (int length = 1; length <= 7; ++length) {
      code = code << 1 | bits(1);
      const uint32_t count = static_cast<uint32_t>(std::count(lengths, lengths + 19, length));
      if (code < first + count) {
        uint32_t index = code - first;
        for (int symbol = 0; symbol < 19; ++symbol) {
          if (lengths[symbol] == length && index-- == 0) return symbol;
        }
      }
      first = (first + count) << 1;
    }
    return -1;
  }

  ZebStatus symbols() {
    ZebInflateMode mode = zebInflateAtSymbol;
    int idle = 0;
    for (;;) {
      const size_t piece =
          std::min(coded_.size() - at_, test::below(random_, cuts_.largestPiece + 1));
      const size_t room = test::below(random_, cuts_.largestRoom + 1);
      GuardedBuffer source(std::span<const uint8_t>(coded_).subspan(at_, piece));
      GuardedBuffer buffer(output_.size() + room);
      std::copy(output_.begin(), output_.end(), buffer.begin());
      const uint8_t* src = source.data();
      uint32_t srcLen = static_cast<uint32_t>(piece);
      uint32_t code = static_cast<uint32_t>(code_);
      uint8_t* dst = buffer.data() + output_.size();
      uint32_t dstLen = static_cast<uint32_t>(room);
      const uint32_t index = static_cast<uint32_t>(output_.size());
      state().history = buffer.data();
      state().historySize = static_cast<uint32_t>(buffer.size());
      EXPECT_LE(held_, 32u);
      const ZebStatus status = zebsInflate_8u(&src, &srcLen, &code, &held_, index, &dst, &dstLen,
                                              index, &mode, &state());
      EXPECT_EQ(src + srcLen, source.end());
      EXPECT_EQ(dst + dstLen, buffer.end());
      at_ += static_cast<size_t>(src - source.data());
      code_ = code;
      output_.assign(buffer.data(), dst);
      if (status != zebOk) return status;
      ++stops[mode];
      if (mode == zebInflateBlockDone) return zebOk;
      // A stop leaves either no source or no room.
      EXPECT_TRUE(srcLen == 0 || dstLen == 0);
      if (output_.size() > limit_) return zebErrSize;
      const bool exhausted = at_ == coded_.size() && dstLen > 0;
      if (exhausted && ++idle > 3) return zebErrSize;
    }
  }

  ZebInflateState& state() { return *memory_.as<ZebInflateState>(); }

  const Bytes& coded_;
  Cuts cuts_;
  test::Random random_;
  size_t limit_;
  GuardedBuffer memory_{sizeof(ZebInflateState)};
  size_t at_ = 0;
  uint64_t code_ = 0;
  uint32_t held_ = 0;
  bool overrun_ = false;
  Bytes output_;
};

void expectInflates(const Bytes& coded, const Bytes& plain, Cuts cuts) {
  Inflater inflater(coded, cuts, plain.size());
  ASSERT_EQ(inflater.run(), zebOk);
  ASSERT_EQ(inflater.output(), plain);
}

TEST(Inflate, StreamsOfEveryLevelAndStrategyInLargePieces) {
  for (const auto& [name, bytes] : test::oneOfEachKind(150000)) {
    for (const int level : {1, 3, 6, 9}) {
      for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED}) {
        SCOPED_TRACE(testing::Message() << name << " level " << level << " strategy " << strategy);
        expectInflates(deflated(bytes, level, strategy), bytes, {1 << 20, 1 << 20, 1});
      }
    }
  }
}

TEST(Inflate, AnyCutOfSourceAndRoomGivesTheSame) {
  test::Random random(2);
  for (const auto& [name, bytes] : test::oneOfEachKind(3000)) {
    for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY}) {
      SCOPED_TRACE(name);
      const Bytes coded = deflated(bytes, 9, strategy);
      for (const Cuts cuts : {Cuts{1, 1, 1}, Cuts{1, 5000, 2}, Cuts{5000, 1, 3}, Cuts{3, 700, 4},
                              Cuts{40, 400, 5}, Cuts{random() % 60 + 1, random() % 900 + 1, 6}}) {
        expectInflates(coded, bytes, cuts);
      }
    }
  }
}

TEST(Inflate, EveryKindOfStopOccurs) {
  const Bytes bytes = test::textLike(20000, 3);
  const Bytes coded = deflated(bytes, 9);
  Inflater inflater(coded, {2, 300, 1}, bytes.size());
  ASSERT_EQ(inflater.run(), zebOk);
  EXPECT_GE(inflater.stops[zebInflateBlockDone], 1u);
  EXPECT_GE(inflater.stops[zebInflateAtSymbol], 1u);
  EXPECT_GE(inflater.stops[zebInflateInSymbol], 1u);
}

// Codes of up to 15 bits, as no real compressor writes them for so little data.
TEST(Inflate, LongCodesDecodeInAnyCut) {
  for (int longest = 2; longest <= 15; ++longest) {
    // Lengths 1, 2, ..., longest, longest: symbols 'a', 'b', ... and the end of the block.
    std::vector<uint16_t> lengths(258 + 30);
    for (int i = 1; i < longest; ++i)
      lengths[static_cast<size_t>('a' + i - 1)] = static_cast<uint16_t>(i);
    lengths['z'] = static_cast<uint16_t>(longest);
    lengths[256] = static_cast<uint16_t>(longest);
    auto state = std::make_unique<ZebInflateState>();
    ASSERT_EQ(zebsInflateBuildHuffTable(lengths.data(), 258, 30, state.get()), zebOk);
    EXPECT_EQ(state->tableKind, longest > 11 ? zebInflateTablesLong : zebInflateTablesFast);
    EXPECT_EQ(state->longestLitLen, static_cast<uint32_t>(longest));
    EXPECT_EQ(state->longestDistance, 0u);

    // Codes: i ones... the canonical code of length i is i - 1 ones and a zero; 'z' ends the order
    // of symbols below 256 and so comes before the end of the block.
    Bytes coded;
    uint32_t used = 0;
    const auto put = [&](int ones, bool zero) {
      for (int i = 0; i < ones + zero; ++i, ++used) {
        if (used % 8 == 0) coded.push_back(0);
        if (i < ones) coded.back() = static_cast<uint8_t>(coded.back() | 1 << (used % 8));
      }
    };
    Bytes plain;
    for (int i = 1; i < longest; ++i) {
      put(i - 1, true);
      plain.push_back(static_cast<uint8_t>('a' + i - 1));
    }
    put(longest - 1, true);
    plain.push_back('z');
    put(longest, false);

    for (const size_t piece : {size_t{1}, size_t{2}, coded.size()}) {
      Bytes out(plain.size());
      uint8_t* dst = out.data();
      uint32_t room = static_cast<uint32_t>(out.size());
      uint32_t code = 0;
      uint32_t held = 0;
      ZebInflateMode mode = zebInflateAtSymbol;
      state->historySize = room;
      for (size_t at = 0; mode != zebInflateBlockDone;) {
        ASSERT_LT(at, coded.size());
        const uint8_t* src = coded.data() + at;
        uint32_t left = static_cast<uint32_t>(std::min(piece, coded.size() - at));
        const uint32_t index = static_cast<uint32_t>(dst - out.data());
        ASSERT_EQ(zebsInflate_8u(&src, &left, &code, &held, index, &dst, &room, index, &mode,
                                 state.get()),
                  zebOk);
        at = static_cast<size_t>(src - coded.data());
      }
      EXPECT_EQ(out, plain);
      EXPECT_EQ(room, 0u) << "the end of the block is taken without room";
    }
  }
}

// What a table must hold at an index, from the code lengths alone: the symbol whose code, first bit
// lowest, the index ends in, or -1.
int symbolAt(const std::vector<uint16_t>& lengths, uint32_t index) {
  uint32_t code = 0;
  uint32_t first = 0;
  for (uint32_t length = 1; length <= 15; ++length) {
    code = code << 1 | (index >> (length - 1) & 1);
    uint32_t rank = 0;
    for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
      if (lengths[symbol] != length) continue;
      if (first + rank++ == code) return static_cast<int>(symbol);
    }
    first = (first + rank) << 1;
  }
  return -1;
}

void expectFastTables(const std::vector<uint16_t>& litLen, const std::vector<uint16_t>& distance,
                      const ZebInflateState& state) {
  ASSERT_EQ(state.tableKind, zebInflateTablesFast);
  const uint32_t litLenBits = *std::max_element(litLen.begin(), litLen.end());
  const uint32_t distanceBits =
      distance.empty() ? 0 : *std::max_element(distance.begin(), distance.end());
  ASSERT_EQ(state.longestLitLen, litLenBits);
  ASSERT_EQ(state.longestDistance, distanceBits);
  for (uint32_t index = 0; index < 1u << litLenBits; ++index) {
    const int symbol = symbolAt(litLen, index);
    const uint32_t entry = state.tables.fast.litLen[index];
    if (symbol < 0) {
      ASSERT_EQ(entry >> 4 & 15, 14u);
      continue;
    }
    uint32_t expected = litLen[static_cast<size_t>(symbol)];
    if (symbol < 256) {
      expected |= static_cast<uint32_t>(symbol) << 8;
    } else if (symbol == 256) {
      expected |= 15 << 4;
    } else if (symbol == 285) {
      expected |= 8 << 4 | 255 << 8;
    } else {
      // 257 to 264 stand for lengths 3 to 10; then every four symbols take one more extra bit.
      const int step = symbol - 257;
      const int extra = step < 8 ? 0 : step / 4 - 1;
      const int base = step < 8 ? step : (4 + step % 4) << extra;
      expected |= static_cast<uint32_t>((8 + extra) << 4 | base << 8);
    }
    ASSERT_EQ(entry, expected) << "index " << index << " symbol " << symbol;
  }
  for (uint32_t index = 0; distanceBits > 0 && index < 1u << distanceBits; ++index) {
    const int symbol = symbolAt(distance, index);
    const uint32_t entry = state.tables.fast.distance[index];
    if (symbol < 0) {
      ASSERT_EQ(entry >> 4, 14u);
      continue;
    }
    const int extra = symbol < 4 ? 0 : symbol / 2 - 1;
    const int base = symbol < 4 ? symbol + 1 : ((2 + symbol % 2) << extra) + 1;
    ASSERT_EQ(entry, static_cast<uint32_t>(extra << 4) | distance[static_cast<size_t>(symbol)]);
    ASSERT_EQ(state.tables.fast.distanceBase[index], base) << symbol;
  }
}

// Lengths of a code that is complete or not, none longer than longest.
std::vector<uint16_t> randomLengths(test::Random& random, size_t symbols, uint32_t longest) {
  std::vector<uint16_t> lengths(symbols, 0);
  uint32_t left = 1u << longest;
  for (size_t tries = 0; tries < 2 * symbols && left > 0; ++tries) {
    const size_t symbol = test::below(random, symbols);
    const uint32_t length = longest - static_cast<uint32_t>(test::below(random, longest) / 2);
    if (lengths[symbol] != 0 || 1u << (longest - length) > left) continue;
    lengths[symbol] = static_cast<uint16_t>(length);
    left -= 1u << (longest - length);
  }
  return lengths;
}

TEST(Inflate, FastTablesHaveTheirPublicLayout) {
  EXPECT_EQ(offsetof(ZebInflateState, historySize), 8u);
  EXPECT_EQ(offsetof(ZebInflateState, tableKind), 12u);
  EXPECT_EQ(offsetof(ZebInflateState, partial), 16u);
  EXPECT_EQ(offsetof(ZebInflateState, tables), 40u);
  EXPECT_EQ(offsetof(ZebInflateFastTables, distanceBase),
            offsetof(ZebInflateFastTables, distance) + 1024);
  test::Random random(11);
  auto state = std::make_unique<ZebInflateState>();
  for (int round = 0; round < 60; ++round) {
    const uint32_t longestLitLen = 9 + static_cast<uint32_t>(test::below(random, 3));
    const uint32_t longestDistance = 5 + static_cast<uint32_t>(test::below(random, 6));
    const size_t litLens = 257 + test::below(random, 30);
    std::vector<uint16_t> litLen = randomLengths(random, litLens, longestLitLen);
    if (litLen[256] == 0) {
      const auto longest = std::max_element(litLen.begin(), litLen.end());
      std::swap(litLen[256], *longest);
    }
    const std::vector<uint16_t> distance =
        randomLengths(random, round % 8 == 0 ? 0 : 1 + test::below(random, 30), longestDistance);
    std::vector<uint16_t> both = litLen;
    both.insert(both.end(), distance.begin(), distance.end());
    GuardedBuffer lengths(both.size() * sizeof(uint16_t));
    memcpy(lengths.data(), both.data(), lengths.size());
    memset(&state->tables, 0x5A, sizeof state->tables);
    ASSERT_EQ(zebsInflateBuildHuffTable(lengths.as<uint16_t>(), static_cast<uint32_t>(litLens),
                                        static_cast<uint32_t>(distance.size()), state.get()),
              zebOk);
    ASSERT_NO_FATAL_FAILURE(expectFastTables(litLen, distance, *state));
  }
}

// A record for codes 'a' 0, end of the block 10, match of 3 110, and distance lengths.
std::unique_ptr<ZebInflateState> smallCode(std::vector<uint16_t> distances) {
  std::vector<uint16_t> lengths(258);
  lengths['a'] = 1;
  lengths[256] = 2;
  lengths[257] = 3;
  const auto count = static_cast<uint32_t>(distances.size());
  lengths.insert(lengths.end(), distances.begin(), distances.end());
  auto state = std::make_unique<ZebInflateState>();
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 258, count, state.get()), zebOk);
  state->historySize = 1000;
  return state;
}

struct Outcome {
  ZebStatus status;
  ZebInflateMode mode;
  size_t written;
};

// Decodes bits, the first lowest, and then zeros up to the size of the source.
Outcome decodeBits(ZebInflateState& state, uint64_t bits, size_t size) {
  GuardedBuffer source(size);
  for (size_t i = 0; i < size; ++i) {
    source[i] = static_cast<uint8_t>(i < 8 ? bits >> (8 * i) : 0);
  }
  GuardedBuffer buffer(1000);
  const uint8_t* src = source.data();
  uint32_t left = static_cast<uint32_t>(size);
  uint32_t code = 0;
  uint32_t held = 0;
  uint8_t* dst = buffer.data();
  uint32_t room = 1000;
  ZebInflateMode mode = zebInflateAtSymbol;
  const ZebStatus status =
      zebsInflate_8u(&src, &left, &code, &held, 0, &dst, &room, 0, &mode, &state);
  return {status, mode, static_cast<size_t>(dst - buffer.data())};
}

// Near the end of the source step by step, far from it in the fast loop.
TEST(Inflate, PatternsWithoutASymbolAreBadData) {
  for (const size_t size : {size_t{1}, size_t{2}, size_t{60}}) {
    // "aa", then 111, which no symbol has.
    const Outcome noSymbol = decodeBits(*smallCode({1}), 0b11100, size);
    EXPECT_EQ(noSymbol.status, zebErrBadData);
    EXPECT_EQ(noSymbol.written, 2u);
    // A match, whose distance has no code.
    const Outcome noDistances = decodeBits(*smallCode({}), 0b01100, size);
    EXPECT_EQ(noDistances.status, zebErrBadData);
    EXPECT_EQ(noDistances.written, 2u);
    const Outcome zeroDistances = decodeBits(*smallCode({0, 0}), 0b01100, size);
    EXPECT_EQ(zeroDistances.status, zebErrBadData);
    // "aa", a match by the single distance code 0, end of the block; then by the unused 1.
    const Outcome single = decodeBits(*smallCode({1}), 0b01001100, size);
    EXPECT_EQ(single.status, zebOk);
    EXPECT_EQ(single.mode, zebInflateBlockDone);
    EXPECT_EQ(single.written, 5u);
    const Outcome unused = decodeBits(*smallCode({1}), 0b0111100, size);
    EXPECT_EQ(unused.status, zebErrBadData);
    EXPECT_EQ(unused.written, 2u);
  }
}

TEST(Inflate, FastTablesThatWereNotBuiltAreRefusedOrHarmless) {
  auto state = smallCode({1});
  state->longestLitLen = 12;
  EXPECT_EQ(decodeBits(*state, 0, 100).status, zebErrBadData);
  state->longestLitLen = 3;
  state->longestDistance = 11;
  EXPECT_EQ(decodeBits(*state, 0, 100).status, zebErrBadData);
  test::Random random(12);
  for (int round = 0; round < 200; ++round) {
    state->longestLitLen = static_cast<uint32_t>(test::below(random, 12));
    state->longestDistance = static_cast<uint32_t>(test::below(random, 11));
    const Bytes garbage = test::randomBytes(sizeof state->tables.fast, random());
    memcpy(&state->tables.fast, garbage.data(), garbage.size());
    if (round == 0) memset(&state->tables.fast, 0, sizeof state->tables.fast);
    const ZebStatus status = decodeBits(*state, random(), 8 + test::below(random, 300)).status;
    ASSERT_TRUE(status == zebOk || status == zebErrBadData);
  }
}

TEST(Inflate, UnusedBytesGoBackToTheSource) {
  const Bytes bytes = test::textLike(5000, 4);
  Bytes coded = deflated(bytes, 6, Z_FIXED);
  const size_t size = coded.size();
  coded.insert(coded.end(), 100, 0xAB);
  auto state = std::make_unique<ZebInflateState>();
  state->tableKind = zebInflateTablesFixed;
  state->historySize = 5000;
  Bytes out(5000);
  // The block's three header bits are used up.
  uint32_t code = static_cast<uint32_t>(coded[0] >> 3);
  uint32_t held = 5;
  const uint8_t* src = coded.data() + 1;
  uint32_t left = static_cast<uint32_t>(coded.size() - 1);
  uint8_t* dst = out.data();
  uint32_t room = 5000;
  ZebInflateMode mode = zebInflateAtSymbol;
  ASSERT_EQ(zebsInflate_8u(&src, &left, &code, &held, 0, &dst, &room, 0, &mode, state.get()),
            zebOk);
  EXPECT_EQ(mode, zebInflateBlockDone);
  EXPECT_EQ(out, bytes);
  EXPECT_EQ(src, coded.data() + size);
  EXPECT_LT(held, 8u);
}

TEST(Inflate, BuildChecksPointersThenCountsThenLengths) {
  auto state = std::make_unique<ZebInflateState>();
  std::vector<uint16_t> lengths(286 + 30, 0);
  EXPECT_EQ(zebsInflateBuildHuffTable(nullptr, 999, 999, state.get()), zebErrNullPtr);
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 999, 999, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 287, 30, state.get()), zebErrSize);
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 31, state.get()), zebErrSize);
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebErrBadData);
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 0, 0, state.get()), zebErrBadData);
  lengths[0] = 1;
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebErrBadData)
      << "no code for the end of the block";
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 256, 30, state.get()), zebErrBadData);
  lengths[256] = 1;
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 257, 0, state.get()), zebOk);
  EXPECT_EQ(state->tableKind, zebInflateTablesFast);
  lengths[286] = 1;  // a single distance code
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebOk);
  EXPECT_EQ(state->longestDistance, 1u);
  lengths[286] = 11;
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebOk);
  EXPECT_EQ(state->tableKind, zebInflateTablesLong);
  lengths[286] = 16;
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebErrBadData);
  lengths[286] = 0;
  lengths[1] = 1;
  EXPECT_EQ(zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get()), zebErrBadData)
      << "three codes of one bit";
}

struct Arguments {
  uint8_t byte = 0;
  const uint8_t* src = &byte;
  uint32_t srcLen = 1;
  uint32_t code = 0;
  uint32_t held = 33;
  uint8_t out = 77;
  uint8_t* dst = &out;
  uint32_t dstLen = 1;
  ZebInflateMode mode = zebInflateAtSymbol;
  std::unique_ptr<ZebInflateState> state = std::make_unique<ZebInflateState>();

  ZebStatus callWithNull(int place, uint32_t winIdx = 9) {
    const auto at = [place](int index, auto* pointer) {
      return index == place ? nullptr : pointer;
    };
    return zebsInflate_8u(at(0, &src), at(1, &srcLen), at(2, &code), at(3, &held), winIdx,
                          at(4, &dst), at(5, &dstLen), winIdx, at(6, &mode), at(7, state.get()));
  }
};

TEST(Inflate, ChecksPointersThenSizesThenTables) {
  Arguments arguments;
  for (int place = 0; place <= 7; ++place) {
    EXPECT_EQ(arguments.callWithNull(place), zebErrNullPtr) << place;
  }
  arguments.src = nullptr;
  EXPECT_EQ(arguments.callWithNull(-1), zebErrNullPtr);
  arguments.src = &arguments.byte;
  arguments.dst = nullptr;
  EXPECT_EQ(arguments.callWithNull(-1), zebErrNullPtr);
  arguments.dst = &arguments.out;
  arguments.state->tableKind = 3;
  arguments.state->historySize = 8;
  EXPECT_EQ(arguments.callWithNull(-1, 0), zebErrSize) << "33 bits";
  arguments.held = 0;
  EXPECT_EQ(arguments.callWithNull(-1, 9), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 0), zebErrBadData);
  EXPECT_EQ(arguments.srcLen, 1u);
  EXPECT_EQ(arguments.dstLen, 1u);
  EXPECT_EQ(arguments.out, 77);
}

// A call of its own for each piece, on a record for smallCode.
struct Session {
  std::unique_ptr<ZebInflateState> state = smallCode({1});
  Bytes out = Bytes(1000);
  uint32_t code = 0;
  uint32_t held = 0;
  uint8_t* dst = out.data();
  ZebInflateMode mode = zebInflateAtSymbol;

  ZebStatus call(const Bytes& source, uint32_t room, uint32_t* left) {
    const uint8_t* src = source.data();
    *left = static_cast<uint32_t>(source.size());
    const uint32_t index = static_cast<uint32_t>(dst - out.data());
    return zebsInflate_8u(&src, left, &code, &held, index, &dst, &room, index, &mode, state.get());
  }
};

TEST(Inflate, AnyOtherModeAbandonsTheSymbolInProgress) {
  for (const ZebInflateMode mode : {0u, 1u, 3u, 0xFFFFFFFFu}) {
    Session session;
    uint32_t left = 0;
    // "a", then a match of three, of which the room takes one.
    ASSERT_EQ(session.call({0b00000110 << 1 & 0xFF}, 2, &left), zebOk);
    ASSERT_EQ(session.mode, zebInflateInSymbol);
    ASSERT_EQ(session.dst - session.out.data(), 2);
    session.mode = mode;
    session.code = 0;
    session.held = 0;
    // "aaaa", end of the block: the rest of the match does not come.
    session.out[2] = 'x';
    ASSERT_EQ(session.call({0b00010000}, 4, &left), zebOk);
    EXPECT_EQ(session.mode, zebInflateBlockDone);
    EXPECT_EQ(session.dst - session.out.data(), 6);
  }
}

TEST(Inflate, BadDataWritesEveryCursorBack) {
  Session session;
  uint32_t left = 0;
  // "aaa", then 111.
  EXPECT_EQ(session.call({0b00111000, 0xFF, 0xFF, 0xFF}, 100, &left), zebErrBadData);
  EXPECT_EQ(session.dst - session.out.data(), 3);
  EXPECT_EQ(session.mode, zebInflateAtSymbol);
  EXPECT_LT(session.held, 8u);
  // Everything in front of the bad code is used up, and nothing else.
  EXPECT_EQ(8 * (4 - left) - session.held, 3u);
}

TEST(Inflate, AnIndexOfTheWholeHistoryIsTaken) {
  Session session;
  session.state->historySize = 7;
  session.dst += 7;
  uint32_t left = 0;
  EXPECT_EQ(session.call({0b00000000}, 8, &left), zebOk);
  session.dst = session.out.data() + 8;
  EXPECT_EQ(session.call({0b00000000}, 8, &left), zebErrSize);
}

TEST(Inflate, ContextsThatNoCallLeavesAreRefused) {
  const uint32_t contexts[][4] = {{0, 0, 0, 0}, {1, 0, 0, 0},  {7, 0, 0, 0},
                                  {8, 0, 0, 0}, {2, 3, 0, 14}, {5, 3, 0, 0}};
  for (const auto& context : contexts) {
    Session session;
    memcpy(session.state->partial, context, sizeof context);
    session.mode = zebInflateInSymbol;
    uint32_t left = 0;
    EXPECT_EQ(session.call({0}, 10, &left), zebErrBadData);
    EXPECT_EQ(left, 1u);
    EXPECT_EQ(session.dst, session.out.data());
  }
}

TEST(Inflate, DistancesBeforeTheBufferAreRefused) {
  // Fixed codes: 'x', then a match of 3 at distance 2 (symbols 257 and 1).
  //   'x' = 0x30 + 0x78 = 10101000, length 0000001, distance 00001, all first bit first
  const Bytes coded = {0x15, 0x40, 0x08, 0x00};
  for (const uint32_t before : {0u, 1u, 2u}) {
    auto state = std::make_unique<ZebInflateState>();
    state->tableKind = zebInflateTablesFixed;
    state->historySize = 100;
    GuardedBuffer buffer(100, GuardedBuffer::Edge::begin);
    memset(buffer.data(), 'h', before);
    const uint8_t* src = coded.data();
    uint32_t left = 4;
    uint32_t code = 0;
    uint32_t held = 0;
    uint8_t* dst = buffer.data() + before;
    uint32_t room = 100 - before;
    ZebInflateMode mode = zebInflateAtSymbol;
    const ZebStatus status =
        zebsInflate_8u(&src, &left, &code, &held, before, &dst, &room, before, &mode, state.get());
    EXPECT_EQ(buffer[before], 'x');
    if (before == 0) {
      EXPECT_EQ(status, zebErrBadData);
      EXPECT_EQ(dst, buffer.data() + 1);
    } else {
      EXPECT_EQ(status, zebOk);
      EXPECT_EQ(dst, buffer.data() + before + 4);
      EXPECT_EQ(buffer[before + 1], 'h');
      EXPECT_EQ(buffer[before + 2], 'x');
    }
  }
}

TEST(Inflate, MutatedStreamsStayInBounds) {
  test::Random random(5);
  for (const auto& [name, bytes] : test::oneOfEachKind(2500)) {
    for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED}) {
      const Bytes coded = deflated(bytes, 6, strategy);
      for (int round = 0; round < 60; ++round) {
        const Bytes damaged = test::mutated(coded, random);
        const Cuts cuts =
            round % 2 == 0 ? Cuts{1 << 16, 1 << 14, random()} : Cuts{50, 300, random()};
        Inflater inflater(damaged, cuts, 20000);
        const ZebStatus status = inflater.run();
        ASSERT_TRUE(status == zebOk || status == zebErrSize || status == zebErrBadData);
      }
    }
  }
}

TEST(Inflate, AnyLengthsBytesAndContextStayInBounds) {
  test::Random random(6);
  auto state = std::make_unique<ZebInflateState>();
  for (int round = 0; round < 3000; ++round) {
    std::vector<uint16_t> lengths(286 + 30);
    const size_t longest = 1 + test::below(random, 16);
    for (uint16_t& length : lengths) {
      length = static_cast<uint16_t>(
          test::below(random, 3) == 0 ? 0
                                      : test::below(random, longest + 1) | (longest > 7 ? 8 : 0));
    }
    if (round % 4 != 0) {
      // A set that builds: few codes, all long.
      for (uint16_t& length : lengths)
        length = static_cast<uint16_t>(length == 0 ? 0 : 9 + length % 7);
      lengths[256] = 15;
    }
    const ZebStatus built = zebsInflateBuildHuffTable(lengths.data(), 286, 30, state.get());
    ASSERT_TRUE(built == zebOk || built == zebErrBadData);
    if (built != zebOk) continue;
    for (uint32_t& word : state->partial) word = static_cast<uint32_t>(test::below(random, 20));
    GuardedBuffer source(test::randomBytes(test::below(random, 400), random()));
    GuardedBuffer buffer(1000,
                         round % 2 == 0 ? GuardedBuffer::Edge::begin : GuardedBuffer::Edge::end);
    state->historySize = 1000;
    const uint8_t* src = source.data();
    uint32_t left = static_cast<uint32_t>(source.size());
    uint32_t code = static_cast<uint32_t>(random());
    uint32_t held = static_cast<uint32_t>(test::below(random, 33));
    const uint32_t index = static_cast<uint32_t>(test::below(random, 300));
    uint8_t* dst = buffer.data() + index;
    uint32_t room = 1000 - index;
    ZebInflateMode mode = static_cast<ZebInflateMode>(test::below(random, 4));
    const ZebStatus status =
        zebsInflate_8u(&src, &left, &code, &held, index, &dst, &room, index, &mode, state.get());
    ASSERT_TRUE(status == zebOk || status == zebErrBadData);
    ASSERT_LE(held, 32u);
  }
}

}  // namespace
}  // namespace zebdc
