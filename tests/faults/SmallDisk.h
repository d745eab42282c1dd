// A file system that is full as soon as a test wants it to be.
#pragma once

#include <cstddef>
#include <string>

// Mounted on `folder`, seen by the test's process and by those that it starts, and gone with the
// object or with the process.
class SmallDisk {
 public:
  SmallDisk(const std::string& folder, std::size_t bytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  // False where the system lets nobody mount one.
  bool isMounted() const { return isMounted_; }
  // Takes all space that is left but this many bytes, in a file "filler".
  void fillUp(std::size_t bytesLeft = 0) const;
  // Gives it back.
  void empty() const;

 private:
  const std::string folder_;
  bool isMounted_ = false;
};

#define SKIP_UNLESS_MOUNTED(disk)                           \
  do {                                                      \
    if (!(disk).isMounted()) {                              \
      GTEST_SKIP() << "no file system can be mounted here"; \
    }                                                       \
  } while (false)
