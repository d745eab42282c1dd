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
  EXPECT_EQ("/", settings.symbolFileSeachPath);
  EXPECT_EQ("./symbols", settings.symbolCacheDir);
  EXPECT_EQ("/usr/bin/nm -nCgl --format=bsd", settings.symbolListCommand);
  EXPECT_EQ("/proc/kallsyms", settings.kernelSymbolFile);
}

TEST(PerfSettingsTest, DefaultsOfTheOutput) {
  const PerfSettings settings;
  EXPECT_EQ(16u, settings.maxBackTrace);
  EXPECT_EQ(6u, settings.timePrecision);
  EXPECT_EQ("*BlankName*", settings.blankName);
}

TEST(PerfSettingsTest, DefaultsOfTheInterruptVectors) {
  const PerfSettings settings;
  EXPECT_EQ(0xFFFFFFFFFFFF0000u, settings.interruptStart64);
  EXPECT_EQ(0xFFFFFFFFFFFFFFFFu, settings.interruptEnd64);
  EXPECT_EQ(0xFFFF0000u, settings.interruptStart32);
  EXPECT_EQ(0xFFFFFFFFu, settings.interruptEnd32);
}

TEST(PerfSettingsTest, DefaultsOfFakeMapsAndSharedLibraries) {
  const PerfSettings settings;
  EXPECT_EQ(0xFFFFFFFFFFFF0000u, settings.fakePageMask);
  EXPECT_EQ(0x10000u, settings.fakePageSize);
  EXPECT_EQ(0x40000000u, settings.sharedLibraryBase);
}

TEST(PerfSettingsTest, DefaultsOfTheKernel) {
  const PerfSettings settings;
  EXPECT_EQ(0xBF000000u, settings.kernelStartAddress);
  EXPECT_EQ(0xCF000000u, settings.kernelEndAddress);
  EXPECT_EQ("kernel", settings.kernelProcessName);
  EXPECT_EQ("kernel", settings.kernelMapName);
  EXPECT_EQ(0u, settings.kernelPid);
}

TEST(PerfSettingsTest, DefaultsOfTheStackItsNameHoldsTheRange) {
  const PerfSettings settings;
  EXPECT_EQ(0xB0000000u, settings.stackStartAddress);
  EXPECT_EQ(0xBEFFFFFFu, settings.stackEndAddress);
  EXPECT_EQ("{stack:b0000000-beffffff}", settings.stackMapName);
}

TEST(PerfSettingsTest, DefaultsOfTheInitProcess) {
  const PerfSettings settings;
  EXPECT_EQ(1u, settings.initPid);
  EXPECT_EQ("*init*", settings.initProcessName);
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
  EXPECT_EQ(16u, settings->maxBackTrace);
  settings->maxBackTrace = 3;
  EXPECT_EQ(settings, kestrel::Singleton<PerfSettings>::Instance());
  EXPECT_EQ(3u, kestrel::Singleton<PerfSettings>::Instance()->maxBackTrace);
  EXPECT_EQ(16u, PerfSettings().maxBackTrace);
}

}  // namespace
