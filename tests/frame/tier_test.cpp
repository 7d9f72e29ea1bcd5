// The load-time choices.

#include "kernels/tier.h"

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include "frame/load.h"

namespace zebdc {
namespace {

TEST(Variant, NeedsBothFeatures) {
  EXPECT_EQ(variantForFeatures(0), 0);
  EXPECT_EQ(variantForFeatures(0x10), 0);
  EXPECT_EQ(variantForFeatures(0x20), 0);
  EXPECT_EQ(variantForFeatures(0x30), 1);
  EXPECT_EQ(variantForFeatures(~uint64_t{0x20}), 0);
  EXPECT_EQ(variantForFeatures(~uint64_t{0x10}), 0);
  EXPECT_EQ(variantForFeatures(~uint64_t{0}), 1);
}

TEST(Variant, IndexSelectsTheVersionRecord) {
  const int32_t chosen = zebdcVariantIndex;
  zebdcVariantIndex = 0;
  EXPECT_STREQ(zebdcGetLibVersion()->libraryName, "zebDC SSSE3 (t7)");
  EXPECT_STREQ(zebdcGetLibVersion()->targetCode, "t7");
  zebdcVariantIndex = 1;
  EXPECT_STREQ(zebdcGetLibVersion()->libraryName, "zebDC Tern (w7)");
  EXPECT_STREQ(zebdcGetLibVersion()->targetCode, "w7");
  zebdcVariantIndex = chosen;
}

TEST(Tier, ActiveTierIsOneThatTheMachineHas) {
  EXPECT_GE(kernels::activeTier, kernels::tierBaseline);
  EXPECT_LE(kernels::activeTier, kernels::bestTierOfThisMachine());
}

}  // namespace
}  // namespace zebdc
