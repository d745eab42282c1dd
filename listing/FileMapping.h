// The bytes of a file in memory, mapped: private, so that writing to them changes nothing but the
// copy. For child processes: a file that is cut off while it is mapped kills who reads there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace listing {

class RegularFile;

class FileMapping {
 public:
  explicit FileMapping(const RegularFile& file);
  ~FileMapping();
  FileMapping(const FileMapping&) = delete;
  FileMapping& operator=(const FileMapping&) = delete;

  char* bytes() const { return bytes_; }  // null: an empty file, or no memory
  std::size_t size() const { return size_; }
  // Gives back the memory of whole pages in a range that was only read; they come again when they
  // are touched.
  void release(std::uint64_t offset, std::uint64_t size) const;

 private:
  char* bytes_ = nullptr;
  std::size_t size_;
};

}  // namespace listing
