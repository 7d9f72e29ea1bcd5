#include "inflate/drivers.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

namespace zebdc::test {
namespace {

std::unique_ptr<GuardedBuffer> noisyRecord() {
  auto memory =
      std::make_unique<GuardedBuffer>(inflate::decoderStateBytes, GuardedBuffer::Edge::none);
  memset(memory->data(), 0xEE, memory->size());
  if (zebsDecodeLZ77Init_8u(zebLZ77ChecksumNone, memory->as<ZebLZ77State_8u>()) != zebOk) abort();
  return memory;
}

// Memory whose end touches an inaccessible page, for areas up to a growing size.
class Arena {
 public:
  uint8_t* area(size_t size) {
    if (!buffer_ || size > buffer_->size()) {
      buffer_ = std::make_unique<GuardedBuffer>(std::max<size_t>(size, 1 << 16));
    }
    return buffer_->end() - size;
  }

 private:
  std::unique_ptr<GuardedBuffer> buffer_;
};

// The source of a stream in pieces.
class Source {
 public:
  Source(const Bytes& stream, const Cuts& cuts) : stream_(stream), cuts_(cuts) {}

  // Offers a piece to a call and counts what the call took.
  template <class Call>
  ZebStatus offer(Call call) {
    const size_t left = stream_.size() - position_;
    const size_t count = std::min(left, cuts_.source(left));
    uint8_t* const piece = arena_.area(count);
    if (count > 0) memcpy(piece, stream_.data() + position_, count);
    const uint8_t* src = piece;
    int srcLen = static_cast<int>(count);
    const ZebStatus status = call(&src, &srcLen);
    EXPECT_EQ(src + srcLen, piece + count);
    position_ += count - static_cast<size_t>(srcLen);
    EXPECT_LE(position_, stream_.size());
    return status;
  }

  bool atEnd() const { return position_ == stream_.size(); }
  size_t position() const { return position_; }

 private:
  const Bytes& stream_;
  const Cuts& cuts_;
  Arena arena_;
  size_t position_ = 0;
};

// Gives calls room for elements and collects what they write.
template <class Element>
class Room {
 public:
  template <class Call>
  ZebStatus offer(size_t count, std::vector<Element>& output, Call call) {
    Element* const room = reinterpret_cast<Element*>(arena_.area(count * sizeof(Element)));
    Element* dst = room;
    int dstLen = static_cast<int>(count);
    const ZebStatus status = call(&dst, &dstLen);
    EXPECT_EQ(dst + dstLen, room + count);
    output.insert(output.end(), room, dst);
    return status;
  }

 private:
  Arena arena_;
};

}  // namespace

Decoder::Decoder() : memory_(noisyRecord()) {}

void Decoder::moveToCopy() {
  auto copy = noisyRecord();
  EXPECT_EQ(zebsDecodeLZ77CopyState_8u(record(), copy->as<ZebLZ77State_8u>()), zebOk);
  memset(memory_->data(), 0xDD, memory_->size());
  memory_ = std::move(copy);
}

Cuts wholeStream(size_t outputSize) {
  return {[](size_t left) { return left; }, [=] { return outputSize; }, [=] { return outputSize; }};
}

Cuts randomCuts(Random& random, size_t largestSource, size_t largestRoom) {
  return {[&random, largestSource](size_t) { return below(random, largestSource + 1); },
          [&random, largestRoom] { return 1 + below(random, largestRoom); },
          [&random, largestRoom] { return 1 + below(random, largestRoom); },
          [&random] { return below(random, 64) == 0; }};
}

Decoded decodeOnePass(Decoder& decoder, const Bytes& stream, const Cuts& cuts) {
  Source source(stream, cuts);
  Room<uint8_t> room;
  Decoded result = {zebOk, {}, 0};
  ZebStatus status = zebOk;
  for (;;) {
    if (cuts.copyState()) decoder.moveToCopy();
    ZebLZ77BlockType type = -1;
    status = source.offer([&](const uint8_t** ppSrc, int* pSrcLen) {
      return zebsDecodeLZ77GetBlockType_8u(ppSrc, pSrcLen, &type, decoder.record());
    });
    if (status == zebOk && type < 0) status = zebErrGeneral;
    while (status >= 0 && type >= 0) {
      if (cuts.copyState()) decoder.moveToCopy();
      const bool hadAll = source.atEnd();
      status = source.offer([&](const uint8_t** ppSrc, int* pSrcLen) {
        return room.offer(cuts.room(), result.output, [&](uint8_t** ppDst, int* pDstLen) {
          ZebLZ77State_8u* const record = decoder.record();
          switch (type) {
            case zebLZ77BlockFixed:
              return zebsDecodeLZ77FixedHuffFull_8u(ppSrc, pSrcLen, ppDst, pDstLen, 0, record);
            case zebLZ77BlockDynamic:
              return zebsDecodeLZ77DynamicHuffFull_8u(ppSrc, pSrcLen, ppDst, pDstLen, 0, record);
            default:
              return zebsDecodeLZ77StoredBlock_8u(ppSrc, pSrcLen, ppDst, pDstLen, record);
          }
        });
      });
      if (status == zebOk || status == zebWarnFinalBlockDone) break;
      if (status == zebWarnSrcExhausted && hadAll) break;
    }
    if (type >= 0 && (status == zebOk || status == zebWarnFinalBlockDone)) ++result.blocks;
    if (status == zebWarnSrcExhausted && !source.atEnd()) continue;
    if (status != zebOk) break;
  }
  result.status = status;
  result.consumed = source.position();
  return result;
}

namespace {

enum PairDecoder { storedPairs, fixedPairs, dynamicPairs, pairDecoders };

ZebStatus callPairDecoder(PairDecoder which, const uint8_t** ppSrc, int* pSrcLen,
                          ZebLZ77Pair** ppPairs, int* pPairsLen, ZebLZ77State_8u* record) {
  switch (which) {
    case storedPairs:
      return zebsDecodeLZ77StoredHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, record);
    case fixedPairs:
      return zebsDecodeLZ77FixedHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, 0, record);
    default:
      return zebsDecodeLZ77DynamicHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, 0, record);
  }
}

// The second pass over the pairs of one call, in rooms of any size.
class Expander {
 public:
  explicit Expander(const Cuts& cuts) : cuts_(cuts) {}

  // The last answer.
  ZebStatus expand(Decoder& decoder, const std::vector<ZebLZ77Pair>& pairs, Bytes& output) {
    const size_t bytes = pairs.size() * sizeof(ZebLZ77Pair);
    ZebLZ77Pair* const area = reinterpret_cast<ZebLZ77Pair*>(arena_.area(bytes));
    if (bytes > 0) memcpy(static_cast<void*>(area), pairs.data(), bytes);
    const ZebLZ77Pair* next = area;
    int left = static_cast<int>(pairs.size());
    ZebStatus status = zebWarnDstFull;
    while (status == zebWarnDstFull) {
      if (cuts_.copyState()) decoder.moveToCopy();
      status = room_.offer(cuts_.expandRoom(), output, [&](uint8_t** ppDst, int* pDstLen) {
        return zebsDecodeLZ77_8u(&next, &left, ppDst, pDstLen, 0, decoder.record());
      });
    }
    EXPECT_EQ(left, 0);
    EXPECT_EQ(next, area + pairs.size());
    return status;
  }

 private:
  const Cuts& cuts_;
  Arena arena_;
  Room<uint8_t> room_;
};

}  // namespace

Decoded decodeTwoPass(Decoder& decoder, const Bytes& stream, const Cuts& cuts) {
  Source source(stream, cuts);
  Room<ZebLZ77Pair> room;
  Expander expander(cuts);
  Decoded result = {zebOk, {}, 0};
  PairDecoder which = storedPairs;
  bool within = false;  // a block
  for (;;) {
    if (cuts.copyState()) decoder.moveToCopy();
    const bool hadAll = source.atEnd();
    std::vector<ZebLZ77Pair> pairs;
    result.status = source.offer([&](const uint8_t** ppSrc, int* pSrcLen) {
      return room.offer(cuts.room(), pairs, [&](ZebLZ77Pair** ppPairs, int* pPairsLen) {
        return callPairDecoder(which, ppSrc, pSrcLen, ppPairs, pPairsLen, decoder.record());
      });
    });
    if (!pairs.empty()) {
      const ZebStatus expanded = expander.expand(decoder, pairs, result.output);
      const bool ended = result.status == zebWarnFinalBlockDone && which != storedPairs;
      EXPECT_EQ(expanded, ended ? zebWarnFinalBlockDone : zebOk);
    }
    if (result.status == zebErrGeneral && !within) {
      which = static_cast<PairDecoder>(which + 1);
      if (which < pairDecoders) continue;
    }
    if (result.status < 0 || result.status == zebWarnFinalBlockDone) break;
    if (result.status == zebWarnSrcExhausted && hadAll) break;
    within = decoder.state().blockState != inflate::betweenBlocks;
    if (result.status == zebOk) {
      ++result.blocks;
      which = storedPairs;
    }
  }
  if (result.status == zebWarnFinalBlockDone) ++result.blocks;
  result.consumed = source.position();
  return result;
}

}  // namespace zebdc::test
