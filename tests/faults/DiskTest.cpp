// Disks that fill up, and readers that go away while the document is written.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"
#include "tests/faults/SmallDisk.h"

namespace {

using testing::ElementsAre;

const std::vector<std::string> TO_DISK = {"-c", "test.conf",         "-i", "recording.perf",
                                          "-o", "disk/document.json"};
const char* const INCOMPLETE =
    "ERROR [main] Cannot write disk/document.json, the document is incomplete.";
constexpr std::size_t DISK_BYTES = 1 << 20;

// A document of some hundred thousand bytes.
std::string longRecording() {
  PerfFileBuilder recording = simpleRecording(IP_TID_TIME_CPU);
  for (unsigned i = 0; i < 10000; ++i) {
    recording.sample(at(10 * SECOND + i, 0x8010, 10, 10));
  }
  return recording.bytes();
}

class DiskTest : public testing::Test {
 protected:
  DiskTest() {
    std::filesystem::create_directory(driver_.folder().file("disk"));
    driver_.configure();
  }

  const DriverRun driver_;
};

// A cache on a disk of its own.
class CacheDiskTest : public testing::Test {
 protected:
  CacheDiskTest() { std::filesystem::create_directory(symbols_.folder().file("cache")); }

  SymbolRun symbols_;
};

}  // namespace

TEST_F(DiskTest, FullBeforeTheDocumentIsBegun) {
  const SmallDisk disk(driver_.folder().file("disk"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  disk.fillUp();
  EXPECT_EQ(driver_.run(TO_DISK).status, 1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DiskTest, FullInTheMiddleOfTheDocument) {
  const SmallDisk disk(driver_.folder().file("disk"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  driver_.folder().write("recording.perf", longRecording());
  disk.fillUp(100'000);
  EXPECT_EQ(driver_.run(TO_DISK).status, 1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DiskTest, FullForTheLastBytesOnly) {
  const SmallDisk disk(driver_.folder().file("disk"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  driver_.folder().write("recording.perf", longRecording());
  EXPECT_EQ(driver_.run(TO_DISK).status, 0);
  const std::string document = driver_.folder().read("disk/document.json");
  std::filesystem::remove(driver_.folder().file("disk/document.json"));
  // Whole pages are taken: room for all of them but the last.
  disk.fillUp(document.size() / 4096 * 4096);
  EXPECT_EQ(driver_.run(TO_DISK).status, 1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, INCOMPLETE));
  disk.empty();
  EXPECT_EQ(driver_.run(TO_DISK).status, 0);
  EXPECT_EQ(driver_.folder().read("disk/document.json"), document);
}

TEST_F(DiskTest, DocumentLargerThanAFileMayBe) {
  driver_.folder().write("recording.perf", longRecording());
  EXPECT_EQ(driver_.program(TO_DISK).limit(RLIMIT_FSIZE, 100'000).run().status, 1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DiskTest, FullUnderTheLogDoesNotMatterToTheDocument) {
  const SmallDisk disk(driver_.folder().file("disk"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  disk.fillUp();
  driver_.configure("\"log\": {\"adapter\": {\"type\": \"file\", \"baseName\": \"disk/run.log\"}}");
  const ProgramResult result =
      driver_.run({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(driver_.folder().read("disk/run.log"), "");
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
}

TEST_F(DiskTest, ReaderOfTheDocumentGoesAway) {
  driver_.folder().write("recording.perf", longRecording());
  const std::string pipe = driver_.folder().file("disk/document.json");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  RunningProgram running = driver_.program(TO_DISK).start();
  const int reader = open(pipe.c_str(), O_RDONLY | O_CLOEXEC);
  char begin = 0;
  EXPECT_EQ(read(reader, &begin, 1), 1);
  EXPECT_EQ(begin, '{');
  close(reader);
  EXPECT_EQ(running.wait().status, 1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(CacheDiskTest, FullUnderTheListsIsSaidAndMendedByTheNextRun) {
  const SmallDisk disk(symbols_.folder().file("cache"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  disk.fillUp();
  const ConversionResult full = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols-none", full.document));
  EXPECT_EQ(full.err, "");
  EXPECT_THAT(full.complaints(),
              testing::IsSupersetOf({"ERROR [SymbolCache] Error copying symbols of 'bin/app': No "
                                     "space left on device",
                                     "ERROR [SymbolCache] Error copying symbols of 'lib/libx.so': "
                                     "No space left on device"}));
  EXPECT_EQ(symbols_.cacheNames(), "filler ");
  disk.empty();
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
}

TEST_F(CacheDiskTest, FullBehindTheFirstListKeepsIt) {
  const SmallDisk disk(symbols_.folder().file("cache"), DISK_BYTES);
  SKIP_UNLESS_MOUNTED(disk);
  disk.fillUp(2 * 4096);  // the first list, and the index with it
  const ConversionResult full = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", full.document));
  EXPECT_EQ(full.err, "");
  EXPECT_THAT(full.complaints(), testing::Contains("ERROR [SymbolCache] Error copying symbols of "
                                                   "'lib/libx.so': No space left on device"));
  EXPECT_EQ(symbols_.folder().read("cache/symbolcache.json"), "{" + appEntry() + "}");
  EXPECT_EQ(symbols_.takeListerRuns(), "-x bin/app\n-x lib/libx.so\n");
  disk.empty();
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
  EXPECT_EQ(symbols_.takeListerRuns(), "-x lib/libx.so\n");
}
