#include "listing/DebugFiles.h"

#include <algorithm>
#include <array>
#include <optional>
#include <zlib.h>

#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::uint64_t MAX_CHECKED = std::uint64_t{1}
                                      << 30;  // of larger files no checksum is computed

std::optional<std::uint32_t> _checksumOf(const RegularFile& file) {
  if (file.size() > MAX_CHECKED) {
    return std::nullopt;
  }
  uLong checksum = crc32(0, nullptr, 0);
  std::array<unsigned char, 1 << 16> bytes;
  for (std::uint64_t at = 0; at < file.size();) {
    const std::size_t size = std::min<std::uint64_t>(bytes.size(), file.size() - at);
    if (!file.read(at, bytes.data(), size)) {
      return std::nullopt;
    }
    checksum = crc32(checksum, bytes.data(), static_cast<uInt>(size));
    at += size;
  }
  return static_cast<std::uint32_t>(checksum);
}

class Search {
 public:
  Search(const std::string& path, const Layout& layout, const Options& options)
      : path_(path), layout_(layout), options_(options) {}

  // A name in the file systems of the recorded machine.
  bool tryBelowRoots(const std::string& name) {
    for (const std::string& root : options_.sysroots) {
      const std::string shown = root == "/" ? name : root + name;
      if (_try(RegularFile::openBelow(root, name), shown)) {
        return true;
      }
    }
    return false;
  }

  bool tryHere(const std::string& path) { return _try(RegularFile::open(path), path); }

  // Below a directory that is laid out as /usr/lib/debug is: one given, or that one.
  bool tryBelowDebugDirs(const std::string& name) {
    for (const std::string& directory : options_.debugDirs) {
      if (tryHere(directory + name)) {
        return true;
      }
    }
    return tryBelowRoots("/usr/lib/debug" + name);
  }

  bool tryOwn() {
    if (layout_.hasSymbolTable) {
      result_.path = path_;
    }
    return layout_.hasSymbolTable;
  }

  DebugFile result() const { return result_; }

 private:
  bool _try(const std::optional<RegularFile>& file, const std::string& shown) {
    if (std::find(result_.searched.begin(), result_.searched.end(), shown) !=
        result_.searched.end()) {
      return false;
    }
    result_.searched.push_back(shown);
    if (!file || file->path() == path_) {
      return false;
    }
    const std::optional<Layout> found = readLayout(*file);
    if (!found || !found->hasSymbolTable || found->machine != layout_.machine) {
      return false;
    }
    const bool isIt = layout_.buildId.empty()
                          ? !layout_.debugLink.empty() && found->buildId.empty() &&
                                _checksumOf(*file) == layout_.debugLinkChecksum
                          : isSameBuildId(found->buildId, layout_.buildId);
    if (isIt) {
      result_.path = file->path();
    }
    return isIt;
  }

  const std::string& path_;
  const Layout& layout_;
  const Options& options_;
  DebugFile result_;
};

bool _tryDebugLink(Search& search, const std::string& directory, const std::string& link) {
  if (link.empty() || link.find('/') != std::string::npos) {
    return false;
  }
  return search.tryBelowRoots(directory + '/' + link) ||
         search.tryBelowRoots(directory + "/.debug/" + link) ||
         search.tryBelowDebugDirs(directory + '/' + link);
}

}  // namespace

DebugFile findDebugFile(const std::string& name, const std::string& path, const Layout& layout,
                        const Options& options) {
  Search search(path, layout, options);
  const std::size_t slash = name.rfind('/');
  const bool hasDirectory = !name.empty() && name.front() == '/';
  const std::string directory = hasDirectory ? name.substr(0, slash) : "";
  const std::string baseName = hasDirectory ? name.substr(slash + 1) : name;
  const std::string hex = hexText(layout.buildId);
  const std::string byId =
      hex.size() > 2 ? "/.build-id/" + hex.substr(0, 2) + '/' + hex.substr(2) : "";
  const std::string copies = options.effectivePerfBuildIdDir();

  if (hasDirectory && _tryDebugLink(search, directory, layout.debugLink)) {
    return search.result();
  }
  if (!byId.empty() && !copies.empty() &&
      (search.tryHere(copies + byId + "/elf") || search.tryHere(copies + byId + "/debug"))) {
    return search.result();
  }
  if (hasDirectory &&
      (search.tryBelowDebugDirs(name + ".debug") || search.tryBelowDebugDirs(name))) {
    return search.result();
  }
  if (!byId.empty() && search.tryBelowDebugDirs(byId + ".debug")) {
    return search.result();
  }
  if (search.tryOwn() || !hasDirectory) {
    return search.result();
  }
  if (!search.tryBelowRoots(directory + "/.debug/" + baseName) && name.starts_with("/usr/lib/")) {
    search.tryBelowDebugDirs(name.substr(4));
  }
  return search.result();
}

}  // namespace listing
