// The byte Huffman coder written step by step after its rules, one bit or one symbol at a time. The
// library is compared with it, and timed against it.
#ifndef ZEBDC_TESTS_HUFFMAN_REFERENCE_CODER_H
#define ZEBDC_TESTS_HUFFMAN_REFERENCE_CODER_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <vector>

namespace zebdc::test {

class ReferenceEncoder {
 public:
  explicit ReferenceEncoder(const std::array<int, 256>& lengths);

  // Appends the whole words that a block completes.
  void encode(const uint8_t* src, size_t len, std::vector<uint8_t>& out);
  void finish(std::vector<uint8_t>& out) const;

  const std::array<uint32_t, 256>& codes() const { return code_; }
  uint32_t bitBuffer() const { return bitBuffer_; }
  int bitCount() const { return bitCount_; }

 private:
  std::array<uint32_t, 256> length_{};
  std::array<uint32_t, 256> code_{};
  uint32_t bitBuffer_ = 0;
  int bitCount_ = 0;
};

class ReferenceDecoder {
 public:
  explicit ReferenceDecoder(const std::array<int, 256>& lengths);

  // Returns the symbols written.
  size_t decode(const uint8_t* src, size_t len, uint8_t* dst, size_t capacity);

  uint32_t bitBuffer() const { return bitBuffer_; }
  int bitCount() const { return bitCount_; }
  int zeroBits() const { return zeroBits_; }

 private:
  int lookUp(uint32_t lookahead) const;

  std::array<uint32_t, 256> length_{};
  std::vector<uint8_t> symbols_;
  std::array<uint32_t, 33> limit_{};
  std::array<uint32_t, 33> cumulative_{};
  int maxLen_ = 0;
  int minLen_ = 32;
  uint32_t bitBuffer_ = 0;
  int bitCount_ = 0;
  int zeroBits_ = 0;
};

// The least total of frequency x length over all prefix codes: a Huffman code's, from a plain
// priority queue. A single symbol counts one bit each time.
uint64_t optimalCost(const std::array<uint32_t, 256>& frequencies);

}  // namespace zebdc::test

#endif
