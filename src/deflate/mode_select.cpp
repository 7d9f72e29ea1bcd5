// The choice between a stored, a fixed and a dynamic block, by the bits that each would take.

#include "deflate/dynamic_block.h"
#include "deflate/pair_codes.h"
#include "frame/entry.h"

namespace zebdc::deflate {
namespace {

// The bits of all pairs: code bits by symbol, from a function, and extra bits. The end-of-block
// code is left out.
template <class LiteralBits, class DistanceBits>
uint64_t pairBits(const EncoderState& state, LiteralBits literalBits, DistanceBits distanceBits) {
  uint64_t bits = 0;
  for (int symbol = 0; symbol < endOfBlock; ++symbol) {
    bits += uint64_t{state.literalFrequencies[symbol]} * literalBits(symbol);
  }
  for (int symbol = firstLengthSymbol; symbol < literalSymbols; ++symbol) {
    const uint32_t extra = lengthCodes[static_cast<size_t>(symbol - firstLengthSymbol)].extraBits;
    bits += uint64_t{state.literalFrequencies[symbol]} * (literalBits(symbol) + extra);
  }
  for (int symbol = 0; symbol < distanceSymbols; ++symbol) {
    const uint32_t extra = distanceCodes[static_cast<size_t>(symbol)].extraBits;
    bits += uint64_t{state.distanceFrequencies[symbol]} * (distanceBits(symbol) + extra);
  }
  return bits;
}

uint64_t storedEstimate(const PairFrequencies& frequencies) {
  return 32 + 8 * sourceBytes(frequencies);
}

uint64_t fixedEstimate(const EncoderState& state) {
  return blockHeaderBits +
         pairBits(
             state, [](int symbol) { return static_cast<uint32_t>(fixedLiteralLength(symbol)); },
             [](int) { return uint32_t{fixedDistanceLength}; });
}

uint64_t dynamicEstimate(const EncoderState& state) {
  return blockHeaderBits + 8 * uint64_t{state.preparedHeaderBytes} +
         pairBits(
             state, [&](int symbol) { return state.literalCodes[symbol].count; },
             [&](int symbol) { return state.distanceCodes[symbol].count; });
}

ZebLZ77HuffMode chooseMode(uint64_t stored, uint64_t fixed, uint64_t dynamic) {
  if (stored < fixed && stored < dynamic) return zebLZ77HuffStored;
  return fixed >= dynamic ? zebLZ77HuffDynamic : zebLZ77HuffFixed;
}

bool isModePending(const EncoderState& state) {
  return state.altBitsActive != 0 && state.pendingMode != 0;
}

void selectMode(EncoderState& state, const ZebLZ77Pair* pairs, size_t pairsLen) {
  state.altBitBuffer = state.bitBuffer;
  state.altBitCount = state.bitCount;
  const PairFrequencies frequencies = countFrequencies(pairs, pairsLen);
  prepareDynamicBlock(state, frequencies);
  const ZebLZ77HuffMode mode =
      chooseMode(storedEstimate(frequencies), fixedEstimate(state), dynamicEstimate(state));
  state.pendingMode = 1 + static_cast<uint32_t>(mode);
  state.altBitsActive = 1;
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77SelectHuffMode_8u)
(const ZebLZ77Pair* pPairs, int pairsLen, ZebLZ77HuffMode* pHuffMode, ZebLZ77State_8u* pState) {
  if (pPairs == nullptr || pHuffMode == nullptr || pState == nullptr) return zebErrNullPtr;
  if (pairsLen < 0) return zebErrSize;
  EncoderState& state = encoderState(pState);
  if (!isModePending(state)) selectMode(state, pPairs, static_cast<size_t>(pairsLen));
  *pHuffMode = static_cast<ZebLZ77HuffMode>(state.pendingMode - 1);
  return zebOk;
}
