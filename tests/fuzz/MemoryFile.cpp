#include "tests/fuzz/MemoryFile.h"

#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
  if (descriptor_ < 0) {
    throw std::runtime_error("memfd_create failed");
  }
}

MemoryFile::~MemoryFile() { close(descriptor_); }

void MemoryFile::write(const void* bytes, std::size_t size) {
  if (ftruncate(descriptor_, 0) != 0 ||
      pwrite(descriptor_, bytes, size, 0) != static_cast<ssize_t>(size)) {
    throw std::runtime_error("a memory file could not be written");
  }
}
