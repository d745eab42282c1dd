// Values as text that a page can hold: byte planes, gzip, base64 (PageWriter.h says how they lie).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace report {

// gzip (RFC 1952) and base64 of bytes as they come, so that memory holds only what comes out.
class EncodedText {
 public:
  EncodedText();
  EncodedText(const EncodedText&) = delete;
  EncodedText& operator=(const EncodedText&) = delete;
  ~EncodedText();

  void add(std::string_view bytes);
  // The whole text; nothing can be added afterwards.
  std::string finish();

 private:
  struct Stream;  // zlib's

  std::unique_ptr<Stream> stream_;
  std::string pending_;  // compressed: less than the three bytes that make four characters
  std::string text_;
};

// Writes one column element; `text` is encoded.
void writeColumn(std::ostream& out, std::string_view name, std::string_view type, std::size_t count,
                 std::string_view encoding, std::string_view text);

// Encodes values plane by plane, the lowest bytes first; `width` planes. `valueAt` gives the value
// of an index below `count`, which is no more than that many bytes hold, and is called once a
// plane.
template <typename ValueAt>
std::string encodePlanes(std::size_t count, unsigned width, const ValueAt& valueAt) {
  constexpr std::size_t BLOCK = 1 << 16;
  EncodedText text;
  std::string block(std::min(count, BLOCK), '\0');
  for (unsigned plane = 0; plane < width; ++plane) {
    for (std::size_t begin = 0; begin < count; begin += BLOCK) {
      const std::size_t size = std::min(BLOCK, count - begin);
      for (std::size_t i = 0; i < size; ++i) {
        block[i] = static_cast<char>(valueAt(begin + i) >> (plane * 8) & 0xFF);
      }
      text.add(std::string_view(block).substr(0, size));
    }
  }
  return text.finish();
}

// The bytes that the largest of the values takes: 1, 2, 4 (or 8).
unsigned widthOf(uint64_t largest);

// gzip of `bytes`.
std::string compressed(const std::string& bytes);

}  // namespace report
