#include "kestrel/FileFinder.h"

#include <algorithm>
#include <sys/stat.h>

namespace kestrel {

namespace {

bool _exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

void FileFinder::setSearchPath(const char* path) {
  setSearchPath(std::string(path == nullptr ? "" : path));
}

void FileFinder::setSearchPath(const std::string& path) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (std::size_t colon = path.find(':'); colon != std::string::npos;
       colon = path.find(':', start)) {
    pieces.push_back(path.substr(start, colon - start));
    start = colon + 1;
  }
  pieces.push_back(path.substr(start));
  setSearchPath(pieces);
}

void FileFinder::setSearchPath(const std::vector<std::string>& dirs) {
  std::vector<std::string> fixedDirs(dirs.size());
  for (std::size_t i = 0; i < dirs.size(); ++i) {
    _fixDirPath(dirs[i], fixedDirs[i]);
  }
  searchPath_.swap(fixedDirs);
}

void FileFinder::appendSearchPath(const std::string& dir) {
  std::string fixed;
  _fixDirPath(dir, fixed);
  _remDirFromPath(fixed);
  searchPath_.push_back(fixed);
}

void FileFinder::prependSearchPath(const std::string& dir) {
  std::string fixed;
  _fixDirPath(dir, fixed);
  _remDirFromPath(fixed);
  searchPath_.insert(searchPath_.begin(), fixed);
}

bool FileFinder::findFile(const std::string& name, std::string& found) const {
  if (checkAsGiven_ && _exists(name)) {
    found = name;
    return true;
  }
  for (const std::string& dir : searchPath_) {
    std::string candidate = dir + name;
    if (_exists(candidate)) {
      found = std::move(candidate);
      return true;
    }
  }
  found.clear();
  return false;
}

// A directory that ends in a backslash ends up with two slashes: kept so, the test is on what was
// given.
void FileFinder::_fixDirPath(const std::string& dir, std::string& fixed) {
  if (dir.empty()) {
    fixed = "./";
    return;
  }
  const bool complete = dir.back() == '/';
  fixed = dir;
  std::replace(fixed.begin(), fixed.end(), '\\', '/');
  if (!complete) {
    fixed += '/';
  }
}

void FileFinder::_remDirFromPath(const std::string& dir) {
  const auto entry = std::find(searchPath_.begin(), searchPath_.end(), dir);
  if (entry != searchPath_.end()) {
    searchPath_.erase(entry);
  }
}

}  // namespace kestrel
