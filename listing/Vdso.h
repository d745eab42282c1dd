// The vdso of this machine's kernel: an ELF file that is in every process and in no file system.
#pragma once

#include <string>

namespace listing {

// The bytes of the image that this process has; empty if it has none.
std::string ownVdso();

// Of the image that programs of 32 bits have; empty where the kernel does not hand it out (x86-64
// only, from Linux 4.8 on). A child process is forked: no other thread may hold locks meanwhile.
std::string ownVdso32();

}  // namespace listing
