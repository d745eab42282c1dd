#include "listing/Vdso.h"

#include <algorithm>
#include <cstddef>
#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

#if defined(__x86_64__)
#include <asm/prctl.h>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "listing/ChildPool.h"
#endif

namespace listing {

#if defined(__x86_64__) && defined(ARCH_MAP_VDSO_32)
namespace {

constexpr std::uintptr_t PLACE = 0x70000000;  // or elsewhere, where that is taken

using Range = std::pair<std::uintptr_t, std::uintptr_t>;

// Where this process has maps whose names begin like this.
std::vector<Range> _mapsCalled(const std::string& beginning) {
  std::vector<Range> found;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(' ' + beginning) != std::string::npos) {
      found.emplace_back(std::stoul(line, nullptr, 16),
                         std::stoul(line.substr(line.find('-') + 1), nullptr, 16));
    }
  }
  return found;
}

// The kernel maps one vdso into a process. For a process that has no more to do than this.
std::string _exchangeVdso() {
  for (const char* const name : {"[vdso]", "[vvar"}) {
    for (const auto& [start, end] : _mapsCalled(name)) {
      ::munmap(reinterpret_cast<void*>(start), end - start);
    }
  }
  if (::syscall(SYS_arch_prctl, ARCH_MAP_VDSO_32, PLACE) <= 0) {
    return {};
  }
  const std::vector<Range> images = _mapsCalled("[vdso]");
  return images.empty() ? std::string()
                        : std::string(reinterpret_cast<const char*>(images[0].first),
                                      images[0].second - images[0].first);
}

}  // namespace

std::string ownVdso32() {
  std::string image;
  ChildPool(1, std::chrono::seconds(10))
      .run(
          1, [](std::size_t) { return _exchangeVdso(); },
          [&image](std::size_t, std::optional<std::string> reply) {
            image = std::move(reply).value_or("");
          });
  return image;
}
#elif defined(__LP64__)
std::string ownVdso32() { return {}; }
#else
std::string ownVdso32() { return ownVdso(); }
#endif

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
