// The first stage of a bzip2 block: four equal bytes are followed by a byte that counts the further
// ones.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "frame/memory.h"
#include "kernels/memory.h"
#include "kernels/run_scan.h"

struct ZebRLEState_BZ2 {
  uint8_t inUse[256];  // encoder: 1 for each byte value written
  int32_t value;       // encoder: the last byte read; decoder: the byte of the pending run; or -1
  int32_t count;  // encoder: the length of the run that is open; decoder: bytes of the pending run
};

namespace zebdc::bzip2 {
namespace {

static_assert(sizeof(ZebRLEState_BZ2) == 264);

constexpr int groupSize = 4;                 // equal bytes that announce a count byte
constexpr int longestRun = groupSize + 255;  // as far as one count byte reaches
constexpr int countedSize = groupSize + 1;   // a group with its count byte

// ---- Encoding -----------------------------------------------------------------------------------

ZebStatus initEncoder(ZebRLEState_BZ2* state) {
  if (state == nullptr) return zebErrNullPtr;
  memset(state->inUse, 0, sizeof state->inUse);
  state->value = -1;
  state->count = 0;
  return zebOk;
}

// One encoder call: cursors into its buffers and the run that is open.
class Encoder {
 public:
  Encoder(const uint8_t* src, int srcLen, uint8_t* dst, int capacity, ZebRLEState_BZ2& state)
      : src_(src), srcLen_(srcLen), dst_(dst), capacity_(capacity), state_(state) {}

  void run() {
    for (;;) {
      copyUntilRun();
      if (state_.count < groupSize || out_ == capacity_) return;
      extendRun();
      if (in_ == srcLen_) return;  // more of the run may follow in the next call
      put(static_cast<uint8_t>(state_.count - groupSize));
      state_.count = 0;
    }
  }

  int consumed() const { return in_; }
  int written() const { return out_; }

 private:
  void put(uint8_t byte) {
    dst_[out_++] = byte;
    state_.inUse[byte] = 1;
  }

  void putNext() {
    const uint8_t byte = src_[in_++];
    put(byte);
    state_.count = byte == state_.value ? state_.count + 1 : 1;
    state_.value = byte;
  }

  // Until the fourth byte of a run is written, or source or room ends.
  void copyUntilRun() {
    while (state_.count < groupSize && in_ < srcLen_ && out_ < capacity_) {
      const bool runGoesOn = state_.count > 0 && src_[in_] == state_.value;
      if (runGoesOn || !copyStretch()) putNext();
    }
  }

  // The next byte begins a run: copies up to the first run of four, or all bytes but three. False
  // if there are too few.
  bool copyStretch() {
    const int starts = std::min(srcLen_ - in_, capacity_ - out_) - (groupSize - 1);
    if (starts < 1) return false;
    const size_t copied =
        kernels::runScan().copyToRun(src_ + in_, static_cast<size_t>(starts), dst_ + out_);
    if (copied == 0) return false;
    for (size_t i = 0; i < copied; ++i) state_.inUse[src_[in_ + static_cast<int>(i)]] = 1;
    const int begin = in_;
    in_ += static_cast<int>(copied);
    out_ += static_cast<int>(copied);
    state_.value = src_[in_ - 1];
    state_.count = 1;
    while (in_ - state_.count > begin && src_[in_ - state_.count - 1] == state_.value) {
      ++state_.count;
    }
    return true;
  }

  void extendRun() {
    const int begin = in_;
    const int end = begin + std::min(longestRun - state_.count, srcLen_ - begin);
    while (in_ < end && src_[in_] == state_.value) ++in_;
    state_.count += in_ - begin;
  }

  const uint8_t* src_;
  int srcLen_;
  uint8_t* dst_;
  int capacity_;
  ZebRLEState_BZ2& state_;
  int in_ = 0;
  int out_ = 0;
};

// ---- Decoding -----------------------------------------------------------------------------------

// Source and destination of one decoder call.
struct Cursors {
  const uint8_t* src;
  int srcLen;
  uint8_t* dst;
  int capacity;
  int in = 0;
  int out = 0;

  int room() const { return capacity - out; }
  int left() const { return srcLen - in; }

  bool groupAt(int at, uint8_t byte) const {
    return src[at] == byte && src[at + 1] == byte && src[at + 2] == byte && src[at + 3] == byte;
  }

  void copy(int count) {
    if (count < 1) return;
    memcpy(dst + out, src + in, static_cast<size_t>(count));
    in += count;
    out += count;
  }

  void fill(uint8_t byte, int count) {
    kernels::memory().fill8(byte, dst + out, count);
    out += count;
  }

  // Copies up to limit bytes, but stops at the first group of four equal bytes that begins at one
  // of the first `starts` positions and tells whether there is one. Three bytes of source follow
  // these positions.
  bool copyToGroup(int starts, int limit) {
    if (starts > 0) {
      const int copied = static_cast<int>(
          kernels::runScan().copyToRun(src + in, static_cast<size_t>(starts), dst + out));
      in += copied;
      out += copied;
      if (copied < starts) return true;
      limit -= copied;
    }
    copy(limit);
    return false;
  }
};

// Whole blocks: what follows a group, or a full destination, is a count byte.
ZebStatus decodeBlock(Cursors& c) {
  for (;;) {
    const int limit = std::min(c.left(), c.room());
    if (c.copyToGroup(limit - (groupSize - 1), limit)) c.copy(groupSize);
    if (c.left() == 0) return c.room() == 0 ? zebWarnDstFull : zebOk;
    const int further = c.src[c.in++];
    if (further > c.room()) return zebWarnDstFull;
    c.fill(c.dst[c.out - 1], further);
  }
}

// A run that was read and is still to be written.
struct PendingRun {
  uint8_t byte;
  int count;
};

// Adds the groups of the same byte that follow the cursor at once, count bytes and all, while they
// begin before `end`, which lies four bytes or more before the source's end.
void mergeGroups(Cursors& c, int end, PendingRun& run) {
  while (c.in < end && c.groupAt(c.in, run.byte) && run.count <= INT32_MAX - longestRun) {
    run.count += groupSize + c.src[c.in + groupSize];
    c.in += countedSize;
  }
}

void keep(const PendingRun& run, ZebRLEState_BZ2& state) {
  state.value = run.byte;
  state.count = run.count;
}

// The destination became full. The byte written last may be the first of a group whose other three
// come next; the rule is applied whatever that byte was.
void lookAhead(Cursors& c, ZebRLEState_BZ2& state) {
  constexpr int others = groupSize - 1;
  const uint8_t byte = c.dst[c.out - 1];
  const uint8_t* const next = c.src + c.in;
  if (c.left() < 2 * others || next[0] != byte || next[1] != byte || next[2] != byte) return;
  PendingRun run = {byte, others + next[others]};
  c.in += others + 1;
  mergeGroups(c, c.srcLen - groupSize, run);
  keep(run, state);
}

// Groups are looked for where their count byte lies inside the source; three bytes at its end are
// left to the caller.
ZebStatus scan(Cursors& c, ZebRLEState_BZ2& state) {
  const int scanEnd = c.srcLen - 3;
  const int groupEnd = c.srcLen - groupSize;
  while (c.in < scanEnd && c.room() > 0) {
    const int limit = std::min(scanEnd - c.in, c.room());
    if (!c.copyToGroup(std::min(groupEnd - c.in, limit), limit)) continue;
    PendingRun run = {c.src[c.in], 0};
    mergeGroups(c, groupEnd, run);
    const int written = std::min(run.count, c.room());
    c.fill(run.byte, written);
    run.count -= written;
    if (run.count > 0) {
      keep(run, state);
      return zebWarnDstFull;
    }
  }
  if (c.room() > 0) return zebOk;
  lookAhead(c, state);
  return zebWarnDstFull;
}

ZebStatus flushPending(Cursors& c, ZebRLEState_BZ2& state) {
  const int written = std::clamp(state.count, 0, c.room());
  c.fill(static_cast<uint8_t>(state.value), written);
  state.count -= written;
  if (state.count > 0) return zebWarnDstFull;
  state.value = -1;
  return zebOk;
}

ZebStatus decodePiece(Cursors& c, ZebRLEState_BZ2& state) {
  if (flushPending(c, state) != zebOk) return zebWarnDstFull;
  if (c.srcLen > 3) {
    if (const ZebStatus status = scan(c, state); status != zebOk) return status;
  }
  c.copy(std::min(c.left(), c.room()));
  return zebOk;
}

}  // namespace
}  // namespace zebdc::bzip2

using namespace zebdc::bzip2;

ZEBDC_ENTRY(ZebStatus, zebsRLEGetSize_BZ2_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = sizeof(ZebRLEState_BZ2);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeRLEInit_BZ2_8u)(ZebRLEState_BZ2* pState) {
  return initEncoder(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeRLEInitAlloc_BZ2_8u)(ZebRLEState_BZ2** ppState) {
  if (ppState == nullptr) return zebErrNullPtr;
  return zebdc::initAllocUnchecked(ppState, sizeof(ZebRLEState_BZ2), initEncoder);
}

ZEBDC_ENTRY(void, zebsRLEFree_BZ2_8u)(ZebRLEState_BZ2* pState) {
  zebdc::release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeRLE_BZ2_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen, ZebRLEState_BZ2* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1 || *pDstLen < 1) return zebErrSize;
  Encoder encoder(*ppSrc, *pSrcLen, pDst, *pDstLen, *pState);
  encoder.run();
  *ppSrc += encoder.consumed();
  *pSrcLen -= encoder.consumed();
  *pDstLen = encoder.written();
  return *pSrcLen > 0 ? zebWarnDstFull : zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeRLEFlush_BZ2_8u)
(uint8_t* pDst, int* pDstLen, ZebRLEState_BZ2* pState) {
  if (pDst == nullptr || pDstLen == nullptr || pState == nullptr) return zebErrNullPtr;
  if (*pDstLen < 1) return zebErrSize;
  *pDstLen = 0;
  if (pState->count < groupSize) return zebOk;
  const uint8_t further = static_cast<uint8_t>(pState->count - groupSize);
  *pDst = further;
  pState->inUse[further] = 1;
  pState->count = 0;
  *pDstLen = 1;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsRLEGetInUseTable_8u)(uint8_t* pInUse, const ZebRLEState_BZ2* pState) {
  if (pInUse == nullptr || pState == nullptr) return zebErrNullPtr;
  memmove(pInUse, pState->inUse, sizeof pState->inUse);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeRLE_BZ2_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
      *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 1 || *pSrcLen < 0) return zebErrSize;
  if (*pSrcLen == 0) {
    *pDstLen = 0;
    return zebOk;
  }
  Cursors cursors = {*ppSrc, *pSrcLen, pDst, *pDstLen};
  const ZebStatus status = decodeBlock(cursors);
  *ppSrc += cursors.in;
  *pSrcLen -= cursors.in;
  *pDstLen = cursors.out;
  return status;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeRLEStateInit_BZ2_8u)(ZebRLEState_BZ2* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  pState->value = -1;
  pState->count = 0;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeRLEState_BZ2_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebRLEState_BZ2* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1 || *pDstLen < 1) return zebErrSize;
  Cursors cursors = {*ppSrc, *pSrcLen, *ppDst, *pDstLen};
  const ZebStatus status = decodePiece(cursors, *pState);
  *ppSrc += cursors.in;
  *pSrcLen -= cursors.in;
  *ppDst += cursors.out;
  *pDstLen -= cursors.out;
  return status;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeRLEStateFlush_BZ2_8u)
(ZebRLEState_BZ2* pState, uint8_t** ppDst, int* pDstLen) {
  if (pState == nullptr || ppDst == nullptr || pDstLen == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  Cursors cursors = {nullptr, 0, *ppDst, std::max(*pDstLen, 0)};
  const ZebStatus status = flushPending(cursors, *pState);
  *ppDst += cursors.out;
  *pDstLen -= cursors.out;
  return status;
}
