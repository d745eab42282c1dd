#include "symbols/SymbolCache.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <utility>
#include <vector>

#include "app/PerfSettings.h"
#include "kestrel/FileStatus.h"
#include "kestrel/FileUtils.h"
#include "kestrel/ReplacementFile.h"
#include "kestrel/Singleton.h"
#include "kestrel/exec/FileTie.h"
#include "kestrel/exec/PortableFileProcessor.h"
#include "kestrel/exec/ShellCommandLineParser.h"
#include "kestrel/exec/SimpleExec.h"
#include "kestrel/log/Logger.h"

using kestrel::FileStatus;

namespace {

constexpr unsigned int DRAIN_MILLISECONDS = 5000;
constexpr const char COPY_ERROR[] = "Error copying symbols of '%s': %s";

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("SymbolCache");
  return *logger;
}

PerfSettings* _settings() { return kestrel::Singleton<PerfSettings>::Instance(); }

bool _isKeptInFileName(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.';
}

// Recordings are untrusted, the name is appended to the lister's command line, and listers have
// options that load code.
bool _readsAsOption(const std::string& sourcePath) {
  std::vector<std::string> words;
  kestrel::ShellCommandLineParser::parse(sourcePath, words);
  return std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return !word.empty() && (word.front() == '-' || word.front() == '@');
  });
}

// Why there is no list; the text of an errno, or none when there is one.
struct Failure {
  bool isOfTheRun = false;  // the lister could not be run, which has been logged
  std::string reason;

  explicit operator bool() const { return isOfTheRun || !reason.empty(); }
};

Failure _failure(int error) { return {false, error == 0 ? "" : std::strerror(error)}; }

// Whatever ends the lister's use, memory that runs out among it, ends the lister.
struct Dispose {
  void operator()(kestrel::SimpleExec* lister) const {
    if (lister->isRunning()) {
      lister->terminate(true);
    }
    lister->selfDestruct();
  }
};
using Lister = std::unique_ptr<kestrel::SimpleExec, Dispose>;
using Pipe = std::unique_ptr<kestrel::PortablePipe>;

// Copies what the lister prints until it has ended and its output has drained. Gives the errno when
// the output did not arrive whole.
int _copyOutput(kestrel::SimpleExec& lister, Pipe pipe, std::ostream& list) {
  kestrel::FileTie tie;
  if (!tie.tie(pipe.get(), &list)) {
    return tie.getError();
  }
  static_cast<void>(pipe.release());  // the tie's
  lister.waitTilDone(0);
  const bool isDrained = tie.getFileProcessor()->waitTilDone(DRAIN_MILLISECONDS);
  tie.close();
  return isDrained ? tie.getError() : ETIMEDOUT;
}

// Runs the command line and copies what it prints into `list`.
Failure _runLister(const std::string& commandLine, std::ostream& list) {
  const Lister lister(kestrel::SimpleExecFactory::createInstance());
  lister->discardErrorPipe();
  lister->exec(commandLine.c_str(), nullptr, nullptr);
  delete lister->claimReadPipe();  // nothing comes on its standard input: end of data, not a wait
  Pipe pipe(lister->claimWritePipe());
  // A quick lister may have ended by now: whether it was executed counts, not whether it still
  // runs.
  const bool isExecuted = lister->waitTilExecuted();
  if (pipe == nullptr || !isExecuted) {
    if (!isExecuted) {
      lister->waitTilDone(0);  // for the status that the message gives
    }
    _log().errorf("Error running symbols command '%s' exit status=%d", commandLine.c_str(),
                  lister->getExitStatus());
    return {true, ""};
  }
  Failure failure = _failure(_copyOutput(*lister, std::move(pipe), list));
  if (!failure && lister->getExitStatus() == kestrel::SimpleExec::KILLED) {
    failure.reason = "the lister was ended by a signal";
  }
  return failure;
}

// What has no status because the machine failed is not what is missing.
void _reportUnknown(const std::string& path) {
  const int error = errno;
  if (!FileStatus::isAboutThePath(error)) {
    _log().errorf("Error looking at '%s': %s", path.c_str(), std::strerror(error));
  }
}

}  // namespace

SymbolCache::SymbolCache()
    : cacheDir_(_settings()->symbolCacheDir + "/"), indexPath_(cacheDir_ + "symbolcache.json") {
  _log();
  kestrel::FileUtils::mkpath(indexPath_, false);
  kestrel::ReplacementFile::removeAbandoned(cacheDir_);
  if (FileStatus::of(indexPath_)) {
    index_.fromFile(indexPath_.c_str());
    for (int i = 0; i < index_.size(); ++i) {
      _noteEntry(i);
    }
  }
}

// Of several entries of a path, the last one counts.
void SymbolCache::_noteEntry(int number) {
  if (const std::string* const path = index_.key(number)) {
    entries_[*path] = number;
  }
}

bool SymbolCache::getSampleDataFile(const std::string& sourcePath, std::string& listPath) {
  _log().tracef("getSampleDataFile %s", sourcePath.c_str());
  listPath.clear();
  const auto override = overrides_.find(sourcePath);
  if (override != overrides_.end()) {
    if (FileStatus::of(override->second)) {
      listPath = override->second;
      _log().infof("Using override for '%s' in '%s'", sourcePath.c_str(), listPath.c_str());
      return true;
    }
    _reportUnknown(override->second);
  }
  const std::optional<FileStatus> source = FileStatus::of(sourcePath);
  if (!source) {
    _reportUnknown(sourcePath);
    _log().infof("Skipping..., source file does not exist '%s'", sourcePath.c_str());
    return false;
  }
  const auto known = entries_.find(sourcePath);
  kestrel::JSOM entry = known == entries_.end() ? kestrel::JSOM() : index_[known->second];
  if (_settings()->freezeSymbolCache) {
    return _findFrozenList(sourcePath, entry, listPath);
  }
  if (entry.isObject() && entry["mtime"].longValue(0) == source->modificationTime) {
    if (entry["size"].longValue(-1) == 0) {
      _log().infof("No symbols found in '%s'", sourcePath.c_str());
      return false;
    }
    if (_findListOf(entry, listPath)) {
      _log().infof("Using already up-to-date cached version of '%s' in '%s'", sourcePath.c_str(),
                   listPath.c_str());
      return true;
    }
  }
  return _createList(sourcePath, source->modificationTime, listPath);
}

bool SymbolCache::_findFrozenList(const std::string& sourcePath, kestrel::JSOM& entry,
                                  std::string& listPath) const {
  if (entry.isObject() && entry["size"].longValue(-1) != 0 && _findListOf(entry, listPath)) {
    _log().infof("Cache Freeze: Using previously cached version of '%s' in '%s'",
                 sourcePath.c_str(), listPath.c_str());
    return true;
  }
  _log().infof("Cache Freeze: Skipping... no cached version of '%s'", sourcePath.c_str());
  return false;
}

bool SymbolCache::_findListOf(kestrel::JSOM& entry, std::string& listPath) const {
  const std::string& file = entry["file"].stringValue(kestrel::JSOM::EMPTY_STRING);
  if (file.empty()) {
    return false;
  }
  listPath = cacheDir_ + file;
  const std::optional<FileStatus> list = FileStatus::of(listPath);
  return list && !list->isSpecial;  // an index from elsewhere must not make the run read a device
}

bool SymbolCache::_createList(const std::string& sourcePath, long long modificationTime,
                              std::string& listPath) {
  if (_readsAsOption(sourcePath)) {
    _log().warnf("Not listing '%s', its name reads as an option", sourcePath.c_str());
    return false;
  }
  std::string name;
  generateCacheFileName(sourcePath, name);
  listPath = cacheDir_ + name;
  if (!createCacheFile(sourcePath, listPath)) {
    return false;
  }
  const std::optional<FileStatus> list = FileStatus::of(listPath);
  if (!list && errno != ENOENT) {
    return _discardList(sourcePath, listPath, std::strerror(errno));
  }
  // Gone already: another run found the same list empty and removed it.
  const long long size = list.value_or(FileStatus()).size;
  kestrel::JSOM entry = index_[sourcePath];
  entry["file"].setString(name);
  entry["mtime"].setLong(modificationTime);
  entry["size"].setLong(size);
  if (size == 0) {
    entry.erase("file");
    std::error_code ignored;
    std::filesystem::remove(listPath, ignored);
  }
  if (entries_.count(sourcePath) == 0) {
    _noteEntry(index_.size() - 1);
  }
  _writeIndex();
  _log().infof("Created new %u byte cache file for '%s' in '%s'", static_cast<unsigned int>(size),
               sourcePath.c_str(), listPath.c_str());
  if (size == 0) {
    _log().infof("No symbols found in '%s'", sourcePath.c_str());
    return false;
  }
  return true;
}

void SymbolCache::generateCacheFileName(const std::string& sourcePath, std::string& name) const {
  for (const char c : sourcePath) {
    name += _isKeptInFileName(static_cast<unsigned char>(c)) ? c : '_';
  }
  name += ".nm";
}

bool SymbolCache::createCacheFile(const std::string& sourcePath, const std::string& listPath) {
  _log().tracef("createCacheFile '%s' '%s'", sourcePath.c_str(), listPath.c_str());
  const std::string commandLine = _settings()->symbolListCommand + " " + sourcePath;
  _log().debugf("createCacheFile cmd: '%s'", commandLine.c_str());
  kestrel::ReplacementFile replacement(listPath);
  std::ofstream list;
  if (replacement.isOpen()) {
    list.open(replacement.temporaryPath(), std::ios::binary | std::ios::trunc);
  }
  if (!list.is_open()) {
    const int error = replacement.isOpen() ? errno : replacement.getError();
    _log().warnf("Error creating symbol output file '%s'", listPath.c_str());
    if (!FileStatus::isAboutThePath(error)) {
      _log().errorf(COPY_ERROR, sourcePath.c_str(), std::strerror(error));
    }
    return false;
  }
  Failure failure = _runLister(commandLine, list);
  errno = 0;
  list.close();
  if (!failure && list.fail()) {
    failure = _failure(errno == 0 ? EIO : errno);
  }
  if (failure.isOfTheRun) {
    replacement.commitEmpty();
    return false;
  }
  if (!failure && !replacement.commit()) {
    failure = _failure(replacement.getError());
  }
  return !failure || _discardList(sourcePath, listPath, failure.reason);
}

// False, for the caller to return: what did not arrive whole must not be taken for the list.
bool SymbolCache::_discardList(const std::string& sourcePath, const std::string& listPath,
                               const std::string& reason) {
  _log().errorf(COPY_ERROR, sourcePath.c_str(), reason.c_str());
  std::error_code ignored;
  std::filesystem::remove(listPath, ignored);
  return false;
}

// Where the directory takes no new files, the index is written in place, or the attempt says that
// it cannot be.
void SymbolCache::_writeIndex() {
  kestrel::ReplacementFile replacement(indexPath_);
  const std::string& path = replacement.isOpen() ? replacement.temporaryPath() : indexPath_;
  errno = 0;
  const bool isWritten = index_.toCompactFile(path.c_str(), kestrel::JSOM::defaultPrecision);
  const int writeError = errno;
  if (isWritten && (!replacement.isOpen() || replacement.commit())) {
    return;
  }
  const int error = isWritten ? replacement.getError() : writeError;
  if (!FileStatus::isAboutThePath(error)) {
    _log().errorf("Error writing symbol cache index '%s': %s", indexPath_.c_str(),
                  std::strerror(error));
  }
}
