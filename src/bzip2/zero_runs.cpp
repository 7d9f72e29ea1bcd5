// Zero-run coding: zero bytes become numerals in the symbols RUNA and RUNB, every other byte b the
// symbol b + 1.
//
// A run of n zeros is written in bijective base 2, least significant digit first, RUNA being the
// digit 1 and RUNB the digit 2. These are the bits of n + 1 below its highest one: RUNA for a zero
// bit, RUNB for a one bit.

#include "kernels/zero_runs.h"

#include <algorithm>
#include <bit>

#include "frame/entry.h"
#include "kernels/memory.h"

namespace zebdc::bzip2 {
namespace {

// ---- Encoding -----------------------------------------------------------------------------------

// The longest run whose numeral fits a room.
constexpr int longestRunFitting(int room) {
  return room > 30 ? INT32_MAX : static_cast<int>((2u << room) - 2);
}

// The same for a run in front of another byte. A room of exactly 20 takes no such run at all: that
// is the format's own reserve, and callers rely on where a call ends.
constexpr int longestRunAllowed(int room) {
  return room == 20 ? 0 : longestRunFitting(room);
}

class Encoder {
 public:
  Encoder(const uint8_t* src, int srcLen, uint16_t* dst, int capacity, uint32_t* frequencies)
      : src_(src), srcLen_(srcLen), dst_(dst), capacity_(capacity), frequencies_(frequencies) {}

  void run() {
    const kernels::ZeroRunProgress bulk = kernels::zeroRuns().encode(
        src_, static_cast<size_t>(srcLen_), dst_, static_cast<size_t>(capacity_), frequencies_);
    in_ = static_cast<int>(bulk.consumed);
    out_ = static_cast<int>(bulk.written);
    while (in_ < srcLen_ && room() > 0) {
      if (!runAndByte()) return;
    }
  }

  int consumed() const { return in_; }
  int written() const { return out_; }

 private:
  int room() const { return capacity_ - out_; }

  void put(unsigned symbol) {
    dst_[out_++] = static_cast<uint16_t>(symbol);
    ++frequencies_[symbol];
  }

  void putRun(int zeros) {
    for (unsigned digits = static_cast<unsigned>(zeros) + 1; digits > 1; digits >>= 1) {
      put(digits & 1);
    }
    in_ += zeros;
  }

  // False when the call ends here.
  bool runAndByte() {
    int zeros = 0;
    while (zeros < srcLen_ - in_ && src_[in_ + zeros] == 0) ++zeros;
    const bool atEnd = zeros == srcLen_ - in_;
    const int longest = atEnd ? longestRunFitting(room()) : longestRunAllowed(room());
    putRun(std::min(zeros, longest));
    if (atEnd || zeros > longest || room() == 0) return false;
    put(src_[in_++] + 1u);
    return true;
  }

  const uint8_t* src_;
  int srcLen_;
  uint16_t* dst_;
  int capacity_;
  uint32_t* frequencies_;
  int in_ = 0;
  int out_ = 0;
};

// ---- Decoding -----------------------------------------------------------------------------------

class Decoder {
 public:
  Decoder(const uint16_t* src, int srcLen, uint8_t* dst, int capacity)
      : src_(src), srcLen_(srcLen), dst_(dst), capacity_(capacity) {}

  // Symbols of 2 and more stay in the source when the destination is full; the digits of a run that
  // does not fit are gone.
  ZebStatus run() {
    while (in_ < srcLen_) {
      decodeBulk();
      const int64_t zeros = readRun();
      const bool atEnd = in_ == srcLen_;
      const int64_t left = int64_t{room()} - zeros;
      if (left < (atEnd ? 0 : 1)) return zebWarnDstFull;
      kernels::memory().fill8(0, dst_ + out_, static_cast<int>(zeros));
      out_ += static_cast<int>(zeros);
      if (atEnd) return zebOk;
      dst_[out_++] = static_cast<uint8_t>(src_[in_++] - 1);
    }
    return zebOk;
  }

  int consumed() const { return in_; }
  int written() const { return out_; }

 private:
  int room() const { return capacity_ - out_; }

  void decodeBulk() {
    if (srcLen_ - in_ < static_cast<int>(kernels::zeroRunBlock)) return;
    const kernels::ZeroRunProgress bulk = kernels::zeroRuns().decode(
        src_ + in_, static_cast<size_t>(srcLen_ - in_), dst_ + out_, static_cast<size_t>(room()));
    in_ += static_cast<int>(bulk.consumed);
    out_ += static_cast<int>(bulk.written);
  }

  // The digits at the cursor, as the length of a run. More digits than any capacity needs saturate.
  int64_t readRun() {
    constexpr int mostDigits = 40;
    int64_t zeros = 0;
    for (int i = 0; in_ < srcLen_ && src_[in_] < 2; ++i) {
      const int64_t digit = src_[in_++] + 1;
      if (i < mostDigits) zeros += digit << i;
    }
    return zeros;
  }

  const uint16_t* src_;
  int srcLen_;
  uint8_t* dst_;
  int capacity_;
  int in_ = 0;
  int out_ = 0;
};

}  // namespace
}  // namespace zebdc::bzip2

ZEBDC_ENTRY(ZebStatus, zebsEncodeZ1Z2_BZ2_8u16u)
(const uint8_t** ppSrc, int* pSrcLen, uint16_t* pDst, int* pDstLen, uint32_t* pFreqTable) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
      pFreqTable == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1 || *pDstLen < 1) return zebErrSize;
  zebdc::bzip2::Encoder encoder(*ppSrc, *pSrcLen, pDst, *pDstLen, pFreqTable);
  encoder.run();
  *ppSrc += encoder.consumed();
  *pSrcLen -= encoder.consumed();
  *pDstLen = encoder.written();
  return *pSrcLen > 0 ? zebWarnDstFull : zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeZ1Z2_BZ2_16u8u)
(const uint16_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
      *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1 || *pDstLen < 1) return zebErrSize;
  zebdc::bzip2::Decoder decoder(*ppSrc, *pSrcLen, pDst, *pDstLen);
  const ZebStatus status = decoder.run();
  *ppSrc += decoder.consumed();
  *pSrcLen -= decoder.consumed();
  *pDstLen = decoder.written();
  return *pSrcLen > 0 ? zebWarnDstFull : status;
}
