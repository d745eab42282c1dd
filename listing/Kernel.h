// Symbol lists for the kernel of a recording, its modules, and code that it made itself (BPF
// programs and others). Addresses in these lists are run-time addresses of the recording: a kernel
// starts elsewhere at every boot, so that lists and files at hand are moved to where the recording
// says that its reference symbol was.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "listing/BuildId.h"
#include "listing/File.h"
#include "listing/Options.h"

namespace listing {

// As recorded.
struct Kernel {
  std::string release;  // as of `uname -r`
  BuildId buildId;
  bool sameMachine = false;  // recorded on this machine, in this boot
  std::uint64_t start = 0;   // of the map [kernel.kallsyms]; start and end 0: none was recorded
  std::uint64_t end = 0;
  std::string referenceName;           // "_text" or "_stext"
  std::uint64_t referenceAddress = 0;  // its address: the pgoff of that map; 0: hidden

  struct Module {
    std::string name;  // as perf prints it: "[nf_tables]"
    std::string path;  // .ko file, maybe packed; empty or the name: not known
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    BuildId buildId;
  };
  std::vector<Module> modules;

  struct Symbol {
    std::uint64_t address = 0;
    std::uint64_t size = 0;
    std::string name;
  };
  std::vector<Symbol>
      ksymbols;  // of KSYMBOL records, in their order: a later one has the addresses it shares

  std::string kallsymsBeside;  // a list that came with the recording (kcore_dir/kallsyms, a
                               // bundle's); may be empty
};

struct KernelResult {
  Outcome outcome = Outcome::NotFound;  // of the kernel itself: Named, NotFound, BuildIdDiffers,
                                        // Failed, Restricted
  std::string source;                   // what has the names: path of a file
  std::string cure;
  std::string list;  // the core kernel only: `_text` at `start` first, the last line below `end`;
                     // may be empty
  std::vector<std::string> searched;
  std::map<std::string, std::string>
      moduleLists;  // by name of the module; KSYMBOLS: of all `ksymbols`
  static constexpr const char* KSYMBOLS = "[ksymbols]";
};

// Looks, as perf does: at what the options name and nothing else; else at the list beside the
// recording; at vmlinux of the same build id; at this machine's /proc/kallsyms if it is the same
// kernel (build id, or release where none is recorded); at perf's copy of the recorded one. Writes
// the lists into `workDir`, which exists. One thread.
KernelResult listKernel(const Kernel& kernel, const Options& options, const std::string& workDir);

}  // namespace listing
