// The version records and the variant that a feature mask selects.

#include <zebdc/zebcore.h>

#include "frame/entry.h"
#include "frame/load.h"

namespace zebdc {
namespace {

constexpr char versionText[] = "8.2.3 (r48108)";
constexpr char buildDate[] = "Jul 23 2015";

constexpr ZebLibVersion versionOf(const char (&target)[3], const char* name) {
  return {ZEBDC_VERSION_MAJOR,
          ZEBDC_VERSION_MINOR,
          ZEBDC_VERSION_UPDATE,
          48108,
          {target[0], target[1], 0, 0},
          name,
          versionText,
          buildDate};
}

constexpr ZebLibVersion baselineVersion = versionOf("t7", "zebDC SSSE3 (t7)");
constexpr ZebLibVersion movbeVersion = versionOf("w7", "zebDC Tern (w7)");

}  // namespace

int32_t variantForFeatures(uint64_t featureMask) {
  constexpr uint64_t needed = ZEB_CPU_SSSE3 | ZEB_CPU_MOVBE;
  return (featureMask & needed) == needed ? 1 : 0;
}

}  // namespace zebdc

ZEBDC_ENTRY(const ZebLibVersion*, zebdcGetLibVersion_t7)(void) {
  return &zebdc::baselineVersion;
}
ZEBDC_ENTRY(const ZebLibVersion*, zebdcGetLibVersion_w7)(void) {
  return &zebdc::movbeVersion;
}
