#include "kestrel/FileStatus.h"

#include <sys/stat.h>

namespace kestrel {

std::optional<FileStatus> FileStatus::of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  FileStatus result;
  result.size = status.st_size;
  result.modificationTime = status.st_mtime;
  result.isSpecial = !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
  return result;
}

}  // namespace kestrel
