#include "deflate/deflate_encoder.h"

#include <algorithm>

namespace zebz {
namespace {

constexpr size_t outputSize = size_t{64} << 10;
// Pairs to a block, far fewer than the record has room for: the codes then fit the data at hand. On
// mixed files this is worth up to 2 % over the full room; halving it again gains nothing.
constexpr int longestBatch = 16384;
constexpr size_t longestStored = 65535;

constexpr ZebLZ77ComprLevel libraryLevel(int level) {
  if (level <= 3) return zebLZ77LevelFast;
  return level <= 7 ? zebLZ77LevelAverage : zebLZ77LevelBest;
}

LZ77State makeState(int level) {
  ZebLZ77State_8u* state = nullptr;
  // Checksums are the containers' affair: the record's Adler-32 does not start from 1, and its
  // length does not survive 2 GiB.
  expectNoError(zebsEncodeLZ77InitAlloc_8u(libraryLevel(level), zebLZ77ChecksumNone, &state));
  return LZ77State(state);
}

}  // namespace

// Pairs, and the source bytes that they stand for.
struct DeflateEncoder::Batch {
  ZebLZ77Pair* pairs;
  int pairCount;
  Bytes bytes;
};

DeflateEncoder::DeflateEncoder(int level) : state_(makeState(level)), output_(outputSize) {}

void DeflateEncoder::restart(Bytes history) {
  expectNoError(zebsEncodeLZ77Reset_8u(state_.get()));
  expectNoError(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusIdle, state_.get()));
  if (history.empty()) return;
  expectNoError(zebsEncodeLZ77SetDictionary_8u(history.data(), static_cast<int>(history.size()),
                                               state_.get()));
}

void DeflateEncoder::encode(Bytes bytes, Ending ending, ByteSink& sink) {
  const ZebLZ77Flush lastFlush = ending == Ending::final     ? zebLZ77FlushFinal
                                 : ending == Ending::aligned ? zebLZ77FlushSync
                                                             : zebLZ77FlushNone;
  if (bytes.empty() && ending == Ending::open) return;
  do {
    const Batch batch = findMatches(bytes, lastFlush);
    bytes = bytes.subspan(batch.bytes.size());
    // The ending belongs to the block that takes the last of the bytes.
    writeBlock(batch, bytes.empty() ? lastFlush : zebLZ77FlushNone, sink);
  } while (!bytes.empty());
}

DeflateEncoder::Batch DeflateEncoder::findMatches(Bytes bytes, ZebLZ77Flush flush) {
  Batch batch{};
  int index = 0;
  int room = 0;
  expectNoError(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, state_.get()));
  expectNoError(zebsEncodeLZ77GetPairs_8u(&batch.pairs, &index, &room, state_.get()));

  room = std::min(room, longestBatch);
  ZebLZ77Pair* end = batch.pairs;
  const uint8_t* cursor = bytes.data();
  int remaining = static_cast<int>(bytes.size());
  expectNoError(zebsEncodeLZ77_8u(&cursor, &remaining, &end, &room, flush, state_.get()));
  batch.pairCount = static_cast<int>(end - batch.pairs);
  batch.bytes = bytes.first(bytes.size() - static_cast<size_t>(remaining));
  return batch;
}

void DeflateEncoder::writeBlock(const Batch& batch, ZebLZ77Flush flush, ByteSink& sink) {
  expectNoError(zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, state_.get()));
  ZebLZ77HuffMode mode = zebLZ77HuffFixed;
  expectNoError(zebsEncodeLZ77SelectHuffMode_8u(batch.pairs, batch.pairCount, &mode, state_.get()));
  if (mode == zebLZ77HuffStored) return writeStored(batch.bytes, flush, sink);

  const auto writePairs =
      mode == zebLZ77HuffFixed ? zebsEncodeLZ77FixedHuff_8u : zebsEncodeLZ77DynamicHuff_8u;
  ZebLZ77Pair* pairs = batch.pairs;
  int pairCount = batch.pairCount;
  writeAll(sink, [&](uint8_t** dst, int* room) {
    return writePairs(&pairs, &pairCount, dst, room, flush, state_.get());
  });
}

// Every block written in a call with the final flush is marked as the last, so the writer gets that
// flush with the last block alone. A stored block ends on a whole byte whatever the flush.
void DeflateEncoder::writeStored(Bytes bytes, ZebLZ77Flush flush, ByteSink& sink) {
  while (!bytes.empty()) {
    const bool isLast = bytes.size() <= longestStored;
    const Bytes part = bytes.first(std::min(bytes.size(), longestStored));
    const uint8_t* cursor = part.data();
    int remaining = static_cast<int>(part.size());
    writeAll(sink, [&](uint8_t** dst, int* room) {
      return zebsEncodeLZ77StoredBlock_8u(
          &cursor, &remaining, dst, room,
          isLast && flush == zebLZ77FlushFinal ? zebLZ77FlushFinal : zebLZ77FlushNone,
          state_.get());
    });
    bytes = bytes.subspan(part.size());
  }
}

// Calls a block writer with fresh room until it has written everything.
template <typename Write>
void DeflateEncoder::writeAll(ByteSink& sink, Write write) {
  ZebStatus status;
  do {
    uint8_t* cursor = output_.data();
    int room = static_cast<int>(output_.size());
    status = expectNoError(write(&cursor, &room));
    sink.write(Bytes(output_.data(), static_cast<size_t>(cursor - output_.data())));
  } while (status == zebWarnDstFull);
}

}  // namespace zebz
