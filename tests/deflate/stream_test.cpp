// The stream-style primitives: hashing, match finding, coding, and the byte remappers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "deflate/format.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;

constexpr uint32_t empty = 0xFFFFFFFFu;

// A caller of the primitives with buffers that end at inaccessible pages.
class Stream {
 public:
  Stream(uint32_t winSize, uint32_t hashSize, int level, uint32_t fill = empty)
      : winSize_(winSize),
        hashSize_(hashSize),
        level_(level),
        window_(winSize),
        head_(4 * size_t{hashSize}),
        prev_(4 * size_t{winSize}) {
    std::fill_n(head(), hashSize, fill);
    std::fill_n(prev(), winSize, fill);
  }

  uint32_t* head() { return head_.as<uint32_t>(); }
  uint32_t* prev() { return prev_.as<uint32_t>(); }
  uint8_t* window() { return window_.data(); }

  void setDictionary(const Bytes& dictionary) {
    ASSERT_EQ(zebsDeflateDictionarySet_8u(
                  dictionary.data(), static_cast<uint32_t>(dictionary.size()), head(),
                  static_cast<int>(hashSize_), prev(), window(), winSize_, level_),
              zebOk);
    position_ = std::min(static_cast<uint32_t>(dictionary.size()), winSize_);
    history_.assign(window(), window() + position_);
    historyBegin_ = history_.size();
  }

  void startAt(uint32_t position) { position_ = position; }

  // Feeds one piece with the given room until it is consumed, and keeps the items.
  void feed(std::span<const uint8_t> piece, uint32_t room) {
    GuardedBuffer in(piece);
    const uint8_t* src = in.data();
    uint32_t left = static_cast<uint32_t>(in.size());
    for (;;) {
      GuardedBuffer literals(room);
      GuardedBuffer distances(2 * size_t{room});
      uint32_t written = room;
      const uint8_t* const before = src;
      const uint32_t leftBefore = left;
      const uint32_t positionBefore = position_;
      const ZebStatus status =
          zebsDeflateLZ77_8u(&src, &left, &position_, window(), winSize_, head(), prev(), hashSize_,
                             literalFrequencies.data(), distanceFrequencies.data(), literals.data(),
                             distances.as<uint16_t>(), &written, level_, zebLZ77FlushNone);
      const uint32_t consumed = static_cast<uint32_t>(src - before);
      ASSERT_EQ(leftBefore - left, consumed);
      ASSERT_EQ(position_ - positionBefore, consumed);
      ASSERT_LE(written, room);
      ASSERT_EQ(status, left == 0 ? zebOk : zebWarnDstFull);
      ASSERT_TRUE(left == 0 || written == room);
      for (uint32_t i = 0; i < written; ++i) {
        items_.push_back({literals[i], distances.as<uint16_t>()[i]});
      }
      for (uint32_t i = 0; i < consumed; ++i) {
        window()[(positionBefore + i) & (winSize_ - 1)] = before[i];
      }
      if (left == 0) break;
    }
  }

  struct Item {
    uint8_t literal;
    uint16_t distance;
  };
  const std::vector<Item>& items() const { return items_; }

  // What the items stand for, behind the dictionary.
  Bytes expanded() const {
    Bytes out = history_;
    for (const Item& item : items_) {
      if (item.distance == 0) {
        out.push_back(item.literal);
        continue;
      }
      EXPECT_LT(item.distance, winSize_);
      EXPECT_LE(item.distance, out.size());
      if (item.distance > out.size()) break;
      for (int i = 0; i < item.literal + 3; ++i) out.push_back(out[out.size() - item.distance]);
    }
    out.erase(out.begin(), out.begin() + static_cast<ptrdiff_t>(historyBegin_));
    return out;
  }

  std::array<uint32_t, 286> literalFrequencies{};
  std::array<uint32_t, 30> distanceFrequencies{};

 private:
  uint32_t winSize_;
  uint32_t hashSize_;
  int level_;
  GuardedBuffer window_;
  GuardedBuffer head_;
  GuardedBuffer prev_;
  uint32_t position_ = 0;
  Bytes history_;
  size_t historyBegin_ = 0;
  std::vector<Item> items_;
};

int lengthSymbol(int length) {
  int symbol = 0;
  while (symbol < 28 && deflate::lengthCodes[static_cast<size_t>(symbol + 1)].base <= length)
    ++symbol;
  return symbol;
}

int distanceSymbol(int distance) {
  int symbol = 0;
  while (symbol < 29 && deflate::distanceCodes[static_cast<size_t>(symbol + 1)].base <= distance) {
    ++symbol;
  }
  return symbol;
}

// --- match finding

TEST(StreamMatch, ItemsExpandToTheInputAtEveryLevelInAnyPieces) {
  test::Random random(1);
  for (const auto& [name, bytes] : test::oneOfEachKind(40000)) {
    for (int level = 0; level <= 9; ++level) {
      SCOPED_TRACE(testing::Message() << name << " level " << level);
      const uint32_t winSize = 256u << test::below(random, 8);
      const uint32_t hashSize = 256u << test::below(random, 9);
      Stream stream(winSize, hashSize, level, level % 2 == 0 ? empty : 0);
      const size_t largest = size_t{1} << (3 + test::below(random, 14));
      for (size_t at = 0; at < bytes.size();) {
        const size_t piece = std::min(1 + test::below(random, largest), bytes.size() - at);
        stream.feed(std::span<const uint8_t>(bytes).subspan(at, piece),
                    1 + static_cast<uint32_t>(test::below(random, largest)));
        if (HasFatalFailure()) return;
        at += piece;
      }
      ASSERT_EQ(stream.expanded(), bytes);
    }
  }
}

TEST(StreamMatch, FrequenciesCountTheItems) {
  for (const auto& [name, bytes] : test::oneOfEachKind(30000)) {
    for (const int level : {0, 1, 6}) {
      Stream stream(32768, 32768, level);
      stream.literalFrequencies.fill(1000);
      stream.feed(bytes, 1 << 16);
      std::array<uint32_t, 286> literals;
      literals.fill(1000);
      std::array<uint32_t, 30> distances{};
      for (const Stream::Item& item : stream.items()) {
        if (item.distance == 0) {
          ++literals[item.literal];
        } else {
          ++literals[257 + static_cast<size_t>(lengthSymbol(item.literal + 3))];
          ++distances[static_cast<size_t>(distanceSymbol(item.distance))];
        }
      }
      ASSERT_EQ(stream.literalFrequencies, literals) << name;
      ASSERT_EQ(stream.distanceFrequencies, distances) << name;
    }
  }
}

// What the items cost with ideal codes, in bits.
double idealBits(const Stream& stream) {
  double bits = 0;
  const auto addSymbols = [&bits](const auto& frequencies) {
    const double total = std::accumulate(frequencies.begin(), frequencies.end(), 0.0);
    for (const uint32_t frequency : frequencies) {
      if (frequency != 0) bits += frequency * std::log2(total / frequency);
    }
  };
  addSymbols(stream.literalFrequencies);
  addSymbols(stream.distanceFrequencies);
  for (const Stream::Item& item : stream.items()) {
    if (item.distance == 0) continue;
    bits += deflate::lengthCodes[static_cast<size_t>(lengthSymbol(item.literal + 3))].extraBits;
    bits += deflate::distanceCodes[static_cast<size_t>(distanceSymbol(item.distance))].extraBits;
  }
  return bits;
}

TEST(StreamMatch, HigherLevelsCostFewerBits) {
  const Bytes bytes = test::textLike(200000, 3);
  double before = 1e9;
  for (const int level : {0, 1, 4, 6, 9}) {
    Stream stream(32768, 32768, level);
    stream.feed(bytes, 1 << 18);
    const double bits = idealBits(stream);
    EXPECT_LT(bits, before) << level;
    before = bits;
  }
}

TEST(StreamMatch, MatchesReachBackIntoTheWindowAcrossItsEnd) {
  // The same 200 bytes every 250: at every second one the window of 256 wraps inside the string.
  const Bytes part = test::randomBytes(200, 5);
  for (int level = 0; level <= 9; ++level) {
    Stream stream(256, 1024, level);
    Bytes all;
    for (int i = 0; i < 12; ++i) {
      Bytes piece = part;
      const Bytes filler = test::randomBytes(50, static_cast<uint64_t>(100 + i));
      piece.insert(piece.end(), filler.begin(), filler.end());
      stream.feed(piece, 1000);
      all.insert(all.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(stream.expanded(), all);
    // The first occurrence is literals; each later one is one match of nearly 200 bytes.
    EXPECT_LT(stream.items().size(), 250u + 11 * (50 + 12)) << level;
  }
}

TEST(StreamMatch, RunOfOneByteIsALiteralAndLongMatches) {
  for (int level = 0; level <= 9; ++level) {
    Stream stream(32768, 32768, level);
    stream.feed(Bytes(1 + 258 * 3, 'x'), 100);
    ASSERT_EQ(stream.items().size(), 4u) << level;
    EXPECT_EQ(stream.items()[0].distance, 0);
    for (size_t i = 1; i < 4; ++i) {
      EXPECT_EQ(stream.items()[i].literal, 255);
      EXPECT_GE(stream.items()[i].distance, 1);
    }
  }
}

TEST(StreamMatch, DictionaryServesTheFirstBytes) {
  const Bytes dictionary = test::textLike(5000, 4);
  for (int level = 0; level <= 9; ++level) {
    Stream stream(32768, 32768, level);
    stream.setDictionary(dictionary);
    const Bytes bytes(dictionary.begin() + 1000, dictionary.begin() + 3000);
    stream.feed(bytes, 3000);
    EXPECT_EQ(stream.expanded(), bytes);
    EXPECT_LT(stream.items().size(), 40u) << level;
  }
}

TEST(StreamMatch, PositionsMayPassTheEndOf32Bits) {
  const Bytes bytes = test::textLike(20000, 6);
  for (int level = 0; level <= 9; ++level) {
    Stream stream(4096, 4096, level);
    stream.startAt(0xFFFFFFFFu - 9999);
    for (size_t at = 0; at < bytes.size(); at += 2500) {
      stream.feed(std::span<const uint8_t>(bytes).subspan(at, 2500), 5000);
    }
    EXPECT_EQ(stream.expanded(), bytes) << level;
    EXPECT_LT(stream.items().size(), bytes.size() * 3 / 4) << level;
  }
}

TEST(StreamMatch, AnyTableContentIsHarmless) {
  test::Random random(7);
  const Bytes bytes = test::textLike(6000, 8);
  for (int round = 0; round < 60; ++round) {
    const int level = round % 10;
    Stream stream(1024, 1024, level);
    for (uint32_t i = 0; i < 1024; ++i) {
      stream.head()[i] = static_cast<uint32_t>(round % 3 == 0 ? random() : random() % 9000);
      stream.prev()[i] = static_cast<uint32_t>(round % 3 == 0 ? random() : random() % 9000);
    }
    // Bytes before the first position are whatever the window holds: start where all is written.
    memcpy(stream.window(), bytes.data(), 1024);
    stream.startAt(5 * 1024);
    stream.feed(bytes, 6000);
    if (HasFatalFailure()) return;
    Bytes out(bytes.begin(), bytes.begin() + 1024);
    for (const Stream::Item& item : stream.items()) {
      if (item.distance == 0) {
        out.push_back(item.literal);
      } else {
        ASSERT_LE(item.distance, 1023);
        for (int i = 0; i < item.literal + 3; ++i) out.push_back(out[out.size() - item.distance]);
      }
    }
    out.erase(out.begin(), out.begin() + 1024);
    ASSERT_EQ(out, bytes);
  }
}

TEST(StreamMatch, NoRoomAndNoSource) {
  Stream stream(256, 256, 1);
  const uint8_t byte = 'a';
  const uint8_t* src = &byte;
  uint32_t left = 1;
  uint32_t position = 0;
  uint8_t literal = 0;
  uint16_t distance = 0;
  uint32_t room = 0;
  const auto call = [&] {
    return zebsDeflateLZ77_8u(&src, &left, &position, stream.window(), 256, stream.head(),
                              stream.prev(), 256, stream.literalFrequencies.data(),
                              stream.distanceFrequencies.data(), &literal, &distance, &room, 1, 0);
  };
  EXPECT_EQ(call(), zebWarnDstFull);
  EXPECT_EQ(src, &byte);
  EXPECT_EQ(room, 0u);
  left = 0;
  EXPECT_EQ(call(), zebOk);
  room = 1;
  EXPECT_EQ(call(), zebOk);
  EXPECT_EQ(room, 0u);
}

// Arguments of zebsDeflateLZ77_8u, to be spoilt one at a time.
struct Lz77Arguments {
  uint8_t byte = 'a';
  const uint8_t* src = &byte;
  uint32_t srcLen = 1;
  uint32_t srcIdx = 0;
  std::array<uint8_t, 256> window{};
  std::array<uint32_t, 256> head{};
  std::array<uint32_t, 256> prev{};
  std::array<uint32_t, 286> literalFrequencies{};
  std::array<uint32_t, 30> distanceFrequencies{};
  uint8_t literal = 77;
  uint16_t distance = 77;
  uint32_t dstLen = 1;

  // Passes null for the pointer of the given place.
  ZebStatus callWithNull(int place, uint32_t winSize = 0, uint32_t hashSize = 0, int level = -1) {
    const auto at = [place](int index, auto* pointer) {
      return index == place ? nullptr : pointer;
    };
    return zebsDeflateLZ77_8u(at(0, &src), at(1, &srcLen), at(2, &srcIdx), at(3, window.data()),
                              winSize, at(4, head.data()), at(5, prev.data()), hashSize,
                              at(6, literalFrequencies.data()), at(7, distanceFrequencies.data()),
                              at(8, &literal), at(9, &distance), at(10, &dstLen), level, 0);
  }
};

TEST(StreamMatch, ChecksPointersThenSizesThenLevel) {
  Lz77Arguments arguments;
  for (int place = 0; place <= 10; ++place) {
    EXPECT_EQ(arguments.callWithNull(place), zebErrNullPtr) << place;
  }
  arguments.src = nullptr;
  EXPECT_EQ(arguments.callWithNull(-1), zebErrNullPtr);
  arguments.src = &arguments.byte;
  EXPECT_EQ(arguments.callWithNull(-1, 255, 256, 1), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 32769, 256, 1), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 256, 255, 1), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 256, 65537, 1), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 256, 256, -1), zebErrSize);
  EXPECT_EQ(arguments.callWithNull(-1, 256, 256, 10), zebErrSize);
  EXPECT_EQ(arguments.literal, 77);
  EXPECT_EQ(arguments.dstLen, 1u);
  EXPECT_EQ(arguments.callWithNull(-1, 256, 256, 9), zebOk);
  EXPECT_EQ(arguments.literal, 'a');
  EXPECT_EQ(arguments.distance, 0);
}

// --- hashing

TEST(StreamHash, ShortInputSucceedsBeforeAnyCheck) {
  EXPECT_EQ(zebsDeflateUpdateHash_8u(nullptr, 0, 2, nullptr, 0, nullptr, 0, 1), zebOk);
  EXPECT_EQ(zebsDeflateDictionarySet_8u(nullptr, 2, nullptr, 0, nullptr, nullptr, 0, 1), zebOk);
}

TEST(StreamHash, ChecksPointersThenSizes) {
  const Bytes src(300, 'a');
  std::array<uint32_t, 256> head{};
  std::array<uint32_t, 256> prev{};
  Bytes window(256);
  EXPECT_EQ(zebsDeflateUpdateHash_8u(nullptr, 0, 3, head.data(), 0, prev.data(), 0, 1),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateUpdateHash_8u(src.data(), 0, 3, nullptr, 0, prev.data(), 0, 1),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateUpdateHash_8u(src.data(), 0, 3, head.data(), 0, nullptr, 0, 1),
            zebErrNullPtr);
  EXPECT_EQ(
      zebsDeflateDictionarySet_8u(nullptr, 3, head.data(), 0, prev.data(), window.data(), 0, 1),
      zebErrNullPtr);
  EXPECT_EQ(
      zebsDeflateDictionarySet_8u(src.data(), 3, nullptr, 0, prev.data(), window.data(), 0, 1),
      zebErrNullPtr);
  EXPECT_EQ(
      zebsDeflateDictionarySet_8u(src.data(), 3, head.data(), 0, nullptr, window.data(), 0, 1),
      zebErrNullPtr);
  EXPECT_EQ(zebsDeflateDictionarySet_8u(src.data(), 3, head.data(), 0, prev.data(), nullptr, 0, 1),
            zebErrNullPtr);
  for (const uint32_t bad : {0u, 255u, 32769u, 0xFFFFFFFFu}) {
    EXPECT_EQ(zebsDeflateUpdateHash_8u(src.data(), 0, 3, head.data(), 256, prev.data(), bad, 1),
              zebErrSize);
    EXPECT_EQ(zebsDeflateDictionarySet_8u(src.data(), 3, head.data(), 256, prev.data(),
                                          window.data(), bad, 1),
              zebErrSize);
  }
  for (const uint32_t bad : {0u, 255u, 65537u, 0xFFFFFFFFu}) {
    EXPECT_EQ(zebsDeflateUpdateHash_8u(src.data(), 0, 3, head.data(), bad, prev.data(), 256, 1),
              zebErrSize);
    EXPECT_EQ(zebsDeflateDictionarySet_8u(src.data(), 3, head.data(), static_cast<int>(bad),
                                          prev.data(), window.data(), 256, 1),
              zebErrSize);
  }
  EXPECT_EQ(window, Bytes(256));
  EXPECT_EQ(head, (std::array<uint32_t, 256>{}));
}

TEST(StreamHash, RollingHashEntersHeadsAlone) {
  const Bytes src = {'a', 'b', 'c', 'd'};
  std::array<uint32_t, 256> head;
  std::array<uint32_t, 256> prev;
  head.fill(empty);
  prev.fill(empty);
  for (const int level : {0, -3}) {
    EXPECT_EQ(
        zebsDeflateUpdateHash_8u(src.data(), 1000, 4, head.data(), 256, prev.data(), 256, level),
        zebOk);
    std::array<uint32_t, 256> expected;
    expected.fill(empty);
    const uint32_t first = (('a' << 10) ^ ('b' << 5) ^ 'c') & 255;
    const uint32_t second = (('b' << 10) ^ ('c' << 5) ^ 'd') & 255;
    expected[first] = 1000;
    expected[second] = 1001;
    EXPECT_EQ(head, expected);
    EXPECT_THAT(prev, testing::Each(empty));
  }
}

TEST(StreamHash, ChainsLinkEqualStringsAcrossCalls) {
  std::array<uint32_t, 256> head;
  std::array<uint32_t, 256> prev;
  head.fill(empty);
  prev.fill(empty);
  const Bytes src(5, 'z');
  ASSERT_EQ(zebsDeflateUpdateHash_8u(src.data(), 254, 5, head.data(), 256, prev.data(), 256, 1),
            zebOk);
  ASSERT_EQ(zebsDeflateUpdateHash_8u(src.data(), 300, 3, head.data(), 256, prev.data(), 256, 1),
            zebOk);
  EXPECT_EQ(std::count(head.begin(), head.end(), empty), 255);
  EXPECT_EQ(*std::min_element(head.begin(), head.end()), 300u);
  EXPECT_EQ(prev[300 & 255], 256u);
  EXPECT_EQ(prev[256 & 255], 255u);
  EXPECT_EQ(prev[255], 254u);
  EXPECT_EQ(prev[254], empty);
}

TEST(StreamHash, DictionaryIsCopiedAndHashedUpTo258BeforeItsEnd) {
  for (const uint32_t length : {3u, 200u, 257u, 258u, 259u, 1000u, 1024u, 5000u}) {
    const Bytes dictionary = test::randomBytes(length, length);
    GuardedBuffer source(dictionary);
    GuardedBuffer window(1024);
    memset(window.data(), 0xEE, 1024);
    std::vector<uint32_t> head(65536, empty);
    std::vector<uint32_t> prev(1024, empty);
    ASSERT_EQ(zebsDeflateDictionarySet_8u(source.data(), length, head.data(), 65536, prev.data(),
                                          window.data(), 1024, 1),
              zebOk);
    const uint32_t count = std::min(length, 1024u);
    EXPECT_TRUE(std::equal(window.begin(), window.begin() + count, dictionary.end() - count));
    EXPECT_TRUE(std::all_of(window.begin() + count, window.end(),
                            [](uint8_t byte) { return byte == 0xEE; }));
    // Every position from 0 to count - 258 is at a head or on a chain, and no other.
    std::vector<uint32_t> positions;
    for (const uint32_t entry : head) {
      for (uint32_t at = entry; at != empty; at = prev[at]) positions.push_back(at);
    }
    std::sort(positions.begin(), positions.end());
    std::vector<uint32_t> expected(count < 258 ? 0 : count - 257);
    std::iota(expected.begin(), expected.end(), 0u);
    EXPECT_EQ(positions, expected) << length;
  }
}

// --- coding

struct Coded {
  Bytes bytes;
  uint32_t pending;
  uint32_t pendingCount;
};

// One bit at a time.
class BitSink {
 public:
  void put(uint32_t bits, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
      if (used_ % 8 == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<uint8_t>(bytes_.back() | ((bits >> i) & 1) << (used_ % 8));
      ++used_;
    }
  }
  // Whole bytes, and the bits of the last one.
  Coded result() const {
    Coded coded = {bytes_, 0, static_cast<uint32_t>(used_ % 8)};
    if (coded.pendingCount != 0) {
      coded.pending = coded.bytes.back();
      coded.bytes.pop_back();
    }
    return coded;
  }

 private:
  Bytes bytes_;
  size_t used_ = 0;
};

struct Items {
  std::vector<uint8_t> literals;
  std::vector<uint16_t> distances;
};

Items randomItems(size_t count, test::Random& random) {
  Items items;
  for (size_t i = 0; i < count; ++i) {
    items.literals.push_back(static_cast<uint8_t>(random()));
    const bool literal = test::below(random, 3) == 0;
    items.distances.push_back(static_cast<uint16_t>(
        literal ? 0 : 1 + test::below(random, size_t{1} << test::below(random, 16))));
  }
  return items;
}

// Codes of the given lengths that need not be prefix-free: coding does not look.
std::vector<ZebDeflateHuffCode> randomCodes(size_t count, size_t least, test::Random& random) {
  std::vector<ZebDeflateHuffCode> codes(count);
  for (ZebDeflateHuffCode& code : codes) {
    const uint16_t len = static_cast<uint16_t>(least + test::below(random, 16 - least));
    code = {static_cast<uint16_t>(random() & ((1u << len) - 1)), len};
  }
  return codes;
}

TEST(StreamCode, IsTheFormatForAnyItemsCodesAndPendingBits) {
  test::Random random(11);
  for (int round = 0; round < 120; ++round) {
    const size_t counts[] = {0, 1, 7, 2047, 2048, 2049, 6000};
    const Items items = randomItems(counts[round % 7], random);
    const auto literalCodes = randomCodes(286, round % 2, random);
    const auto distanceCodes = randomCodes(30, round % 2, random);
    const uint32_t pendingCount = static_cast<uint32_t>(test::below(random, 32));
    const uint32_t pending = static_cast<uint32_t>(random()) & ((1u << pendingCount) - 1);

    BitSink sink;
    sink.put(pending, pendingCount);
    for (size_t i = 0; i < items.literals.size(); ++i) {
      const int length = items.literals[i] + 3;
      if (items.distances[i] == 0) {
        sink.put(literalCodes[items.literals[i]].code, literalCodes[items.literals[i]].len);
        continue;
      }
      const size_t l = static_cast<size_t>(lengthSymbol(length));
      sink.put(literalCodes[257 + l].code, literalCodes[257 + l].len);
      sink.put(static_cast<uint32_t>(length - deflate::lengthCodes[l].base),
               deflate::lengthCodes[l].extraBits);
      const size_t d = static_cast<size_t>(distanceSymbol(items.distances[i]));
      sink.put(distanceCodes[d].code, distanceCodes[d].len);
      sink.put(static_cast<uint32_t>(items.distances[i] - deflate::distanceCodes[d].base),
               deflate::distanceCodes[d].extraBits);
    }
    const Coded expected = sink.result();

    constexpr uint32_t offset = 5;
    GuardedBuffer dst(expected.bytes.size() + offset);
    GuardedBuffer literals(items.literals);
    uint32_t index = offset;
    uint32_t bits = pending;
    uint32_t count = pendingCount;
    ASSERT_EQ(zebsDeflateHuff_8u(literals.data(),
                                 items.distances.data() ? items.distances.data()
                                                        : reinterpret_cast<const uint16_t*>(&bits),
                                 static_cast<uint32_t>(items.literals.size()), literalCodes.data(),
                                 distanceCodes.data(), dst.data(), &index, &bits, &count),
              zebOk);
    ASSERT_EQ(index, expected.bytes.size() + offset);
    ASSERT_TRUE(std::equal(expected.bytes.begin(), expected.bytes.end(), dst.begin() + offset));
    ASSERT_EQ(bits, expected.pending);
    ASSERT_EQ(count, expected.pendingCount);
  }
}

TEST(StreamCode, ChecksPointersThenPendingBits) {
  const uint8_t literal = 0;
  const uint16_t distance = 0;
  const std::vector<ZebDeflateHuffCode> codes(286);
  uint8_t dst = 7;
  uint32_t index = 0;
  uint32_t bits = 0;
  uint32_t count = 32;
  const ZebDeflateHuffCode* const table = codes.data();
  EXPECT_EQ(zebsDeflateHuff_8u(nullptr, &distance, 1, table, table, &dst, &index, &bits, &count),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, nullptr, 1, table, table, &dst, &index, &bits, &count),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, nullptr, table, &dst, &index, &bits, &count),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, table, nullptr, &dst, &index, &bits, &count),
            zebErrNullPtr);
  EXPECT_EQ(
      zebsDeflateHuff_8u(&literal, &distance, 1, table, table, nullptr, &index, &bits, &count),
      zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, table, table, &dst, nullptr, &bits, &count),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, table, table, &dst, &index, nullptr, &count),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, table, table, &dst, &index, &bits, nullptr),
            zebErrNullPtr);
  EXPECT_EQ(zebsDeflateHuff_8u(&literal, &distance, 1, table, table, &dst, &index, &bits, &count),
            zebErrSize);
  EXPECT_EQ(dst, 7);
}

// --- the byte remappers

TEST(Remap, ReduceThenExpandRestoresTheInput) {
  test::Random random(12);
  for (int round = 0; round < 50; ++round) {
    Bytes bytes = test::randomBytes(1 + test::below(random, 3000), random());
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(byte % (1 + round * 5) * 3);
    Bytes used(256);
    for (const uint8_t byte : bytes) used[byte] = 1;
    const uint32_t inUse = static_cast<uint32_t>(std::count(used.begin(), used.end(), 1));
    GuardedBuffer area(bytes);
    uint32_t dictLen = 0;
    ASSERT_EQ(zebsReduceDictionary_8u_I(used.data(), area.data(), static_cast<int>(area.size()),
                                        &dictLen),
              zebOk);
    ASSERT_EQ(dictLen, inUse);
    for (size_t i = 0; i < bytes.size(); ++i) {
      ASSERT_EQ(area[i], std::count(used.begin(), used.begin() + bytes[i], 1));
    }
    ASSERT_EQ(zebsExpandDictionary_8u_I(used.data(), area.data(), static_cast<int>(area.size()),
                                        static_cast<int>(dictLen)),
              zebOk);
    ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), area.begin()));
  }
}

TEST(Remap, SumsAreKeptIn8Bits) {
  Bytes frequencies(256, 255);
  Bytes bytes = {0, 1, 2, 3, 255};
  uint32_t dictLen = 0;
  EXPECT_EQ(zebsReduceDictionary_8u_I(frequencies.data(), bytes.data(), 5, &dictLen), zebOk);
  EXPECT_EQ(dictLen, 255u * 256);
  EXPECT_EQ(bytes, (Bytes{0, 255, 254, 253, 1}));
  EXPECT_EQ(zebsExpandDictionary_8u_I(frequencies.data(), bytes.data(), 5, 255 * 256), zebOk);
  EXPECT_EQ(bytes, (Bytes{0, 1, 2, 3, 255}));
}

TEST(Remap, IndexesThatNothingReachesBecomeZero) {
  Bytes used(256);
  used[10] = used[20] = 1;
  Bytes bytes = {0, 1, 2, 3, 200};
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), bytes.data(), 5, 2), zebOk);
  EXPECT_EQ(bytes, (Bytes{10, 20, 255, 0, 0}));
}

TEST(Remap, StatusesAndTheirOrder) {
  Bytes used(256);
  used[1] = 1;
  uint8_t byte = 1;
  uint32_t dictLen = 99;
  EXPECT_EQ(zebsReduceDictionary_8u_I(nullptr, &byte, 0, &dictLen), zebErrNullPtr);
  EXPECT_EQ(zebsReduceDictionary_8u_I(used.data(), nullptr, 0, &dictLen), zebErrNullPtr);
  EXPECT_EQ(zebsReduceDictionary_8u_I(used.data(), &byte, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsReduceDictionary_8u_I(used.data(), &byte, 0, &dictLen), zebErrSize);
  EXPECT_EQ(zebsReduceDictionary_8u_I(used.data(), &byte, -1, &dictLen), zebErrSize);
  EXPECT_EQ(dictLen, 99u);
  EXPECT_EQ(zebsExpandDictionary_8u_I(nullptr, &byte, 0, 0), zebErrNullPtr);
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), nullptr, 0, 0), zebErrNullPtr);
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), &byte, 0, 2), zebErrSize);
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), &byte, 1, 0), zebErrSize);
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), &byte, 1, -1), zebErrSize);
  EXPECT_EQ(zebsExpandDictionary_8u_I(used.data(), &byte, 1, 2), zebErrGeneral);
  EXPECT_EQ(byte, 1);
}

}  // namespace
}  // namespace zebdc
