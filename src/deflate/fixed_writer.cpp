// Blocks under the fixed codes (RFC 1951, 3.2.6).
//
// Example: the last block of a stream, with the byte 'a' alone.
//
//   1 10       BFINAL, and BTYPE 01 from its lowest bit
//   10010001   'a': the code 0x30 + 0x61 from its highest bit
//   0000000    the end of the block
//
//   As bytes, filled from the lowest bit: 11010010 00100000 00 = 4B 04 00.

#include "deflate/pair_block.h"
#include "deflate/pair_codes.h"
#include "frame/entry.h"

namespace zebdc::deflate {
namespace {

struct FixedCodes {
  std::array<uint32_t, kernels::pairItems> items{};
  std::array<uint64_t, kernels::distanceClasses> distances{};
};

// The fixed literal code is canonical over 288 symbols, of which 286 and 287 never occur.
constexpr FixedCodes makeFixedCodes() {
  std::array<OutputBits, literalSymbols> literals{};
  for (int symbol = 0; symbol < literalSymbols; ++symbol) {
    const int length = fixedLiteralLength(symbol);
    const int code = symbol < 144   ? 0x30 + symbol
                     : symbol < 256 ? 0x190 + (symbol - 144)
                     : symbol < 280 ? symbol - 256
                                    : 0xC0 + (symbol - 280);
    literals[static_cast<size_t>(symbol)] = {reversedBits(static_cast<uint32_t>(code), length),
                                             static_cast<uint32_t>(length)};
  }
  std::array<OutputBits, distanceSymbols> distances{};
  for (int symbol = 0; symbol < distanceSymbols; ++symbol) {
    distances[static_cast<size_t>(symbol)] = {
        reversedBits(static_cast<uint32_t>(symbol), fixedDistanceLength), fixedDistanceLength};
  }
  FixedCodes codes;
  spreadCodes(literals.data(), distances.data(), codes.items.data(), codes.distances.data());
  return codes;
}

constexpr FixedCodes fixedCodes = makeFixedCodes();
constexpr uint32_t endOfBlockBits = fixedLiteralLength(endOfBlock);  // all zero

ZebStatus writeFixedBlock(EncoderState& state, PairCall& call) {
  BitSink& sink = call.sink;
  if (state.blockPhase == phaseBlockBegin) state.headerOwed = 1;
  if (sink.room == 0) return blockCut(state);

  state.altBitsActive = 0;
  drain(sink);
  if (call.pairsLeft == 0 && state.headerOwed == 0) return finishPending(state, call);
  if (!drained(sink)) return blockCut(state);
  if (state.headerOwed != 0) {
    put(sink, blockHeader(fixedBlock, isLastBlock(state, call.flush)), blockHeaderBits);
    state.headerOwed = 0;
  }
  if (!codePairs({fixedCodes.items.data(), fixedCodes.distances.data()}, call)) {
    return blockCut(state);
  }
  put(sink, 0, endOfBlockBits);
  return finishBlock(state, call);
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77FixedHuff_8u)
(ZebLZ77Pair** ppPairs, int* pPairsLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  return runPairWriter(ppPairs, pPairsLen, ppDst, pDstLen, flush, pState, writeFixedBlock);
}
