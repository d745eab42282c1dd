// Fuzz target: the index of the symbol cache, as it may come with a cache directory from elsewhere.
// The cache is asked for lists that it may have, once as it stands and once as if files could be
// listed anew. The names of these files read as options, so that no lister is run.
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "app/PerfSettings.h"
#include "kestrel/FileStatus.h"
#include "kestrel/Singleton.h"
#include "symbols/SymbolCache.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FreshProcess.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"
#include "tests/support/TempDir.h"

using kestrel::FileStatus;
using kestrel::Singleton;

namespace {

constexpr time_t LISTED_AT = 1405429210;
const char* const SOURCES[] = {"-app", "-tool", "-missing"};

// A cache directory whose index is the input, beside two files that may be in it. Names in the
// index must not depend on where that is, so it is the working directory while the cache is used.
class CacheFolder {
 public:
  CacheFolder() {
    for (const char* const source : {"-app", "-tool"}) {
      const std::string path = folder_.write(source, "a program");
      const timespec times[] = {{LISTED_AT, 0}, {LISTED_AT, 0}};
      require(utimensat(AT_FDCWD, path.c_str(), times, 0) == 0, "the folder can be made");
    }
    folder_.write("_app.nm", "00000100 T main\n");
    require(mkfifo(folder_.file("pipe.nm").c_str(), 0600) == 0 &&
                symlink(index_.path().c_str(), folder_.file("symbolcache.json").c_str()) == 0,
            "the folder can be made");
    descriptor_ = open(folder_.path().c_str(), O_DIRECTORY | O_CLOEXEC);
  }

  int descriptor() const { return descriptor_; }
  MemoryFile& index() { return index_; }

 private:
  TempDir folder_;
  MemoryFile index_;
  int descriptor_ = -1;
};

class WorkingDirectory {
 public:
  explicit WorkingDirectory(int descriptor) : before_(open(".", O_DIRECTORY | O_CLOEXEC)) {
    require(fchdir(descriptor) == 0, "the folder can be entered");
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  ~WorkingDirectory() {
    require(fchdir(before_) == 0, "the folder can be left");
    close(before_);
  }

 private:
  int before_;
};

void askForLists() {
  SymbolCache& cache = *Singleton<SymbolCache>::Instance();
  for (const char* const source : SOURCES) {
    std::string path;
    if (!cache.getSampleDataFile(source, path)) {
      continue;
    }
    const std::optional<FileStatus> list = FileStatus::of(path);
    require(list && !list->isSpecial, "a list can be read without waiting");
    require(path.compare(0, 2, "./") == 0, "a list is named as in the cache directory");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silenceMessages();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static CacheFolder folder;
  folder.index().write(data, size);
  const WorkingDirectory inside(folder.descriptor());
  for (const bool isFrozen : {true, false}) {
    startAfreshForTest();
    PerfSettings& settings = *Singleton<PerfSettings>::Instance();
    settings.symbolCacheDir.assign(1, '.');  // gcc 12 warns falsely of an assignment of "."
    settings.freezeSymbolCache = isFrozen;
    const AllocationMeter meter;
    askForLists();
    requireBoundedMemory(meter, size);
  }
  return 0;
}
