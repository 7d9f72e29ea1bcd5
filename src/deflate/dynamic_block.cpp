// The codes and the header of a dynamic block.

#include "deflate/dynamic_block.h"

#include <algorithm>

#include "deflate/pair_block.h"
#include "deflate/pair_codes.h"

namespace zebdc::deflate {
namespace {

void sumLiteralFrequencies(const PairFrequencies& counted, uint32_t* frequencies) {
  std::copy_n(counted.items, 256, frequencies);
  std::fill(frequencies + 256, frequencies + literalSymbols, 0u);
  frequencies[endOfBlock] = 1;
  for (uint32_t length = minMatch; length <= maxMatch; ++length) {
    frequencies[firstLengthSymbol + lengthSymbols[length - minMatch]] +=
        counted.items[kernels::matchItem(length)];
  }
}

void sumDistanceFrequencies(const PairFrequencies& counted, uint32_t* frequencies) {
  for (int symbol = 0; symbol < distanceSymbols; ++symbol) {
    frequencies[symbol] = counted.distances[classOfDistanceSymbol(symbol)];
  }
}

}  // namespace

PairFrequencies countFrequencies(const ZebLZ77Pair* pairs, size_t pairsLen) {
  PairFrequencies frequencies = {};
  kernels::pairCoding().count(pairs, pairsLen, frequencies.items, frequencies.distances);
  return frequencies;
}

uint64_t sourceBytes(const PairFrequencies& frequencies) {
  uint64_t bytes = 0;
  for (uint32_t byte = 0; byte < 256; ++byte) bytes += frequencies.items[byte];
  for (uint32_t length = minMatch; length <= maxMatch; ++length) {
    bytes += static_cast<uint64_t>(length) * frequencies.items[kernels::matchItem(length)];
  }
  return bytes;
}

void prepareDynamicBlock(EncoderState& state, const PairFrequencies& frequencies) {
  sumLiteralFrequencies(frequencies, state.literalFrequencies);
  sumDistanceFrequencies(frequencies, state.distanceFrequencies);

  uint8_t literalLengths[literalSymbols];
  uint8_t distanceLengths[distanceSymbols];
  findCodeLengths(state.literalFrequencies, literalSymbols, maxCodeLength, literalLengths);
  findCodeLengths(state.distanceFrequencies, distanceSymbols, maxCodeLength, distanceLengths);
  assignCodes(literalLengths, literalSymbols, state.literalCodes);
  assignCodes(distanceLengths, distanceSymbols, state.distanceCodes);
  spreadCodes(state.literalCodes, state.distanceCodes, state.itemCodes, state.distanceClassCodes);

  const int bits = buildDynamicHeader(literalLengths, distanceLengths,
                                      isLastBlock(state, state.lastFlush), state.huffWork);
  state.preparedHeaderBytes = static_cast<uint32_t>(bits + 7) / 8;
  state.preparedHeaderTail = static_cast<uint32_t>(bits - 1) % 8 + 1;
  state.headerBytesWritten = 0;
}

}  // namespace zebdc::deflate
