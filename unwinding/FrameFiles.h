// The mapped files of a recording, opened when the first chain runs through them, and kept. Any
// number of threads may use it; they wait only for files that are being opened.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "unwinding/FileFrames.h"
#include "unwinding/Map.h"

namespace unwinding {

class FrameFiles {
 public:
  // Where a file is on this machine; no path: nowhere. Only the paths count, not the names that a
  // recording has for them.
  struct Location {
    std::string path;
    std::string debugPath;
  };
  // Called once for each file, by any thread, by several at a time for different files.
  using Locator = std::function<Location(FileId)>;

  // Once the tables of all files together hold more than `budget` bytes, further files are left
  // out.
  static constexpr std::size_t DEFAULT_BUDGET = std::size_t{2} << 30;
  explicit FrameFiles(Locator locator, std::size_t budget = DEFAULT_BUDGET);
  FrameFiles(const FrameFiles&) = delete;
  FrameFiles& operator=(const FrameFiles&) = delete;

  // Null when the file is not there, cannot be read or was left out. Valid as long as this object.
  const FileFrames* get(FileId file);

  // Memory that all files' tables hold, bytes.
  std::size_t size() const { return size_; }

 private:
  struct Slot {
    std::once_flag opened;
    std::unique_ptr<FileFrames> frames;
  };

  void _open(FileId file, Slot& slot);

  const Locator locator_;
  const std::size_t budget_;
  std::atomic<std::size_t> size_ = 0;
  std::mutex mutex_;
  std::unordered_map<FileId, std::unique_ptr<Slot>> slots_;  // guarded by mutex_; slots stay
};

}  // namespace unwinding
