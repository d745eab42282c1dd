#include "symbols/SymbolCache.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include "app/PerfSettings.h"
#include "kestrel/FileStatus.h"
#include "kestrel/FileTie.h"
#include "kestrel/FileUtils.h"
#include "kestrel/PortableFileProcessor.h"
#include "kestrel/ReplacementFile.h"
#include "kestrel/ShellCommandLineParser.h"
#include "kestrel/SimpleExec.h"
#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"

using kestrel::FileStatus;

namespace {

constexpr unsigned int DRAIN_MILLISECONDS = 5000;

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

// Copies what the lister prints until it has ended and its output has drained. False when it did
// not arrive whole. Takes the pipe over and sets it to null, unless it could not be tied.
bool _copyOutput(kestrel::SimpleExec& lister, kestrel::PortablePipe*& pipe, std::ostream& list) {
  kestrel::FileTie tie;
  if (!tie.tie(pipe, &list)) {
    return false;
  }
  pipe = nullptr;
  lister.waitTilDone(0);
  const bool isDrained = tie.getFileProcessor()->waitTilDone(DRAIN_MILLISECONDS);
  tie.close();
  return isDrained;
}

// Runs the command line and copies what it prints into `list`. False, after an ERROR line, when it
// could not be run or its output did not arrive whole.
bool _runLister(const std::string& commandLine, std::ostream& list) {
  kestrel::SimpleExec* const lister = kestrel::SimpleExecFactory::createInstance();
  lister->discardErrorPipe();
  lister->exec(commandLine.c_str(), nullptr, nullptr);
  delete lister->claimReadPipe();  // nothing comes on its standard input: end of data, not a wait
  kestrel::PortablePipe* pipe = lister->claimWritePipe();
  // A quick lister may have ended by now: whether it was executed counts, not whether it still
  // runs.
  const bool isExecuted = lister->waitTilExecuted();
  const bool isListed = pipe != nullptr && isExecuted && _copyOutput(*lister, pipe, list);
  if (!isListed) {
    if (!isExecuted) {
      lister->waitTilDone(0);  // for the status that the message gives
    }
    _log().errorf("Error running symbols command '%s' exit status=%d", commandLine.c_str(),
                  lister->getExitStatus());
    lister->terminate(true);
  }
  lister->selfDestruct();
  delete pipe;
  return isListed;
}

}  // namespace

SymbolCache::SymbolCache()
    : cacheDir_(_settings()->symbolCacheDir + "/"), indexPath_(cacheDir_ + "symbolcache.json") {
  _log();
  kestrel::FileUtils::mkpath(indexPath_, false);
  kestrel::ReplacementFile::removeAbandoned(cacheDir_);
  if (FileStatus::of(indexPath_)) {
    index_.fromFile(indexPath_.c_str());
  }
}

bool SymbolCache::getSampleDataFile(const std::string& sourcePath, std::string& listPath) {
  _log().tracef("getSampleDataFile %s", sourcePath.c_str());
  listPath.clear();
  const auto override = overrides_.find(sourcePath);
  if (override != overrides_.end() && FileStatus::of(override->second)) {
    listPath = override->second;
    _log().infof("Using override for '%s' in '%s'", sourcePath.c_str(), listPath.c_str());
    return true;
  }
  const std::optional<FileStatus> source = FileStatus::of(sourcePath);
  if (!source) {
    _log().infof("Skipping..., source file does not exist '%s'", sourcePath.c_str());
    return false;
  }
  kestrel::JSOM entry = index_[sourcePath];
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
  return _createList(sourcePath, source->modificationTime, entry, listPath);
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
                              kestrel::JSOM& entry, std::string& listPath) {
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
  // Gone already: another run found the same list empty and removed it.
  const long long size = FileStatus::of(listPath).value_or(FileStatus()).size;
  entry["file"].setString(name);
  entry["mtime"].setLong(modificationTime);
  entry["size"].setLong(size);
  if (size == 0) {
    entry.erase("file");
    std::error_code ignored;
    std::filesystem::remove(listPath, ignored);
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
    _log().warnf("Error creating symbol output file '%s'", listPath.c_str());
    return false;
  }
  const bool isListed = _runLister(commandLine, list);
  list.close();
  if (!isListed) {
    replacement.commitEmpty();
    return false;
  }
  return replacement.commit();
}

// Where the directory takes no new files, the index is written in place, or the attempt says that
// it cannot be.
void SymbolCache::_writeIndex() {
  kestrel::ReplacementFile replacement(indexPath_);
  if (!replacement.isOpen()) {
    index_.toCompactFile(indexPath_.c_str(), kestrel::JSOM::defaultPrecision);
  } else if (index_.toCompactFile(replacement.temporaryPath().c_str(),
                                  kestrel::JSOM::defaultPrecision)) {
    replacement.commit();
  }
}
