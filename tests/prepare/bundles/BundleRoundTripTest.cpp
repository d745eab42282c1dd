// Whole runs with a real recording: a bundle gives what the recording gave where it was made.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Vdso.h"
#include "tests/prepare/PrepareCommand.h"
#include "tests/prepare/VdsoRecording.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

class BundleRoundTripTest : public testing::Test {
 protected:
  void SetUp() override {
    victim_ = temp_.file("victim");
    fs::copy_file(VICTIM_FILE, victim_);
    setenv("HOME", temp_.path().c_str(), 1);  // perf keeps copies there
    unsetenv("PERF_BUILDID_DIR");
    unsetenv("DEBUGINFOD_URLS");
    const std::string command = "perf record -q -N -e cpu-clock -g -o " + temp_.file("p.data") +
                                " -- " + victim_ + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0 || !temp_.has("p.data")) {
      GTEST_SKIP() << "perf is missing, or may not record here";
    }
  }
  std::string document(const std::string& folder) const {
    const std::string out = temp_.file("document.json");
    const std::string command = std::string(TRACEMILL_PROGRAM) + " -c " + temp_.file(folder) +
                                "/tracemill.conf -o " + out + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return temp_.read("document.json");
  }

  const TempDir temp_;
  std::string victim_;
};

}  // namespace

TEST_F(BundleRoundTripTest, TheDocumentIsTheSameWithoutTheFiles) {
  const std::string bundle = temp_.file("b.tar.zst");
  ASSERT_EQ(
      prepareWith({"-q", "--no-cache", "-o", temp_.file("here"), temp_.file("p.data")}).status, 0);
  const Ending written = prepareWith({"--no-cache", "--bundle", bundle, temp_.file("p.data")});
  ASSERT_EQ(written.status, 0) << written.err;
  EXPECT_FALSE(temp_.has("p.data.prepared"));
  const std::string before = document("here");
  EXPECT_THAT(before, HasSubstr("bundled_work"));

  fs::remove(victim_);
  fs::remove(temp_.file("p.data"));
  const Ending read = prepareWith({"--no-cache", "-o", temp_.file("there"), bundle});
  ASSERT_EQ(read.status, 0) << read.err;
  EXPECT_EQ(before, document("there"));
  EXPECT_FALSE(temp_.has("there/bundle"));
}

// Files of this machine have the recorded names and build ids, and are not asked.
TEST_F(BundleRoundTripTest, NothingOfThisMachineIsUsed) {
  const std::string bundle = temp_.file("b.tar.zst");
  fs::rename(victim_, victim_ + ".away");
  const Ending written = prepareWith({"--no-cache", "--bundle", bundle, temp_.file("p.data")});
  ASSERT_EQ(written.status, 0) << written.err;
  EXPECT_THAT(written.err, HasSubstr("Left out, for they cannot be read: 1."));
  fs::rename(victim_ + ".away", victim_);
  ASSERT_EQ(prepareWith({"-q", "--no-cache", "-o", temp_.file("there"), bundle}).status, 0);
  EXPECT_THAT(document("there"), Not(HasSubstr("bundled_work")));
}

TEST_F(BundleRoundTripTest, ARecordingIsNeverReplaced) {
  const std::string recording = temp_.file("p.data");
  const std::string bytes = temp_.read("p.data");
  EXPECT_EQ(prepareWith({"--bundle", recording, recording}).status, 2);
  fs::copy_file(recording, temp_.file("other.data"));
  const Ending other = prepareWith({"--bundle", temp_.file("other.data"), recording});
  EXPECT_EQ(other.status, 1);
  EXPECT_THAT(other.err, HasSubstr("is no bundle"));
  EXPECT_EQ(bytes, temp_.read("p.data"));
  EXPECT_EQ(bytes, temp_.read("other.data"));
}

TEST_F(BundleRoundTripTest, APlaceThatIsNoRegularFileIsRefused) {
  fs::create_symlink("elsewhere", temp_.file("link"));
  fs::create_directory(temp_.file("folder"));
  for (const std::string& place :
       {temp_.file("link"), temp_.file("folder"), std::string("/dev/null")}) {
    EXPECT_EQ(prepareWith({"--bundle", place, temp_.file("p.data")}).status, 1) << place;
  }
  EXPECT_FALSE(temp_.has("elsewhere"));
}

// Programs of 32 and of 64 bits ran; both images are called alike.
TEST(BundledVdsoTest, EachProgramHasItsOwn) {
  if (listing::ownVdso32().empty()) {
    GTEST_SKIP() << "the kernel does not hand it out";
  }
  const TempDir temp;
  temp.write("p.data", made::fileBytes(recordingOfBothVdsos()));
  const std::string bundle = temp.file("b.tar.zst");
  ASSERT_EQ(prepareWith({"-q", "--no-cache", "--bundle", bundle, temp.file("p.data")}).status, 0);
  ASSERT_EQ(prepareWith({"-q", "--no-cache", "-o", temp.file("there"), bundle}).status, 0);
  std::vector<std::string> lists;
  for (const auto& entry : fs::directory_iterator(temp.file("there/symbols"))) {
    if (entry.path().extension() == ".list") {
      lists.push_back(temp.read("there/symbols/" + entry.path().filename().native()));
    }
  }
  EXPECT_THAT(lists, UnorderedElementsAre(
                         HasSubstr("__kernel_vsyscall"),
                         AllOf(HasSubstr("gettimeofday"), Not(HasSubstr("__kernel_vsyscall")))));
}
