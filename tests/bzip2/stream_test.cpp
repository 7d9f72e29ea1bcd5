// Whole bzip2 streams: what the stages write together libbz2 reads, and the reverse.

#include "bzip2/bzip2_stream.h"

#include <bzlib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/data.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::Bzip2Compressor;
using test::Bzip2Decompressor;
using test::NamedBytes;
using test::Random;

Bytes compressedByPeer(const Bytes& source, int level) {
  Bytes out(source.size() + source.size() / 50 + 700);
  unsigned size = static_cast<unsigned>(out.size());
  Bytes copy = source;  // the peer takes a pointer to bytes that it may write
  copy.resize(copy.size() + 1);
  EXPECT_EQ(BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &size,
                                     reinterpret_cast<char*>(copy.data()),
                                     static_cast<unsigned>(source.size()), level, 0, 0),
            BZ_OK);
  out.resize(size);
  return out;
}

Bytes decompressedByPeer(Bytes stream, size_t expectedSize) {
  Bytes out(expectedSize + 1);
  unsigned size = static_cast<unsigned>(out.size());
  EXPECT_EQ(BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(out.data()), &size,
                                       reinterpret_cast<char*>(stream.data()),
                                       static_cast<unsigned>(stream.size()), 0, 0),
            BZ_OK);
  out.resize(size);
  return out;
}

// Both ways of inverting a block.
void expectDecompresses(const Bytes& stream, const Bytes& source) {
  static Bzip2Decompressor wholeBlocks(Bzip2Decompressor::Inverse::wholeBlock);
  static Bzip2Decompressor byStages(Bzip2Decompressor::Inverse::separateStages);
  for (Bzip2Decompressor* decompressor : {&wholeBlocks, &byStages}) {
    EXPECT_TRUE(decompressor->decompress(stream) == source);
    EXPECT_FALSE(decompressor->failed());
  }
}

void expectExchanges(Bzip2Compressor& compressor, const Bytes& source, int peerLevel) {
  const Bytes stream = compressor.compress(source);
  EXPECT_TRUE(decompressedByPeer(stream, source.size()) == source);
  expectDecompresses(stream, source);
  expectDecompresses(compressedByPeer(source, peerLevel), source);
}

// Repetitive blocks, the few-value ones and the rest, from one byte up.
std::vector<NamedBytes> inputs(size_t size) {
  std::vector<NamedBytes> all = test::oneOfEachKind(size);
  Bytes everyValue(size);
  for (size_t i = 0; i < size; ++i) everyValue[i] = static_cast<uint8_t>(i * 7 + i / 256);
  all.push_back({"every value", everyValue});
  Bytes twice = test::randomBytes((size + 1) / 2, 9);
  twice.insert(twice.end(), twice.begin(), twice.begin() + static_cast<ptrdiff_t>(size / 2));
  all.push_back({"random data twice", twice});
  for (const size_t period : {3, 100, 257, 1000}) {
    Bytes periodic = test::randomBytes(std::min(period, size), period);
    for (size_t i = periodic.size(); i < size; ++i) periodic.push_back(periodic[i - period]);
    all.push_back({"period " + std::to_string(period), periodic});
  }
  return all;
}

TEST(Bzip2Stream, TheEmptyStreamIsHeaderAndTrailer) {
  const Bytes expected = {'B', 'Z', 'h', '4', 0x17, 0x72, 0x45, 0x38, 0x50, 0x90, 0, 0, 0, 0};
  EXPECT_EQ(Bzip2Compressor(4).compress({}), expected);
  EXPECT_EQ(compressedByPeer({}, 4), expected);
  expectDecompresses(expected, {});
}

TEST(Bzip2Stream, EverySmallSize) {
  Bzip2Compressor compressor(1);
  for (size_t size = 1; size <= 24; ++size) {
    for (const auto& [name, source] : inputs(size)) {
      SCOPED_TRACE(name + " " + std::to_string(size));
      expectExchanges(compressor, source, 1);
    }
  }
}

TEST(Bzip2Stream, AllKindsOfData) {
  Bzip2Compressor compressor(1);
  for (const auto& [name, source] : inputs(40000)) {
    SCOPED_TRACE(name);
    expectExchanges(compressor, source, 1);
  }
}

TEST(Bzip2Stream, EveryLevel) {
  for (int level = 1; level <= 9; ++level) {
    SCOPED_TRACE(level);
    Bzip2Compressor compressor(level);
    expectExchanges(compressor, test::textLike(level == 1 ? 120000 : 20000, 5), level);
  }
}

TEST(Bzip2Stream, LargestBlocks) {
  for (const auto& [name, source] :
       {NamedBytes{"text", test::textLike(900000, 1)}, NamedBytes{"zeros", Bytes(900000)},
        NamedBytes{"fibonacci", test::fibonacciWord(900000)}}) {
    SCOPED_TRACE(name);
    const Bytes stream = Bzip2Compressor(9).compress(source);
    EXPECT_TRUE(decompressedByPeer(stream, source.size()) == source);
    expectDecompresses(stream, source);
  }
}

// One byte more or less than a block takes.
TEST(Bzip2Stream, BlockBoundaries) {
  const Bytes data = test::textLike(99990, 2);
  Bzip2Compressor compressor(1);
  for (size_t size = 99975; size <= 99990; size += 3) {
    const Bytes source(data.begin(), data.begin() + static_cast<ptrdiff_t>(size));
    const Bytes stream = compressor.compress(source);
    EXPECT_TRUE(decompressedByPeer(stream, size) == source);
  }
}

// Runs across the ends of blocks, and runs that no encoder of four bytes and a count can shorten.
TEST(Bzip2Stream, RunsAcrossBlocks) {
  for (const size_t run : {3, 4, 5, 258, 259, 260, 1000}) {
    Bytes source;
    while (source.size() < 250000) {
      source.insert(source.end(), run, static_cast<uint8_t>(source.size() / run));
    }
    const Bytes stream = Bzip2Compressor(1).compress(source);
    EXPECT_TRUE(decompressedByPeer(stream, source.size()) == source) << run;
    expectDecompresses(stream, source);
  }
}

TEST(Bzip2Stream, SizesAreWithinOnePercentOfThePeers) {
  for (const auto& [name, source] : {NamedBytes{"text", test::textLike(100000, 3)},
                                     NamedBytes{"binary", test::binaryLike(100000, 3)},
                                     NamedBytes{"skewed", test::skewed(100000, 3, 40)},
                                     NamedBytes{"random", test::randomBytes(100000, 3)}}) {
    const size_t size = Bzip2Compressor(9).compress(source).size();
    const size_t peers = compressedByPeer(source, 9).size();
    EXPECT_LE(size * 100, peers * 101) << name;
  }
}

// Damage is noticed, and never leads out of a buffer.
TEST(Bzip2Stream, MutatedStreamsFailOrDecodeToTheSame) {
  Random random(1);
  const Bytes source = test::textLike(3000, 4);
  const Bytes stream = Bzip2Compressor(1).compress(source);
  Bzip2Decompressor decompressor;
  for (int round = 0; round < 300; ++round) {
    const Bytes out = decompressor.decompress(test::mutated(stream, random));
    EXPECT_TRUE(decompressor.failed() || out == source);
  }
}

}  // namespace
}  // namespace zebdc
