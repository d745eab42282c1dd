#include "kestrel/FileStatus.h"

#include <cerrno>
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

bool FileStatus::isAboutThePath(int error) {
  switch (error) {
    case EACCES:
    case EISDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case ENOENT:
    case ENOTDIR:
    case EPERM:
    case EROFS:
      return true;
    default:
      return false;
  }
}

}  // namespace kestrel
