// Life of the encoder's record: size, initialisation, reset and stage.

#include "deflate/encoder_state.h"

#include "deflate/match_tables.h"
#include "frame/entry.h"
#include "frame/memory.h"
#include "frame/substitution_tables.h"

namespace zebdc::deflate {
namespace {

// What Init and Reset have in common: a stream at its beginning.
void beginStream(EncoderState& state) {
  state.callSrcLen = 0;
  state.dstCursor = nullptr;
  state.dstRemaining = 0;
  state.checksum = 0;
  state.windowPos = 0;
  state.bitBuffer = 0;
  state.bitCount = 0;
  state.pendingMode = 0;
  state.headerOwed = 0;
  state.preparedHeaderBytes = 0;
  state.preparedHeaderTail = 0;
  state.headerBytesWritten = 0;
  state.trailerWritten = 0;
  state.lastFlush = 0;
  state.storedPhase = 0;
  state.storedRemaining = 0;
  state.pairsInd = 0;
  state.pairsLen = ownPairs;
  state.historyBase = state.history;
  forgetPositions(state);
}

void pointIntoStorage(EncoderState& state) {
  EncoderStorage& storage = *reinterpret_cast<EncoderStorage*>(&state + 1);
  state.chainTable = storage.chainTable;
  state.headTable = storage.headTable;
  state.history = storage.history;
  state.pairs = storage.pairs;
  state.trailer = storage.trailer;
  state.itemCodes = reinterpret_cast<uint32_t*>(storage.itemCodes);
  state.literalCodes = reinterpret_cast<OutputBits*>(storage.literalCodes);
  state.distanceClassCodes = reinterpret_cast<uint64_t*>(storage.distanceClassCodes);
  state.distanceCodes = reinterpret_cast<OutputBits*>(storage.distanceCodes);
  state.literalFrequencies = reinterpret_cast<uint32_t*>(storage.literalFrequencies);
  state.distanceFrequencies = reinterpret_cast<uint32_t*>(storage.distanceFrequencies);
  state.huffWork = storage.huffWork;
}

}  // namespace

void initEncoder(EncoderState& state, ZebLZ77ComprLevel level, ZebLZ77Checksum checksumKind) {
  const bool known = level == zebLZ77LevelFast || level == zebLZ77LevelBest;
  state.comprLevel = known ? level : zebLZ77LevelAverage;
  state.checksumKind = checksumKind;
  state.levelTable = threeByteHashRows.data();
  pointIntoStorage(state);
  beginStream(state);
  emptyTable(state.chainTable, windowSize);
  state.deflateStatus = zebLZ77StatusIdle;
  state.blockPhase = 0;
  state.altBitsActive = 0;
  state.altBitBuffer = 0;
  state.altBitCount = 0;
}

void resetEncoder(EncoderState& state) {
  beginStream(state);
}

void setEncoderStatus(EncoderState& state, ZebLZ77DeflateStatus status) {
  state.deflateStatus = status;
  if (status == zebLZ77StatusCoding) {
    state.blockPhase = phaseBlockBegin;
    state.pairsLen = state.pairsInd;
    state.pairsInd = 0;
  } else if (status == zebLZ77StatusMatching) {
    state.pairsInd = 0;
    state.pairsLen = ownPairs;
  }
}

}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77GetSize_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = encoderStateBytes;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77Init_8u)
(ZebLZ77ComprLevel level, ZebLZ77Checksum checksum, ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  initEncoder(encoderState(pState), level, checksum);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77InitAlloc_8u)
(ZebLZ77ComprLevel level, ZebLZ77Checksum checksum, ZebLZ77State_8u** ppState) {
  return initAllocChecked(
      ppState, zebdcEntry_zebsEncodeLZ77GetSize_8u,
      [&](ZebLZ77State_8u* state) { initEncoder(encoderState(state), level, checksum); });
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77Reset_8u)(ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  resetEncoder(encoderState(pState));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77SetStatus_8u)
(ZebLZ77DeflateStatus status, ZebLZ77State_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  setEncoderStatus(encoderState(pState), status);
  return zebOk;
}
