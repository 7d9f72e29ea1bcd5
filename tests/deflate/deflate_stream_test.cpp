// Whole streams: match finder, choice of the block kind, writers and trailer, driven in pieces.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>
#include <functional>

#include "deflate/block_encoder.h"
#include "deflate/plain_deflate.h"

namespace zebdc::deflate {
namespace {

using test::below;
using test::BlockEncoder;
using test::Bytes;
using test::GuardedBuffer;
using test::Pairs;
using test::Random;
using test::Rooms;
using test::rooms;

struct Plan {
  int level = zebLZ77LevelFast;
  int checksum = zebLZ77ChecksumNone;
  std::function<size_t()> nextPiece = [] { return size_t{1} << 20; };  // source of a round
  std::function<int()> nextFlush = [] { return zebLZ77FlushNone; };    // of all rounds but the last
  std::function<int()> nextPairsRoom = [] { return ownPairs; };
  std::function<ZebLZ77HuffMode()> nextMode = [] { return -1; };  // below 0: what select says
  Rooms nextRoom = rooms(1 << 20);
};

// One stream. Follows the way of an application: a round takes one piece of source, and as many
// blocks as its pairs need.
class StreamWriter {
 public:
  explicit StreamWriter(const Plan& plan) : plan_(plan), encoder_(plan.level, plan.checksum) {}

  Bytes write(std::span<const uint8_t> input) {
    ZebStatus status = zebOk;
    do {
      const size_t piece = std::min(plan_.nextPiece(), input.size());
      const bool isLast = piece == input.size();
      status = writeRound(input.first(piece), isLast ? zebLZ77FlushFinal : plan_.nextFlush());
      EXPECT_EQ(status, isLast ? zebWarnFinalBlockDone : zebOk);
      input = input.subspan(piece);
      ++rounds_;
    } while (status == zebOk);
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusFinal, encoder_.record());
    streamBytes_ = encoder_.output().size();
    EXPECT_EQ(encoder_.writeTrailer(plan_.nextRoom), zebOk);
    return encoder_.output();
  }

  size_t streamBytes() const { return streamBytes_; }
  int blocks(ZebLZ77HuffMode mode) const { return blocks_[mode]; }
  BlockEncoder& encoder() { return encoder_; }

 private:
  ZebStatus writeRound(std::span<const uint8_t> piece, int flush) {
    const GuardedBuffer source(piece);
    const uint8_t* src = source.data();
    int srcLen = static_cast<int>(piece.size());
    for (;;) {
      const uint8_t* const begin = src;
      const Pairs pairs = match(&src, &srcLen, flush);
      const ZebStatus status = writeBlock(pairs, {begin, src}, srcLen == 0, flush);
      if (srcLen == 0 || status < 0) return status;
    }
  }

  Pairs match(const uint8_t** ppSrc, int* pSrcLen, int flush) {
    ZebLZ77State_8u* const record = encoder_.record();
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, record);
    ZebLZ77Pair* buffer = nullptr;
    int index = 0;
    int length = 0;
    zebsEncodeLZ77GetPairs_8u(&buffer, &index, &length, record);
    ZebLZ77Pair* next = buffer + index;
    const int room = std::min(length - index, plan_.nextPairsRoom());
    int roomLeft = room;
    const ZebStatus status = zebsEncodeLZ77_8u(ppSrc, pSrcLen, &next, &roomLeft, flush, record);
    EXPECT_EQ(status, *pSrcLen == 0 ? zebOk : zebWarnDstFull);
    zebsEncodeLZ77SetPairs_8u(buffer, index + room - roomLeft, length, record);
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, record);
    zebsEncodeLZ77GetPairs_8u(&buffer, &index, &length, record);
    return Pairs(buffer + index, buffer + length);
  }

  ZebStatus writeBlock(const Pairs& pairs, std::span<const uint8_t> source, bool isRoundsLast,
                       int flush) {
    ZebLZ77HuffMode mode = plan_.nextMode();
    if (mode < 0) mode = pairs.empty() ? zebLZ77HuffFixed : encoder_.select(pairs);
    ++blocks_[mode];
    switch (mode) {
      case zebLZ77HuffFixed:
        return encoder_.write(zebsEncodeLZ77FixedHuff_8u, pairs, flush, plan_.nextRoom);
      case zebLZ77HuffDynamic:
        return encoder_.write(zebsEncodeLZ77DynamicHuff_8u, pairs, flush, plan_.nextRoom);
      default:
        return writeStored(source, isRoundsLast && flush == zebLZ77FlushFinal);
    }
  }

  ZebStatus writeStored(std::span<const uint8_t> source, bool isFinal) {
    const size_t marked = isFinal ? std::min<size_t>(source.size(), maxStoredBlock) : 0;
    const size_t unmarked = source.size() - marked;
    if (unmarked > 0 || !isFinal) {
      EXPECT_EQ(encoder_.writeStored(source.first(unmarked), zebLZ77FlushNone, plan_.nextRoom),
                zebOk);
      if (!isFinal) return zebOk;
    }
    return encoder_.writeStored(source.last(marked), zebLZ77FlushFinal, plan_.nextRoom);
  }

  const Plan& plan_;
  BlockEncoder encoder_;
  size_t streamBytes_ = 0;
  int blocks_[3] = {};
  int rounds_ = 0;
};

Bytes expectedTrailer(int checksum, const Bytes& input, uint32_t position) {
  const uint8_t nothing = 0;
  const uint8_t* const data = input.empty() ? &nothing : input.data();
  const uInt size = static_cast<uInt>(input.size());
  if (checksum == zebLZ77ChecksumAdler32) {
    const uint32_t adler = static_cast<uint32_t>(adler32(0, data, size));
    return {static_cast<uint8_t>(adler >> 24), static_cast<uint8_t>(adler >> 16),
            static_cast<uint8_t>(adler >> 8), static_cast<uint8_t>(adler)};
  }
  const uint32_t crc =
      checksum == zebLZ77ChecksumCRC32 ? static_cast<uint32_t>(crc32(0, data, size)) : 0;
  Bytes trailer;
  for (const uint32_t word : {crc, position}) {
    for (int shift = 0; shift < 32; shift += 8) {
      trailer.push_back(static_cast<uint8_t>(word >> shift));
    }
  }
  return trailer;
}

void expectStream(const Plan& plan, const Bytes& input, const std::string& what) {
  StreamWriter writer(plan);
  const Bytes stream = writer.write(input);
  const std::span<const uint8_t> all = stream;
  const auto inflated = test::inflateWithZlib(all.first(writer.streamBytes()));
  ASSERT_TRUE(inflated.has_value()) << what;
  ASSERT_TRUE(*inflated == input) << what;
  const uint32_t position = static_cast<uint32_t>(writer.encoder().state().windowPos);
  const auto trailer = all.subspan(writer.streamBytes());
  EXPECT_EQ(Bytes(trailer.begin(), trailer.end()), expectedTrailer(plan.checksum, input, position))
      << what;
}

TEST(DeflateStream, EveryKindOfDataAtEveryLevelSizeAndChecksum) {
  for (const size_t size : {0, 1, 2, 3, 4, 5, 100, 4000, 70000, 300000}) {
    for (const auto& [name, bytes] : test::oneOfEachKind(size)) {
      for (int level = 0; level < 3; ++level) {
        Plan plan;
        plan.level = level;
        plan.checksum = static_cast<int>((size + static_cast<size_t>(level)) % 3);
        expectStream(plan, bytes,
                     name + " " + std::to_string(size) + " at " + std::to_string(level));
      }
    }
  }
}

TEST(DeflateStream, SeveralMegabytes) {
  for (int level = 0; level < 3; ++level) {
    Bytes input = test::textLike(3000000, 1);
    const Bytes incompressible = test::randomBytes(500000, 2);
    input.insert(input.begin() + 1000000, incompressible.begin(), incompressible.end());
    Plan plan;
    plan.level = level;
    plan.checksum = zebLZ77ChecksumCRC32;
    plan.nextPiece = [] { return size_t{1} << 22; };
    expectStream(plan, input, std::to_string(level));
  }
}

TEST(DeflateStream, SelectUsesAllThreeKinds) {
  Bytes input = test::textLike(100000, 3);
  const Bytes incompressible = test::randomBytes(100000, 4);
  input.insert(input.end(), incompressible.begin(), incompressible.end());
  input.insert(input.end(), 20, 'x');
  size_t offset = 0;
  Plan plan;
  plan.nextPiece = [&] {
    const size_t piece = offset < 200000 ? 100000 : 20;
    offset += piece;
    return piece;
  };
  StreamWriter writer(plan);
  const Bytes stream = writer.write(input);
  EXPECT_EQ(test::inflateWithZlib(std::span(stream).first(writer.streamBytes())), input);
  EXPECT_GT(writer.blocks(zebLZ77HuffDynamic), 0);
  EXPECT_GT(writer.blocks(zebLZ77HuffStored), 0);
  EXPECT_GT(writer.blocks(zebLZ77HuffFixed), 0);
}

// The flush values, block kinds, sizes of pieces and rooms of pairs all at random; and the bytes of
// the same plan do not depend on the rooms for bytes.
TEST(DeflateStream, RandomPlansInAnyRooms) {
  Random seeds(5);
  for (int round = 0; round < 40; ++round) {
    const uint64_t seed = seeds();
    const Bytes input = test::oneOfEachKind(1 + below(seeds, 30000))[seeds() % 9].bytes;
    Bytes first;
    for (const bool whole : {true, false}) {
      Random random(seed);
      Random roomRandom(seed + 1);
      Plan plan;
      plan.level = static_cast<int>(seed % 3);
      plan.checksum = static_cast<int>(seed / 3 % 3);
      plan.nextPiece = [&] {
        return below(random, 3) == 0 ? below(random, 4) : below(random, 900);
      };
      plan.nextFlush = [&] { return static_cast<int>(below(random, 3)); };
      plan.nextPairsRoom = [&] { return static_cast<int>(1 + below(random, 300)); };
      plan.nextMode = [&] { return static_cast<int>(below(random, 4)) - 1; };
      plan.nextRoom = whole            ? rooms(1 << 20)
                      : round % 2 == 0 ? test::smallRooms(roomRandom)
                                       : test::anyRooms(roomRandom);
      StreamWriter writer(plan);
      const Bytes stream = writer.write(input);
      ASSERT_EQ(test::inflateWithZlib(std::span(stream).first(writer.streamBytes())), input);
      if (whole) {
        first = stream;
      } else {
        ASSERT_EQ(stream, first);
      }
    }
  }
}

// Thousands of blocks on one record, cut into rooms of a few bytes.
TEST(DeflateStream, ThousandsOfBlocksInSmallRooms) {
  const Bytes input = test::textLike(60000, 6);
  Bytes first;
  for (const bool whole : {true, false}) {
    Random random(7);
    Random roomRandom(8);
    Plan plan;
    plan.nextPiece = [&] { return below(random, 30); };
    plan.nextFlush = [&] { return static_cast<int>(below(random, 8) / 5); };
    plan.nextMode = [&] { return static_cast<int>(below(random, 4)) - 1; };
    plan.nextRoom = whole ? rooms(1 << 20) : test::smallRooms(roomRandom);
    StreamWriter writer(plan);
    const Bytes stream = writer.write(input);
    EXPECT_GT(writer.blocks(0) + writer.blocks(1) + writer.blocks(2), 3000);
    ASSERT_EQ(test::inflateWithZlib(std::span(stream).first(writer.streamBytes())), input);
    if (whole) {
      first = stream;
    } else {
      ASSERT_EQ(stream, first);
    }
  }
}

// A full flush restarts the history: what follows it inflates without what went before.
TEST(DeflateStream, DecodingMayBeginBehindAFullFlush) {
  const Bytes input = test::textLike(50000, 9);
  const std::span<const uint8_t> all = input;
  for (int level = 0; level < 3; ++level) {
    size_t border = 0;
    Plan plan;
    plan.level = level;
    StreamWriter* current = nullptr;
    plan.nextPiece = [&] {
      if (current->encoder().output().empty()) return size_t{25000};
      border = current->encoder().output().size();
      return size_t{25000};
    };
    plan.nextFlush = [] { return zebLZ77FlushFull; };
    StreamWriter writer(plan);
    current = &writer;
    const Bytes stream = writer.write(input);
    const auto tail = std::span(stream).first(writer.streamBytes()).subspan(border);
    const auto inflated = test::inflateWithZlib(tail);
    ASSERT_TRUE(inflated.has_value());
    EXPECT_TRUE(std::equal(inflated->begin(), inflated->end(), all.begin() + 25000, all.end()));
  }
}

TEST(DeflateStream, PairsOfOneCallMakeSeveralBlocks) {
  Random random(11);
  for (int level = 0; level < 3; ++level) {
    Bytes input = test::textLike(40000, 12);
    const Bytes incompressible = test::randomBytes(20000, 13);
    input.insert(input.begin() + 10000, incompressible.begin(), incompressible.end());
    BlockEncoder encoder(level);
    Pairs pairs(ownPairs);
    ZebLZ77Pair* next = pairs.data();
    int room = ownPairs;
    const uint8_t* src = input.data();
    int srcLen = static_cast<int>(input.size());
    ASSERT_EQ(zebsEncodeLZ77_8u(&src, &srcLen, &next, &room, zebLZ77FlushNone, encoder.record()),
              zebOk);
    std::span<const ZebLZ77Pair> left(pairs.data(), next);
    std::span<const uint8_t> source = input;
    int stored = 0;
    while (!left.empty()) {
      const auto part = left.first(std::min<size_t>(left.size(), 1 + below(random, 4000)));
      size_t bytes = 0;
      for (const ZebLZ77Pair& pair : part) bytes += pair.offset == 0 ? 1 : pair.length;
      zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, encoder.record());
      const ZebLZ77HuffMode mode = encoder.select(part);
      if (mode == zebLZ77HuffStored) {
        ++stored;
        EXPECT_EQ(encoder.writeStored(source.first(bytes), zebLZ77FlushNone), zebOk);
      } else {
        EXPECT_EQ(encoder.write(mode == zebLZ77HuffFixed ? zebsEncodeLZ77FixedHuff_8u
                                                         : zebsEncodeLZ77DynamicHuff_8u,
                                part, zebLZ77FlushNone),
                  zebOk);
      }
      source = source.subspan(bytes);
      left = left.subspan(part.size());
    }
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, encoder.record());
    EXPECT_EQ(encoder.write(zebsEncodeLZ77FixedHuff_8u, {}, zebLZ77FlushFinal),
              zebWarnFinalBlockDone);
    EXPECT_EQ(test::inflateWithZlib(encoder.output()), input);
    EXPECT_GT(stored, 0);
  }
}

// The cheapest of the three kinds of block for pairs, with the best possible codes.
uint64_t bestBlockBits(const Pairs& pairs, size_t sourceBytes) {
  constexpr uint64_t headerBits = 3;
  constexpr uint64_t storedLengthBits = 32;
  const test::BlockFrequencies frequencies = test::frequenciesOf(pairs);
  const test::BlockCodes fixed = test::fixedBlockCodes();
  const uint64_t fixedBits = headerBits + test::codeBits(frequencies.literals, fixed.literals) +
                             test::codeBits(frequencies.distances, fixed.distances) +
                             test::extraBits(pairs);
  const uint64_t storedBits = headerBits + storedLengthBits + 8 * uint64_t{sourceBytes};
  return std::min({test::bestDynamicBlockBits(pairs), fixedBits, storedBits});
}

// What the same pairs, cut into the same blocks, cost in the best blocks bounds the whole stream.
TEST(DeflateStream, SizeIsWithinHalfAPercentOfTheBestBlocksForTheSamePairs) {
  for (const auto& [name, bytes] : test::oneOfEachKind(200000)) {
    for (const int pairsInBlock : {ownPairs, 16384, 2000}) {
      for (int level = 0; level < 3; ++level) {
        Plan plan;
        plan.level = level;
        plan.nextPairsRoom = [pairsInBlock] { return pairsInBlock; };
        StreamWriter writer(plan);
        writer.write(bytes);

        BlockEncoder matcher(level);
        uint64_t best = 0;
        const uint8_t* src = bytes.data();
        int srcLen = static_cast<int>(bytes.size());
        while (srcLen > 0) {
          const uint8_t* const begin = src;
          Pairs pairs(static_cast<size_t>(pairsInBlock));
          ZebLZ77Pair* next = pairs.data();
          int room = pairsInBlock;
          zebsEncodeLZ77_8u(&src, &srcLen, &next, &room, zebLZ77FlushFinal, matcher.record());
          pairs.resize(pairs.size() - static_cast<size_t>(room));
          best += bestBlockBits(pairs, static_cast<size_t>(src - begin));
        }
        EXPECT_LE(static_cast<double>(8 * writer.streamBytes()),
                  static_cast<double>(best) * 1.005 + 8)
            << name << " at " << level << " in blocks of " << pairsInBlock;
      }
    }
  }
}

TEST(DeflateStream, ResetBeginsTheSameStreamAgain) {
  const Bytes input = test::textLike(100000, 10);
  Plan plan;
  plan.level = zebLZ77LevelAverage;
  plan.checksum = zebLZ77ChecksumCRC32;
  StreamWriter writer(plan);
  const Bytes first = writer.write(input);
  writer.encoder().output().clear();
  zebsEncodeLZ77Reset_8u(writer.encoder().record());
  EXPECT_EQ(writer.write(input), first);
}

}  // namespace
}  // namespace zebdc::deflate
