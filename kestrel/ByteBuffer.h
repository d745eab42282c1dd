// A byte buffer that owns its storage. Sizes are bytes; storage grows to exactly what is asked for,
// zero-filled. One thread at a time.
#pragma once

#include "kestrel/ByteBufferViewport.h"

namespace kestrel {

class ByteBuffer : public ByteBufferViewport {
 public:
  // Empty; allocates nothing.
  ByteBuffer() = default;
  // A copy of the first `size` bytes (at most `capacity`) of `data`, in storage of `capacity`
  // bytes.
  ByteBuffer(const unsigned char* data, unsigned int capacity, unsigned int size);
  // Deep copies: own storage of the other's capacity with the other's used bytes. A view converts
  // by itself.
  ByteBuffer(const ByteBuffer& other);
  ByteBuffer(const ByteBufferViewport& other);
  ByteBuffer& operator=(const ByteBufferViewport& other) override;
  ~ByteBuffer() override;

  // The inherited form points the buffer at foreign storage, which the buffer would later free as
  // its own: never call it on an owning buffer.
  using ByteBufferViewport::initialize;
  // Takes a copy of `size` bytes of `data` into storage of `capacity` bytes; a `size` above
  // `capacity` is clamped.
  virtual void initialize(const unsigned char* data, unsigned int capacity, unsigned int size);
  virtual ByteBuffer& operator=(const ByteBuffer& other);

  using ByteBufferViewport::size;
  // Sets the used size, growing the storage when needed; growth drops the old contents. Never
  // shrinks the storage.
  void size(unsigned int size) override;
  // As above; growth keeps the old contents when `keep` is true.
  virtual void size(unsigned int size, bool keep);

  using ByteBufferViewport::capacity;
  // Storage of exactly `capacity` bytes, dropping the old contents unless the capacity stays the
  // same.
  virtual void capacity(unsigned int capacity);
  void capacity(unsigned int capacity, bool keep);
  // Storage of exactly `newCapacity` zeroed bytes; nothing happens when that is the capacity
  // already. A used size above it is clamped. With `keep` the used bytes that fit are carried over;
  // without it the used size stays although the contents are gone: the caller is about to overwrite
  // them.
  void resizeCapacity(unsigned int newCapacity, bool keep);
};

}  // namespace kestrel
