#include "listing/OwnKernelList.h"

#include <optional>
#include <sys/utsname.h>
#include <unistd.h>
#include <utility>

#include "kestrel/FileUtils.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

// Far enough to see an address that is not 0.
constexpr std::size_t BEGINNING = 16 * 1024;
constexpr std::size_t MAX_TEXT = 4096;

std::string _beginningOf(const std::string& path, std::size_t size) {
  const std::optional<RegularFile> file = RegularFile::open(path);
  return file ? file->readText(size) : std::string();
}

std::string _sourceOf(const Kernel& kernel, const OwnKernelList::Places& places) {
  const std::string boot = _beginningOf(places.bootId, MAX_TEXT);
  const std::string symbols = _beginningOf(places.kallsyms, BEGINNING);
  utsname system;
  if (boot.empty() || symbols.empty() || ::uname(&system) != 0) {
    return {};
  }
  return "kernel of this boot\n" + boot + '\n' + system.release + '\n' + system.version + '\n' +
         std::to_string(kernel.start) + ' ' + std::to_string(kernel.end) + ' ' +
         std::to_string(kernel.referenceAddress) + ' ' + kernel.referenceName + '\n' +
         _beginningOf(places.notes, MAX_TEXT) + '\n' + symbols;
}

}  // namespace

OwnKernelList::OwnKernelList(const Kernel& kernel, const Options& options, Places places)
    : places_(std::move(places)),
      cache_(options.cache ? options.effectiveCacheDir() : "", options.cacheSize),
      source_(options.cache ? _sourceOf(kernel, places_) : "") {}

bool OwnKernelList::take(const std::string& path) {
  const auto entry = source_.empty() ? std::nullopt : cache_.find(source_);
  return entry && !entry->list.empty() &&
         (::link(entry->list.c_str(), path.c_str()) == 0 ||
          kestrel::FileUtils::copyFile(entry->list, path));
}

void OwnKernelList::keep(const std::string& path) {
  const std::string copy = source_.empty() ? "" : cache_.temporaryPath();
  if (copy.empty() ||
      (::link(path.c_str(), copy.c_str()) != 0 && !kestrel::FileUtils::copyFile(path, copy))) {
    return;
  }
  cache_.store(source_, {Outcome::Named, places_.kallsyms, copy});
  ::unlink(copy.c_str());
}

}  // namespace listing
