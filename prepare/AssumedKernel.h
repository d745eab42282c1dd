// Where the kernel was, of recordings that do not say: perf writes no map of it when it may not see
// the kernel's addresses (kernel.kptr_restrict). perf itself then takes those of the kernel that
// runs. Here that is done only where it is the recorded one, started before the recording, or where
// the user names its list.
// Source: tools/perf/util/machine.c, machine__get_running_kernel_start().
#pragma once

#include <optional>
#include <string>

#include "recordings/Processes.h"

namespace prepare {

// From `_text` (or `_stext`) to `_etext` of a list like /proc/kallsyms; nothing if it lacks them,
// or hides the addresses.
std::optional<recordings::KernelImage> kernelOfList(const std::string& kallsyms);

// `givenList`: of --kallsyms, may be empty. `isThisMachine`: recorded on this machine and release.
std::optional<recordings::KernelImage> assumedKernel(const std::string& recording,
                                                     const std::string& givenList,
                                                     bool isThisMachine);

}  // namespace prepare
