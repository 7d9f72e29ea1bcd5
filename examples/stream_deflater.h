// A complete deflate compressor on the stream-style primitives: window, hash tables, frequency
// tables and output arrays are its own, and so is the choice of the codes.
#ifndef ZEBDC_EXAMPLES_STREAM_DEFLATER_H
#define ZEBDC_EXAMPLES_STREAM_DEFLATER_H

#include <zebdc/zebdc.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

class StreamDeflater {
 public:
  // Takes the compressed bytes as they come.
  using Sink = std::function<void(const uint8_t* bytes, size_t count)>;

  // level is 0 (fastest) to 9 (smallest).
  StreamDeflater(int level, Sink sink);

  // Compresses more input. Output comes a block at a time.
  void write(const uint8_t* bytes, size_t count);

  // Ends the stream: the last block, padded to a byte.
  void finish();

 private:
  static constexpr uint32_t windowSize = 32768;
  static constexpr uint32_t hashSize = 32768;
  static constexpr uint32_t itemsPerBlock = 16384;
  static constexpr int literalSymbols = 286;
  static constexpr int distanceSymbols = 30;
  static constexpr int endOfBlock = 256;

  using Code = ZebDeflateHuffCode;

  void copyIntoWindow(const uint8_t* bytes, uint32_t count);
  void writeBlock(bool last);
  void putBits(uint32_t bits, uint32_t count);
  void putHeader(const std::vector<uint8_t>& literalLengths,
                 const std::vector<uint8_t>& distanceLengths, bool last);
  void emit();

  int level_;
  Sink sink_;
  uint32_t position_ = 0;  // of the next input byte, modulo 2^32

  std::vector<uint8_t> window_;
  std::vector<uint32_t> hashHead_;
  std::vector<uint32_t> hashPrev_;

  // The block in progress.
  std::vector<uint8_t> literals_;
  std::vector<uint16_t> distances_;
  uint32_t items_ = 0;
  std::array<uint32_t, literalSymbols> literalFrequencies_{};
  std::array<uint32_t, distanceSymbols> distanceFrequencies_{};

  std::vector<uint8_t> out_;
  uint32_t outSize_ = 0;
  uint32_t pendingBits_ = 0;
  uint32_t pendingCount_ = 0;
};

#endif
