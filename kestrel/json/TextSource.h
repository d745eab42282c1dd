// Where the JSON grammar reads its bytes from: a buffer or a stream. Both look one byte ahead and
// no further; a zero byte stands for the end of the text, and is what peek() gives there however
// often it is asked.
#pragma once

#include <istream>

namespace kestrel {

// Advances the caller's pointer. The text ends at its first zero byte, which next() must not step
// over.
class BufferSource {
 public:
  explicit BufferSource(const char*& at) : at_(at) {}

  char peek() const { return *at_; }
  void next() { ++at_; }

 private:
  const char*& at_;
};

// Takes from the stream only what the grammar has accepted. Ends at a zero byte too, which is left
// in the stream.
class StreamSource {
 public:
  explicit StreamSource(std::istream& in) : in_(in) {}

  char peek() {
    // Asking a stream again at its end would turn a value that was parsed there into a failure.
    if (ended_) {
      return 0;
    }
    const std::istream::int_type byte = in_.peek();
    if (byte != Traits::eof()) {
      return Traits::to_char_type(byte);
    }
    ended_ = true;
    return 0;
  }
  void next() { in_.get(); }

 private:
  using Traits = std::istream::traits_type;

  std::istream& in_;
  bool ended_ = false;
};

}  // namespace kestrel
