// Where the names of a recorded kernel are.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "listing/Kernel.h"

namespace listing {

struct KernelSource {
  enum class Kind { None, Kallsyms, Vmlinux, Kept };
  Kind kind = Kind::None;
  std::string path;
  std::string text;           // Kallsyms: its content
  bool isRestricted = false;  // a list was there, without addresses
  bool isDifferent = false;   // a kernel was there, another one
  bool isRunning = false;     // this machine's own list
  std::vector<std::string> searched;
};

// `takeKept` is asked once this machine's own list is what is wanted: true (Kept) if what would be
// made of it is at hand. It is then not read.
KernelSource findKernelSource(const Kernel& kernel, const Options& options,
                              const std::function<bool()>& takeKept);

// Where this machine's kernel has a module now, by its name in brackets; 0: not loaded, or hidden.
std::uint64_t runningModuleStart(const std::string& name);

}  // namespace listing
