// Detection of the machine's best tier.

#include "kernels/tier.h"

#include <stdint.h>

#include "frame/compiler.h"

#if !ZEBDC_IS_MSVC
#include <cpuid.h>
#endif

namespace zebdc::kernels {
namespace {

struct CpuidResult {
  uint32_t eax, ebx, ecx, edx;
};

CpuidResult cpuid(uint32_t leaf) {
#if ZEBDC_IS_MSVC
  int r[4] = {};
  __cpuid(r, 0);
  if (static_cast<uint32_t>(r[0]) < leaf && leaf < 0x80000000u) return {};
  __cpuidex(r, static_cast<int>(leaf), 0);
  return {uint32_t(r[0]), uint32_t(r[1]), uint32_t(r[2]), uint32_t(r[3])};
#else
  CpuidResult r = {};
  if (!__get_cpuid_count(leaf, 0, &r.eax, &r.ebx, &r.ecx, &r.edx)) return {};
  return r;
#endif
}

// The register state that the operating system saves. Valid only with OSXSAVE.
uint64_t enabledState() {
#if ZEBDC_IS_MSVC
  return _xgetbv(0);
#else
  uint32_t low = 0;
  uint32_t high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (static_cast<uint64_t>(high) << 32) | low;
#endif
}

constexpr bool hasAll(uint32_t reg, uint32_t needed) {
  return (reg & needed) == needed;
}

constexpr uint32_t bit(int position) {
  return 1u << position;
}

// Leaf 1, ECX.
constexpr uint32_t leaf1Sse42 =
    bit(1) | bit(19) | bit(20) | bit(23);                    // PCLMULQDQ SSE4.1/4.2 POPCNT
constexpr uint32_t leaf1Avx2 = bit(22) | bit(27) | bit(28);  // MOVBE OSXSAVE AVX
// Leaf 7, EBX and ECX.
constexpr uint32_t leaf7EbxAvx2 = bit(3) | bit(5) | bit(8);                 // BMI1 AVX2 BMI2
constexpr uint32_t leaf7EbxAvx512 = bit(16) | bit(17) | bit(30) | bit(31);  // F DQ BW VL
constexpr uint32_t leaf7EcxVpclmul = bit(10);
constexpr uint32_t leaf7EcxAvx512 = bit(1) | bit(6) | bit(11);  // VBMI VBMI2 VNNI
// Leaf 0x80000001, ECX.
constexpr uint32_t extendedLzcnt = bit(5);
// State components: SSE and AVX; opmask and both halves of the ZMM registers.
constexpr uint64_t avxState = 0x06;
constexpr uint64_t avx512State = 0xE6;

}  // namespace

constinit int activeTier = tierBaseline;

Tier bestTierOfThisMachine() {
  const CpuidResult leaf1 = cpuid(1);
  if (!hasAll(leaf1.ecx, leaf1Sse42)) return tierBaseline;

  const CpuidResult leaf7 = cpuid(7);
  const bool hasAvx2 = hasAll(leaf1.ecx, leaf1Avx2) && hasAll(leaf7.ebx, leaf7EbxAvx2) &&
                       hasAll(cpuid(0x80000001u).ecx, extendedLzcnt);
  if (!hasAvx2 || (enabledState() & avxState) != avxState) return tierSse42;

  if (!hasAll(leaf7.ecx, leaf7EcxVpclmul)) return tierAvx2;

  const bool hasAvx512 = hasAll(leaf7.ebx, leaf7EbxAvx512) && hasAll(leaf7.ecx, leaf7EcxAvx512);
  if (!hasAvx512 || (enabledState() & avx512State) != avx512State) return tierVpclmul;
  return tierAvx512;
}

}  // namespace zebdc::kernels
