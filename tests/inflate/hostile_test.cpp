// Corrupt streams: every call ends in a status, and nothing outside record and buffers is touched
// (the buffers of the drivers touch inaccessible pages).

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include "inflate/drivers.h"
#include "inflate/streams.h"

namespace zebdc::inflate {
namespace {

using test::BitWriter;
using test::Bytes;
using test::Decoded;
using test::Decoder;

bool isEnd(ZebStatus status) {
  return status == zebWarnFinalBlockDone || status == zebWarnSrcExhausted || status == zebErrSize ||
         status == zebErrGeneral;
}

// Both ways, whole and in pieces, end in the same way with the same bytes.
void expectOrderlyEnd(const Bytes& stream, test::Random& random) {
  Decoder one;
  const Decoded whole = decodeOnePass(one, stream, test::wholeStream(1 << 16));
  EXPECT_TRUE(isEnd(whole.status)) << whole.status;
  Decoder two;
  const Decoded twoPass = decodeTwoPass(two, stream, test::wholeStream(5000));
  EXPECT_TRUE(isEnd(twoPass.status)) << twoPass.status;
  Decoder pieces;
  const Decoded cut = decodeTwoPass(pieces, stream, test::randomCuts(random, 100, 1000));
  EXPECT_EQ(cut.status, twoPass.status);
  EXPECT_EQ(cut.output.size(), twoPass.output.size());
}

TEST(CorruptStreams, MutationsOfRealStreams) {
  test::Random random(1);
  const auto inputs = test::oneOfEachKind(3000);
  for (int round = 0; round < 1000; ++round) {
    const Bytes& content = inputs[test::below(random, inputs.size())].bytes;
    const test::ZlibSettings settings = {.level = static_cast<int>(test::below(random, 10)),
                                         .strategy = static_cast<int>(test::below(random, 5)),
                                         .memLevel = 1};
    expectOrderlyEnd(test::mutated(zlibDeflate(content, settings), random), random);
  }
}

TEST(CorruptStreams, RandomBits) {
  test::Random random(2);
  for (uint64_t round = 0; round < 1000; ++round) {
    Bytes stream = test::randomBytes(1 + test::below(random, 400), round);
    // Most begin a dynamic or a fixed block.
    stream[0] = static_cast<uint8_t>((stream[0] & ~7u) | (round % 8 == 7 ? 0 : 2 + round % 4));
    expectOrderlyEnd(stream, random);
  }
}

// Headers that are well-formed, with lengths of every kind, and random bits behind them.
TEST(CorruptStreams, RandomCodeLengths) {
  test::Random random(3);
  for (uint64_t round = 0; round < 1000; ++round) {
    test::Lengths litLen(257 + test::below(random, 32));
    test::Lengths distance(1 + test::below(random, 32));
    const size_t lowest = test::below(random, 16);
    for (int& length : litLen) length = static_cast<int>(lowest + test::below(random, 16 - lowest));
    for (int& length : distance)
      length = static_cast<int>(lowest + test::below(random, 16 - lowest));
    BitWriter out;
    dynamicBlock(out, round % 2 == 0, litLen, distance);
    Bytes stream = out.finished();
    const Bytes noise = test::randomBytes(600, round);
    stream.insert(stream.end(), noise.begin(), noise.end());
    expectOrderlyEnd(stream, random);
  }
}

}  // namespace
}  // namespace zebdc::inflate
