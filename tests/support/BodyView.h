// A record's bytes where a decoder finds it hardest: at an odd address, so that an access that
// needs alignment shows, and at the very end of its own allocation, so that the address sanitizer
// sees every read past them.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "kestrel/ByteBufferViewport.h"
#include "tests/support/PerfFileBuilder.h"

class BodyView {
 public:
  explicit BodyView(const std::string& bytes)
      : storage_(new unsigned char[bytes.size() + 1]),
        view_(storage_.get() + 1, static_cast<unsigned int>(bytes.size()),
              static_cast<unsigned int>(bytes.size())) {
    std::memcpy(storage_.get() + 1, bytes.data(), bytes.size());
  }
  explicit BodyView(const Body& body) : BodyView(body.str()) {}

  // Valid as long as this object.
  operator const kestrel::ByteBufferViewport&() const { return view_; }
  const unsigned char* data() const { return storage_.get() + 1; }

 private:
  std::unique_ptr<unsigned char[]> storage_;
  kestrel::ByteBufferViewport view_;
};

// The used bytes of a view as text.
inline std::string bytesOf(const kestrel::ByteBufferViewport& view) {
  return view.size() == 0 ? std::string()
                          : std::string(reinterpret_cast<const char*>(view.data()), view.size());
}
