// Looks file names up along an ordered list of directories. A name is appended to each directory as
// it stands, so a directory can act as the root for absolute names. One thread at a time.
#pragma once

#include <string>
#include <vector>

namespace kestrel {

class FileFinder {
 public:
  // Whether the name itself is tried before the search path; not so at first.
  void setCheckAsGiven(bool check) { checkAsGiven_ = check; }

  // Directories separated by ":"; an empty piece is the working directory. Duplicates stay. Null
  // counts as empty text.
  void setSearchPath(const char* path);
  void setSearchPath(const std::string& path);
  void setSearchPath(const std::vector<std::string>& dirs);
  // Adds a directory at an end of the list; if the list has it already, it moves there.
  void appendSearchPath(const std::string& dir);
  void prependSearchPath(const std::string& dir);
  // Each directory ends in "/".
  const std::vector<std::string>& getSearchPath() const { return searchPath_; }

  // `found` is the first path that exists; if none does, it is emptied and the result is false.
  bool findFile(const std::string& name, std::string& found) const;

 private:
  static void _fixDirPath(const std::string& dir, std::string& fixed);
  void _remDirFromPath(const std::string& dir);

  bool checkAsGiven_ = false;
  std::vector<std::string> searchPath_;
};

}  // namespace kestrel
