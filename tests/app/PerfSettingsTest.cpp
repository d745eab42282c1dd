#include <type_traits>

#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "tests/support/TestAccess.h"

namespace {

TEST(PerfSettingsTest, DefaultsOfSymbolResolution) {
  const PerfSettings settings;
  EXPECT_TRUE(settings.onTargetMode);
  EXPECT_FALSE(settings.freezeSymbolCache);
  EXPECT_EQ(settings.symbolFileSeachPath, "/");
  EXPECT_EQ(settings.symbolCacheDir, "./symbols");
  EXPECT_EQ(settings.symbolListCommand, "/usr/bin/nm -nCgl --format=bsd");
  EXPECT_EQ(settings.kernelSymbolFile, "/proc/kallsyms");
}

TEST(PerfSettingsTest, DefaultsOfTheOutput) {
  const PerfSettings settings;
  EXPECT_EQ(settings.maxBackTrace, 16u);
  EXPECT_EQ(settings.timePrecision, 6u);
  EXPECT_EQ(settings.blankName, "*BlankName*");
}

TEST(PerfSettingsTest, DefaultsOfTheInterruptVectors) {
  const PerfSettings settings;
  EXPECT_EQ(settings.interruptStart64, 0xFFFFFFFFFFFF0000u);
  EXPECT_EQ(settings.interruptEnd64, 0xFFFFFFFFFFFFFFFFu);
  EXPECT_EQ(settings.interruptStart32, 0xFFFF0000u);
  EXPECT_EQ(settings.interruptEnd32, 0xFFFFFFFFu);
}

TEST(PerfSettingsTest, DefaultsOfMadeUpMapsAndSharedLibraries) {
  const PerfSettings settings;
  EXPECT_EQ(settings.fakePageMask, 0xFFFFFFFFFFFF0000u);
  EXPECT_EQ(settings.fakePageSize, 0x10000u);
  EXPECT_EQ(settings.sharedLibraryBase, 0x40000000u);
}

TEST(PerfSettingsTest, DefaultsOfTheKernel) {
  const PerfSettings settings;
  EXPECT_EQ(settings.kernelStartAddress, 0xBF000000u);
  EXPECT_EQ(settings.kernelEndAddress, 0xCF000000u);
  EXPECT_EQ(settings.kernelProcessName, "kernel");
  EXPECT_EQ(settings.kernelMapName, "kernel");
  EXPECT_EQ(settings.kernelPid, 0u);
}

TEST(PerfSettingsTest, DefaultsOfTheStackItsNameHoldsTheRange) {
  const PerfSettings settings;
  EXPECT_EQ(settings.stackStartAddress, 0xB0000000u);
  EXPECT_EQ(settings.stackEndAddress, 0xBEFFFFFFu);
  EXPECT_EQ(settings.stackMapName, "{stack:b0000000-beffffff}");
}

TEST(PerfSettingsTest, DefaultsOfTheInitProcess) {
  const PerfSettings settings;
  EXPECT_EQ(settings.initPid, 1u);
  EXPECT_EQ(settings.initProcessName, "*init*");
}

TEST(PerfSettingsTest, AddressesHave64BitsAndCounts32) {
  static_assert(std::is_same_v<uint64_t, decltype(PerfSettings::kernelStartAddress)>);
  static_assert(std::is_same_v<uint64_t, decltype(PerfSettings::kernelEndAddress)>);
  static_assert(std::is_same_v<uint64_t, decltype(PerfSettings::interruptStart32)>);
  static_assert(std::is_same_v<uint64_t, decltype(PerfSettings::stackStartAddress)>);
  static_assert(std::is_same_v<uint32_t, decltype(PerfSettings::maxBackTrace)>);
  static_assert(std::is_same_v<uint32_t, decltype(PerfSettings::timePrecision)>);
  static_assert(std::is_same_v<uint32_t, decltype(PerfSettings::kernelPid)>);
  static_assert(std::is_same_v<uint32_t, decltype(PerfSettings::initPid)>);
}

TEST(PerfSettingsTest, SingleInstanceKeepsWhatIsWrittenIntoIt) {
  kestrel::TestAccess::reset<PerfSettings>();
  PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  EXPECT_EQ(settings->maxBackTrace, 16u);
  settings->maxBackTrace = 3;
  EXPECT_EQ(settings, kestrel::Singleton<PerfSettings>::Instance());
  EXPECT_EQ(kestrel::Singleton<PerfSettings>::Instance()->maxBackTrace, 3u);
  EXPECT_EQ(PerfSettings().maxBackTrace, 16u);
}

}  // namespace
