// The shared allocation routines, which are not exported, with the archive.

#include <gtest/gtest.h>
#include <stdint.h>

#include "frame/memory.h"
#include "recording_core.h"

namespace zebdc {
namespace {

struct State {
  int value;
};

class Allocation : public testing::Test {
 protected:
  void SetUp() override {
    core.failMalloc = false;
    core.mallocCalls = 0;
    core.freeCalls = 0;
  }

  RecordingCore& core = *recordingCore();
};

TEST_F(Allocation, CountsBelowOneNeverReachTheCoreLibrary) {
  for (const int count : {0, -1, INT32_MIN}) EXPECT_EQ(allocate(count), nullptr);
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST_F(Allocation, CountsAreHandedOnAsTheyAre) {
  for (const int count : {1, 17, 4096, INT32_MAX}) {
    EXPECT_EQ(allocate(count), core.lastBlock);
    EXPECT_EQ(core.lastCount, count);
  }
  EXPECT_EQ(core.mallocCalls, 4);
}

TEST_F(Allocation, ReleaseHandsOnWhateverItGets) {
  int anything = 0;
  release(&anything);
  EXPECT_EQ(core.lastFreed, &anything);
  release(nullptr);
  EXPECT_EQ(core.lastFreed, nullptr);
  EXPECT_EQ(core.freeCalls, 2);
}

TEST_F(Allocation, CheckedFormWithASizeOfZeroFailsWithoutTheCoreLibrary) {
  State untouched = {};
  State* state = &untouched;
  const auto sizeOfZero = [](int* size) -> ZebStatus {
    *size = 0;
    return zebOk;
  };
  EXPECT_EQ(initAllocChecked(&state, sizeOfZero, [](State*) { FAIL(); }), zebErrMemAlloc);
  EXPECT_EQ(state, &untouched);
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST_F(Allocation, CheckedFormReturnsARefusalOfTheSizeAsItStands) {
  State* state = nullptr;
  const auto refuse = [](int*) -> ZebStatus { return zebErrSize; };
  EXPECT_EQ(initAllocChecked(&state, refuse, [](State*) { FAIL(); }), zebErrSize);
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST_F(Allocation, UncheckedFormLeavesTheFailureToInit) {
  core.failMalloc = true;
  State untouched = {};
  State* state = &untouched;
  const auto init = [](State* block) { return block == nullptr ? zebErrNullPtr : zebOk; };
  EXPECT_EQ(initAllocUnchecked(&state, 64, init), zebErrNullPtr);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(core.mallocCalls, 1);
}

}  // namespace
}  // namespace zebdc
