// Records sorted by time in a temporary file, to be read back in that order. Many runs share one
// file. One thread. Errors of the disk are thrown as RecordingError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recordings/RecordPool.h"

namespace recordings {

// A temporary file without a name: it is gone when the last user closes it, however the process
// ends.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& directory);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  std::uint64_t size() const { return size_; }
  void append(const unsigned char* bytes, std::size_t count);
  void read(std::uint64_t offset, unsigned char* to, std::size_t count) const;

 private:
  std::string directory_;
  int descriptor_;
  std::uint64_t size_ = 0;
};

class SortedRun {
 public:
  // Writes the records, which are sorted, behind what is in the file.
  SortedRun(std::shared_ptr<ScratchFile> file, const std::vector<TimedRecord>& records);

  // The oldest one left; valid until pop(). Null at the end.
  const TimedRecord* front();
  void pop();
  // How much of the file is read at once, so that all runs together stay in bounds.
  void setReadAhead(std::size_t bytes) { readAhead_ = bytes; }

 private:
  struct Head {
    std::uint64_t time;
    std::uint32_t event;
    std::uint32_t size;
  };
  bool _require(std::size_t bytes);

  std::shared_ptr<ScratchFile> file_;
  std::uint64_t next_;  // in the file
  std::uint64_t end_;
  std::size_t readAhead_ = 64 * 1024;
  std::vector<unsigned char> buffer_;
  std::size_t first_ = 0;
  TimedRecord front_;
  bool hasFront_ = false;
};

}  // namespace recordings
