#include <optional>

#include "listing/File.h"
#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::string_view DELETED = " (deleted)";

// Collects what is found in one place after the other.
class Search {
 public:
  explicit Search(const BuildId& wanted) : wanted_(wanted) {}

  // True when this is the file.
  bool tryFile(const std::optional<RegularFile>& file, const std::string& path, bool onlyById) {
    located_.searched.push_back(path);
    if (!file) {
      return false;
    }
    const std::optional<Layout> layout = readLayout(*file);
    if (!layout) {
      _note(Outcome::NotElf, {});
      return false;
    }
    if (wanted_.empty() ? onlyById : !isSameBuildId(wanted_, layout->buildId)) {
      if (!wanted_.empty()) {
        _note(Outcome::BuildIdDiffers, layout->buildId);
      }
      return false;
    }
    located_.path = file->path();
    located_.found = layout->buildId;
    located_.outcome = Outcome::Named;
    return true;
  }

  Located result() const { return located_; }

 private:
  // The first reason is the one that is told.
  void _note(Outcome outcome, const BuildId& found) {
    if (located_.outcome == Outcome::NotFound) {
      located_.outcome = outcome;
      located_.found = found;
    }
  }

  const BuildId& wanted_;
  Located located_;
};

std::string _shown(const std::string& root, const std::string& name) {
  return root.empty() || root == "/" ? name : root + name;
}

}  // namespace

Located locate(const File& file, const Options& options) {
  Search search(file.buildId);
  std::string name = file.name;
  const bool isDeleted = name.ends_with(DELETED);
  if (isDeleted) {
    name.resize(name.size() - DELETED.size());
  }
  for (const std::string& root : options.sysroots) {
    if (search.tryFile(RegularFile::openBelow(root, name), _shown(root, name), isDeleted)) {
      return search.result();
    }
  }
  // Of several vdsos this is the one of the machine's own programs.
  const std::string& vdso = file.kind == File::Kind::Vdso32 ? options.vdso32 : options.vdso;
  if (file.isVdso() && name == "[vdso]" && !vdso.empty() &&
      search.tryFile(RegularFile::open(vdso), vdso, false)) {
    return search.result();
  }
  if (file.pid != 0 && options.sameMachine) {
    const std::string root = "/proc/" + std::to_string(file.pid) + "/root";
    if (search.tryFile(RegularFile::openBelow(root, name), root + name, isDeleted)) {
      return search.result();
    }
  }
  const std::string copies = options.effectivePerfBuildIdDir();
  if (!file.buildId.empty() && !copies.empty()) {
    const std::string hex = hexText(file.buildId);
    const std::string path = copies + "/.build-id/" + hex.substr(0, 2) + '/' + hex.substr(2) +
                             (file.isVdso() ? "/vdso" : "/elf");
    search.tryFile(RegularFile::open(path), path, true);
  }
  return search.result();
}

}  // namespace listing
