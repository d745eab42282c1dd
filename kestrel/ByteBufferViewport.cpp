#include "kestrel/ByteBufferViewport.h"

#include <algorithm>
#include <stdexcept>

namespace kestrel {

ByteBufferViewport::ByteBufferViewport(unsigned char* data, unsigned int capacity,
                                       unsigned int size)
    : data_(data), capacity_(capacity), size_(std::min(size, capacity)) {}

ByteBufferViewport& ByteBufferViewport::operator=(const ByteBufferViewport& other) {
  if (this != &other) {
    data_ = other.data_;
    capacity_ = other.capacity_;
    size_ = other.size_;
  }
  return *this;
}

void ByteBufferViewport::initialize(unsigned char* data, unsigned int capacity, unsigned int size) {
  data_ = data;
  capacity_ = capacity;
  size_ = std::min(size, capacity);
}

void ByteBufferViewport::size(unsigned int size) {
  if (size > capacity_) {
    throw std::length_error("Used size may not exceed reserved capacity");
  }
  size_ = size;
}

unsigned char* ByteBufferViewport::at(unsigned int index) {
  return const_cast<unsigned char*>(static_cast<const ByteBufferViewport*>(this)->at(index));
}

const unsigned char* ByteBufferViewport::at(unsigned int index) const {
  if (index >= size_) {
    // The text says "greater than" although an index equal to the size is refused too: kept.
    throw std::out_of_range("Index may not be greater than used size");
  }
  return data_ + index;
}

}  // namespace kestrel
