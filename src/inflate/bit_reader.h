// The input of one call: the caller's source and the record's bit buffer.
#ifndef ZEBDC_INFLATE_BIT_READER_H
#define ZEBDC_INFLATE_BIT_READER_H

#include <stdint.h>

#include "frame/bytes.h"
#include "inflate/decoder_state.h"

namespace zebdc::inflate {

class BitReader {
 public:
  // At least so many bits are in hand after refill, while the source lasts: enough for a length, a
  // distance and the extra bits of both, 15 + 5 + 15 + 13.
  static constexpr int refilledBits = 57;

  BitReader(const DecoderState& state, const uint8_t* source, int sourceLen)
      : begin(source),
        src(source),
        end(source + sourceLen),
        bits(state.bitBuffer),
        count(state.bitCount) {}

  // Gives cursor and bit buffer back to the caller and to the record.
  void save(DecoderState& state, const uint8_t** ppSrc, int* pSrcLen) const {
    state.bitBuffer = bits;
    state.bitCount = count;
    *ppSrc = src;
    *pSrcLen = static_cast<int>(end - src);
  }

  bool sourceEmpty() const { return src == end; }

  void takeByte() {
    bits |= uint64_t{*src++} << count;
    count += 8;
  }

  // Takes bytes until wanted bits are in hand. False when the source does not suffice: what there
  // was is in hand.
  bool want(int wanted) {
    while (count < wanted) {
      if (sourceEmpty()) return false;
      takeByte();
    }
    return true;
  }

  // Takes bytes until 57 to 64 bits are in hand or the source is empty. For every position in the
  // stream the count that results is the same, whatever way led there.
  void refill() {
    if (count >= refilledBits) return;
    if (end - src >= 8) {
      const int bytes = (64 - count) / 8;
      const uint64_t taken = load<uint64_t>(src) & (~uint64_t{0} >> (64 - 8 * bytes));
      bits |= taken << count;
      count += 8 * bytes;
      src += bytes;
    } else {
      while (count < refilledBits && !sourceEmpty()) takeByte();
    }
  }

  uint32_t peek(int width) const { return static_cast<uint32_t>(bits & ((1u << width) - 1)); }

  void consume(int width) {
    bits = width < 64 ? bits >> width : 0;
    count -= width;
  }

  void alignToByte() { consume(count & 7); }

  // Returns up to maxBytes whole bytes to the source.
  void giveBack(ptrdiff_t maxBytes) {
    const ptrdiff_t whole = count / 8;
    const int bytes = static_cast<int>(whole < maxBytes ? whole : maxBytes);
    src -= bytes;
    count -= 8 * bytes;
    bits &= count > 0 ? ~uint64_t{0} >> (64 - count) : 0;
  }

  // Returns the whole bytes that were taken in this call.
  void giveBackOwn() { giveBack(src - begin); }

  // At the end of the stream: returns every whole byte, also those of earlier calls, and drops the
  // rest of the last one.
  void giveBackAll() {
    giveBack(8);
    bits = 0;
    count = 0;
  }

  const uint8_t* begin;  // where the source stood when the call began
  const uint8_t* src;
  const uint8_t* end;
  uint64_t bits;  // 0 above count
  int count;
};

}  // namespace zebdc::inflate

#endif
