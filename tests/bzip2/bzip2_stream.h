// Whole bzip2 streams, put together from the library's stages as an application does it. For the
// tests and the benchmarks.
#ifndef ZEBDC_TESTS_BZIP2_BZIP2_STREAM_H
#define ZEBDC_TESTS_BZIP2_BZIP2_STREAM_H

#include <stdint.h>

#include <memory>
#include <span>
#include <vector>

namespace zebdc::test {

class Bzip2Compressor {
 public:
  // The level, 1 to 9, is the block size in units of 100000 bytes.
  explicit Bzip2Compressor(int level);
  ~Bzip2Compressor();

  std::vector<uint8_t> compress(std::span<const uint8_t> source);

 private:
  struct Work;
  std::unique_ptr<Work> work_;
};

class Bzip2Decompressor {
 public:
  enum class Inverse { wholeBlock, separateStages };

  explicit Bzip2Decompressor(Inverse inverse = Inverse::wholeBlock);
  ~Bzip2Decompressor();

  // One stream. Empty, with failed() set, if it is not valid to its last checksum.
  std::vector<uint8_t> decompress(std::span<const uint8_t> stream);
  bool failed() const;

 private:
  struct Work;
  std::unique_ptr<Work> work_;
};

}  // namespace zebdc::test

#endif
