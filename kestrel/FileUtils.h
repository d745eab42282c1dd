// File operations that need no object. Any thread.
#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace kestrel {

class BlockProcessor;

class FileUtils {
 public:
  // Creates the missing directories of a path, with mode 0777 less the umask. With `isDirectory`
  // false the last component is a file name and is not created. True when nothing was missing or
  // all of it could be created; whatever exists already counts as a directory, files too.
  static bool mkpath(const std::string& path, bool isDirectory);

  // Pushes the file through the processor. False with errno set when the file cannot be opened, and
  // nothing reaches the processor, or when it cannot be read to its end, and the processor gets
  // what could be, and the end of data. A directory is an empty file.
  static bool processFile(const std::string& path, BlockProcessor& processor);
  // Pushes the rest of the stream through the processor in blocks of 2048 bytes, then ends it with
  // processEOF(). False, and nothing reaches the processor, when the stream is bad. A read error in
  // the middle ends the data and leaves the stream bad, with errno set.
  static bool processStream(std::istream& in, BlockProcessor& processor);

  // Copies the bytes of a regular file; a target that exists is overwritten, its directories are
  // not created. False when the source is no regular file or is the target itself, or when anything
  // cannot be read or written; what was written by then stays.
  static bool copyFile(const std::string& from, const std::string& to);

  // Makes `path` a file of exactly these bytes. False when it cannot be written whole.
  static bool writeFile(const std::string& path, const std::string& text);
  static bool writeFile(const std::string& path, const char* data, std::size_t size);
};

}  // namespace kestrel
