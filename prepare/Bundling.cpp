#include "prepare/Bundling.h"

#include <filesystem>

#include "listing/DebugFiles.h"
#include "listing/Layout.h"
#include "listing/RegularFile.h"
#include "prepare/PrepareError.h"
#include "prepare/RunTimeCode.h"

namespace prepare {

namespace fs = std::filesystem;

using recordings::MappedFile;

namespace {

constexpr char DELETED[] = " (deleted)";

std::string byBuildId(const listing::BuildId& id) {
  const std::string hex = listing::hexText(id);
  return hex.size() > 2 ? "/.build-id/" + hex.substr(0, 2) + '/' + hex.substr(2) : "";
}

class HitFiles {
 public:
  HitFiles(BundleWriter& bundle, const listing::Options& options)
      : bundle_(bundle), options_(options) {}

  void add(const HitFile& hit) {
    const MappedFile& file = *hit.file;
    if (file.kind == MappedFile::Kind::MODULE) {
      _addBelowRoot(file.path);
    } else if (file.kind == MappedFile::Kind::PERF_MAP) {
      // Jitdump files that name the code are added by their own names.
      const std::string& map = hit.listing.file;
      _count(!map.ends_with(".map") ||
             bundle_.addFile("root/tmp/perf-" + std::to_string(file.pid) + ".map", map));
    } else if (file.kind == MappedFile::Kind::VDSO || file.kind == MappedFile::Kind::VDSO_32) {
      _addVdso(hit);
    } else if (file.kind == MappedFile::Kind::FILE && file.name.starts_with('/')) {
      _addElfFile(hit);
    }
  }

  void addJitDump(const std::string& name) { _addBelowRoot(name); }

  std::size_t leftOut() const { return leftOut_; }

 private:
  void _count(bool isAdded) { leftOut_ += isAdded ? 0 : 1; }

  // What is looked for by its name alone.
  void _addBelowRoot(const std::string& name) {
    if (fs::path(name).lexically_normal() != name) {
      return;
    }
    for (const std::string& root : options_.sysroots) {
      const auto file = listing::RegularFile::openBelow(root, name);
      if (file && bundle_.addFile("root" + name, file->path())) {
        return;
      }
    }
  }

  void _addVdso(const HitFile& hit) {
    const std::string& image = hit.listing.file;
    if (image.empty()) {
      return;
    }
    const std::string id = byBuildId(hit.listing.layout.buildId);
    const bool is32 = hit.file->kind == MappedFile::Kind::VDSO_32;
    _count(bundle_.addFile(hit.file->name != "[vdso]" ? "copies" + id + "/vdso"
                           : is32                     ? "vdso32"
                                                      : "vdso",
                           image));
  }

  void _addElfFile(const HitFile& hit) {
    const std::string& path = hit.listing.file;
    const listing::Layout& layout = hit.listing.layout;
    std::string name = hit.file->name;
    if (name.ends_with(DELETED)) {
      name.resize(name.size() - sizeof DELETED + 1);
    }
    std::string place = "root" + name;
    // Of two contents of one name the second, and what has no plain name, is found by its build id.
    if (bundle_.has(place) || fs::path(name).lexically_normal() != name) {
      const std::string id = byBuildId(layout.buildId);
      place = id.empty() ? "" : "copies" + id + "/elf";
    }
    if (path.empty() || place.empty() || !bundle_.addFile(place, path)) {
      ++leftOut_;
      return;
    }
    _addDebugFile(hit, name);
  }

  void _addDebugFile(const HitFile& hit, const std::string& name) {
    const listing::Layout& layout = hit.listing.layout;
    std::string debug = hit.listing.symbolsFrom;
    if (!debug.starts_with('/')) {
      debug = listing::findDebugFile(hit.file->name, hit.listing.file, layout, options_).path;
    }
    if (debug.empty() || debug == hit.listing.file) {
      return;
    }
    const std::string id = byBuildId(layout.buildId);
    _count(bundle_.addFile("root/usr/lib/debug" + (id.empty() ? name : id) + ".debug", debug));
  }

  BundleWriter& bundle_;
  const listing::Options& options_;
  std::size_t leftOut_ = 0;
};

void addKernel(BundleWriter& bundle, const Names& names) {
  if (!names.hasKernelList()) {
    return;
  }
  const std::string& source = names.kernel().source;
  bundle.addFile(listing::readLayout(source) ? "vmlinux" : "kallsyms", source);
}

}  // namespace

std::string bundledName(const std::string& recording) {
  std::error_code ignored;
  const fs::path whole = fs::absolute(recording, ignored).lexically_normal();
  const fs::path name = whole.has_filename() ? whole.filename() : whole.parent_path().filename();
  return name.empty() ? "perf.data" : name.string();
}

void addRecording(BundleWriter& bundle, const std::string& recording) {
  const std::string place = "recording/" + bundledName(recording);
  std::error_code error;
  if (!fs::is_directory(recording, error)) {
    if (!bundle.addFile(place, recording)) {
      throw PrepareError(recording + ": is no file that can be read twice. Save it first.");
    }
    return;
  }
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(recording)) {
    // The image of the kernel's memory is as large as that, and nothing reads it.
    if (entry.is_symlink() || !entry.is_regular_file() || entry.path().filename() == "kcore") {
      continue;
    }
    const std::string path = entry.path().string();
    if (!bundle.addFile(place + '/' + entry.path().lexically_relative(recording).string(), path)) {
      throw PrepareError(path + ": cannot be read.");
    }
  }
}

std::size_t addHitFiles(BundleWriter& bundle, const Names& names,
                        const recordings::MappedFiles& mapped, const listing::Options& options) {
  HitFiles files(bundle, options);
  for (const HitFile& hit : names.files()) {
    files.add(hit);
  }
  for (const MappedFile& file : mapped.all()) {
    if (file.kind == MappedFile::Kind::FILE && RunTimeCode::isJitDump(file.name)) {
      files.addJitDump(file.name);
    }
  }
  addKernel(bundle, names);
  return files.leftOut();
}

}  // namespace prepare
