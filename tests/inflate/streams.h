// Deflate streams for the tests: built bit by bit, or by zlib.
#ifndef ZEBDC_TESTS_INFLATE_STREAMS_H
#define ZEBDC_TESTS_INFLATE_STREAMS_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "support/data.h"

namespace zebdc::test {

// Writes bits in deflate's order: the first bit is the lowest of the first byte.
class BitWriter {
 public:
  BitWriter& put(uint64_t value, int width);
  BitWriter& alignToByte();
  BitWriter& bytes(const Bytes& values);  // aligns first

  // The bits so far, the last byte filled up with zeros.
  const Bytes& finished() const { return bytes_; }
  size_t bitCount() const { return bitCount_; }

 private:
  Bytes bytes_;
  size_t bitCount_ = 0;
};

using Lengths = std::vector<int>;

// A Huffman code by the rule of RFC 1951, 3.2.2, and the symbols written in it.
class Code {
 public:
  explicit Code(Lengths lengths);
  void put(BitWriter& out, size_t symbol) const;
  const Lengths& lengths() const { return lengths_; }

 private:
  Lengths lengths_;
  std::vector<uint32_t> codes_;
};

// The codes of a block and the writing of its items.
class BlockWriter {
 public:
  BlockWriter(BitWriter& out, Code litLen, Code distance);

  BlockWriter& literal(uint8_t byte);
  BlockWriter& literals(const std::string& text);
  BlockWriter& match(int length, int distance);
  BlockWriter& lengthSymbol(int symbol, uint32_t extra, int extraBits);
  BlockWriter& distanceSymbol(int symbol, uint32_t extra, int extraBits);
  BlockWriter& end();

 private:
  BitWriter& out_;
  Code litLen_;
  Code distance_;
};

// A fixed block, header written.
BlockWriter fixedBlock(BitWriter& out, bool final);

// A dynamic block whose code lengths are sent one by one. HLIT and HDIST follow from the numbers of
// lengths given: 257 to 288, and 1 to 32.
BlockWriter dynamicBlock(BitWriter& out, bool final, const Lengths& litLen,
                         const Lengths& distance);

// Header of a dynamic block up to and with the lengths of a code-length code that has all 19
// symbols; and the code itself, in which the lengths are to follow.
Code beginDynamicBlock(BitWriter& out, bool final, int litLenCount, int distanceCount);

void storedBlock(BitWriter& out, bool final, const Bytes& content);

// Lengths with everything in reach of small tests: literals of 9 bits, the end of block and the
// length symbols of 5 to 6 bits, complete; and 30 distance symbols, complete.
Lengths plainLitLenLengths();
Lengths plainDistanceLengths();

// Lengths of 1, 2, 3 ... 14, 15, 15 for the symbols given (16 of them), complete.
Lengths longestLengths(size_t count, const std::vector<size_t>& symbols);

// A raw deflate stream of zlib's. Every flushEvery bytes of input (0: never) a flush of the given
// kind is made.
struct ZlibSettings {
  int level = 6;
  int strategy = 0;
  int memLevel = 8;
  size_t flushEvery = 0;
  int flush = 2;
  Bytes dictionary = {};
};
Bytes zlibDeflate(const Bytes& input, const ZlibSettings& settings = {});

}  // namespace zebdc::test

#endif
