// Where names come from that are no files of the machine's root: the kernel's code in every
// process, and processes with a root and numbers of their own.
#include <csignal>
#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Listing.h"
#include "listing/Vdso.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

class PlacesTest : public testing::Test {
 protected:
  PlacesTest() {
    options.sysroots = {temp.file("root")};
    options.perfBuildIdDir = temp.file("perf");
    options.cache = false;
    options.jobs = 1;
    for (const char* folder : {"root", "work"}) {
      std::filesystem::create_directories(temp.file(folder));
    }
  }
  Result list(const File& file) {
    return listFiles({file}, options, temp.file("work"), {}).front();
  }
  std::string text(const Result& result) {
    return result.list.empty() ? "" : temp.read("work/0.list");
  }

  TempDir temp;
  Options options;
};

class VdsoTest : public PlacesTest {
 protected:
  // Under an emulator there may be none.
  bool hasOwn() {
    image = ownVdso();
    temp.write("vdso", image);
    const auto layout = readLayout(temp.file("vdso"));
    file.kind = File::Kind::Vdso;
    file.name = "[vdso]";
    file.buildId = layout ? layout->buildId : BuildId();
    return !file.buildId.empty();
  }

  File file;
  std::string image;
};

TEST_F(VdsoTest, ThisMachinesWhereItIsTheRecordedOne) {
  if (!hasOwn()) {
    GTEST_SKIP() << "this process has no vdso";
  }
  const Result result = list(file);
  EXPECT_EQ(result.outcome, Outcome::Named);
  EXPECT_THAT(text(result), testing::HasSubstr("clock_gettime"));
}

TEST_F(VdsoTest, NotThisMachinesWhereItIsAnotherOne) {
  if (!hasOwn()) {
    GTEST_SKIP() << "this process has no vdso";
  }
  const BuildId own = file.buildId;
  file.buildId[0] ^= 1;
  Result result = list(file);
  EXPECT_EQ(result.outcome, Outcome::BuildIdDiffers);
  EXPECT_EQ(result.foundBuildId, own);
  file.buildId.clear();  // recorded here, or not: who knows
  EXPECT_TRUE(list(file).list.empty());
  options.sameMachine = true;
  EXPECT_EQ(list(file).outcome, Outcome::Named);
}

TEST_F(VdsoTest, PerfsCopyOfAnotherMachines) {
  if (!hasOwn()) {
    GTEST_SKIP() << "this process has no vdso";
  }
  options.otherMachine = true;
  EXPECT_EQ(list(file).outcome, Outcome::NotFound);
  const std::string hex = hexText(file.buildId);
  const std::string folder = "perf/.build-id/" + hex.substr(0, 2) + '/' + hex.substr(2);
  std::filesystem::create_directories(temp.file(folder));
  temp.write(folder + "/vdso", image);
  const Result result = list(file);
  EXPECT_EQ(result.outcome, Outcome::Named);
  EXPECT_THAT(text(result), testing::HasSubstr("clock_gettime"));
}

// Its name in itself is that of 32-bit x86. It is got without losing this process's own.
TEST_F(VdsoTest, ThatOfProgramsOf32Bits) {
  const std::string of32 = ownVdso32();
  if (!hasOwn() || of32.empty() || sizeof(void*) == 4) {
    GTEST_SKIP() << "the kernel does not hand it out";
  }
  EXPECT_EQ(of32[EI_CLASS], ELFCLASS32);
  EXPECT_THAT(of32, testing::HasSubstr("linux-gate.so.1"));
  EXPECT_EQ(ownVdso32(), of32);
  EXPECT_EQ(ownVdso(), image);
  file.kind = File::Kind::Vdso32;
  EXPECT_EQ(list(file).outcome, Outcome::BuildIdDiffers);
  file.buildId.clear();
  options.sameMachine = true;
  EXPECT_THAT(text(list(file)), testing::HasSubstr("__kernel_vsyscall"));
  options.vdso = temp.file("vdso");  // of a recorded machine, of 64 bits
  EXPECT_THAT(text(list(file)), testing::HasSubstr("__kernel_vsyscall"));
  options.otherMachine = true;
  options.sameMachine = false;
  EXPECT_EQ(list(file).outcome, Outcome::NotFound);
  options.vdso32 = temp.write("vdso32", of32);
  EXPECT_THAT(text(list(file)), testing::HasSubstr("__kernel_vsyscall"));
}

// A process with the number 1 in a namespace of its own, whose root directory is `root`. Its number
// here; 0 where that is not allowed.
class Container {
 public:
  explicit Container(const std::string& root) {
    int ready[2];
    if (pipe(ready) != 0) {
      return;
    }
    maker_ = fork();
    if (maker_ == 0) {
      _make(root, ready[1]);
    }
    close(ready[1]);
    if (read(ready[0], &pid_, sizeof pid_) != sizeof pid_) {
      pid_ = 0;
    }
    close(ready[0]);
  }
  ~Container() {
    if (pid_ != 0) {
      kill(pid_, SIGKILL);
    }
    waitpid(maker_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }

 private:
  [[noreturn]] static void _make(const std::string& root, int ready) {
    const int user = geteuid() == 0 ? 0 : CLONE_NEWUSER;
    if (unshare(user | CLONE_NEWPID) != 0) {
      _exit(1);
    }
    int inside[2];
    if (pipe(inside) != 0) {
      _exit(1);
    }
    const pid_t child = fork();
    if (child == 0) {
      const char byte = chroot(root.c_str()) == 0 && chdir("/") == 0 ? 'y' : 'n';
      if (write(inside[1], &byte, 1) == 1) {
        for (;;) {
          pause();
        }
      }
      _exit(1);
    }
    char byte = 'n';
    if (child > 0 && read(inside[0], &byte, 1) == 1 && byte == 'y') {
      if (write(ready, &child, sizeof child) != sizeof child) {
        kill(child, SIGKILL);
      }
    } else if (child > 0) {
      kill(child, SIGKILL);
    }
    close(ready);
    waitpid(child, nullptr, 0);
    _exit(0);
  }

  pid_t maker_ = 0;
  pid_t pid_ = 0;
};

TEST_F(PlacesTest, ThePerfMapOfAProcessInANamespace) {
  std::filesystem::create_directories(temp.file("inside/tmp"));
  temp.write("inside/tmp/perf-1.map", "1000 10 inside\n");
  const Container container(temp.file("inside"));
  if (container.pid() == 0) {
    GTEST_SKIP() << "namespaces are not allowed here";
  }
  File file;
  file.kind = File::Kind::PerfMap;
  file.pid = static_cast<std::uint32_t>(container.pid());
  file.name = "/tmp/perf-" + std::to_string(file.pid) + ".map";
  EXPECT_EQ(list(file).outcome, Outcome::NoPerfMap);  // of another machine's process
  options.sameMachine = true;
  EXPECT_EQ(text(list(file)), "0000000000001000 t inside\n0000000000001010 t [unknown]\n");
}

TEST_F(PlacesTest, AFileOfAProcessInANamespace) {
  std::filesystem::create_directories(temp.file("inside/bin"));
  std::filesystem::copy_file(FIXTURES "/functions", temp.file("inside/bin/program"));
  const Container container(temp.file("inside"));
  if (container.pid() == 0) {
    GTEST_SKIP() << "namespaces are not allowed here";
  }
  File file;
  file.pid = static_cast<std::uint32_t>(container.pid());
  file.name = "/bin/program";
  options.sameMachine = true;
  EXPECT_THAT(text(list(file)), testing::HasSubstr("static_function"));
}

}  // namespace
}  // namespace listing
