#include "kestrel/ByteBuffer.h"

#include <algorithm>
#include <cstring>

namespace kestrel {

ByteBuffer::ByteBuffer(const unsigned char* data, unsigned int capacity, unsigned int size) {
  ByteBuffer::initialize(data, capacity, std::min(capacity, size));
}

ByteBuffer::ByteBuffer(const ByteBuffer& other) : ByteBufferViewport() {
  ByteBuffer::initialize(other.data(), other.capacity(), other.size());
}

ByteBuffer::ByteBuffer(const ByteBufferViewport& other) {
  ByteBuffer::initialize(other.data(), other.capacity(), other.size());
}

ByteBuffer& ByteBuffer::operator=(const ByteBufferViewport& other) {
  if (this != &other) {
    initialize(other.data(), other.capacity(), other.size());
  }
  return *this;
}

ByteBuffer& ByteBuffer::operator=(const ByteBuffer& other) {
  return *this = static_cast<const ByteBufferViewport&>(other);
}

ByteBuffer::~ByteBuffer() { delete[] data_; }

void ByteBuffer::initialize(const unsigned char* data, unsigned int capacity, unsigned int size) {
  resizeCapacity(capacity, false);
  size_ = std::min(size, capacity);
  if (size_ > 0) {
    std::memcpy(data_, data, size_);
  }
}

void ByteBuffer::size(unsigned int size) { this->size(size, false); }

void ByteBuffer::size(unsigned int size, bool keep) {
  if (capacity_ < size) {
    resizeCapacity(size, keep);
  }
  size_ = size;
}

void ByteBuffer::capacity(unsigned int capacity) { this->capacity(capacity, false); }

void ByteBuffer::capacity(unsigned int capacity, bool keep) { resizeCapacity(capacity, keep); }

void ByteBuffer::resizeCapacity(unsigned int newCapacity, bool keep) {
  if (newCapacity == capacity_) {
    return;
  }
  const uint32_t kept = std::min(size_, newCapacity);
  if (!keep) {  // released first, so that both never stand in memory at once
    delete[] data_;
    data_ = nullptr;
    capacity_ = 0;
    size_ = 0;
  }
  unsigned char* const storage = new unsigned char[newCapacity]();
  if (keep) {
    if (kept > 0) {
      std::memcpy(storage, data_, kept);
    }
    delete[] data_;
  }
  data_ = storage;
  capacity_ = newCapacity;
  size_ = kept;
}

}  // namespace kestrel
