#include "listing/Vdso.h"

#include <algorithm>
#include <cstddef>
#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

namespace listing {

std::string ownVdso() {
  const unsigned long start = ::getauxval(AT_SYSINFO_EHDR);
  if (start == 0) {
    return {};
  }
  const char* bytes = reinterpret_cast<const char*>(start);
  const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(start);
  // It is made of what its segments and its section headers cover: the kernel's own, so trusted.
  std::size_t size = header->e_shoff + std::size_t{header->e_shnum} * header->e_shentsize;
  const auto* segments = reinterpret_cast<const ElfW(Phdr)*>(start + header->e_phoff);
  for (unsigned i = 0; i < header->e_phnum; ++i) {
    if (segments[i].p_type == PT_LOAD) {
      size = std::max<std::size_t>(size, segments[i].p_offset + segments[i].p_filesz);
    }
  }
  return std::string(bytes, size);
}

}  // namespace listing
