// What one mapped file says about the frames of its functions. A debug file's .debug_frame counts
// as well. Read when it is opened, and not changed after: any number of threads may ask.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "unwinding/CallFrameTable.h"
#include "unwinding/ElfImage.h"
#include "unwinding/ExceptionIndex.h"
#include "unwinding/FrameRule.h"

namespace unwinding {

class FileFrames {
 public:
  // `path` and `debugPath` on this machine; the second may be empty. Whether they are the files of
  // the recording is for the caller to know. Null when `path` is no ELF file that can be read.
  static std::unique_ptr<FileFrames> open(const std::string& path, const std::string& debugPath);
  FileFrames(const FileFrames&) = delete;
  FileFrames& operator=(const FileFrames&) = delete;

  Machine machine() const { return machine_; }

  // The rule at an offset of the file. A return address is looked up one byte before itself
  // (`isReturnAddress`; the offset given is the reduced one), since a call may be the last
  // instruction of its function. False when nothing is known.
  bool find(std::uint64_t offset, bool isReturnAddress, FrameRule& rule) const;

  // Bytes of the file that no process changes: `size` (1 to 8) at an offset, a little-endian
  // number.
  std::optional<std::uint64_t> read(std::uint64_t offset, unsigned size) const;

  // Memory held, bytes.
  std::size_t size() const;

 private:
  explicit FileFrames(std::string path) : path_(std::move(path)) {}

  void _readTables(const ElfImage& image);
  void _addTable(CallFrameTable::Form form, std::optional<ElfImage::Section> section);
  void _readEhFrame(const ElfImage& image);
  void _readExceptionIndex(const ElfImage& image);
  void _noteCode(const ElfImage& image);
  bool _isCode(std::uint64_t address) const;
  const ElfImage::Segment* _segmentOf(std::uint64_t offset) const;
  bool _recognise(std::uint64_t pcOffset, FrameRule& rule,
                  bool (*recogniser)(Machine, Bytes, FrameRule&)) const;

  struct Range {
    std::uint64_t start;
    std::uint64_t end;
  };

  std::string path_;
  Machine machine_ = Machine::X86_64;
  std::vector<ElfImage::Segment> segments_;
  std::vector<Range> code_;                              // ELF addresses, ascending and apart
  std::vector<std::unique_ptr<CallFrameTable>> tables_;  // in the order they are asked
  std::unique_ptr<ExceptionIndex> exceptionIndex_;
};

}  // namespace unwinding
