// Life of the decoder's record: size, initialisation, reset, stage, dictionary and copy.

#include "inflate/decoder_state.h"

#include <string.h>

#include "frame/entry.h"
#include "frame/memory.h"
#include "inflate/history.h"

namespace zebdc::inflate {
namespace {

void pointSubTables(DecoderState& state) {
  uint8_t* area = reinterpret_cast<uint8_t*>(state.tablesArea + decodeTableEntries);
  for (int i = 0; i < 4; ++i) {
    state.subTables[i] = area;
    area += subTablesBytes[i];
  }
}

void pointIntoStorage(DecoderState& state) {
  state.window = state.windowArea;
  state.codeLengths = state.codeLengthsArea;
  state.fixedLitLengths = state.fixedLitLengthsArea;
  state.decodeTable = state.tablesArea;
  pointSubTables(state);
}

// What Init and Reset have in common: a stream at its beginning.
void beginStream(DecoderState& state) {
  state.bitBuffer = 0;
  state.bitCount = 0;
  state.pairsInd = 0;
  state.pairsLen = ownPairs;
  state.windowPos = 0;
  state.historyLen = 0;
  state.blockState = betweenBlocks;
  state.storedRemaining = 0;
  state.storedHeld = 0;
  state.finalBlock = 0;
  state.streamEnded = 0;
  state.pendingLength = 0;
  state.pendingDistance = 0;
  state.litLenCount = 0;
  state.distanceCount = 0;
  state.codeLengthCount = 0;
  state.lengthsRead = 0;
  state.deflateStatus = zebLZ77StatusIdle;
  for (uint32_t*& cursor : state.cursors) cursor = state.decodeTable;
}

// The last bytes of the dictionary, so that they end at the middle of the window: there the linear
// history of 32768 bytes ends, and the circular one that stands at position 0 too.
void setDictionary(DecoderState& state, const uint8_t* dict, int dictLen) {
  const int kept = dictLen < historyBytes ? dictLen : historyBytes;
  memcpy(state.window + historyBytes - kept, dict + (dictLen - kept), static_cast<size_t>(kept));
  state.historyLen = historyBytes;
  repeatCircle(state, 0);
}

// The place in the target's table of a cursor into the source's, on a whole entry.
uint32_t* movedCursor(const uint32_t* cursor, const uint32_t* sourceTable, uint32_t* targetTable) {
  const intptr_t distance =
      reinterpret_cast<intptr_t>(cursor) - reinterpret_cast<intptr_t>(sourceTable);
  return targetTable + (distance >> 2);
}

}  // namespace

void initDecoder(DecoderState& state, ZebLZ77Checksum checksumKind) {
  pointIntoStorage(state);
  beginStream(state);
  state.pairs = state.pairsArea;
  state.checksumKind = checksumKind;
  state.blockKind = zebLZ77BlockFixed;
  memset(state.codeLengthLengths, 0, sizeof state.codeLengthLengths);
  memset(state.codeLengthTable, 0, sizeof state.codeLengthTable);
}

void resetDecoder(DecoderState& state) {
  beginStream(state);
  state.window = state.windowArea;
  fill16(0, state.codeLengths, codeLengthEntries);
  fill16(0, state.fixedLitLengths, fixedLengthEntries);
  zeroBytes(reinterpret_cast<uint8_t*>(state.tablesArea), sizeof state.tablesArea);
  pointSubTables(state);
}

void copyDecoder(const DecoderState& source, DecoderState& target) {
  if (&source == &target) return;
  DecoderState* const self = &target;
  ZebLZ77Pair* const ownPairsBuffer = target.pairs;
  *static_cast<DecoderFields*>(self) = source;
  target.pairs = ownPairsBuffer;
  pointIntoStorage(target);
  for (int i = 0; i < 3; ++i) {
    target.cursors[i] = movedCursor(source.cursors[i], source.decodeTable, target.decodeTable);
  }
  memcpy(target.windowArea, source.windowArea, sizeof target.windowArea);
  memcpy(target.pairsArea, source.pairsArea, sizeof target.pairsArea);
  memcpy(target.cell, source.cell, sizeof target.cell);
  memcpy(target.codeLengthsArea, source.codeLengthsArea, sizeof target.codeLengthsArea);
  memcpy(target.fixedLitLengthsArea, source.fixedLitLengthsArea, sizeof target.fixedLitLengthsArea);
  memcpy(target.tablesArea, source.tablesArea, sizeof target.tablesArea);
}

}  // namespace zebdc::inflate

using namespace zebdc;
using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77GetSize_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = decoderStateBytes;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77Init_8u)
(ZebLZ77Checksum checksum, ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  initDecoder(decoderState(pState), checksum);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77InitAlloc_8u)
(ZebLZ77Checksum checksum, ZebLZ77State_8u** ppState) {
  return initAllocChecked(
      ppState, zebdcEntry_zebsDecodeLZ77GetSize_8u,
      [&](ZebLZ77State_8u* state) { initDecoder(decoderState(state), checksum); });
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77Reset_8u)(ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  resetDecoder(decoderState(pState));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77SetStatus_8u)
(ZebLZ77DeflateStatus status, ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  pState->deflateStatus = status;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77SetDictionary_8u)
(const uint8_t* pDict, int dictLen, ZebLZ77State_8u* pState) {
  if (pDict == nullptr || pState == nullptr) return zebErrNullPtr;
  if (dictLen < 1) return zebErrSize;
  setDictionary(decoderState(pState), pDict, dictLen);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77CopyState_8u)
(const ZebLZ77State_8u* pSrc, ZebLZ77State_8u* pDst) {
  if (pSrc == nullptr || pDst == nullptr) return zebErrNullPtr;
  copyDecoder(decoderState(pSrc), decoderState(pDst));
  return zebOk;
}
