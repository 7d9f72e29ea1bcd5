// Drives the block writers as an application would, with rooms that end at inaccessible pages.
#ifndef ZEBDC_TESTS_DEFLATE_BLOCK_ENCODER_H
#define ZEBDC_TESTS_DEFLATE_BLOCK_ENCODER_H

#include <stdint.h>
#include <zebdc/zebdc.h>

#include <functional>
#include <span>

#include "deflate/encoder_state.h"
#include "deflate/pairs.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::test {

using PairWriter = decltype(&zebsEncodeLZ77FixedHuff_8u);

// The room of the next call.
using Rooms = std::function<int()>;
inline Rooms rooms(int size) {
  return [size] { return size; };
}
inline Rooms smallRooms(Random& random) {
  return [&random] {
    return static_cast<int>(below(random, 4) == 0 ? below(random, 3) : below(random, 40));
  };
}
inline Rooms anyRooms(Random& random) {
  return [&random] {
    return static_cast<int>(below(random, 8) == 0 ? below(random, 20) : below(random, 5000));
  };
}

class BlockEncoder {
 public:
  explicit BlockEncoder(int level = zebLZ77LevelFast, int checksum = zebLZ77ChecksumNone);

  ZebLZ77State_8u* record() const { return memory_.as<ZebLZ77State_8u>(); }
  deflate::EncoderState& state() const { return deflate::encoderState(record()); }

  // Begins a block as after a call of the match finder that consumed all of its source.
  void beginBlock(int flush = zebLZ77FlushNone);

  // One call. Appends what was written to output(); pairs and source lose what was consumed.
  ZebStatus call(PairWriter writer, std::span<const ZebLZ77Pair>& pairs, int room, int flush);
  ZebStatus callStored(std::span<const uint8_t>& source, int room, int flush);
  ZebStatus callFlush(int room);

  // Calls until the status is no longer zebWarnDstFull.
  ZebStatus write(PairWriter writer, std::span<const ZebLZ77Pair> pairs, int flush,
                  const Rooms& nextRoom = rooms(1 << 20));
  ZebStatus writeStored(std::span<const uint8_t> source, int flush,
                        const Rooms& nextRoom = rooms(1 << 20));
  ZebStatus writeTrailer(const Rooms& nextRoom = rooms(1 << 20));

  ZebLZ77HuffMode select(std::span<const ZebLZ77Pair> pairs);

  Bytes& output() { return output_; }

 private:
  void keep(const GuardedBuffer& room, const uint8_t* end, int roomLeft);

  GuardedBuffer memory_;
  Bytes output_;
};

}  // namespace zebdc::test

#endif
