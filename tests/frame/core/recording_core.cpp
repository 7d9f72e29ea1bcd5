#include "recording_core.h"

#include <stddef.h>
#include <stdlib.h>
#include <zebdc/zebcore.h>

namespace {

RecordingCore record;

// One block at a time, so that nothing is left behind whatever the caller does with it.
constexpr int arenaSize = 16 << 20;
alignas(64) unsigned char arena[arenaSize];

}  // namespace

extern "C" RecordingCore* recordingCore(void) {
  return &record;
}

extern "C" uint64_t recordingCoreFeatures(void) {
  const char* const text = getenv("ZEBDC_TEST_FEATURES");
  return text == nullptr ? 0 : strtoull(text, nullptr, 0);
}

extern "C" uint64_t zebGetEnabledCpuFeatures(void) {
  ++record.featureCalls;
  return recordingCoreFeatures();
}

extern "C" void* zebMalloc(int len) {
  ++record.mallocCalls;
  record.lastCount = len;
  record.lastBlock = record.failMalloc || len > arenaSize ? nullptr : arena;
  return record.lastBlock;
}

extern "C" void zebFree(void* p) {
  ++record.freeCalls;
  record.lastFreed = p;
}
