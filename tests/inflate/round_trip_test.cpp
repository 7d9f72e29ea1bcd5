// Streams of zlib's, at all levels and strategies, through both ways of decoding, whole and in
// pieces of every size.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "inflate/drivers.h"
#include "inflate/streams.h"

namespace zebdc::inflate {
namespace {

using test::Bytes;
using test::Decoded;
using test::decodeOnePass;
using test::Decoder;
using test::decodeTwoPass;
using test::zlibDeflate;
using test::ZlibSettings;

// The stream and what follows it, so that the decoders can take more than they should.
Bytes withTrailer(Bytes stream) {
  stream.insert(stream.end(), {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7});
  return stream;
}

void expectWholeStreamDecodes(const Bytes& stream, const Bytes& content) {
  const Bytes source = withTrailer(stream);
  for (const bool exact : {true, false}) {
    const size_t room = content.size() + (exact ? 0 : 1000);
    Decoder one;
    // A stored block's decoder wants room even where nothing is left to come.
    const Decoded onePass =
        decodeOnePass(one, source, test::wholeStream(std::max<size_t>(room, 1)));
    EXPECT_EQ(onePass.status, zebWarnFinalBlockDone);
    EXPECT_EQ(onePass.consumed, stream.size());
    ASSERT_TRUE(onePass.output == content);
  }
  Decoder two;
  const Decoded twoPass = decodeTwoPass(two, source, test::wholeStream(8192));
  EXPECT_EQ(twoPass.status, zebWarnFinalBlockDone);
  EXPECT_EQ(twoPass.consumed, stream.size());
  ASSERT_TRUE(twoPass.output == content);
}

TEST(ZlibStreams, EveryLevelStrategyAndMemoryLevel) {
  for (const test::NamedBytes& input : test::oneOfEachKind(9000)) {
    for (int level = 0; level <= 9; level += level == 1 ? 5 : level == 6 ? 3 : 1) {
      for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED}) {
        for (const int memLevel : {1, 8}) {
          SCOPED_TRACE(input.name + " level " + std::to_string(level) + " strategy " +
                       std::to_string(strategy) + " memory " + std::to_string(memLevel));
          expectWholeStreamDecodes(
              zlibDeflate(input.bytes,
                          {.level = level, .strategy = strategy, .memLevel = memLevel}),
              input.bytes);
        }
      }
    }
  }
}

TEST(ZlibStreams, SmallSizes) {
  const Bytes text = test::textLike(300, 1);
  for (size_t size = 0; size <= text.size(); ++size) {
    const Bytes content(text.begin(), text.begin() + static_cast<ptrdiff_t>(size));
    for (const int level : {0, 1, 9}) {
      expectWholeStreamDecodes(zlibDeflate(content, {.level = level}), content);
    }
    expectWholeStreamDecodes(zlibDeflate(content, {.strategy = Z_FIXED}), content);
  }
}

TEST(ZlibStreams, FlushesOfEveryKind) {
  const Bytes content = test::textLike(60000, 3);
  for (const int flush : {Z_PARTIAL_FLUSH, Z_SYNC_FLUSH, Z_FULL_FLUSH, Z_BLOCK}) {
    for (const size_t every : {100u, 5000u}) {
      expectWholeStreamDecodes(zlibDeflate(content, {.flushEvery = every, .flush = flush}),
                               content);
    }
  }
}

TEST(ZlibStreams, Dictionary) {
  const Bytes text = test::textLike(50000, 4);
  const Bytes dictionary(text.begin(), text.begin() + 33000);
  const Bytes content(text.begin() + 33000, text.end());
  const Bytes stream = zlibDeflate(content, {.dictionary = dictionary});
  for (const bool onePass : {true, false}) {
    Decoder decoder;
    zebsDecodeLZ77SetDictionary_8u(dictionary.data(), static_cast<int>(dictionary.size()),
                                   decoder.record());
    const Decoded decoded = (onePass ? decodeOnePass : decodeTwoPass)(
        decoder, stream, test::wholeStream(content.size() + 1));
    EXPECT_TRUE(decoded.output == content);
  }
}

TEST(ZlibStreams, LargeStreamWithMatchesOfEveryKind) {
  Bytes content;
  for (const test::NamedBytes& input : test::oneOfEachKind(80000)) {
    content.insert(content.end(), input.bytes.begin(), input.bytes.end());
  }
  for (const int level : {1, 6, 9}) {
    expectWholeStreamDecodes(zlibDeflate(content, {.level = level}), content);
  }
  expectWholeStreamDecodes(zlibDeflate(content, {.strategy = Z_FIXED}), content);
}

// Decodes a stream in pieces and rooms of random sizes, which may be single bytes. How many blocks
// it had.
size_t blocksDecodedInPieces(decltype(&test::decodeOnePass) decode, const Bytes& stream,
                             const Bytes& content, test::Random& random) {
  constexpr size_t largest[] = {1, 3, 40, 2000};
  const size_t pieces = largest[test::below(random, std::size(largest))];
  const size_t rooms = largest[test::below(random, std::size(largest))];
  Decoder decoder;
  const Decoded decoded =
      decode(decoder, withTrailer(stream), test::randomCuts(random, pieces, rooms));
  EXPECT_EQ(decoded.status, zebWarnFinalBlockDone);
  EXPECT_EQ(decoded.consumed, stream.size());
  EXPECT_TRUE(decoded.output == content);
  return decoded.blocks;
}

// Two passes are right for every stream in every cut.
TEST(Piecewise, TwoPassesOverEveryKindOfBlock) {
  test::Random random(1);
  size_t blocks = 0;
  for (int round = 0; round < 60; ++round) {
    const size_t size = test::below(random, 8000);
    const auto inputs = test::oneOfEachKind(size);
    const Bytes& content = inputs[static_cast<size_t>(round) % inputs.size()].bytes;
    const ZlibSettings settings = {
        .level = static_cast<int>(test::below(random, 10)),
        .strategy = static_cast<int>(test::below(random, 5)),
        .memLevel = 1,
        .flushEvery = 1 + test::below(random, 300),
        .flush = static_cast<int>(1 + test::below(random, 3)),
    };
    blocks += blocksDecodedInPieces(decodeTwoPass, zlibDeflate(content, settings), content, random);
    ASSERT_FALSE(HasFailure()) << round;
  }
  EXPECT_GT(blocks, 2000u);
}

// One pass in every cut, where no stored block can follow a Huffman block's look-ahead.
TEST(Piecewise, OnePassOverHuffmanBlocks) {
  test::Random random(2);
  size_t blocks = 0;
  for (int round = 0; round < 80; ++round) {
    const size_t size = test::below(random, 12000);
    const Bytes content = round % 2 ? test::textLike(size, static_cast<uint64_t>(round))
                                    : test::skewed(size, static_cast<uint64_t>(round), 40);
    const ZlibSettings settings = {
        .level = static_cast<int>(1 + test::below(random, 9)),
        .strategy = round % 3 == 0 ? Z_FIXED : Z_DEFAULT_STRATEGY,
        .memLevel = 1,
        .flushEvery = 1 + test::below(random, 600),
        .flush = Z_BLOCK,
    };
    blocks += blocksDecodedInPieces(decodeOnePass, zlibDeflate(content, settings), content, random);
    ASSERT_FALSE(HasFailure()) << round;
  }
  EXPECT_GT(blocks, 1000u);
}

// Stored blocks alone take every cut in one pass too.
TEST(Piecewise, OnePassOverStoredBlocks) {
  test::Random random(3);
  const Bytes content = test::randomBytes(100000, 1);
  const Bytes stream = zlibDeflate(content, {.level = 0, .memLevel = 1, .flushEvery = 777});
  for (const size_t largest : {1u, 40u, 3000u, 70000u}) {
    Decoder decoder;
    const size_t count = largest == 1 ? 5000 : stream.size();
    const Bytes part(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(count));
    const Decoded decoded =
        decodeOnePass(decoder, part, test::randomCuts(random, largest, largest));
    EXPECT_EQ(decoded.status, count == stream.size() ? zebWarnFinalBlockDone : zebWarnSrcExhausted);
    ASSERT_TRUE(std::equal(decoded.output.begin(), decoded.output.end(), content.begin()));
  }
}

// A stream cut off anywhere asks for more source, whatever was decoded is right, and the rest can
// follow.
TEST(Piecewise, TruncatedAtEveryByte) {
  const Bytes content = test::textLike(700, 9);
  for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED}) {
    const Bytes stream = zlibDeflate(content, {.strategy = strategy});
    for (size_t count = 0; count < stream.size(); ++count) {
      const Bytes part(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(count));
      for (const bool onePass : {true, false}) {
        Decoder decoder;
        const Decoded decoded =
            (onePass ? decodeOnePass : decodeTwoPass)(decoder, part, test::wholeStream(2000));
        EXPECT_EQ(decoded.status, zebWarnSrcExhausted);
        EXPECT_EQ(decoded.consumed, count);
        ASSERT_TRUE(std::equal(decoded.output.begin(), decoded.output.end(), content.begin()));
      }
    }
  }
}

}  // namespace
}  // namespace zebdc::inflate
