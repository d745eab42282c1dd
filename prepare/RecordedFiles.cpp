#include "prepare/RecordedFiles.h"

#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "listing/DebugFiles.h"
#include "listing/Vdso.h"

namespace prepare {

using recordings::MappedFile;

namespace {

bool isRecordedHere(const recordings::Facts& facts) {
  utsname system{};
  return uname(&system) == 0 && facts.hostname == system.nodename &&
         facts.osRelease == system.release;
}

int openOwnVdso() {
  const std::string image = listing::ownVdso();
  const int descriptor = memfd_create("vdso", MFD_CLOEXEC);
  if (descriptor != -1 &&
      write(descriptor, image.data(), image.size()) != static_cast<ssize_t>(image.size())) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

}  // namespace

RecordedFiles::RecordedFiles(const recordings::Facts& facts, const listing::Options& options)
    : options_(options),
      isThisMachine_(!options.otherMachine && isRecordedHere(facts)),
      vdso_(options.otherMachine ? -1 : openOwnVdso()) {
  for (const recordings::FileBuildId& known : facts.buildIds) {
    buildIds_.emplace(known.name, known.id);
  }
}

RecordedFiles::~RecordedFiles() {
  if (vdso_ != -1) {
    close(vdso_);
  }
}

recordings::BuildId RecordedFiles::buildIdOf(const std::string& name) const {
  const auto known = buildIds_.find(name);
  return known == buildIds_.end() ? recordings::BuildId() : known->second;
}

recordings::BuildId RecordedFiles::buildIdOf(const MappedFile& file) const {
  if (!file.buildId.empty() || file.kind == MappedFile::Kind::VDSO_32) {
    return file.buildId;
  }
  return buildIdOf(file.path.empty() ? file.name : file.path);
}

listing::File RecordedFiles::fileOf(const MappedFile& file) const {
  listing::File result;
  switch (file.kind) {
    case MappedFile::Kind::VDSO:
      result.kind = listing::File::Kind::Vdso;
      break;
    case MappedFile::Kind::VDSO_32:
      result.kind = listing::File::Kind::Vdso32;
      break;
    case MappedFile::Kind::PERF_MAP:
      result.kind = listing::File::Kind::PerfMap;
      break;
    default:
      result.kind = listing::File::Kind::Elf;
      break;
  }
  result.name = file.name;
  result.buildId = buildIdOf(file);
  result.pid = file.pid;
  return result;
}

std::string RecordedFiles::_pathOf(const MappedFile& file) const {
  const std::string path = listing::locate(fileOf(file), options_).path;
  if (!path.empty() || file.kind != MappedFile::Kind::VDSO || vdso_ == -1) {
    return path;
  }
  const std::string own = "/proc/self/fd/" + std::to_string(vdso_);
  const recordings::BuildId id = buildIdOf(file);
  const auto layout = listing::readLayout(own);
  const bool isRecorded = layout && (id.empty() ? isThisMachine_ : layout->buildId == id);
  return isRecorded ? own : "";
}

std::optional<listing::Layout> RecordedFiles::layoutOf(const MappedFile& file) const {
  const std::string path = _pathOf(file);
  return path.empty() ? std::nullopt : listing::readLayout(path);
}

unwinding::FrameFiles::Location RecordedFiles::locationOf(const MappedFile& file) const {
  unwinding::FrameFiles::Location location;
  location.path = _pathOf(file);
  if (const auto layout =
          location.path.empty() ? std::nullopt : listing::readLayout(location.path)) {
    location.debugPath = listing::findDebugFile(file.name, location.path, *layout, options_).path;
  }
  return location;
}

}  // namespace prepare
