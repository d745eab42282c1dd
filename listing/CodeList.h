// Finds and lists what names the anonymous code of a process: its perf map and its jitdump file.
// For child processes.
#pragma once

#include <string>
#include <vector>

#include "listing/File.h"

namespace listing {

class Demangler;

struct CodeListReply {
  Outcome outcome = Outcome::NoPerfMap;  // Named, NoPerfMap, OldPerfMap or Failed
  std::string file;                      // the perf map, or else the first jitdump file
  std::vector<std::string> searched;
};

// Writes the list to `path`, which does not exist yet. The perf map is looked for in the process's
// own file system under its innermost id (if it still runs on this machine), then below the
// sysroots.
CodeListReply writeCodeList(const File& file, const Options& options, Demangler& demangler,
                            const std::string& path);

}  // namespace listing
