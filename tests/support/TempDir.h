// A fresh, empty folder for one test, removed with all it holds at the end of the scope.
#pragma once

#include <string>

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Absolute, without a slash at its end.
  const std::string& path() const { return path_; }
  // The path of a file in the folder; nothing is created.
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Writes a file of exactly these bytes into the folder, over an older one, and returns its path.
  // The directories in its name must exist.
  std::string write(const std::string& name, const std::string& bytes) const;
  // All bytes of the folder's file; empty when it does not exist, see has().
  std::string read(const std::string& name) const;
  bool has(const std::string& name) const;

 private:
  std::string path_;
};
