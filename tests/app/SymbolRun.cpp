#include "tests/app/SymbolRun.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace {

const char* const SHELL = "#!/bin/sh\n";

}  // namespace

const std::string APP_LIST =
    "00008000 T _start\n"
    "00008100 T main\tsrc/app.c:5\n"
    "00008180 T x\n"
    "00008190 T end_of_text\n";

const std::string LIBRARY_LIST =
    "                 U printf\n"
    "00001000 T alpha\tsrc/x.c:10\n"
    "00001100 T beta(int, char)\tsrc/x.c:20\n"
    "00001180 t $d\n"
    "00001200 W gamma\tsrc/y.c:30\n"
    "00002000 D data\n";

PerfFileBuilder symbolRecording() {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app").comm(20, 20, "other");
  recording.mmap(10, 10, 0x8000, 0x1000, 0, "bin/app");
  recording.mmap(10, 10, 0x40000000, 0x3000, 0, "lib/libx.so");
  recording.mmap(20, 20, 0x8000, 0x1000, 0, "bin/app");
  recording.mmap(20, 20, 0x50001000, 0x2000, 0x1000, "lib/libx.so");
  recording.sample(at(SECOND + 0 * EIGHTH, 0x8110, 10, 10));
  recording.sample(at(SECOND + 1 * EIGHTH, 0x40001010, 10, 10));
  recording.sample(at(SECOND + 2 * EIGHTH, 0x40001100, 10, 10));
  recording.sample(at(SECOND + 3 * EIGHTH, 0x50001100, 20, 20));
  recording.sample(at(SECOND + 4 * EIGHTH, 0x8185, 20, 20));
  recording.sample(at(SECOND + 5 * EIGHTH, 0x40001201, 10, 10));
  recording.sample(at(SECOND + 6 * EIGHTH, 0x40000fff, 10, 10));
  recording.sample(at(SECOND + 7 * EIGHTH, 0x50001200, 20, 20));
  return recording;
}

SymbolRun::SymbolRun(const PerfFileBuilder& recording) : conversion_(recording) {
  std::filesystem::create_directory(folder().file("bin"));
  std::filesystem::create_directory(folder().file("lib"));
  addFile("bin/app", APP_LIST, APP_TIME);
  addFile("lib/libx.so", LIBRARY_LIST, LIBRARY_TIME);
  replaceLister("exec cat \"$2.list\"\n");
  conversion_.lister("./lister -x");
}

void SymbolRun::addFile(const std::string& name, const std::string& list,
                        std::time_t modified) const {
  folder().write(name, "not a program");
  folder().write(name + ".list", list);
  touch(name, modified);
}

void SymbolRun::touch(const std::string& name, std::time_t modified) const {
  const std::array<timespec, 2> times{timespec{modified, 0}, timespec{modified, 987'654'321}};
  EXPECT_EQ(utimensat(AT_FDCWD, folder().file(name).c_str(), times.data(), 0), 0);
}

void SymbolRun::replaceLister(const std::string& lines) const {
  folder().write("lister", SHELL + std::string("echo \"$@\" >>runs.txt\n") + lines);
  std::filesystem::permissions(folder().file("lister"), std::filesystem::perms::owner_all);
}

ConversionResult SymbolRun::run() const {
  ConversionResult result = conversion_.run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  return result;
}

std::string SymbolRun::takeListerRuns() const {
  const std::string runs = folder().read("runs.txt");
  std::filesystem::remove(folder().file("runs.txt"));
  return runs;
}

std::string SymbolRun::cacheNames() const {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder().file("cache"))) {
    names.insert(entry.path().filename().string());
  }
  std::string text;
  for (const std::string& name : names) {
    text += name + " ";
  }
  return text;
}

std::string appEntry() {
  return "\"bin/app\":{\"file\":\"bin_app.nm\",\"mtime\":1400000000,\"size\":" +
         std::to_string(APP_LIST.size()) + "}";
}

std::string libraryEntry() {
  return "\"lib/libx.so\":{\"file\":\"lib_libx.so.nm\",\"mtime\":1400000001,\"size\":" +
         std::to_string(LIBRARY_LIST.size()) + "}";
}
