#include "deflate/block_encoder.h"

#include <string.h>

namespace zebdc::test {
namespace {

GuardedBuffer guardedPairs(std::span<const ZebLZ77Pair> pairs) {
  return GuardedBuffer(
      std::span(reinterpret_cast<const uint8_t*>(pairs.data()), pairs.size_bytes()));
}

}  // namespace

BlockEncoder::BlockEncoder(int level, int checksum)
    : memory_(deflate::encoderStateBytes, GuardedBuffer::Edge::none) {
  memset(memory_.data(), 0xEE, memory_.size());
  EXPECT_EQ(zebsEncodeLZ77Init_8u(level, checksum, record()), zebOk);
}

void BlockEncoder::beginBlock(int flush) {
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, record());
  state().lastFlush = flush;
  state().callSrcLen = 0;
}

void BlockEncoder::keep(const GuardedBuffer& room, const uint8_t* end, int roomLeft) {
  EXPECT_EQ(room.end() - end, roomLeft);
  output_.insert(output_.end(), room.begin(), const_cast<uint8_t*>(end));
}

ZebStatus BlockEncoder::call(PairWriter writer, std::span<const ZebLZ77Pair>& pairs, int room,
                             int flush) {
  const GuardedBuffer guardedRoom(static_cast<size_t>(room));
  ZebLZ77Pair* const begin = const_cast<ZebLZ77Pair*>(pairs.data());
  ZebLZ77Pair* next = begin;
  int pairsLen = static_cast<int>(pairs.size());
  uint8_t* dst = guardedRoom.data();
  int dstLen = room;
  const ZebStatus status = writer(&next, &pairsLen, &dst, &dstLen, flush, record());
  const size_t consumed = pairs.size() - static_cast<size_t>(pairsLen);
  EXPECT_EQ(next - begin, static_cast<ptrdiff_t>(consumed));
  if (status == zebWarnDstFull) {
    EXPECT_EQ(dstLen, 0) << "room is left";
    EXPECT_EQ(state().blockPhase, deflate::phasePartial);
  }
  keep(guardedRoom, dst, dstLen);
  pairs = pairs.subspan(consumed);
  return status;
}

ZebStatus BlockEncoder::callStored(std::span<const uint8_t>& source, int room, int flush) {
  const GuardedBuffer guardedRoom(static_cast<size_t>(room));
  const uint8_t nothing = 0;
  const uint8_t* const begin = source.empty() ? &nothing : source.data();
  const uint8_t* src = begin;
  int srcLen = static_cast<int>(source.size());
  uint8_t* dst = guardedRoom.data();
  int dstLen = room;
  const ZebStatus status =
      zebsEncodeLZ77StoredBlock_8u(&src, &srcLen, &dst, &dstLen, flush, record());
  EXPECT_EQ(src - begin, static_cast<ptrdiff_t>(source.size()) - srcLen);
  if (status == zebWarnDstFull) {
    EXPECT_EQ(dstLen, 0) << "room is left";
  }
  keep(guardedRoom, dst, dstLen);
  source = source.last(static_cast<size_t>(srcLen));
  return status;
}

ZebStatus BlockEncoder::callFlush(int room) {
  const GuardedBuffer guardedRoom(static_cast<size_t>(room));
  uint8_t* dst = guardedRoom.data();
  int dstLen = room;
  const ZebStatus status = zebsEncodeLZ77Flush_8u(&dst, &dstLen, record());
  keep(guardedRoom, dst, dstLen);
  return status;
}

ZebStatus BlockEncoder::write(PairWriter writer, std::span<const ZebLZ77Pair> pairs, int flush,
                              const Rooms& nextRoom) {
  const GuardedBuffer guarded = guardedPairs(pairs);
  pairs = {guarded.as<ZebLZ77Pair>(), pairs.size()};
  for (;;) {
    const ZebStatus status = call(writer, pairs, nextRoom(), flush);
    if (status != zebWarnDstFull) {
      EXPECT_TRUE(pairs.empty());
      return status;
    }
  }
}

ZebStatus BlockEncoder::writeStored(std::span<const uint8_t> source, int flush,
                                    const Rooms& nextRoom) {
  const GuardedBuffer guarded(source);
  source = guarded.bytes();
  for (;;) {
    const ZebStatus status = callStored(source, nextRoom(), flush);
    if (status != zebWarnDstFull) {
      EXPECT_TRUE(source.empty());
      return status;
    }
  }
}

ZebStatus BlockEncoder::writeTrailer(const Rooms& nextRoom) {
  for (;;) {
    const ZebStatus status = callFlush(nextRoom());
    if (status != zebWarnDstFull) return status;
  }
}

ZebLZ77HuffMode BlockEncoder::select(std::span<const ZebLZ77Pair> pairs) {
  const GuardedBuffer guarded = guardedPairs(pairs);
  ZebLZ77HuffMode mode = -1;
  EXPECT_EQ(zebsEncodeLZ77SelectHuffMode_8u(guarded.as<ZebLZ77Pair>(),
                                            static_cast<int>(pairs.size()), &mode, record()),
            zebOk);
  return mode;
}

}  // namespace zebdc::test
