// A view of bytes that someone else owns: a pointer, the capacity of the storage behind it, and how
// many of those bytes are in use. Sizes are bytes. The used size never exceeds the capacity. A view
// never copies or frees what it shows. One thread at a time.
#pragma once

#include <cstdint>

namespace kestrel {

class ByteBufferViewport {
 public:
  // Shows nothing: null, capacity 0, size 0.
  ByteBufferViewport() = default;
  // A `size` above `capacity` is clamped to it.
  ByteBufferViewport(unsigned char* data, unsigned int capacity, unsigned int size);
  ByteBufferViewport(const ByteBufferViewport&) = default;
  // Shows what `other` shows.
  virtual ByteBufferViewport& operator=(const ByteBufferViewport& other);
  virtual ~ByteBufferViewport() = default;

  // Shows other bytes from now on; a `size` above `capacity` is clamped to it.
  virtual void initialize(unsigned char* data, unsigned int capacity, unsigned int size);
  // Sets the used size. Throws std::length_error, changing nothing, when it exceeds the capacity.
  virtual void size(unsigned int size);

  const unsigned char* data() const { return data_; }
  unsigned char* data() { return data_; }
  unsigned int capacity() const { return capacity_; }
  unsigned int size() const { return size_; }

  // The byte at `index`. Throws std::out_of_range when `index` is not below the used size.
  unsigned char* at(unsigned int index);
  const unsigned char* at(unsigned int index) const;

 protected:
  unsigned char* data_ = nullptr;
  uint32_t capacity_ = 0;
  uint32_t size_ = 0;
};

}  // namespace kestrel
