#include "listing/Cures.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "kestrel/FileUtils.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t MAX_LIST = std::size_t{64} << 20;
constexpr char BRING_VDSO[] =
    "Read the recording where it was made, or bring that machine's ~/.debug.";
constexpr std::string_view DATABASE = "/var/lib/dpkg/info";

// Where one and the same file is named: /lib is a link to /usr/lib since some release, and lists
// have either.
std::string_view _withoutUsr(std::string_view path) {
  return path.starts_with("/usr/") ? path.substr(4) : path;
}

}  // namespace

Cures::Cures(const Options& options)
    : root_(options.sysroots.empty() || options.sysroots.front() == "/"
                ? ""
                : options.sysroots.front()) {}

void Cures::prepare(const std::vector<std::string>& paths, ListCache& cache) {
  Paths wanted;
  for (const std::string& path : paths) {
    wanted.emplace(_withoutUsr(path));
  }
  if (wanted.empty()) {
    return;
  }
  const std::string source = _sourceOf(wanted);
  if (!_takeKept(cache, source)) {
    _search(wanted);
    _keep(cache, source);
  }
}

// Each installation puts new lists into the database's folder. Empty where there is none.
std::string Cures::_sourceOf(const Paths& wanted) const {
  struct stat status;
  if (::stat((root_ + std::string(DATABASE)).c_str(), &status) != 0) {
    return {};
  }
  std::string source = "packages\n" + root_ + '\n' + std::to_string(status.st_ino) + ' ' +
                       std::to_string(status.st_mtim.tv_sec) + ' ' +
                       std::to_string(status.st_mtim.tv_nsec) + '\n';
  for (const std::string& path : wanted) {
    source += path + '\n';
  }
  return source;
}

// A line each: path, tab, package.
bool Cures::_takeKept(ListCache& cache, const std::string& source) {
  const auto entry = source.empty() ? std::nullopt : cache.find(source);
  const auto file = entry ? RegularFile::open(entry->list) : std::nullopt;
  if (!file) {
    return false;
  }
  const std::string text = file->readText(MAX_LIST);
  std::string_view left = text;
  for (std::size_t end = 0; (end = left.find('\n')) != std::string_view::npos;
       left.remove_prefix(end + 1)) {
    const std::size_t tab = left.substr(0, end).rfind('\t');
    if (tab != std::string_view::npos) {
      packages_.try_emplace(std::string(left.substr(0, tab)), left.substr(tab + 1, end - tab - 1));
    }
  }
  return true;
}

void Cures::_keep(ListCache& cache, const std::string& source) const {
  const std::string path = source.empty() ? "" : cache.temporaryPath();
  std::string text;
  for (const auto& [file, package] : packages_) {
    text += file + '\t' + package + '\n';
  }
  if (!path.empty() && kestrel::FileUtils::writeFile(path, text)) {
    cache.store(source, {Outcome::Named, root_ + std::string(DATABASE), path});
    ::unlink(path.c_str());
  }
}

void Cures::_search(const Paths& wanted) {
  std::error_code error;
  for (const fs::directory_entry& entry :
       fs::directory_iterator(root_ + std::string(DATABASE), error)) {
    if (entry.path().extension() != ".list") {
      continue;
    }
    const std::optional<RegularFile> file = RegularFile::open(entry.path().native());
    const std::string package = entry.path().stem().native();
    _searchPackage(file ? file->readText(MAX_LIST) : std::string(),
                   package.substr(0, package.find(':')), wanted);
  }
}

// Links to a library stand in packages of their own (-dev); the file itself has this name in one
// only.
void Cures::_searchPackage(std::string_view list, const std::string& package, const Paths& wanted) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find('\n'), list.size());
    const auto found = wanted.find(_withoutUsr(list.substr(0, end)));
    list.remove_prefix(std::min(end + 1, list.size()));
    if (found != wanted.end()) {
      packages_.try_emplace(*found, package);
    }
  }
}

std::string Cures::_debugPackageOf(const std::string& path) const {
  const auto package = packages_.find(std::string(_withoutUsr(path)));
  if (package == packages_.end()) {
    return {};
  }
  // The C library's has a name of its own.
  return package->second == "libc6" || package->second == "libc-bin" ? "libc6-dbg"
                                                                     : package->second + "-dbgsym";
}

std::string Cures::_ofStripped(const File& file, const Result& result) const {
  const std::string id = hexText(result.layout.buildId);
  const std::string package = _debugPackageOf(file.name);
  std::string cure;
  if (package == "libc6-dbg") {
    cure = "Its symbols are in a package: apt-get install libc6-dbg.";
  } else if (!package.empty()) {
    cure = "Its symbols are in the package " + package +
           " of Debian's debug archive: add that to the sources, then apt-get install " + package +
           '.';
  } else if (!id.empty()) {
    cure = "Install its debug file";
    cure += " (" + id.substr(0, 2) + '/' + id.substr(2) +
            ".debug below /usr/lib/debug/.build-id) or name a folder with --debug-dir.";
  } else {
    cure = "Build it without stripping it, or name the folder of its debug file with --debug-dir.";
  }
  if (!id.empty()) {
    cure += " Or set DEBUGINFOD_URLS (build id " + id + ").";
  }
  return cure;
}

std::string Cures::of(const File& file, const Result& result) const {
  switch (result.outcome) {
    case Outcome::Named:
      return result.symbolsFrom == ".dynsym" && file.kind == File::Kind::Elf
                 ? _ofStripped(file, result)
                 : "";
    case Outcome::NoSymbols:
      return _ofStripped(file, result);
    case Outcome::NotFound:
      if (file.isVdso()) {
        return BRING_VDSO;
      }
      if (file.name.ends_with(" (deleted)")) {
        return "It was removed while it ran; record before it is replaced, or keep copies with perf buildid-cache --add.";
      }
      return "Read the recording where the file is, or name the root of a copy of that machine's files with --sysroot.";
    case Outcome::BuildIdDiffers:
      return file.isVdso()
                 ? BRING_VDSO
                 : "Record again, or name the root of the files as they were with --sysroot.";
    case Outcome::NotElf:
      return {};
    case Outcome::Failed:
      return "Raise --listing-timeout if it is very large.";
    case Outcome::NoPerfMap:
    case Outcome::OldPerfMap:
      return "Run the program so that it writes /tmp/perf-" + std::to_string(file.pid) +
             ".map (node --perf-basic-prof, python3.12 -X perf, java with -XX:+DumpPerfMapAtExit).";
    case Outcome::Restricted:
      return {};
  }
  return {};
}

}  // namespace listing
