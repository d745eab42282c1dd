// A regular file that is open for reading. Names in recordings are anybody's: what opens here is
// never a device, a pipe or a directory, opening never waits, and a name below a root never leaves
// it by a symbolic link or "..". Any thread; movable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace listing {

class RegularFile {
 public:
  // Nothing for what is absent, unreadable or no regular file.
  static std::optional<RegularFile> open(const std::string& path);
  // The file that `name` is for a process whose root directory is `root`.
  static std::optional<RegularFile> openBelow(const std::string& root, const std::string& name);

  RegularFile(RegularFile&& other) noexcept;
  RegularFile& operator=(RegularFile&& other) noexcept;
  ~RegularFile();

  int descriptor() const { return descriptor_; }  // stays this object's
  std::uint64_t size() const { return size_; }    // when it was opened
  // Of the last change when it was opened, nanoseconds since 1970.
  std::int64_t changed() const { return changed_; }
  // Path, size and time of the last change: what tells one content from the next where there is no
  // build id.
  std::string identity() const;
  // By which the file can be opened again, with `open`.
  const std::string& path() const { return path_; }

  // True when all bytes of [offset, offset + size) were read.
  bool read(std::uint64_t offset, void* bytes, std::size_t size) const;
  // The first bytes, at most `limit`; files of /proc, which have size 0, to their end.
  std::string readText(std::size_t limit) const;

 private:
  RegularFile(int descriptor, std::string path);
  static std::optional<RegularFile> _take(int descriptor, const std::string& path);

  int descriptor_;
  std::string path_;
  std::uint64_t size_ = 0;
  std::int64_t changed_ = 0;  // nanoseconds since 1970
};

}  // namespace listing
