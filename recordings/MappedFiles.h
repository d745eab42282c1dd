// What maps refer to, each once: a file by its path and build id, code that the kernel or a
// just-in- time compiler made, modules, the vdso. Entries stay where they are until the object is
// destroyed.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "recordings/Facts.h"

namespace recordings {

struct MappedFile {
  enum class Kind {
    FILE,         // a path, an ELF file if anything
    VDSO,         // the kernel's code in every process
    VDSO_32,      // the same for programs of 32 bits
    PERF_MAP,     // code without a file, which /tmp/perf-PID.map may name; keys are addresses
    KERNEL,       // the kernel itself
    MODULE,       // a kernel module; keys are addresses
    KERNEL_CODE,  // what KSYMBOL records tell of: BPF programs, trampolines
  };
  std::string name;  // as perf shows it
  Kind kind = Kind::FILE;
  BuildId buildId;          // empty: not recorded with the map
  std::uint32_t pid = 0;    // PERF_MAP: the process that made the code
  std::string path;         // MODULE: where it was loaded from, if recorded
  std::uint32_t index = 0;  // in the order in which they were seen
};

class MappedFiles {
 public:
  const MappedFile& get(MappedFile::Kind kind, const std::string& name, const BuildId& buildId,
                        std::uint32_t pid = 0, const std::string& path = {});
  const std::deque<MappedFile>& all() const { return files_; }

 private:
  std::deque<MappedFile> files_;
  std::map<std::tuple<MappedFile::Kind, std::string, BuildId>, const MappedFile*> byIdentity_;
};

// How perf takes the name of a process's map: what is a file, what is made code, what is the vdso.
MappedFile::Kind kindOfMap(std::string_view name, std::uint32_t flags);

// The name in brackets that perf gives to a module loaded from `path`: [ext4] of
// /lib/modules/6.1.0/kernel/fs/ext4/ext4.ko.xz. A name in brackets stays.
std::string moduleNameOf(const std::string& path);

}  // namespace recordings
