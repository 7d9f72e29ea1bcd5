#include "deflate/deflate_decoder.h"

#include <algorithm>
#include <array>

namespace zebz {
namespace {

constexpr size_t pairCapacity = size_t{32} << 10;
constexpr size_t outputSize = size_t{256} << 10;
constexpr uint64_t farthestDistance = 32768;

// The three block decoders of the library in one form. Each reads the header of a block itself and
// refuses, with zebErrGeneral, a block of another kind, leaving the header for the next to try.
using BlockDecoder = ZebStatus (*)(const uint8_t** src, int* srcLen, ZebLZ77Pair** pairs,
                                   int* pairRoom, ZebLZ77State_8u* state);

ZebStatus decodeDynamic(const uint8_t** src, int* srcLen, ZebLZ77Pair** pairs, int* pairRoom,
                        ZebLZ77State_8u* state) {
  return zebsDecodeLZ77DynamicHuff_8u(src, srcLen, pairs, pairRoom, zebLZ77FlushNone, state);
}

ZebStatus decodeFixed(const uint8_t** src, int* srcLen, ZebLZ77Pair** pairs, int* pairRoom,
                      ZebLZ77State_8u* state) {
  return zebsDecodeLZ77FixedHuff_8u(src, srcLen, pairs, pairRoom, zebLZ77FlushNone, state);
}

constexpr std::array<BlockDecoder, 3> blockDecoders = {decodeDynamic, decodeFixed,
                                                       zebsDecodeLZ77StoredHuff_8u};

[[noreturn]] void failFormat() {
  throw DataError("invalid compressed data--format violated");
}

LZ77State makeState() {
  ZebLZ77State_8u* state = nullptr;
  expectNoError(zebsDecodeLZ77InitAlloc_8u(zebLZ77ChecksumNone, &state));
  return LZ77State(state);
}

}  // namespace

DeflateDecoder::DeflateDecoder()
    : state_(makeState()), pairs_(pairCapacity), pairsEnd_(pairs_.data()), output_(outputSize) {}

void DeflateDecoder::restart(Bytes history) {
  expectNoError(zebsDecodeLZ77Reset_8u(state_.get()));
  pairsEnd_ = pairs_.data();
  history_ = history.size();
  if (history.empty()) return;
  expectNoError(zebsDecodeLZ77SetDictionary_8u(history.data(), static_cast<int>(history.size()),
                                               state_.get()));
}

void DeflateDecoder::decode(BufferedSource& source, ByteSink& sink) {
  BlockDecoder current = nullptr;  // none between blocks
  const auto callDecoder = [&](BlockDecoder decoder) {
    const Bytes input = source.unread();
    const uint8_t* cursor = input.data();
    int remaining = static_cast<int>(input.size());
    int room = pairRoom();
    const ZebStatus status = decoder(&cursor, &remaining, &pairsEnd_, &room, state_.get());
    source.moveTo(cursor);
    return status;
  };

  // With a byte at hand and room for a pair, a decoder that is asked for a new block always gets as
  // far as accepting or refusing its header. At the end of the input the bits in hand may do.
  for (;;) {
    const bool atEnd = !source.fill();
    ZebStatus status = zebErrGeneral;
    if (current != nullptr) {
      status = callDecoder(current);
    } else {
      for (size_t i = 0; i < blockDecoders.size() && status == zebErrGeneral; ++i) {
        current = blockDecoders[i];
        status = callDecoder(current);
      }
    }

    const bool isCut = status == zebWarnSrcExhausted && atEnd;
    const bool isDone = status == zebWarnFinalBlockDone;
    if (isDone || isCut || status < 0 || pairRoom() == 0) expandPairs(sink);
    if (isDone) return;
    if (isCut) failUnexpectedEnd();
    if (status < 0) failFormat();
    if (status == zebOk) current = nullptr;
  }
}

int DeflateDecoder::pairRoom() const {
  return static_cast<int>(pairs_.data() + pairs_.size() - pairsEnd_);
}

void DeflateDecoder::expandPairs(ByteSink& sink) {
  checkDistances();
  const ZebLZ77Pair* cursor = pairs_.data();
  int count = static_cast<int>(pairsEnd_ - pairs_.data());
  ZebStatus status;
  do {
    uint8_t* end = output_.data();
    int room = static_cast<int>(output_.size());
    status = expectNoError(
        zebsDecodeLZ77_8u(&cursor, &count, &end, &room, zebLZ77FlushNone, state_.get()));
    const size_t written = static_cast<size_t>(end - output_.data());
    sink.write(Bytes(output_.data(), written));
    history_ += written;
  } while (status == zebWarnDstFull);
  pairsEnd_ = pairs_.data();
}

// The library expands whatever distance it is given. Once a window's worth of bytes has gone by,
// all distances are good.
void DeflateDecoder::checkDistances() const {
  uint64_t reachable = history_;
  for (const ZebLZ77Pair* pair = pairs_.data(); pair != pairsEnd_ && reachable < farthestDistance;
       ++pair) {
    if (pair->offset > reachable) failFormat();
    reachable += pair->offset == 0 ? 1 : pair->length;
  }
}

}  // namespace zebz
