// The version query of the library as loaded.

#include <gtest/gtest.h>
#include <zebdc/zebcore.h>
#include <zebdc/zebdc.h>

#include <string_view>

namespace {

TEST(Version, RecordFitsTheFeatureMask) {
  const ZebLibVersion* const version = zebdcGetLibVersion();
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version->majorVersion, 8);
  EXPECT_EQ(version->minorVersion, 2);
  EXPECT_EQ(version->updateNumber, 3);
  EXPECT_EQ(version->buildNumber, 48108);
  EXPECT_STREQ(version->versionText, "8.2.3 (r48108)");
  EXPECT_STREQ(version->buildDate, "Jul 23 2015");

  constexpr uint64_t needed = ZEB_CPU_SSSE3 | ZEB_CPU_MOVBE;
  const bool hasMovbe = (zebGetEnabledCpuFeatures() & needed) == needed;
  EXPECT_EQ(std::string_view(version->targetCode, 4),
            hasMovbe ? std::string_view("w7\0\0", 4) : std::string_view("t7\0\0", 4));
  EXPECT_STREQ(version->libraryName, hasMovbe ? "zebDC Tern (w7)" : "zebDC SSSE3 (t7)");
}

TEST(Version, RecordIsAlwaysTheSame) {
  EXPECT_EQ(zebdcGetLibVersion(), zebdcGetLibVersion());
}

}  // namespace
