// A core library for tests that notes how it is called. Where the loader lets an application put
// its own definitions in front of the core library's, it is part of the test program; on Windows it
// is a zebcore-8.2.dll of the tests' own.
#ifndef ZEBDC_TESTS_FRAME_CORE_RECORDING_CORE_H
#define ZEBDC_TESTS_FRAME_CORE_RECORDING_CORE_H

#include <stdint.h>

struct RecordingCore {
  int featureCalls;
  int mallocCalls;
  int lastCount;  // the argument of the last zebMalloc
  void* lastBlock;
  int freeCalls;
  void* lastFreed;
  bool failMalloc;
};

#if defined(_WIN32)
#define RECORDING_CORE_API
#else
#define RECORDING_CORE_API __attribute__((visibility("default")))
#endif

extern "C" {
// What has been noted since the program was loaded.
RECORDING_CORE_API RecordingCore* recordingCore(void);

// The feature mask that zebGetEnabledCpuFeatures returns: the value of the environment variable
// ZEBDC_TEST_FEATURES.
RECORDING_CORE_API uint64_t recordingCoreFeatures(void);
}

#endif
