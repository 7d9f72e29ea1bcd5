// How the library uses the core library: the feature mask at load, allocation and release.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "recording_core.h"

namespace {

// What a failed allocation means to an ...InitAlloc function.
enum class Failure {
  refused,         // zebErrMemAlloc; the output pointer is not written
  refusedAndNull,  // zebErrMemAlloc; null is stored
  nullState,       // null is stored, and Init answers zebErrNullPtr
};

struct InitAlloc {
  std::string_view name;
  Failure failure;
  ZebStatus (*run)(void** state);
  void (*release)(void* state);
};

// Calls an InitAlloc function through its own type of record.
template <class State, class Call>
ZebStatus initAlloc(void** state, Call call) {
  if (state == nullptr) return call(static_cast<State**>(nullptr));
  State* typed = static_cast<State*>(*state);
  const ZebStatus status = call(&typed);
  *state = typed;
  return status;
}

constexpr std::array<uint32_t, 258> frequencies = {5, 4, 3, 2, 1};
constexpr std::array<int, 256> codeLengths = {1, 2, 2};
constexpr std::array<uint16_t, 5> symbols = {0, 1, 2, 3, 4};
constexpr int symbolCount = static_cast<int>(symbols.size());

// One row for each ...InitAlloc export. `call` names its arguments, with `state` the output
// pointer.
#define ROW(name, failure, State, freeFunction, call)                                   \
  {                                                                                     \
#name, failure,                                                                       \
        [](void** output) {                                                               \
          return initAlloc<State>(output, [](State** state) -> ZebStatus { return name call; }); \
        },                                                                                \
        [](void* state) { freeFunction(static_cast<State*>(state)); } \
  }

constexpr InitAlloc initAllocs[] = {
    ROW(zebsEncodeLZ77InitAlloc_8u, Failure::refused, ZebLZ77State_8u, zebsLZ77Free_8u,
        (zebLZ77LevelFast, zebLZ77ChecksumNone, state)),
    ROW(zebsDecodeLZ77InitAlloc_8u, Failure::refused, ZebLZ77State_8u, zebsLZ77Free_8u,
        (zebLZ77ChecksumNone, state)),
    ROW(zebsEncodeHuffInitAlloc_8u, Failure::nullState, ZebHuffState_8u, zebsHuffFree_8u,
        (frequencies.data(), state)),
    ROW(zebsDecodeHuffInitAlloc_8u, Failure::nullState, ZebHuffState_8u, zebsHuffFree_8u,
        (codeLengths.data(), state)),
    ROW(zebsEncodeGITInitAlloc_8u, Failure::refused, ZebGITState_8u, zebsGITFree_8u,
        (50000, 100000, state)),
    ROW(zebsDecodeGITInitAlloc_8u, Failure::nullState, ZebGITState_8u, zebsGITFree_8u,
        (50000, 100000, state)),
    ROW(zebsEncodeRLEInitAlloc_BZ2_8u, Failure::nullState, ZebRLEState_BZ2, zebsRLEFree_BZ2_8u,
        (state)),
    ROW(zebsMTFInitAlloc_8u, Failure::refusedAndNull, ZebMTFState_8u, zebsMTFFree_8u, (state)),
    ROW(zebsEncodeHuffInitAlloc_BZ2_16u8u, Failure::nullState, ZebEncodeHuffState_BZ2,
        zebsEncodeHuffFree_BZ2_16u8u,
        (100, symbolCount, frequencies.data(), symbols.data(), symbolCount, state)),
    ROW(zebsDecodeHuffInitAlloc_BZ2_8u16u, Failure::nullState, ZebDecodeHuffState_BZ2,
        zebsDecodeHuffFree_BZ2_8u16u, (100, symbolCount, state)),
    ROW(zebsEncodeLZSSInitAlloc_8u, Failure::refused, ZebLZSSState_8u, zebsLZSSFree_8u, (state)),
    ROW(zebsDecodeLZSSInitAlloc_8u, Failure::refused, ZebLZSSState_8u, zebsLZSSFree_8u, (state)),
};

#undef ROW

std::vector<std::string_view> exportsContaining(std::string_view part) {
  std::vector<std::string_view> names = {
#define ZEBDC_EXPORT(name) #name,
#define ZEBDC_EXPORT_PER_VARIANT(name) #name,
#include "frame/exports.inc"
#undef ZEBDC_EXPORT
#undef ZEBDC_EXPORT_PER_VARIANT
  };
  std::erase_if(
      names, [part](std::string_view name) { return name.find(part) == std::string_view::npos; });
  return names;
}

TEST(InitAllocTable, HasEveryExport) {
  for (const std::string_view name : exportsContaining("InitAlloc")) {
    EXPECT_TRUE(std::any_of(std::begin(initAllocs), std::end(initAllocs),
                            [name](const InitAlloc& row) { return row.name == name; }))
        << "initAllocs needs a row for " << name;
  }
}

class EveryInitAlloc : public testing::TestWithParam<InitAlloc> {
 protected:
  void SetUp() override {
    core.failMalloc = false;
    core.mallocCalls = 0;
    core.freeCalls = 0;
  }

  RecordingCore& core = *recordingCore();
};

INSTANTIATE_TEST_SUITE_P(InitAllocs, EveryInitAlloc, testing::ValuesIn(initAllocs),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(EveryInitAlloc, AllocatesOneBlockAndStoresIt) {
  void* state = nullptr;
  EXPECT_EQ(GetParam().run(&state), zebOk);
  EXPECT_EQ(core.mallocCalls, 1);
  EXPECT_GT(core.lastCount, 0);
  EXPECT_NE(state, nullptr);
  EXPECT_EQ(state, core.lastBlock);
  EXPECT_EQ(core.freeCalls, 0);
}

TEST_P(EveryInitAlloc, ReportsAFailedAllocation) {
  core.failMalloc = true;
  int untouched = 0;
  void* state = &untouched;
  const ZebStatus status = GetParam().run(&state);
  EXPECT_EQ(core.mallocCalls, 1);
  EXPECT_EQ(core.freeCalls, 0);
  EXPECT_EQ(status, GetParam().failure == Failure::nullState ? zebErrNullPtr : zebErrMemAlloc);
  if (GetParam().failure == Failure::refused) {
    EXPECT_EQ(state, &untouched);
  } else {
    EXPECT_EQ(state, nullptr);
  }
}

TEST_P(EveryInitAlloc, AllocatesNothingForANullOutputPointer) {
  EXPECT_EQ(GetParam().run(nullptr), zebErrNullPtr);
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST_P(EveryInitAlloc, FreeHandsOnWhateverItGets) {
  int anything = 0;
  for (void* const pointer : {static_cast<void*>(nullptr), static_cast<void*>(&anything)}) {
    core.lastFreed = &core;
    core.freeCalls = 0;
    GetParam().release(pointer);
    EXPECT_EQ(core.freeCalls, 1);
    EXPECT_EQ(core.lastFreed, pointer);
  }
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST(InitAlloc, TableArgumentsAreTestedBeforeAnythingIsAllocated) {
  RecordingCore& core = *recordingCore();
  core.mallocCalls = 0;
  ZebHuffState_8u* state = nullptr;
  EXPECT_EQ(zebsEncodeHuffInitAlloc_8u(nullptr, &state), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeHuffInitAlloc_8u(nullptr, &state), zebErrNullPtr);
  ZebEncodeHuffState_BZ2* bzip2State = nullptr;
  EXPECT_EQ(zebsEncodeHuffInitAlloc_BZ2_16u8u(100, symbolCount, nullptr, symbols.data(),
                                              symbolCount, &bzip2State),
            zebErrNullPtr);
  EXPECT_EQ(core.mallocCalls, 0);
}

TEST(InitAlloc, SizesThatAreRefusedAllocateNothing) {
  RecordingCore& core = *recordingCore();
  core.mallocCalls = 0;
  ZebGITState_8u* state = nullptr;
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(-1, 1, &state), zebErrSize);
  EXPECT_EQ(zebsDecodeGITInitAlloc_8u(-1, 1, &state), zebErrSize);
  EXPECT_EQ(core.mallocCalls, 0);
  EXPECT_EQ(state, nullptr);
}

// Every export that allocates or releases has been called by now, and others besides.
TEST(FeatureMask, IsAskedForOnceAtLoad) {
  EXPECT_EQ(recordingCore()->featureCalls, 1);
  uint32_t value = 0;
  const uint8_t byte = 0;
  EXPECT_EQ(zebsCRC32_8u(&byte, 1, &value), zebOk);
  EXPECT_NE(zebdcGetLibVersion(), nullptr);
  EXPECT_EQ(recordingCore()->featureCalls, 1);
}

TEST(FeatureMask, SelectsTheVersionRecord) {
  constexpr uint64_t ssse3AndMovbe = 0x30;
  const bool hasBoth = (recordingCoreFeatures() & ssse3AndMovbe) == ssse3AndMovbe;
  const ZebLibVersion* const version = zebdcGetLibVersion();
  EXPECT_EQ(std::string_view(version->targetCode, 4),
            hasBoth ? std::string_view("w7\0\0", 4) : std::string_view("t7\0\0", 4));
  EXPECT_STREQ(version->libraryName, hasBoth ? "zebDC Tern (w7)" : "zebDC SSSE3 (t7)");
  EXPECT_EQ(version->majorVersion, ZEBDC_VERSION_MAJOR);
  EXPECT_EQ(version->minorVersion, ZEBDC_VERSION_MINOR);
  EXPECT_EQ(version->updateNumber, ZEBDC_VERSION_UPDATE);
  EXPECT_EQ(version->buildNumber, 48108);
  EXPECT_STREQ(version->versionText, "8.2.3 (r48108)");
  EXPECT_STREQ(version->buildDate, "Jul 23 2015");
}

}  // namespace
