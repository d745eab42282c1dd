// Writes log lines to a file of bounded size, rotated into numbered files: the base name is the
// current file, the base name with ".1" the one before, and so on. The file is opened by the first
// line, so every run begins by rotating the files of the run before. Sizes are bytes. Any thread.
//
// Configuration: "maxSize" (0: no limit), "fileCount" (numbered files and the current one together;
// less than 1 counts as 1), "baseName".
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kestrel/log/LogAdapter.h"
#include "kestrel/threads/Lock.h"

namespace kestrel {

class FileLogAdapter : public LogAdapter {
 public:
  explicit FileLogAdapter(const JSOM& config);
  ~FileLogAdapter() override;
  FileLogAdapter(const FileLogAdapter&) = delete;
  FileLogAdapter& operator=(const FileLogAdapter&) = delete;

  // The size is tested before a line is written, so a file exceeds `maxSize` by its last line. A
  // line that finds no file to go to is lost; the next one tries again.
  void log(const LogLevel& level, std::string& loggerName, const char* message,
           bool buffering) override;
  void log(const LogLevel& level, std::string& loggerName, const std::string& message,
           bool buffering) override;
  void flush() override;

 private:
  bool _hasRoom() KESTREL_REQUIRES(lock_);
  bool _openFile() KESTREL_REQUIRES(lock_);
  void _closeFile() KESTREL_REQUIRES(lock_);
  bool _rotate();
  std::vector<std::uint32_t> _numbersToMove() const;

  std::int32_t maxSize_;
  std::uint32_t fileCount_;
  std::string baseName_;
  std::FILE* file_ KESTREL_GUARDED_BY(lock_) = nullptr;
  RequiredLock lock_;
};

class FileLogAdapterFactory : public LogAdapterFactory {
 public:
  FileLogAdapterFactory() : LogAdapterFactory("file") {}
  LogAdapter* createLogAdapter(const JSOM& config) override;
};

}  // namespace kestrel
