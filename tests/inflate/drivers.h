// Drivers of the block decoders: whole streams, in either of the two ways, in pieces of any size.
//
// Every call gets copies of its piece of source and its room that touch inaccessible pages, so that
// a byte read or written outside them ends the test.
#ifndef ZEBDC_TESTS_INFLATE_DRIVERS_H
#define ZEBDC_TESTS_INFLATE_DRIVERS_H

#include <zebdc/zebdc.h>

#include <functional>
#include <memory>

#include "inflate/decoder_state.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::test {

// A decoder's record between guard bytes, its storage filled with noise before Init.
class Decoder {
 public:
  Decoder();

  ZebLZ77State_8u* record() const { return memory_->as<ZebLZ77State_8u>(); }
  inflate::DecoderState& state() const { return inflate::decoderState(record()); }

  // Goes on in another record, and spoils the one left.
  void moveToCopy();

 private:
  std::unique_ptr<GuardedBuffer> memory_;
};

// How a stream is cut. The functions are asked for the next size, given what is left.
struct Cuts {
  std::function<size_t(size_t)> source;  // bytes of source to offer
  std::function<size_t()> room;          // bytes, or pairs, of room
  std::function<size_t()> expandRoom;    // two passes: bytes of room to expand pairs into
  std::function<bool()> copyState = [] { return false; };
};
Cuts wholeStream(size_t outputSize);
Cuts randomCuts(Random& random, size_t largestSource, size_t largestRoom);

struct Decoded {
  ZebStatus status;  // zebWarnFinalBlockDone, zebWarnSrcExhausted at the stream's end, or an error
  Bytes output;
  size_t consumed;  // of the stream
  size_t blocks = 0;
};

// One pass: GetBlockType and the decoders to bytes.
Decoded decodeOnePass(Decoder& decoder, const Bytes& stream, const Cuts& cuts);

// Two passes: the decoders to pairs, each tried in turn between blocks, and the expansion. Right
// for every stream in every cut.
Decoded decodeTwoPass(Decoder& decoder, const Bytes& stream, const Cuts& cuts);

}  // namespace zebdc::test

#endif
