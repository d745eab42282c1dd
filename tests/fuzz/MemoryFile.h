// A file without a disk, for code that insists on a path or a file stream.
#pragma once

#include <cstddef>
#include <string>

class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Makes these bytes the whole content.
  void write(const void* bytes, std::size_t size);
  void write(const std::string& bytes) { write(bytes.data(), bytes.size()); }
  // Opens the file anew, whoever uses it. Good for this process, as long as the object lives.
  const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};
