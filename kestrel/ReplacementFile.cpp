#include "kestrel/ReplacementFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel {

namespace {

constexpr const char* TEMPORARY_PREFIX = ".replacement-";

std::string _directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// Whether the file could be opened for writing, or made; else errno is set. Neither makes nor
// changes it.
bool _isWritable(const std::string& path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor == -1) {
    return errno == ENOENT;
  }
  struct stat status {};
  const bool isKnown = fstat(descriptor, &status) == 0;
  const int error = isKnown ? EACCES : errno;
  close(descriptor);
  errno = error;
  return isKnown && S_ISREG(status.st_mode);
}

// Whether this process holds the file's lock now, and the file still has its name.
bool _lock(int descriptor) {
  struct stat status {};
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor, &status) == 0 &&
         status.st_nlink > 0;
}

}  // namespace

ReplacementFile::ReplacementFile(const std::string& path) : path_(path) {
  if (!_isWritable(path) || !_createTemporary(_directoryOf(path))) {
    error_ = errno;
  }
}

ReplacementFile::~ReplacementFile() {
  if (descriptor_ != -1) {
    unlink(temporaryPath_.c_str());
    close(descriptor_);
  }
}

bool ReplacementFile::_createTemporary(const std::string& directory) {
  static std::atomic<unsigned> counter{0};
  constexpr int MOST_ATTEMPTS = 100;  // names left by dead processes, or taken away by a clean-up
  for (int attempt = 0; attempt < MOST_ATTEMPTS; ++attempt) {
    temporaryPath_ = directory + TEMPORARY_PREFIX + std::to_string(getpid()) + "-" +
                     std::to_string(counter.fetch_add(1));
    const int descriptor =
        open(temporaryPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor == -1 && errno != EEXIST) {
      return false;
    }
    if (descriptor != -1 && _lock(descriptor)) {
      descriptor_ = descriptor;
      return true;
    }
    if (descriptor != -1) {
      close(descriptor);
    }
  }
  return false;
}

bool ReplacementFile::commit() {
  if (descriptor_ == -1) {
    return false;
  }
  if (std::rename(temporaryPath_.c_str(), path_.c_str()) != 0) {
    error_ = errno;
    return false;
  }
  close(descriptor_);
  descriptor_ = -1;
  return true;
}

bool ReplacementFile::commitEmpty() {
  if (descriptor_ != -1 && ftruncate(descriptor_, 0) != 0) {
    error_ = errno;
    return false;
  }
  return commit();
}

void ReplacementFile::removeAbandoned(const std::string& directory) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), &closedir);
  if (entries == nullptr) {
    return;
  }
  while (const dirent* const entry = readdir(entries.get())) {
    if (std::strncmp(entry->d_name, TEMPORARY_PREFIX, std::strlen(TEMPORARY_PREFIX)) != 0) {
      continue;
    }
    const std::string path = directory + "/" + entry->d_name;
    const int descriptor = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor != -1) {
      if (_lock(descriptor)) {
        unlink(path.c_str());
      }
      close(descriptor);
    }
  }
}

}  // namespace kestrel
