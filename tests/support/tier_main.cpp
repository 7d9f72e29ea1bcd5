// Runs a suite that is linked with the archive under one kernel tier: --tier=NAME. Ends with 77,
// which CTest counts as skipped, when the machine lacks that tier.

#include <gtest/gtest.h>
#include <stdio.h>

#include <string_view>

#include "kernels/tier.h"

namespace {

constexpr int exitSkipped = 77;
constexpr int exitUsage = 2;
constexpr std::string_view tierNames[zebdc::kernels::tierCount] = {"baseline", "sse42", "avx2",
                                                                   "vpclmul", "avx512"};

int useTier(std::string_view name) {
  for (int tier = 0; tier < zebdc::kernels::tierCount; ++tier) {
    if (tierNames[tier] != name) continue;
    if (tier > zebdc::kernels::bestTierOfThisMachine()) {
      printf("skipped: this machine lacks the tier %s\n", name.data());
      return exitSkipped;
    }
    zebdc::kernels::activeTier = tier;
    return 0;
  }
  fprintf(stderr, "no tier is named %s\n", name.data());
  return exitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    constexpr std::string_view option = "--tier=";
    const std::string_view argument = argv[i];
    if (!argument.starts_with(option)) return exitUsage;
    if (const int code = useTier(argument.substr(option.size())); code != 0) return code;
  }
  return RUN_ALL_TESTS();
}
