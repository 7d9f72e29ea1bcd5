// What runs when the library is loaded: the choice of the variant and of the kernel tier.
//
// On Windows the DLL's process-attach notification makes the choice; elsewhere, and in programs
// that link the archive, a constructor does, ahead of the program's own constructors.

#include <zebdc/zebcore.h>

#include "frame/load.h"
#include "kernels/tier.h"

constinit int32_t zebdcVariantIndex = 0;

namespace zebdc {
namespace {

void chooseAtLoad() {
  zebdcVariantIndex = variantForFeatures(zebGetEnabledCpuFeatures());
  kernels::activeTier = kernels::bestTierOfThisMachine();
}

}  // namespace
}  // namespace zebdc

#if defined(_WIN32) && defined(ZEBDC_SHARED_BUILD)

extern "C" int __stdcall DllMain(void* /*module*/, unsigned long reason, void* /*reserved*/) {
  constexpr unsigned long processAttach = 1;
  if (reason == processAttach) zebdc::chooseAtLoad();
  return 1;
}

#else

// 101 is the first priority that is not reserved to the compiler's own run-time code.
__attribute__((constructor(101))) static void zebdcLoad() {
  zebdc::chooseAtLoad();
}

#endif
