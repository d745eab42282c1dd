#include "recordings/MappedFiles.h"

#include <algorithm>

#include "recordings/Abi.h"

namespace recordings {

const MappedFile& MappedFiles::get(MappedFile::Kind kind, const std::string& name,
                                   const BuildId& buildId, std::uint32_t pid,
                                   const std::string& path) {
  const auto [place, isNew] = byIdentity_.try_emplace({kind, name, buildId}, nullptr);
  if (isNew) {
    files_.push_back({name, kind, buildId, pid, path, static_cast<std::uint32_t>(files_.size())});
    place->second = &files_.back();
  }
  return *place->second;
}

// As tools/perf/util/map.h and map.c have it.
MappedFile::Kind kindOfMap(std::string_view name, std::uint32_t flags) {
  if (name == "[vdso]" || name == "[vdso32]" || name == "[vdsox32]") {
    return MappedFile::Kind::VDSO;
  }
  for (const std::string_view made : {"/dev/zero", "/anon_hugepage", "[stack", "/SYSV", "[heap]"}) {
    if (name.starts_with(made)) {
      return MappedFile::Kind::PERF_MAP;
    }
  }
  const bool isMade = name == "//anon" || (flags & abi::MAP_HUGETLB) != 0;
  return isMade ? MappedFile::Kind::PERF_MAP : MappedFile::Kind::FILE;
}

std::string moduleNameOf(const std::string& path) {
  if (path.empty() || path.front() == '[') {
    return path;
  }
  std::string name = path.substr(path.rfind('/') + 1);
  const std::size_t end = name.find(".ko");
  if (end != std::string::npos) {
    name.resize(end);
  }
  std::replace(name.begin(), name.end(), '-', '_');
  return "[" + name + "]";
}

}  // namespace recordings
