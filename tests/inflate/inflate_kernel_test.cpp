// The inner loops by themselves, under every kernel tier: what they decode, where they stop, and
// that they stay inside their buffers, which touch inaccessible pages.

#include "kernels/inflate_block.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <ostream>

#include "deflate/format.h"
#include "inflate/fast_table.h"
#include "inflate/streams.h"
#include "kernels/inflate_fast.h"
#include "kernels/pair_expansion.h"
#include "support/guarded_buffer.h"

namespace zebdc::inflate {
namespace {

using kernels::InflateBytes;
using kernels::InflateInput;
using kernels::InflatePairs;
using test::Bytes;
using test::GuardedBuffer;

// A code that both kinds of tables can hold: the fixed one but for symbols that stand for nothing.
constexpr int longestLitLen = 9;
constexpr int longestDistance = 5;

using LitLenLengths = std::array<uint16_t, deflate::literalSymbols>;
using DistanceLengths = std::array<uint16_t, deflate::distanceSymbols>;

struct Codes {
  LitLenLengths litLen;
  DistanceLengths distance;
};

Codes plainCodes() {
  Codes codes;
  for (int symbol = 0; symbol < deflate::literalSymbols; ++symbol) {
    codes.litLen[static_cast<size_t>(symbol)] =
        static_cast<uint16_t>(deflate::fixedLiteralLength(symbol));
  }
  codes.distance.fill(longestDistance);
  return codes;
}

// Codes that give packed tables entries of every kind: literals short enough to share an entry with
// the literal or the length behind them, and in both tables codes longer than the root.
Codes mixedCodes() {
  Codes codes;
  const auto litLen = codes.litLen.begin();
  std::fill_n(litLen, 8, uint16_t{4});
  std::fill_n(litLen + 8, 120, uint16_t{10});
  std::fill_n(litLen + 128, 128, uint16_t{13});
  std::fill(litLen + deflate::endOfBlock, codes.litLen.end(), uint16_t{12});
  std::fill_n(litLen + deflate::firstLengthSymbol, 8, uint16_t{6});
  std::fill_n(codes.distance.begin(), 15, uint16_t{5});
  std::fill(codes.distance.begin() + 15, codes.distance.end(), uint16_t{10});
  return codes;
}

// Codes so short that 'a' shares an entry with the match behind it.
Codes shortCodes(size_t distances) {
  Codes codes = {};
  codes.litLen['a'] = 1;
  codes.litLen[deflate::endOfBlock] = codes.litLen[deflate::firstLengthSymbol] = 2;
  std::fill_n(codes.distance.begin(), distances, uint16_t{2});
  return codes;
}

struct PackedTables {
  uint32_t litLen[litLenTableRoom];
  uint32_t distance[distanceTableRoom];
  LitLenLengths lengths;

  explicit PackedTables(const Codes& codes) : lengths(codes.litLen) {
    buildLitLenTable(lengths.data(), deflate::literalSymbols, litLen);
    buildDistanceTable(codes.distance.data(), deflate::distanceSymbols, distance);
  }

  operator kernels::InflateTables() const { return {litLen, distance, lengths.data()}; }
};

test::Code codeOf(const auto& lengths) {
  return test::Code({lengths.begin(), lengths.end()});
}

// Symbols of a block, with the positions between them.
struct Symbols {
  std::vector<ZebLZ77Pair> items;
  std::vector<size_t> bits;   // position in the source behind so many items
  std::vector<size_t> bytes;  // position in the output
  Bytes source;
  Bytes output;
};

// Literals, few or many in a row, and matches of all lengths that reach up to `history` bytes
// before the output; the end of the block, and enough source behind it for the loops to see it.
Symbols randomSymbols(test::Random& random, size_t count, const Bytes& history,
                      const Codes& codes = plainCodes()) {
  test::BitWriter out;
  test::BlockWriter block(out, codeOf(codes.litLen), codeOf(codes.distance));
  Symbols symbols;
  Bytes all = history;
  const auto note = [&] {
    symbols.bits.push_back(out.bitCount());
    symbols.bytes.push_back(all.size() - history.size());
  };
  note();
  const size_t literalsForMatch = test::below(random, 4) == 0 ? test::below(random, 60) : 1;
  while (symbols.items.size() < count) {
    if (all.empty() || test::below(random, literalsForMatch + 1) != 0) {
      const bool oftenUsed = random() % 2 != 0;
      all.push_back(static_cast<uint8_t>(random() % (oftenUsed ? 8 : 256)));
      symbols.items.push_back({all.back(), 0});
      block.literal(all.back());
    } else {
      const size_t reach = std::min<size_t>(all.size(), test::below(random, 3) == 0 ? 40 : 32768);
      const auto distance = static_cast<uint16_t>(1 + test::below(random, reach));
      const auto length = static_cast<uint16_t>(3 + test::below(random, random() % 4 ? 20 : 256));
      for (int i = 0; i < length; ++i) all.push_back(all[all.size() - distance]);
      symbols.items.push_back({length, distance});
      block.match(length, distance);
    }
    note();
  }
  block.end();
  out.bytes(Bytes(kernels::inflateSourceMargin));
  symbols.source = out.finished();
  symbols.output.assign(all.begin() + static_cast<ptrdiff_t>(history.size()), all.end());
  return symbols;
}

// A call of a loop on a copy of the source, after some bits have been taken by hand.
struct Input {
  Input(const Symbols& symbols, size_t sourceSize, size_t bytesInHand)
      : buffer(std::span(symbols.source).first(sourceSize)),
        in{buffer.data() + bytesInHand, buffer.end(), 0, static_cast<int>(8 * bytesInHand)} {
    for (size_t i = 0; i < bytesInHand; ++i) in.bits |= uint64_t{buffer[i]} << (8 * i);
  }

  // How many items have been decoded: the loop must stand between two.
  size_t itemsDecoded(const Symbols& symbols) const {
    const size_t consumed =
        static_cast<size_t>(in.src - buffer.data()) * 8 - static_cast<size_t>(in.count);
    const auto border = std::lower_bound(symbols.bits.begin(), symbols.bits.end(), consumed);
    EXPECT_TRUE(border != symbols.bits.end() && *border == consumed);
    for (int i = 0; i < in.count; ++i) {
      const size_t bit = consumed + static_cast<size_t>(i);
      EXPECT_EQ(in.bits >> i & 1, symbols.source[bit / 8] >> (bit % 8) & 1u);
    }
    EXPECT_TRUE(in.count >= 64 || in.bits >> in.count == 0);
    return static_cast<size_t>(border - symbols.bits.begin());
  }

  bool nearEnd() const { return in.end - in.src < kernels::inflateSourceMargin; }

  GuardedBuffer buffer;
  InflateInput in;
};

struct Shape {
  size_t source, inHand, room;
};

Shape randomShape(test::Random& random, const Symbols& symbols, size_t roomNeeded) {
  const bool shortSource = random() % 2 != 0;
  const bool shortRoom = random() % 2 != 0;
  const size_t source =
      symbols.source.size() - (shortSource ? test::below(random, symbols.source.size()) : 0);
  return {source, std::min(source, test::below(random, 8)),
          shortRoom ? test::below(random, roomNeeded) : roomNeeded + test::below(random, 700)};
}

void expectOutput(const Symbols& symbols, const uint8_t* begin, const InflateBytes& out,
                  size_t items) {
  const size_t size = static_cast<size_t>(out.dst - begin);
  EXPECT_EQ(size, symbols.bytes[items]);
  ASSERT_TRUE(std::equal(begin, begin + size, symbols.output.begin()));
}

template <Codes (*codes)()>
void bytesByPackedTables(InflateInput& in, InflateBytes& out) {
  static const PackedTables tables(codes());
  kernels::inflate().toBytes(in, out, tables);
}

void bytesByFastTables(InflateInput& in, InflateBytes& out) {
  const Codes codes = plainCodes();
  uint16_t litLen[1 << longestLitLen];
  buildFastLitLenTable(codes.litLen.data(), deflate::literalSymbols, longestLitLen, litLen);
  uint8_t distance[1 << longestDistance];
  uint16_t bases[1 << longestDistance];
  buildFastDistanceTable(codes.distance.data(), deflate::distanceSymbols, longestDistance, distance,
                         bases);
  kernels::inflateFast().toBytes(
      in, out, {litLen, distance, bases, (1 << longestLitLen) - 1, (1 << longestDistance) - 1});
}

struct ByteKernel {
  const char* name;
  Codes (*codes)();
  void (*toBytes)(InflateInput&, InflateBytes&);
};

void PrintTo(const ByteKernel& kernel, std::ostream* out) {
  *out << kernel.name;
}

class InflateByteKernels : public testing::TestWithParam<ByteKernel> {};
INSTANTIATE_TEST_SUITE_P(
    Tables, InflateByteKernels,
    testing::Values(ByteKernel{"packed", plainCodes, bytesByPackedTables<plainCodes>},
                    ByteKernel{"packed, mixed", mixedCodes, bytesByPackedTables<mixedCodes>},
                    ByteKernel{"fast", plainCodes, bytesByFastTables}));

TEST_P(InflateByteKernels, FromTheBeginning) {
  test::Random random(1);
  for (int round = 0; round < 200; ++round) {
    const Symbols symbols =
        randomSymbols(random, test::below(random, 1500), {}, GetParam().codes());
    const Shape shape = randomShape(random, symbols, symbols.output.size());
    Input input(symbols, shape.source, shape.inHand);
    GuardedBuffer room(shape.room);
    InflateBytes out = {room.data(), room.data(), room.end()};
    GetParam().toBytes(input.in, out);
    const size_t items = input.itemsDecoded(symbols);
    expectOutput(symbols, room.data(), out, items);
    EXPECT_TRUE(items == symbols.items.size() || input.nearEnd() ||
                out.end - out.dst < kernels::inflateBytesMargin);
  }
}

TEST(InflateKernels, BytesWithHistory) {
  test::Random random(2);
  const Bytes history = test::randomBytes(32768, 1);
  for (int round = 0; round < 200; ++round) {
    const Codes codes = round % 2 != 0 ? plainCodes() : mixedCodes();
    const PackedTables tables(codes);
    const Symbols symbols = randomSymbols(random, test::below(random, 3000), history, codes);
    const Shape shape = randomShape(random, symbols, symbols.output.size());
    Input input(symbols, shape.source, shape.inHand);
    GuardedBuffer room(shape.room);
    // The 32 bytes that may be read behind the history.
    GuardedBuffer before(history.size() + 32);
    memcpy(before.data(), history.data(), history.size());
    InflateBytes out = {room.data(), room.data(), room.end()};
    kernels::inflate().toBytesWithHistory(input.in, out, before.end() - 32, tables);
    const size_t items = input.itemsDecoded(symbols);
    expectOutput(symbols, room.data(), out, items);
    EXPECT_TRUE(items == symbols.items.size() || input.nearEnd() ||
                out.end - out.dst < kernels::inflateBytesMargin);
  }
}

// The history directly before the output, in one buffer.
TEST_P(InflateByteKernels, BehindOthersInTheRoom) {
  test::Random random(3);
  for (const size_t already : {1u, 100u, 32767u, 32768u, 50000u}) {
    const Bytes history = test::randomBytes(already, already);
    for (int round = 0; round < 20; ++round) {
      const Symbols symbols =
          randomSymbols(random, test::below(random, 2000), history, GetParam().codes());
      const Shape shape = randomShape(random, symbols, symbols.output.size());
      Input input(symbols, shape.source, shape.inHand);
      GuardedBuffer room(already + shape.room);
      memcpy(room.data(), history.data(), already);
      InflateBytes out = {room.data(), room.data() + already, room.end()};
      GetParam().toBytes(input.in, out);
      expectOutput(symbols, room.data() + already, out, input.itemsDecoded(symbols));
    }
  }
}

// Or in front of the literal before it: both may be one entry of the table.
TEST_P(InflateByteKernels, StopInFrontOfAMatchThatReachesTooFar) {
  test::Random random(4);
  const Bytes history = test::randomBytes(500, 1);
  for (int round = 0; round < 100; ++round) {
    const Symbols symbols = randomSymbols(random, 500, history, GetParam().codes());
    Input input(symbols, symbols.source.size(), 0);
    GuardedBuffer room(symbols.output.size() + 1000);
    InflateBytes out = {room.data(), room.data(), room.end()};
    GetParam().toBytes(input.in, out);
    const size_t items = input.itemsDecoded(symbols);
    expectOutput(symbols, room.data(), out, items);
    if (items < symbols.items.size() && !input.nearEnd()) {
      const size_t at = items + (symbols.items[items].offset == 0 ? 1 : 0);
      EXPECT_GT(symbols.items.at(at).offset, symbols.bytes[at]);
    }
  }
}

// Where the output grows past the farthest reach, the question whether a match reaches too far is
// no longer asked: not a byte too early.
TEST_P(InflateByteKernels, FarthestMatchNeedsAllOfItsReach) {
  constexpr size_t reach = kernels::inflateReach;
  constexpr size_t length = 5;
  const Bytes history = test::randomBytes(reach + 3, 1);
  for (size_t already = reach - 20; already <= history.size(); ++already) {
    for (size_t literals = 0; literals < 20; ++literals) {
      const Codes codes = GetParam().codes();
      test::BitWriter writer;
      test::BlockWriter block(writer, codeOf(codes.litLen), codeOf(codes.distance));
      std::vector<size_t> bits = {0};
      for (size_t i = 0; i < literals; ++i) {
        block.literal(1);
        bits.push_back(writer.bitCount());
      }
      block.match(length, reach);
      writer.bytes(Bytes(100));
      const Bytes& source = writer.finished();

      GuardedBuffer room(already + 1000, GuardedBuffer::Edge::begin);
      memcpy(room.data(), history.data(), already);
      InflateInput in = {source.data(), source.data() + source.size(), 0, 0};
      InflateBytes out = {room.data(), room.data() + already, room.end()};
      GetParam().toBytes(in, out);
      const size_t before = already + literals;
      const uint8_t* const match = room.data() + before;
      if (before < reach) {
        const size_t written = static_cast<size_t>(out.dst - room.data()) - already;
        ASSERT_TRUE(written == literals || written + 1 == literals);
        const ptrdiff_t consumed = (in.src - source.data()) * 8 - in.count;
        ASSERT_EQ(static_cast<size_t>(consumed), bits[written]);
      } else {
        ASSERT_GE(out.dst, match + length);
        ASSERT_EQ(memcmp(match, match - reach, length), 0);
      }
    }
  }
}

// A turn of the loop writes the most with three entries of two literals, and one of a literal and
// the longest match. The room may end with any byte of them.
TEST(InflateKernels, FullestTurnStaysInTheRoom) {
  Codes codes = {};
  codes.litLen['a'] = 1;
  codes.litLen[deflate::endOfBlock] = codes.litLen[deflate::literalSymbols - 1] = 2;
  codes.distance[8] = 1;  // of 17, from where on matches are copied by the widest steps
  const PackedTables tables(codes);
  test::BitWriter writer;
  test::BlockWriter block(writer, codeOf(codes.litLen), codeOf(codes.distance));
  block.literals(std::string(24, 'a'));
  for (int turn = 0; turn < 40; ++turn) block.literals("aaaaaaa").match(258, 17);
  const Bytes source = writer.finished();
  for (size_t size = 0; size < 1300; ++size) {
    GuardedBuffer room(size);
    InflateInput in = {source.data(), source.data() + source.size(), 0, 0};
    InflateBytes out = {room.data(), room.data(), room.end()};
    kernels::inflate().toBytes(in, out, tables);
    EXPECT_LT(out.end - out.dst, kernels::inflateBytesMargin);
    EXPECT_TRUE(std::all_of(room.data(), out.dst, [](uint8_t byte) { return byte == 'a'; }));
  }
  for (size_t size = 0; size < 60; ++size) {
    GuardedBuffer room(size * sizeof(ZebLZ77Pair));
    ZebLZ77Pair* const begin = room.as<ZebLZ77Pair>();
    InflateInput in = {source.data(), source.data() + source.size(), 0, 0};
    InflatePairs out = {begin, begin + size};
    kernels::inflate().toPairs(in, out, tables);
    EXPECT_LT(out.end - out.dst, kernels::inflatePairsMargin);
    for (const ZebLZ77Pair* pair = begin; pair != out.dst; ++pair) {
      const bool isMatch = pair - begin > 24 && (pair - begin) % 8 == 7;
      EXPECT_EQ(pair->length, isMatch ? 258 : 'a');
      EXPECT_EQ(pair->offset, isMatch ? 17 : 0);
    }
  }
}

// A literal and the match behind it may be one entry of the table. When the match reaches too far,
// the literal is left with it.
TEST(InflateKernels, BytesBeforeAMatchThatReachesTooFar) {
  const Codes codes = shortCodes(4);
  const PackedTables tables(codes);

  for (size_t literals = 0; literals < 4; ++literals) {
    test::BitWriter writer;
    test::BlockWriter block(writer, codeOf(codes.litLen), codeOf(codes.distance));
    block.literals(std::string(literals, 'a')).match(3, 4).literals(std::string(300, 'a')).end();
    const Bytes source = writer.finished();
    GuardedBuffer room(1000);
    InflateInput in = {source.data(), source.data() + source.size(), 0, 0};
    InflateBytes out = {room.data(), room.data(), room.end()};
    kernels::inflate().toBytes(in, out, tables);
    const ptrdiff_t written = out.dst - room.data();
    EXPECT_LE(written, static_cast<ptrdiff_t>(literals));
    EXPECT_EQ((in.src - source.data()) * 8 - in.count, written);  // a literal has one bit
  }
}

// Every loop stops behind so many literals or one fewer: the last may be left with what follows.
void expectStopBehindLiterals(const Codes& codes, const Bytes& source, size_t literals,
                              int literalBits) {
  const PackedTables tables(codes);
  const Bytes history(kernels::inflateReach + 32);
  const InflateInput begin = {source.data(), source.data() + source.size(), 0, 0};
  const auto expectStop = [&](const InflateInput& in, ptrdiff_t written) {
    EXPECT_LE(written, static_cast<ptrdiff_t>(literals));
    EXPECT_GE(written + 1, static_cast<ptrdiff_t>(literals));
    EXPECT_EQ((in.src - source.data()) * 8 - in.count, written * literalBits);
  };

  GuardedBuffer room(1000);
  InflateInput in = begin;
  InflateBytes bytes = {room.data(), room.data(), room.end()};
  kernels::inflate().toBytes(in, bytes, tables);
  expectStop(in, bytes.dst - room.data());

  in = begin;
  bytes.dst = room.data();
  kernels::inflate().toBytesWithHistory(in, bytes, history.data() + kernels::inflateReach, tables);
  expectStop(in, bytes.dst - room.data());

  ZebLZ77Pair pairs[100];
  in = begin;
  InflatePairs out = {pairs, pairs + 100};
  kernels::inflate().toPairs(in, out, tables);
  expectStop(in, out.dst - pairs);
}

// A source of literals, perhaps the beginning of a match, and a code that stands for nothing.
Bytes sourceWithInvalidCode(const Codes& codes, size_t literals, char literal, bool match,
                            uint32_t invalid, int invalidBits) {
  test::BitWriter writer;
  test::BlockWriter block(writer, codeOf(codes.litLen), codeOf(codes.distance));
  block.literals(std::string(literals, literal));
  if (match) block.lengthSymbol(deflate::firstLengthSymbol, 0, 0);
  for (int bit = invalidBits - 1; bit >= 0; --bit) writer.put(invalid >> bit & 1, 1);
  return writer.bytes(Bytes(100)).finished();
}

TEST(InflateKernels, InvalidCodesInRootAndSubtables) {
  const Codes inRoot = shortCodes(3);
  Codes inSubtable = mixedCodes();
  inSubtable.litLen[255] = 0;
  for (size_t literals = 0; literals < 12; ++literals) {
    expectStopBehindLiterals(inRoot, sourceWithInvalidCode(inRoot, literals, 'a', true, 3, 2),
                             literals, 1);
    // The codes behind the last ones, in the same subtable as those.
    expectStopBehindLiterals(
        inSubtable, sourceWithInvalidCode(inSubtable, literals, 1, true, 495, 10), literals, 4);
    expectStopBehindLiterals(
        inSubtable, sourceWithInvalidCode(inSubtable, literals, 1, false, 6251, 13), literals, 4);
  }
}

TEST(InflateKernels, Pairs) {
  test::Random random(5);
  const Bytes history = test::randomBytes(32768, 1);
  for (int round = 0; round < 200; ++round) {
    const Codes codes = round % 2 != 0 ? plainCodes() : mixedCodes();
    const PackedTables tables(codes);
    const Symbols symbols = randomSymbols(random, test::below(random, 1500), history, codes);
    const Shape shape = randomShape(random, symbols, symbols.items.size());
    Input input(symbols, shape.source, shape.inHand);
    GuardedBuffer room(shape.room * sizeof(ZebLZ77Pair));
    ZebLZ77Pair* const begin = room.as<ZebLZ77Pair>();
    InflatePairs out = {begin, begin + shape.room};
    kernels::inflate().toPairs(input.in, out, tables);
    const size_t items = input.itemsDecoded(symbols);
    EXPECT_EQ(static_cast<size_t>(out.dst - begin), items);
    if (items > 0) {
      ASSERT_EQ(memcmp(begin, symbols.items.data(), items * sizeof *begin), 0);
    }
    EXPECT_TRUE(items == symbols.items.size() || input.nearEnd() ||
                out.end - out.dst < kernels::inflatePairsMargin);
  }
}

TEST(InflateKernels, Expansion) {
  test::Random random(6);
  for (int round = 0; round < 400; ++round) {
    const size_t already = round % 2 ? 0 : 1000;
    const Bytes history = test::randomBytes(already, 1);
    const Symbols symbols = randomSymbols(random, test::below(random, 1500), history);
    const Shape shape = randomShape(random, symbols, symbols.output.size());
    GuardedBuffer pairs({reinterpret_cast<const uint8_t*>(symbols.items.data()),
                         symbols.items.size() * sizeof(ZebLZ77Pair)});
    GuardedBuffer room(already + shape.room);
    if (already > 0) memcpy(room.data(), history.data(), already);
    InflateBytes out = {room.data(), room.data() + already, room.end()};
    const size_t items =
        kernels::pairExpansion().expand(pairs.as<ZebLZ77Pair>(), symbols.items.size(), out);
    expectOutput(symbols, room.data() + already, out, items);
    EXPECT_TRUE(items == symbols.items.size() || out.end - out.dst < kernels::inflateBytesMargin);
  }
}

// A long run in front of a long match, and the room ends at any byte of them.
TEST(InflateKernels, ExpansionStaysInTheRoom) {
  std::vector<ZebLZ77Pair> pairs;
  for (const size_t run : {63, 40, 20, 0, 62}) {
    pairs.insert(pairs.end(), run, ZebLZ77Pair{'a', 0});
    pairs.push_back({258, 1});
  }
  const size_t output = 63 + 40 + 20 + 62 + 5 * 258;
  for (size_t size = 0; size < output + 400; ++size) {
    GuardedBuffer room(size);
    InflateBytes out = {room.data(), room.data(), room.end()};
    const size_t items = kernels::pairExpansion().expand(pairs.data(), pairs.size(), out);
    const size_t written = static_cast<size_t>(out.dst - room.data());
    EXPECT_TRUE(items == pairs.size() ? written == output
                                      : out.end - out.dst < kernels::inflateBytesMargin);
    EXPECT_TRUE(std::all_of(room.data(), out.dst, [](uint8_t byte) { return byte == 'a'; }));
  }
}

// At the odd pair it stops wherever that stands, in whole blocks of pairs and behind them.
TEST(InflateKernels, ExpansionStopsAtPairsOutOfTheOrdinary) {
  constexpr size_t count = 400;
  GuardedBuffer room(count + 1000);
  for (size_t position = 0; position < count; ++position) {
    const ZebLZ77Pair tooFar = {5, static_cast<uint16_t>(position + 1)};
    for (const ZebLZ77Pair odd : {tooFar, ZebLZ77Pair{259, 1}, ZebLZ77Pair{65535, 1}}) {
      std::vector<ZebLZ77Pair> pairs(count);
      for (size_t i = 0; i < count; ++i) pairs[i].length = static_cast<uint16_t>(i);
      pairs[position] = odd;
      InflateBytes out = {room.data(), room.data(), room.end()};
      ASSERT_EQ(kernels::pairExpansion().expand(pairs.data(), count, out), position);
      ASSERT_EQ(out.dst, room.data() + position);
      for (size_t i = 0; i < position; ++i) ASSERT_EQ(room[i], static_cast<uint8_t>(i));
    }
  }
}

}  // namespace
}  // namespace zebdc::inflate
