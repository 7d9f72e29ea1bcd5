// The export stub, around a function that tells what has reached it: as many arguments as the
// longest export has, the first ones in registers and the rest on the stack.

#include <gtest/gtest.h>
#include <stdint.h>

#include <array>

#include "frame/load.h"

namespace {

constexpr int argumentCount = 15;

struct Arrival {
  int variant = -1;
  std::array<uint64_t, argumentCount> arguments = {};
  bool stackIsAligned = false;
};

Arrival arrival;

template <int variant>
uint64_t probe(const void* a0, uint32_t* a1, int32_t a2, const uint8_t* a3, uint32_t a4, void* a5,
               uint64_t a6, int32_t a7, void* a8, uint16_t a9, uint8_t a10, int64_t a11, void* a12,
               int32_t a13, int32_t a14) {
  const auto address = [](const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); };
  arrival.variant = variant;
  arrival.arguments = {address(a0),
                       address(a1),
                       static_cast<uint64_t>(a2),
                       address(a3),
                       a4,
                       address(a5),
                       a6,
                       static_cast<uint64_t>(a7),
                       address(a8),
                       a9,
                       a10,
                       static_cast<uint64_t>(a11),
                       address(a12),
                       static_cast<uint64_t>(a13),
                       static_cast<uint64_t>(a14)};
  // The compiler places what needs 16-byte alignment by the alignment that a call promises it.
  alignas(16) volatile char aligned[16] = {};
  arrival.stackIsAligned = reinterpret_cast<uintptr_t>(&aligned) % 16 == 0;
  return 0xFEDCBA9876543210u + variant;
}

}  // namespace

extern "C" {
decltype(probe<0>) zebdcStubProbe;
extern decltype(&probe<0>) const zebdcTable_zebdcStubProbe[2];
decltype(&probe<0>) const zebdcTable_zebdcStubProbe[2] = {&probe<0>, &probe<1>};
}

namespace {

const void* at(uintptr_t address) {
  return reinterpret_cast<const void*>(address);
}

TEST(Stub, EveryArgumentAndTheResultPassUnchanged) {
  const int32_t chosen = zebdcVariantIndex;
  for (const int variant : {0, 1}) {
    zebdcVariantIndex = variant;
    arrival = {};
    std::array<uint32_t, 2> words = {};
    const uint64_t result = zebdcStubProbe(at(0x1111222233334444), words.data(), -2,
                                           reinterpret_cast<const uint8_t*>(&words), 0xFFFFFFFE,
                                           &arrival, 0x8000000000000001, INT32_MIN, nullptr, 0xFFFD,
                                           0xFC, -11, words.data() + 1, INT32_MAX, -14);
    EXPECT_EQ(result, 0xFEDCBA9876543210u + static_cast<uint64_t>(variant));
    EXPECT_EQ(arrival.variant, variant);
    EXPECT_TRUE(arrival.stackIsAligned);
    const auto address = [](const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); };
    const std::array<uint64_t, argumentCount> sent = {0x1111222233334444,
                                                      address(words.data()),
                                                      static_cast<uint64_t>(-2),
                                                      address(words.data()),
                                                      0xFFFFFFFE,
                                                      address(&arrival),
                                                      0x8000000000000001,
                                                      static_cast<uint64_t>(INT32_MIN),
                                                      0,
                                                      0xFFFD,
                                                      0xFC,
                                                      static_cast<uint64_t>(-11),
                                                      address(words.data() + 1),
                                                      INT32_MAX,
                                                      static_cast<uint64_t>(-14)};
    EXPECT_EQ(arrival.arguments, sent);
  }
  zebdcVariantIndex = chosen;
}

}  // namespace
