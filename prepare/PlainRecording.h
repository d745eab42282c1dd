// Writes a plain recording: one attribute, records of the first kernels only, native byte order,
// samples in the order in which they are given. Maps and names may come behind the samples that
// they explain: the converter looks at all of them first. Behind the records stands what perf's
// programs show of a recording's origin; the converter does not read it. One thread. Errors of the
// disk are thrown as PrepareError.
// Source of the format: tools/perf/util/header.h, include/uapi/linux/perf_event.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "recordings/Facts.h"
#include "recordings/SampleLayout.h"

namespace prepare {

class PlainRecording {
 public:
  // Which fields the samples have besides address and thread.
  struct Fields {
    bool time = true;
    bool cpu = true;
    bool chain = true;
  };

  PlainRecording(const std::string& path, const recordings::Attribute& original, Fields fields);
  ~PlainRecording();
  PlainRecording(const PlainRecording&) = delete;
  PlainRecording& operator=(const PlainRecording&) = delete;

  // `tid` replaces the sample's own. `frames` is the call chain, innermost first; its first entry
  // is the sample's own address. More than MOST_FRAMES are cut. Without Fields::chain, the address
  // alone is written.
  void addSample(const recordings::Sample& sample, std::uint32_t tid,
                 std::span<const std::uint64_t> frames);
  void addName(std::uint32_t pid, std::uint32_t tid, const std::string& name);
  // `isKernel`: of the kernel's side, as misc says it to other readers.
  void addMap(std::uint32_t pid, std::uint32_t tid, std::uint64_t start, std::uint64_t size,
              std::uint64_t pageOffset, const std::string& name, bool isKernel);
  // Writes what is left, where the original comes from as far as it tells, and the header.
  void finish(const recordings::Facts& origin);

  static constexpr std::size_t MOST_FRAMES = 8000;

 private:
  std::size_t _trailerSize() const;
  unsigned char* _claim(std::size_t bytes);
  void _flush();
  void _write(const unsigned char* bytes, std::size_t count, std::uint64_t offset);
  // Gives the bitmap of what there is.
  std::uint64_t _writeOrigin(const recordings::Facts& origin);
  void _writeHeader(std::uint64_t dataSize, std::uint64_t features);

  std::string path_;
  int descriptor_;
  recordings::Attribute original_;
  Fields fields_;
  std::uint64_t written_;  // bytes of the file that are on their way
  std::unique_ptr<unsigned char[]> buffer_;
  std::size_t used_ = 0;
};

}  // namespace prepare
