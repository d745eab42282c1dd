#include "listing/Cures.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unordered_set>

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
std::string _withoutUsr(const std::string& path) {
  return path.starts_with("/usr/") ? path.substr(4) : path;
}

}  // namespace

Cures::Cures(const Options& options)
    : root_(options.sysroots.empty() || options.sysroots.front() == "/"
                ? ""
                : options.sysroots.front()) {}

void Cures::prepare(const std::vector<std::string>& paths) {
  std::unordered_set<std::string> wanted;
  for (const std::string& path : paths) {
    wanted.insert(_withoutUsr(path));
  }
  if (wanted.empty()) {
    return;
  }
  std::error_code error;
  for (const fs::directory_entry& entry :
       fs::directory_iterator(root_ + std::string(DATABASE), error)) {
    if (entry.path().extension() != ".list") {
      continue;
    }
    const std::optional<RegularFile> file = RegularFile::open(entry.path().native());
    const std::string text = file ? file->readText(MAX_LIST) : std::string();
    std::string package = entry.path().stem().native();
    package = package.substr(0, package.find(':'));
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      std::string path = text.substr(at, end - at);
      at = end + 1;
      // Links to a library stand in packages of their own (-dev); the file itself has this name in
      // one only.
      const auto found = wanted.find(_withoutUsr(path));
      if (found != wanted.end()) {
        packages_.try_emplace(*found, package);
      }
    }
  }
}

std::string Cures::_debugPackageOf(const std::string& path) const {
  const auto package = packages_.find(_withoutUsr(path));
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
