// Calls of the LZO functions in buffers that end at inaccessible pages.
#ifndef ZEBDC_TESTS_LZ_LZO_HELPERS_H
#define ZEBDC_TESTS_LZ_LZO_HELPERS_H

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <span>

#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::test {

inline size_t lzoWorstCase(size_t size) {
  return size + size / 16 + 67;
}

inline size_t lzoRecordSize() {
  uint32_t size = 0;
  EXPECT_EQ(zebsEncodeLZOGetSize(zebLZOMethod1X1, 0, &size), zebOk);
  return size;
}

// An encoder's record. It is filled with garbage before Init.
class LzoRecord {
 public:
  explicit LzoRecord(ZebLZOMethod method = zebLZOMethod1X1)
      : memory_(lzoRecordSize(), GuardedBuffer::Edge::none) {
    memset(memory_.data(), 0xA5, memory_.size());
    EXPECT_EQ(zebsEncodeLZOInit_8u(method, 0, state()), zebOk);
  }
  ZebLZOState_8u* state() const { return memory_.as<ZebLZOState_8u>(); }

 private:
  GuardedBuffer memory_;
};

inline Bytes lzoEncoded(const LzoRecord& record, std::span<const uint8_t> source) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(lzoWorstCase(source.size()));
  uint32_t dstLen = 0;
  EXPECT_EQ(zebsEncodeLZO_8u(src.data(), static_cast<uint32_t>(src.size()), dst.data(), &dstLen,
                             record.state()),
            zebOk);
  return Bytes(dst.begin(), dst.begin() + dstLen);
}

inline Bytes lzoEncoded(std::span<const uint8_t> source) {
  return lzoEncoded(LzoRecord(), source);
}

struct LzoDecoded {
  ZebStatus status;
  Bytes out;

  bool operator==(const LzoDecoded&) const = default;
};

using LzoDecodeFunction = decltype(&zebsDecodeLZO_8u);

inline LzoDecoded lzoDecoded(LzoDecodeFunction decode, std::span<const uint8_t> stream,
                             size_t capacity) {
  const GuardedBuffer src(stream);
  const GuardedBuffer dst(capacity);
  uint32_t dstLen = static_cast<uint32_t>(capacity);
  const ZebStatus status =
      decode(src.data(), static_cast<uint32_t>(src.size()), dst.data(), &dstLen);
  EXPECT_LE(dstLen, capacity);
  return {status, Bytes(dst.begin(), dst.begin() + dstLen)};
}

// Both decoders, of which the trusting one needs a valid stream and enough room.
inline void expectLzoDecodesTo(std::span<const uint8_t> stream, const Bytes& expected) {
  const LzoDecoded whole = {zebOk, expected};
  EXPECT_EQ(lzoDecoded(zebsDecodeLZO_8u, stream, expected.size()), whole);
  EXPECT_EQ(lzoDecoded(zebsDecodeLZOSafe_8u, stream, expected.size()), whole);
}

}  // namespace zebdc::test

#endif
