// The record's history, in its two arrangements. The decoders that write bytes keep it circular:
// 32768 bytes, the next one to be overwritten at windowPos. So that it can also be read in a line,
// its first windowPos bytes stand behind it once more. The expansion of pairs keeps it linear:
// historyLen bytes from the window's beginning, the newest last.
#ifndef ZEBDC_INFLATE_HISTORY_H
#define ZEBDC_INFLATE_HISTORY_H

#include <stdint.h>

#include "inflate/decoder_state.h"

namespace zebdc::inflate {

// The bytes that a call wrote, and its room.
struct ByteOutput {
  ByteOutput(uint8_t* room, int roomLen) : begin(room), dst(room), end(room + roomLen) {}

  void save(uint8_t** ppDst, int* pDstLen) const {
    *ppDst = dst;
    *pDstLen = static_cast<int>(end - dst);
  }

  uint32_t written() const { return static_cast<uint32_t>(dst - begin); }
  uint32_t room() const { return static_cast<uint32_t>(end - dst); }

  uint8_t* const begin;
  uint8_t* dst;
  uint8_t* const end;
};

void enterCircularHistory(DecoderState& state, const uint8_t* bytes, uint32_t count);

// Copies the circle's bytes between a position and windowPos behind the circle.
void repeatCircle(DecoderState& state, uint32_t from);

void enterLinearHistory(DecoderState& state, const uint8_t* bytes, uint32_t count);

// Write a match, for which there must be room. What lies before this call's output comes from the
// history; no distance leads out of the window's area.
void copyFromCircular(const DecoderState& state, ByteOutput& out, uint32_t length,
                      uint32_t distance);
void copyFromLinear(const DecoderState& state, ByteOutput& out, uint32_t length, uint32_t distance);

}  // namespace zebdc::inflate

#endif
