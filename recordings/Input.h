// The bytes of a recording, to be read at any place: a file, or memory (tests, fuzzing). Reading
// does not change an input, so any number of readers may share one; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "recordings/FieldReader.h"

namespace recordings {

class Input {
 public:
  explicit Input(std::string name) : name_(std::move(name)) {}
  virtual ~Input() = default;
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // As messages call it.
  const std::string& name() const { return name_; }
  virtual std::uint64_t size() const = 0;
  // Copies up to `count` bytes from `offset`; returns how many there were. Throws RecordingError
  // when the system cannot read.
  virtual std::size_t read(std::uint64_t offset, unsigned char* to, std::size_t count) const = 0;

  // At most `count` bytes from `offset`, fewer if the input ends before.
  std::vector<unsigned char> bytesAt(std::uint64_t offset, std::uint64_t count) const;

 private:
  std::string name_;
};

class FileInput : public Input {
 public:
  // Throws RecordingError if the file cannot be opened or is no regular file.
  explicit FileInput(const std::string& path);
  // Takes over a descriptor of a regular file.
  FileInput(int descriptor, std::string name);
  ~FileInput() override;
  std::uint64_t size() const override { return size_; }
  std::size_t read(std::uint64_t offset, unsigned char* to, std::size_t count) const override;

 private:
  void _measure();

  int descriptor_;
  std::uint64_t size_ = 0;
};

class MemoryInput : public Input {
 public:
  // Borrows the bytes.
  explicit MemoryInput(Bytes bytes, std::string name = "memory")
      : Input(std::move(name)), bytes_(bytes) {}
  std::uint64_t size() const override { return bytes_.size(); }
  std::size_t read(std::uint64_t offset, unsigned char* to, std::size_t count) const override;

 private:
  Bytes bytes_;
};

}  // namespace recordings
