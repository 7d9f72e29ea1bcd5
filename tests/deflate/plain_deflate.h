// The format of RFC 1951 rendered plainly, bit by bit and without the library's tables: what the
// block writers must produce, and what the best codes would cost.
#ifndef ZEBDC_TESTS_DEFLATE_PLAIN_DEFLATE_H
#define ZEBDC_TESTS_DEFLATE_PLAIN_DEFLATE_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include <optional>
#include <span>
#include <vector>

#include "deflate/pairs.h"
#include "support/data.h"

namespace zebdc::test {

// Bits, the first one lowest in the first byte.
class BitString {
 public:
  void put(uint64_t bits, int count);
  void padToByte();
  size_t size() const { return size_; }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  size_t size_ = 0;
};

using Frequencies = std::vector<uint32_t>;
using CodeLengths = std::vector<int>;

// The codes that two sequences of code lengths stand for.
struct BlockCodes {
  CodeLengths literals;   // 286
  CodeLengths distances;  // 30
};

BlockCodes fixedBlockCodes();

// Appends pairs and the end-of-block code.
void putPairs(BitString& out, std::span<const ZebLZ77Pair> pairs, const BlockCodes& codes);

// The frequencies of a block's symbols, its end included.
struct BlockFrequencies {
  Frequencies literals = Frequencies(286);
  Frequencies distances = Frequencies(30);
};
BlockFrequencies frequenciesOf(std::span<const ZebLZ77Pair> pairs);

// Code bits of symbols under given lengths, and the extra bits of pairs.
uint64_t codeBits(const Frequencies& frequencies, const CodeLengths& lengths);
uint64_t extraBits(std::span<const ZebLZ77Pair> pairs);

// The cost of a Huffman code of any length, by merging the two lightest nodes.
uint64_t huffmanCost(const Frequencies& frequencies);

// The best code lengths under a limit, by package-merge.
CodeLengths packageMerge(const Frequencies& frequencies, int limit);

// Kraft's sum in units of 2^-32.
uint64_t kraftSum(const CodeLengths& lengths);

// The bits of a header that sends these lengths with the longest possible runs and the best code
// for them, as the common encoders do.
uint64_t dynamicHeaderBits(const BlockCodes& codes);

// The bits of the best dynamic block for the pairs.
uint64_t bestDynamicBlockBits(std::span<const ZebLZ77Pair> pairs);

// A dynamic block's header at a bit position.
struct DynamicHeader {
  bool isFinal;
  int codeLengthCodes;  // sent, 4 to 19
  int literalCodes;     // sent, 257 to 286
  int distanceCodes;    // sent, 1 to 30
  int lengthSymbols;    // of the code-length code, for both
  BlockCodes codes;
  size_t endBit;
};
std::optional<DynamicHeader> readDynamicHeader(const Bytes& stream, size_t bit);

// Inflates a raw deflate stream with zlib. Nothing unless it ends with the stream.
std::optional<Bytes> inflateWithZlib(std::span<const uint8_t> stream);

}  // namespace zebdc::test

#endif
