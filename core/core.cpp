// The open stand-in of the core library: the feature mask from CPUID and 64-byte aligned memory.

#include <zebdc/zebcore.h>

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#else
#include <cpuid.h>
#endif
#if defined(_WIN32)
#include <malloc.h>
#else
#include <stdlib.h>
#endif

namespace {

constexpr size_t blockAlignment = 64;

// ECX of CPUID leaf 1.
constexpr uint32_t ssse3Bit = 1u << 9;
constexpr uint32_t movbeBit = 1u << 22;

uint32_t featureRegister() {
#if defined(_MSC_VER) && !defined(__clang__)
  int registers[4] = {};
  __cpuid(registers, 1);
  return static_cast<uint32_t>(registers[2]);
#else
  uint32_t eax = 0;
  uint32_t ebx = 0;
  uint32_t ecx = 0;
  uint32_t edx = 0;
  return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 ? ecx : 0;
#endif
}

}  // namespace

extern "C" uint64_t zebGetEnabledCpuFeatures(void) {
  const uint32_t features = featureRegister();
  uint64_t mask = 0;
  if (features & ssse3Bit) mask |= ZEB_CPU_SSSE3;
  if (features & movbeBit) mask |= ZEB_CPU_MOVBE;
  return mask;
}

extern "C" void* zebMalloc(int len) {
  if (len < 1) return nullptr;
#if defined(_WIN32)
  return _aligned_malloc(static_cast<size_t>(len), blockAlignment);
#else
  void* block = nullptr;
  return posix_memalign(&block, blockAlignment, static_cast<size_t>(len)) == 0 ? block : nullptr;
#endif
}

extern "C" void zebFree(void* p) {
#if defined(_WIN32)
  _aligned_free(p);
#else
  free(p);
#endif
}
