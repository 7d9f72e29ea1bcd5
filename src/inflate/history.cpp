#include "inflate/history.h"

#include <string.h>

namespace zebdc::inflate {
namespace {

constexpr uint32_t circleMask = historyBytes - 1;
constexpr uint32_t areaMask = windowAreaBytes - 1;
static_assert((historyBytes & circleMask) == 0 && (windowAreaBytes & areaMask) == 0);

uint32_t lesser(uint32_t a, uint32_t b) {
  return a < b ? a : b;
}

// Writes a match of which the part before this call's output stands in the window, its last byte
// at historyEnd - 1, positions being taken modulo the mask.
void copyMatch(const uint8_t* window, uint32_t historyEnd, uint32_t positionMask, ByteOutput& out,
               uint32_t length, uint32_t distance) {
  if (distance > out.written()) {
    const uint32_t behind = distance - out.written();
    const uint32_t fromHistory = lesser(behind, length);
    for (uint32_t i = 0; i < fromHistory; ++i) {
      *out.dst++ = window[(historyEnd - behind + i) & positionMask];
    }
    length -= fromHistory;
  }
  for (; length > 0; --length, ++out.dst) *out.dst = *(out.dst - distance);
}

}  // namespace

void enterCircularHistory(DecoderState& state, const uint8_t* bytes, uint32_t count) {
  if (count == 0) return;
  if (count >= historyBytes) {
    memcpy(state.window, bytes + (count - historyBytes), historyBytes);
    state.windowPos = 0;
    return;
  }
  const uint32_t position = static_cast<uint32_t>(state.windowPos);
  const uint32_t untilWrap = lesser(count, historyBytes - position);
  memcpy(state.window + position, bytes, untilWrap);
  memcpy(state.window, bytes + untilWrap, count - untilWrap);
  state.windowPos = static_cast<int32_t>((position + count) & circleMask);
  const bool wrapped = position + count >= historyBytes;
  repeatCircle(state, wrapped ? 0 : position);
}

void repeatCircle(DecoderState& state, uint32_t from) {
  const uint32_t position = static_cast<uint32_t>(state.windowPos);
  memcpy(state.window + historyBytes + from, state.window + from, position - from);
}

void enterLinearHistory(DecoderState& state, const uint8_t* bytes, uint32_t count) {
  if (count == 0) return;
  const uint32_t entered = lesser(count, historyBytes);
  const uint32_t kept = lesser(static_cast<uint32_t>(state.historyLen), historyBytes - entered);
  memmove(state.window, state.window + state.historyLen - kept, kept);
  memcpy(state.window + kept, bytes + (count - entered), entered);
  state.historyLen = static_cast<int32_t>(kept + entered);
}

void copyFromCircular(const DecoderState& state, ByteOutput& out, uint32_t length,
                      uint32_t distance) {
  copyMatch(state.window, static_cast<uint32_t>(state.windowPos), circleMask, out, length,
            distance);
}

void copyFromLinear(const DecoderState& state, ByteOutput& out, uint32_t length,
                    uint32_t distance) {
  copyMatch(state.window, static_cast<uint32_t>(state.historyLen), areaMask, out, length, distance);
}

}  // namespace zebdc::inflate
