// The mapped files of a recording as the other libraries ask for them: with the build ids of the
// recording's table where the maps have none, and found on this machine. Any thread.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "listing/File.h"
#include "listing/Layout.h"
#include "recordings/Facts.h"
#include "recordings/MappedFiles.h"
#include "unwinding/FrameFiles.h"

namespace prepare {

class RecordedFiles {
 public:
  // The options are borrowed.
  RecordedFiles(const recordings::Facts& facts, const listing::Options& options);
  ~RecordedFiles();
  RecordedFiles(const RecordedFiles&) = delete;
  RecordedFiles& operator=(const RecordedFiles&) = delete;

  // Recorded on this machine, which still runs the same kernel.
  bool isThisMachine() const { return isThisMachine_; }
  recordings::BuildId buildIdOf(const std::string& name) const;
  recordings::BuildId buildIdOf(const recordings::MappedFile& file) const;
  // As the listing asks for it; of files, the vdso and perf maps only.
  listing::File fileOf(const recordings::MappedFile& file) const;

  // What is on this machine; nothing if it is not there, or another file.
  std::optional<listing::Layout> layoutOf(const recordings::MappedFile& file) const;
  unwinding::FrameFiles::Location locationOf(const recordings::MappedFile& file) const;

 private:
  std::string _pathOf(const recordings::MappedFile& file) const;

  const listing::Options& options_;
  bool isThisMachine_;
  std::map<std::string, recordings::BuildId> buildIds_;  // by name
  int vdso_ = -1;  // a file in memory: this machine's own, if it may be the recorded one
};

}  // namespace prepare
