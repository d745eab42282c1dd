// A mapped file of a recording, and what became of listing it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "listing/BuildId.h"
#include "listing/Layout.h"
#include "listing/Options.h"

namespace listing {

struct File {
  enum class Kind {
    Elf,
    Vdso,    // the code that the kernel maps into every process
    Vdso32,  // the same for programs of 32 bits
    PerfMap  // anonymous code: /tmp/perf-PID.map
  };
  bool isVdso() const { return kind == Kind::Vdso || kind == Kind::Vdso32; }

  Kind kind = Kind::Elf;
  std::string name;  // path in the recorded process, or [vdso]
  BuildId buildId;   // as recorded
  // PerfMap: the process (group leader). Else, if not 0, a process that may still run.
  std::uint32_t pid = 0;
  // PerfMap: [start, end) of its anonymous maps; none: all.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  // PerfMap: mapped files `jit-PID.dump` of that process, which name its code, too.
  std::vector<std::string> jitDumps;
  // PerfMap: what the dumps say of times behind this one is not of the recording; nanoseconds on
  // the clock of the dumps.
  std::uint64_t lastTime = UINT64_MAX;
  // PerfMap: when the process had not begun yet, nanoseconds since 1970: a map of that time is
  // another process's.
  std::int64_t begin = INT64_MIN;
  std::uint64_t samples = 0;  // heavier files are listed first
};

enum class Outcome {
  Named,  // the list has names; maybe exported ones only: then `cure` says how to get the others
  NotFound,
  BuildIdDiffers,  // the file was changed since
  NoSymbols,       // stripped, and no debug file found
  NotElf,
  Failed,  // cannot be read, crashed or took too long
  NoPerfMap,
  Restricted,  // kernel: the list hides its addresses
  OldPerfMap   // older than the process
};

struct Result {
  Outcome outcome = Outcome::Failed;
  std::string list;  // path of the list file, in the work directory; empty if none
  std::string file;  // the ELF file used, the perf map or a jitdump file; empty if none
  std::string
      symbolsFrom;  // what has the names: path of a file, ".gnu_debugdata" or ".dynsym" of `file`
  std::vector<std::string>
      searched;          // where the file, then its debug file, was looked for, in order
  BuildId foundBuildId;  // BuildIdDiffers: what the file there has
  std::string cure;      // what would give (more) names, one sentence; empty if nothing known
  Layout layout;         // of `file`
};

// The running file (not a debug file) of a recorded name.
struct Located {
  std::string path;                     // empty unless Named
  Outcome outcome = Outcome::NotFound;  // Named, NotFound, BuildIdDiffers or NotElf
  BuildId found;
  std::vector<std::string> searched;
};

// Looks below the sysroots, then in the process itself if it still runs (/proc/PID/root), then
// among perf's copies. Of another build id it is not it. A name that ends in " (deleted)" is found
// by its build id only. Cheap: headers only.
Located locate(const File& file, const Options& options);

}  // namespace listing
