// The next content of a file, written under a temporary name beside it and put in its place in one
// step: readers, other processes that replace the same file, and a process that dies half-way never
// see or leave a torn one. The temporary name is short, whatever the length of the file's own name.
#pragma once

#include <string>

namespace kestrel {

class ReplacementFile {
 public:
  // Makes the empty temporary file. Not open afterwards if `path` could not be opened for writing
  // (a directory, a file without write permission, a name too long, a directory that takes no
  // files).
  explicit ReplacementFile(const std::string& path);
  // Removes the temporary file unless it was committed.
  ~ReplacementFile();
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  bool isOpen() const { return descriptor_ != -1; }
  // The errno of what failed last.
  int getError() const { return error_; }
  // Where the content is to be written.
  const std::string& temporaryPath() const { return temporaryPath_; }

  // Puts the content in its place; whoever wrote it has closed it. False when the system refuses.
  bool commit();
  // Puts an empty file in its place, whatever has been written.
  bool commitEmpty();

  // Removes the temporary files that processes left in `directory` when they died; those still
  // being written stay.
  static void removeAbandoned(const std::string& directory);

 private:
  bool _createTemporary(const std::string& directory);

  std::string path_;
  std::string temporaryPath_;
  int error_ = 0;
  int descriptor_ = -1;  // holds the lock that tells a file being written from an abandoned one
};

}  // namespace kestrel
