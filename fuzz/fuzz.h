// What fuzz targets share: a source of decisions and a check that holds in every build.
#ifndef ZEBDC_FUZZ_FUZZ_H
#define ZEBDC_FUZZ_FUZZ_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <span>

#define FUZZ_CHECK(condition)                                                        \
  do {                                                                               \
    if (!(condition)) {                                                              \
      fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                                       \
    }                                                                                \
  } while (false)

namespace zebdc::fuzz {

// Takes decisions from the front of a fuzzer's input; what is left is the data. An input that has
// run out decides 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes_(data, size) {}

  uint8_t takeByte() {
    if (bytes_.empty()) return 0;
    const uint8_t byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }

  uint32_t takeWord() {
    uint32_t word = 0;
    for (int i = 0; i < 4; ++i) word = word << 8 | takeByte();
    return word;
  }

  // A number of 0 to limit - 1, or 0 when limit is 0.
  size_t takeBelow(size_t limit) { return limit == 0 ? 0 : takeWord() % limit; }

  std::span<const uint8_t> takeBytes(size_t count) {
    const auto taken = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
  }

  std::span<const uint8_t> rest() { return takeBytes(bytes_.size()); }

  bool empty() const { return bytes_.empty(); }

 private:
  std::span<const uint8_t> bytes_;
};

}  // namespace zebdc::fuzz

#endif
