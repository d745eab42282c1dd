#include "prepare/PreparedFolder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdio.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "kestrel/FileUtils.h"
#include "prepare/PrepareError.h"

namespace prepare {

namespace fs = std::filesystem;

namespace {

// Tells a prepared folder from everything else.
constexpr char MARK[] = ".tracemill-prepared";

bool isThere(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

void refuseOthers(const std::string& place) {
  if (isThere(place) && !isThere(place + "/" + MARK)) {
    throw PrepareError(place +
                       ": stands there already and was not prepared by tracemill-prepare. Name "
                       "another folder with -o, or remove this one.");
  }
}

std::string absolute(const std::string& path) {
  std::error_code error;
  fs::path whole = fs::absolute(path, error).lexically_normal();
  if (!whole.has_filename()) {
    whole = whole.parent_path();  // a slash at the end
  }
  return whole.string();
}

[[noreturn]] void fail(const std::string& path, const char* what) {
  throw PrepareError(path + ": " + what + ": " + std::strerror(errno) + ".");
}

}  // namespace

PreparedFolder::PreparedFolder(const std::string& place) : place_(absolute(place)) {
  refuseOthers(place_);
  work_ = place_ + ".XXXXXX";
  if (mkdtemp(work_.data()) == nullptr) {
    const std::string parent = fs::path(place_).parent_path().string();
    fail(parent, "no folder can be made there");
  }
  const mode_t mask = umask(0);
  umask(mask);
  chmod(work_.c_str(), 0777 & ~mask);
  try {
    write(MARK, "");
  } catch (...) {
    // Without a descriptor, which may be what is missing.
    unlink(workPath(MARK).c_str());
    rmdir(work_.c_str());
    throw;
  }
}

PreparedFolder::~PreparedFolder() {
  if (!isCommitted_) {
    _remove();
  }
}

void PreparedFolder::_remove() const {
  std::error_code ignored;
  fs::remove_all(work_, ignored);
}

void PreparedFolder::write(const std::string& name, const std::string& text) const {
  const std::string path = workPath(name);
  if (!kestrel::FileUtils::writeFile(path, text)) {
    fail(path, "cannot be written");
  }
}

void PreparedFolder::commit() {
  refuseOthers(place_);
  if (!isThere(place_)) {
    if (rename(work_.c_str(), place_.c_str()) != 0) {
      fail(place_, "the folder cannot be put there");
    }
    isCommitted_ = true;
    return;
  }
  // Exchanged in one step where the file system can; the old one is then what is removed.
  if (renameat2(AT_FDCWD, work_.c_str(), AT_FDCWD, place_.c_str(), RENAME_EXCHANGE) != 0) {
    std::error_code ignored;
    const std::string old = work_ + ".old";
    if (rename(place_.c_str(), old.c_str()) != 0 || rename(work_.c_str(), place_.c_str()) != 0) {
      fail(place_, "the folder cannot be replaced");
    }
    fs::remove_all(old, ignored);
    isCommitted_ = true;
    return;
  }
  _remove();
  isCommitted_ = true;
}

std::string PreparedFolder::placeFor(const std::string& recording) {
  std::string name = recording == "-" ? "perf.data" : recording;
  while (name.size() > 1 && name.back() == '/') {
    name.pop_back();
  }
  return name + ".prepared";
}

}  // namespace prepare
