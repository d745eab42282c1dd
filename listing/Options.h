// Where names are looked for, and what becomes of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace listing {

struct Options {
  std::vector<std::string> sysroots{"/"};  // root directories of the recorded machine, in order
  std::vector<std::string> debugDirs;      // laid out as /usr/lib/debug is, and before it
  std::string perfBuildIdDir;              // perf's copies; empty: $PERF_BUILDID_DIR, else ~/.debug
  std::string kallsyms;      // the kernel's list, /proc/kallsyms of that machine; empty: found
  std::string vmlinux;       // the kernel with symbols; empty: found
  bool sameMachine = false;  // recorded on this machine: what is not in files (vdso without a build
                             // id) is this one's
  bool otherMachine = false;  // the image of this machine's vdso is not asked
  std::string vdso;           // the image of the recorded machine; empty: none at hand
  std::string vdso32;         // the same for programs of 32 bits
  bool demangle = true;
  bool parameters = false;  // demangled names with the parameters of functions, as `perf script -v`
  bool lines = true;        // source files from line tables
  bool cache = true;
  std::string cacheDir;  // empty: $XDG_CACHE_HOME/tracemill, else ~/.cache/tracemill
  std::uint64_t cacheSize = std::uint64_t{1}
                            << 30;           // bytes of all lists in it; the least recently used go
  unsigned jobs = 0;                         // processes at once; 0: one a processor
  std::chrono::milliseconds timeout{30000};  // of one file

  // The directories meant by empty ones above; empty again where $HOME is not set.
  std::string effectivePerfBuildIdDir() const;
  std::string effectiveCacheDir() const;
};

}  // namespace listing
