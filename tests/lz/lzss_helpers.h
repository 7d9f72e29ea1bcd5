// Calls of the LZSS functions in buffers that end at inaccessible pages.
#ifndef ZEBDC_TESTS_LZ_LZSS_HELPERS_H
#define ZEBDC_TESTS_LZ_LZSS_HELPERS_H

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <span>

#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc::test {

inline size_t lzssRecordSize() {
  int size = 0;
  EXPECT_EQ(zebsLZSSGetSize_8u(&size), zebOk);
  return static_cast<size_t>(size);
}

// A record in memory of the caller, which holds garbage before Init.
class LzssRecord {
 public:
  explicit LzssRecord(ZebStatus (*init)(ZebLZSSState_8u*))
      : memory_(lzssRecordSize(), GuardedBuffer::Edge::none) {
    memset(memory_.data(), 0x5A, memory_.size());
    EXPECT_EQ(init(state()), zebOk);
  }
  ZebLZSSState_8u* state() const { return memory_.as<ZebLZSSState_8u>(); }

 private:
  GuardedBuffer memory_;
};

struct LzssResult {
  ZebStatus status;
  size_t consumed;
  Bytes out;

  bool operator==(const LzssResult&) const = default;
};

using LzssCoder = decltype(&zebsEncodeLZSS_8u);

// One call, source and room ending at inaccessible pages.
inline LzssResult callLzss(LzssCoder coder, const LzssRecord& record,
                           std::span<const uint8_t> source, size_t room) {
  const GuardedBuffer src(source);
  const GuardedBuffer dst(room);
  const uint8_t* pSrc = src.data();
  uint8_t* pDst = dst.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room);
  const ZebStatus status = coder(&pSrc, &srcLen, &pDst, &dstLen, record.state());
  EXPECT_EQ(pSrc + srcLen, src.end());
  EXPECT_EQ(pDst + dstLen, dst.end());
  return {status, static_cast<size_t>(pSrc - src.data()), Bytes(dst.data(), pDst)};
}

struct LzssFlushResult {
  ZebStatus status;
  Bytes out;

  bool operator==(const LzssFlushResult&) const = default;
};

inline LzssFlushResult flushLzss(const LzssRecord& record, size_t room) {
  const GuardedBuffer dst(room);
  uint8_t* pDst = dst.data();
  int dstLen = static_cast<int>(room);
  const ZebStatus status = zebsEncodeLZSSFlush_8u(&pDst, &dstLen, record.state());
  EXPECT_EQ(pDst + dstLen, dst.end());
  return {status, Bytes(dst.data(), pDst)};
}

inline size_t lzssWorstCase(size_t size) {
  return size + size / 8 + 8;
}

// Sources of any size up to a largest one, coded in one call each way. What a size decides happens
// near both ends of a source; between them the data is quick to code.
class LzssSizes {
 public:
  static constexpr size_t largest = 70'000;

  explicit LzssSizes(const Bytes& end) {
    for (size_t i = 0; i < largest; ++i) {
      source_[i] = static_cast<uint8_t>(i % period * 37 + i / 5000 * 11);
    }
    std::copy(end.begin(), end.end(), source_.end() - end.size());
  }

  void roundTrip(size_t size) const {
    const uint8_t* pSrc = source_.end() - size;
    uint8_t* const stream = code_.end() - lzssWorstCase(size);
    uint8_t* pDst = stream;
    int srcLen = static_cast<int>(size);
    int dstLen = static_cast<int>(lzssWorstCase(size));
    ASSERT_EQ(zebsEncodeLZSSInit_8u(encoder_.state()), zebOk);
    ASSERT_EQ(zebsEncodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, encoder_.state()), zebOk);
    ASSERT_EQ(zebsEncodeLZSSFlush_8u(&pDst, &dstLen, encoder_.state()), zebOk);
    ASSERT_EQ(srcLen, 0);

    pSrc = stream;
    srcLen = static_cast<int>(pDst - stream);
    pDst = room_.end() - size;
    memset(pDst, 0xCD, size);
    dstLen = static_cast<int>(size);
    ASSERT_EQ(zebsDecodeLZSSInit_8u(decoder_.state()), zebOk);
    ASSERT_EQ(zebsDecodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, decoder_.state()), zebWarnDstFull);
    ASSERT_EQ(memcmp(source_.end() - size, room_.end() - size, size), 0);
  }

 private:
  // The encoder enters the bytes of a short period into its tables faster than those of a run.
  static constexpr size_t period = 7;

  const GuardedBuffer source_{largest};
  const GuardedBuffer code_{lzssWorstCase(largest)};
  const GuardedBuffer room_{largest};
  const LzssRecord encoder_{zebsEncodeLZSSInit_8u};
  const LzssRecord decoder_{zebsDecodeLZSSInit_8u};
};

}  // namespace zebdc::test

#endif
