// Finds the names of everything that samples fell into, and writes maps, lists and names where the
// converter finds them. One thread; children list the files meanwhile.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "listing/File.h"
#include "listing/Kernel.h"
#include "prepare/ConverterFiles.h"
#include "prepare/PlainRecording.h"
#include "prepare/Preparation.h"
#include "prepare/RecordedFiles.h"

namespace prepare {

// A file that samples or callers fell into.
struct HitFile {
  const recordings::MappedFile* file = nullptr;
  std::string writtenName;
  std::uint64_t samples = 0;
  std::uint64_t callers = 0;
  std::string listPath;     // empty: has none
  listing::Result listing;  // of code in no file: as far as it applies

  // The address in the list of an offset in the file; of code in no file they are the same.
  std::uint64_t listedAddress(std::uint64_t fileOffset) const;
};

class Names {
 public:
  // All borrowed.
  Names(const recordings::Recording& recording, const Preparation& preparation,
        const RecordedFiles& recorded, const listing::Options& options, ConverterFiles& files);

  // Lists what was hit; `progress(done, all)` from this thread.
  void find(const std::function<void(std::size_t, std::size_t)>& progress);
  // Behind the samples: maps of all processes, and names of all threads.
  void write(PlainRecording& output) const;

  const std::deque<HitFile>& files() const { return files_; }
  const listing::KernelResult& kernel() const { return kernel_; }
  std::uint64_t kernelHits() const { return kernelHits_; }
  const std::string& kernelListPath() const { return kernelListPath_; }
  const RecordedFiles& recorded() const { return recorded_; }
  bool hasKernelList() const { return kernel_.outcome == listing::Outcome::Named; }

 private:
  bool _isRecordedHere();
  void _collect();
  void _addFile(const Piece& piece);
  void _shortenLists() const;
  void _listKernel();
  void _listKernelCode(HitFile& file);
  void _writeMaps(PlainRecording& output) const;
  std::uint64_t _pageOffset(const Piece& piece) const;

  const recordings::Recording& recording_;
  const Preparation& preparation_;
  const RecordedFiles& recorded_;
  const listing::Options& options_;
  ConverterFiles& converter_;
  std::deque<HitFile> files_;
  std::map<const recordings::MappedFile*, HitFile*> byFile_;
  listing::KernelResult kernel_;
  std::string kernelListPath_;
  std::uint64_t kernelHits_ = 0;
  std::optional<bool> isRecordedHere_;
};

}  // namespace prepare
