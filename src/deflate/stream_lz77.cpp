// Match finding and hashing for callers that keep window, hash tables and output arrays of their
// own.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "frame/substitution_tables.h"
#include "kernels/stream_match.h"

namespace zebdc::deflate {
namespace {

using kernels::StreamSearch;

constexpr uint32_t minSize = 256;  // of windows and hash tables
constexpr uint32_t maxWindowSize = 32768;
constexpr uint32_t maxHashSize = 65536;
constexpr uint32_t hashedBytes = 3;
// A dictionary's last positions are left out of the tables: their matches would run past its end.
constexpr uint32_t dictionaryTail = 258;
constexpr int firstLazyLevel = 5;
constexpr int maxLevel = 9;

// Chosen so that each level codes the usual test files no larger than the best-known deflate
// compressor's level of the same number.
constexpr StreamSearch searches[maxLevel + 1] = {
    {},
    // greedy: candidates, nice length, length entered, -, -, farthest of 3 bytes
    {3, 8, 5, 0, 0, 4096},
    {5, 16, 6, 0, 0, 4096},
    {8, 32, 16, 0, 0, 4096},
    {24, 64, 64, 0, 0, 4096},
    // lazy: candidates, nice length, -, lazy length, good length, farthest of 3 bytes
    {24, 32, 0, 16, 8, 4096},
    {48, 128, 0, 16, 8, 4096},
    {96, 128, 0, 32, 8, 4096},
    {512, 258, 0, 128, 32, 4096},
    {1024, 258, 0, 258, 32, 4096},
};

bool sizesFit(uint32_t winSize, uint32_t hashSize) {
  return winSize >= minSize && winSize <= maxWindowSize && hashSize >= minSize &&
         hashSize <= maxHashSize;
}

// Enters count positions; all their three bytes are there.
void enterChained(const uint8_t* src, uint32_t position, uint32_t count, uint32_t* head,
                  uint32_t hashMask, uint32_t* chain, uint32_t windowMask) {
  for (uint32_t i = 0; i < count; ++i, ++position) {
    const uint32_t hash = wideHash(src[i], src[i + 1], src[i + 2]) & hashMask;
    chain[position & windowMask] = head[hash];
    head[hash] = position;
  }
}

void enterRolling(const uint8_t* src, uint32_t position, uint32_t count, uint32_t* head,
                  uint32_t hashMask) {
  uint32_t hash = (static_cast<uint32_t>(src[0]) << 5) ^ src[1];
  for (uint32_t i = 0; i < count; ++i, ++position) {
    hash = ((hash << 5) ^ src[i + 2]) & hashMask;
    head[hash] = position;
  }
}

void enter(const uint8_t* src, uint32_t position, uint32_t count, uint32_t* head, uint32_t hashSize,
           uint32_t* chain, uint32_t winSize, int level) {
  if (level > 0) {
    enterChained(src, position, count, head, hashSize - 1, chain, winSize - 1);
  } else {
    enterRolling(src, position, count, head, hashSize - 1);
  }
}

void find(kernels::StreamMatchRun& run, int level) {
  const kernels::StreamMatchKernels& kernel = kernels::streamMatch();
  if (level == 0) {
    kernel.findSingle(run);
  } else if (level < firstLazyLevel) {
    kernel.findGreedy(run, searches[level]);
  } else {
    kernel.findLazy(run, searches[level]);
  }
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsDeflateUpdateHash_8u)
(const uint8_t* pSrc, uint32_t srcIdx, uint32_t srcLen, uint32_t* pHashHead, uint32_t hashSize,
 uint32_t* pHashPrev, uint32_t winSize, int comprLevel) {
  if (srcLen < deflate::hashedBytes) return zebOk;
  if (pSrc == nullptr || pHashHead == nullptr || pHashPrev == nullptr) return zebErrNullPtr;
  if (!deflate::sizesFit(winSize, hashSize)) return zebErrSize;
  deflate::enter(pSrc, srcIdx, srcLen - 2, pHashHead, hashSize, pHashPrev, winSize, comprLevel);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDeflateDictionarySet_8u)
(const uint8_t* pDict, uint32_t dictLen, uint32_t* pHashHead, int hashSize, uint32_t* pHashPrev,
 uint8_t* pWindow, uint32_t winSize, int comprLevel) {
  if (dictLen < deflate::hashedBytes) return zebOk;
  if (pDict == nullptr || pHashHead == nullptr || pHashPrev == nullptr || pWindow == nullptr) {
    return zebErrNullPtr;
  }
  // A negative hash size becomes one above the limit.
  if (!deflate::sizesFit(winSize, static_cast<uint32_t>(hashSize))) return zebErrSize;
  const uint32_t count = std::min(dictLen, winSize);
  memcpy(pWindow, pDict + (dictLen - count), count);
  if (count < deflate::dictionaryTail) return zebOk;
  deflate::enter(pWindow, 0, count - deflate::dictionaryTail + 1, pHashHead,
                 static_cast<uint32_t>(hashSize), pHashPrev, winSize, comprLevel);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDeflateLZ77_8u)
(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx, const uint8_t* pWindow,
 uint32_t winSize, uint32_t* pHashHead, uint32_t* pHashPrev, uint32_t hashSize, uint32_t* pLitFreq,
 uint32_t* pDistFreq, uint8_t* pLitDst, uint16_t* pDistDst, uint32_t* pDstLen, int comprLevel,
 int /*flush*/) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pSrcIdx == nullptr || pWindow == nullptr ||
      pHashHead == nullptr || pHashPrev == nullptr || pLitFreq == nullptr || pDistFreq == nullptr ||
      pLitDst == nullptr || pDistDst == nullptr || pDstLen == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (!deflate::sizesFit(winSize, hashSize) || comprLevel < 0 || comprLevel > deflate::maxLevel) {
    return zebErrSize;
  }
  kernels::StreamMatchRun run = {};
  run.src = *ppSrc;
  run.srcLen = *pSrcLen;
  run.srcPosition = *pSrcIdx;
  run.window = pWindow;
  run.windowSize = winSize;
  run.head = pHashHead;
  run.chain = pHashPrev;
  run.hashMask = hashSize - 1;
  run.literalFrequencies = pLitFreq;
  run.distanceFrequencies = pDistFreq;
  run.literals = pLitDst;
  run.distances = pDistDst;
  run.room = *pDstLen;
  deflate::find(run, comprLevel);
  *ppSrc += run.consumed;
  *pSrcLen -= run.consumed;
  *pSrcIdx += run.consumed;
  *pDstLen = run.written;
  return *pSrcLen == 0 ? zebOk : zebWarnDstFull;
}
