// The vdso of this machine's kernel: an ELF file that is in every process and in no file system.
#pragma once

#include <string>

namespace listing {

// The bytes of the image that this process has; empty if it has none.
std::string ownVdso();

}  // namespace listing
