// What the system knows about a file, symbolic links followed.
#pragma once

#include <optional>
#include <string>

namespace kestrel {

struct FileStatus {
  // Nothing, with errno set, when the file does not exist or cannot be looked at.
  static std::optional<FileStatus> of(const std::string& path);
  // Whether such an errno is about the path: there is no file, or none for this user. Otherwise the
  // machine could not tell.
  static bool isAboutThePath(int error);

  long long size = 0;              // bytes
  long long modificationTime = 0;  // whole seconds since 1970
  bool isSpecial = false;          // a device, pipe or socket: reading it may never end
};

}  // namespace kestrel
