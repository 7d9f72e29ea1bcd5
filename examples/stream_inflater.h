// A complete deflate decoder (RFC 1951) on the library's inflater: block headers, code lengths and
// the bit buffer are its own.
#ifndef ZEBDC_EXAMPLES_STREAM_INFLATER_H
#define ZEBDC_EXAMPLES_STREAM_INFLATER_H

#include <zebdc/zebdc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class StreamInflater {
 public:
  // Reads from the bytes, which must outlive the decoder.
  StreamInflater(const uint8_t* bytes, size_t count);

  // Decodes one whole stream and appends it to the output. Throws std::runtime_error for anything
  // that the format forbids.
  void inflate(std::vector<uint8_t>& output);

  // How many bytes of the input the stream took.
  size_t consumed() const { return static_cast<size_t>(next_ - begin_); }

 private:
  uint32_t takeBits(uint32_t count);
  void copyStored(std::vector<uint8_t>& output);
  void readCodes();
  void decodeSymbols(std::vector<uint8_t>& output);
  void makeRoom(std::vector<uint8_t>& output, size_t count) const;

  const uint8_t* begin_;
  const uint8_t* next_;
  const uint8_t* end_;
  uint32_t bits_ = 0;  // taken from the input but not yet used, the next one lowest
  uint32_t bitCount_ = 0;
  size_t outputBegin_ = 0;
  size_t size_ = 0;  // of the output that is decoded; the vector may be longer while it is at work
  std::unique_ptr<ZebInflateState> state_;
};

#endif
