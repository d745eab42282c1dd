// File operations that need no object. Any thread.
#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace kestrel {

class BlockProcessor;

class FileUtils {
 public:
  // Creates the missing directories of a path, with mode 0777 less the umask; unless `isDirectory`,
  // those of the folder that it lies in. True when they are there now. Whatever has the name of a
  // directory counts as one, and so does a beginning of the path that ends in ":".
  static bool mkpath(const std::string& path, bool isDirectory);

  // Pushes the file through the processor. A directory is an empty file. False, with errno set,
  // when the file cannot be opened: then nothing reaches the processor; or cannot be read to its
  // end: then what could be read does, and the end of data.
  static bool processFile(const std::string& path, BlockProcessor& processor);
  // Pushes the rest of the stream through the processor in blocks of 2048 bytes, then ends it with
  // processEOF(). False, and nothing reaches the processor, when the stream is bad beforehand. An
  // error later counts as the end of the data; it leaves the stream bad and its errno set.
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
