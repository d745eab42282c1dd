// A symbol cache in a temp folder, with a shell script of the test's own for a lister. After each
// test nothing but lists and the index may be left in the cache directory.
#pragma once

#include <algorithm>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "symbols/SymbolCache.h"
#include "tests/support/FreshStores.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

class SymbolCacheFixture : public testing::Test {
 protected:
  SymbolCacheFixture() {
    makeStoresAnewIn(temp.path());
    setLister("cat \"$1\"");  // a source file is its own list
  }

  void TearDown() override {
    for (const std::string& name : cacheFiles()) {
      EXPECT_TRUE(name == "symbolcache.json" || name.ends_with(".nm")) << "left behind: " << name;
    }
  }

  static PerfSettings& settings() { return *kestrel::Singleton<PerfSettings>::Instance(); }

  // Commands of a shell, run as the lister; each run is noted. "$1" is the file to be listed.
  void setLister(const std::string& commands) {
    const std::string script = temp.write(
        "lister.sh", "#!/bin/sh\necho run >> '" + temp.file("runs") + "'\n" + commands + "\n");
    chmod(script.c_str(), 0755);
    settings().symbolListCommand = script;
  }
  int listerRuns() const {
    const std::string runs = temp.read("runs");
    return static_cast<int>(std::count(runs.begin(), runs.end(), '\n'));
  }

  // Made on first use, after the settings.
  SymbolCache& cache() {
    if (!cache_) {
      cache_ = std::make_unique<SymbolCache>();
    }
    return *cache_;
  }
  // As another run of the program would find the cache.
  void restart() { cache_.reset(); }

  // A file with this modification time in seconds; the nanoseconds must not matter.
  std::string source(const std::string& name, const std::string& bytes = "1000 T f\n",
                     long long time = 1000000000) {
    const std::string path = temp.write(name, bytes);
    touch(path, time);
    return path;
  }
  static void touch(const std::string& path, long long time) {
    timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(time);
    times[1].tv_nsec = 999999999;
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  void makeCacheDir() { mkdir(temp.file("cache").c_str(), 0777); }
  void writeIndex(const std::string& text) {
    makeCacheDir();
    temp.write("cache/symbolcache.json", text);
  }

  // Asks for the list of `path`: its path, or "none".
  std::string ask(const std::string& path) {
    std::string list = "what was there";
    return cache().getSampleDataFile(path, list) ? list : "none";
  }
  // What the cache logs when it is asked, and answers this.
  std::vector<LogLine> logOf(const std::string& path, const std::string& answer) {
    const LogCapture log;
    EXPECT_EQ(answer, ask(path));
    return log.lines("SymbolCache");
  }
  static std::string read(const std::string& path) {
    std::string text;
    if (std::FILE* const file = std::fopen(path.c_str(), "rb")) {
      char block[4096];
      for (std::size_t size; (size = std::fread(block, 1, sizeof block, file)) > 0;) {
        text.append(block, size);
      }
      std::fclose(file);
    }
    return text;
  }
  std::string index() const { return temp.read("cache/symbolcache.json"); }
  // The list file's name for a path of the temp folder.
  std::string listName(const std::string& path) {
    std::string name;
    cache().generateCacheFileName(path, name);
    return name;
  }
  std::string listPath(const std::string& path) { return temp.file("cache/" + listName(path)); }
  std::string entry(const std::string& path, const std::string& members) {
    return "\"" + path + "\":{" + members + "}";
  }
  std::string wholeEntry(const std::string& path, long long time, std::size_t size) {
    return entry(path, "\"file\":\"" + listName(path) + "\",\"mtime\":" + std::to_string(time) +
                           ",\"size\":" + std::to_string(size));
  }

  // In alphabetical order.
  std::vector<std::string> cacheFiles() const {
    std::vector<std::string> names;
    if (DIR* const dir = opendir(temp.file("cache").c_str())) {
      while (const dirent* const file = readdir(dir)) {
        const std::string name = file->d_name;
        if (name != "." && name != "..") {
          names.push_back(name);
        }
      }
      closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  static LogLine errorCopying(const std::string& path, const std::string& reason) {
    return line("ERROR", "Error copying symbols of '" + path + "': " + reason);
  }
  static LogLine line(const std::string& level, const std::string& message) {
    return {level, "SymbolCache", message};
  }
  static LogLine traceAsk(const std::string& path) {
    return line("TRACE", "getSampleDataFile " + path);
  }
  LogLine traceCreate(const std::string& path) {
    return line("TRACE", "createCacheFile '" + path + "' '" + listPath(path) + "'");
  }
  std::string command(const std::string& path) { return settings().symbolListCommand + " " + path; }
  LogLine debugCommand(const std::string& path) {
    return line("DEBUG", "createCacheFile cmd: '" + command(path) + "'");
  }
  LogLine infoCreated(const std::string& path, std::size_t size) {
    return line("INFO", "Created new " + std::to_string(size) + " byte cache file for '" + path +
                            "' in '" + listPath(path) + "'");
  }
  LogLine infoNoSymbols(const std::string& path) {
    return line("INFO", "No symbols found in '" + path + "'");
  }
  LogLine infoUpToDate(const std::string& path, const std::string& list) {
    return line("INFO",
                "Using already up-to-date cached version of '" + path + "' in '" + list + "'");
  }
  LogLine errorRunning(const std::string& path, int status) {
    return line("ERROR", "Error running symbols command '" + command(path) +
                             "' exit status=" + std::to_string(status));
  }

  TempDir temp;

 private:
  std::unique_ptr<SymbolCache> cache_;
};
