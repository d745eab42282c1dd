#include "kestrel/FileUtils.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <vector>

#include "kestrel/BlockProcessor.h"

namespace kestrel {

namespace {

constexpr int BLOCK_SIZE = 2048;
constexpr std::size_t STREAM_BUFFER_SIZE = 64 * 1024;

struct FileCloser {
  void operator()(std::FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

bool _closeWhole(File file) { return fclose(file.release()) == 0; }

bool _writeWhole(std::FILE* file, const char* data, std::size_t size) {
  return size == 0 || fwrite(data, 1, size, file) == size;
}

// The first `length` bytes of a path need no directory to be made.
bool _countsAsMade(const std::string& path, std::size_t length) {
  return length == 0 || path[length - 1] == ':';
}

// True if the directory named by the first `length` bytes of the path exists now.
bool _makeDirectory(const std::string& path, std::size_t length) {
  if (length >= PATH_MAX) {
    return false;  // what the system would say, without a copy for each component of an endless
                   // path
  }
  return mkdir(path.substr(0, length).c_str(), 0777) == 0 || errno == EEXIST;
}

bool _makeDirectories(const std::string& path, std::size_t length) {
  std::vector<std::size_t> missing;  // lengths, the longest first
  while (!_countsAsMade(path, length) && !_makeDirectory(path, length)) {
    missing.push_back(length);
    const std::size_t slash = path.rfind('/', length - 1);
    if (slash == std::string::npos) {
      break;
    }
    length = slash;
  }
  for (; !missing.empty(); missing.pop_back()) {
    if (!_makeDirectory(path, missing.back())) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool FileUtils::mkpath(const std::string& path, bool isDirectory) {
  if (_countsAsMade(path, path.size())) {
    return true;
  }
  if (isDirectory) {
    return _makeDirectories(path, path.size());
  }
  const std::size_t slash = path.rfind('/');  // a backslash separates nothing
  return slash == std::string::npos || _makeDirectories(path, slash);
}

bool FileUtils::processFile(const std::string& path, BlockProcessor& processor) {
  std::vector<char> buffer(STREAM_BUFFER_SIZE);
  std::ifstream in;
  in.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
  in.open(path, std::ios::in | std::ios::binary);
  if (!in.is_open()) {
    return false;
  }
  errno = 0;
  return processStream(in, processor) && (!in.bad() || errno == EISDIR);
}

bool FileUtils::processStream(std::istream& in, BlockProcessor& processor) {
  if (in.bad()) {
    return false;
  }
  char block[BLOCK_SIZE];
  while (in.read(block, BLOCK_SIZE)) {
    processor.processBuffer(block, BLOCK_SIZE);
  }
  const int error = errno;
  if (in.gcount() > 0) {
    processor.processBuffer(block, static_cast<int>(in.gcount()));
  }
  processor.processEOF();
  errno = error;
  return true;
}

bool FileUtils::copyFile(const std::string& from, const std::string& to) {
  struct stat source {};
  struct stat target {};
  if (stat(from.c_str(), &source) != 0 || !S_ISREG(source.st_mode)) {
    return false;
  }
  const bool exists = stat(to.c_str(), &target) == 0;
  if (exists && source.st_dev == target.st_dev && source.st_ino == target.st_ino) {
    return false;
  }
  const File in(fopen(from.c_str(), "rbe"));
  if (!in) {
    return false;
  }
  File out(fopen(to.c_str(), "wbe"));
  if (!out) {
    return false;
  }
  char block[BLOCK_SIZE];
  std::size_t size = 0;
  while ((size = fread(block, 1, sizeof block, in.get())) > 0) {
    if (!_writeWhole(out.get(), block, size)) {
      return false;
    }
  }
  return ferror(in.get()) == 0 && _closeWhole(std::move(out));
}

bool FileUtils::writeFile(const std::string& path, const std::string& text) {
  return writeFile(path, text.data(), text.size());
}

bool FileUtils::writeFile(const std::string& path, const char* data, std::size_t size) {
  File file(fopen(path.c_str(), "wbe"));
  return file && _writeWhole(file.get(), data, size) && _closeWhole(std::move(file));
}

}  // namespace kestrel
