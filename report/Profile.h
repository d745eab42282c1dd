// A recording in columns: what every format that tracemill-report writes is made from. Samples are
// in the order of time. Plain data; ProfileBuilder makes it.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "report/StackTree.h"

namespace report {

constexpr uint32_t NONE = std::numeric_limits<uint32_t>::max();

// What a mapped file is, for colours and for "user or kernel". The page knows the numbers.
enum class LibraryKind : uint8_t { KERNEL = 0, PROGRAM = 1, LIBRARY = 2, JIT = 3, UNKNOWN = 4 };

struct Library {
  std::string name;  // as recorded
  LibraryKind kind = LibraryKind::UNKNOWN;
};

// A function, or the whole of a library where no function is known: then the library's file name in
// square brackets.
struct Frame {
  std::string name;
  uint32_t library = NONE;  // of Profile::libraries
  uint32_t file = NONE;     // of Profile::files; NONE where the recording does not tell
};

struct ProfileThread {
  uint32_t pid = NONE;  // NONE where the recording has none
  uint32_t tid = NONE;
  std::string name;         // may be empty
  std::string processName;  // of the thread whose tid is the pid; may be empty
};

// Samples, one entry a column each.
struct SampleColumns {
  std::vector<int64_t> times;     // nanoseconds on the document's clock, ascending
  std::vector<uint32_t> stacks;   // nodes of Profile::stacks
  std::vector<uint32_t> threads;  // of Profile::threads
  std::vector<uint32_t> cpus;     // NONE where the recording has none

  std::size_t size() const { return times.size(); }
};

struct Profile {
  std::vector<Library> libraries;
  std::vector<std::string> files;  // source files
  std::vector<Frame> frames;
  std::vector<ProfileThread> threads;
  StackTree stacks;  // of frames; depth first
  SampleColumns samples;
  uint32_t timeDigits = 0;     // fraction digits of the document's times, at most 9
  uint64_t timelessCount = 0;  // samples whose time is no finite number: they stand at the end

  // The recording that this one is compared with; empty and 0 without one. How many of its samples
  // have each stack as theirs.
  std::vector<uint32_t> baselineCounts;
  uint64_t baselineSamples = 0;
  double baselineSeconds = 0;
};

// The last part of a path.
std::string_view fileNameOf(std::string_view path);

}  // namespace report
