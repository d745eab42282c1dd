#include "report/Columns.h"

#include <algorithm>
#include <ostream>
#include <zlib.h>

#include "report/ReportError.h"

namespace report {

namespace {

// Of real recordings level 3 makes columns a few percent smaller, and takes half as long again.
constexpr int LEVEL = 1;
constexpr int GZIP_WINDOW = 15 + 16;   // the largest window; 16 asks zlib for a gzip header
constexpr std::size_t STEP = 1 << 30;  // zlib counts in 32 bits

template <typename Value>
std::string planes(const std::vector<Value>& values, unsigned width) {
  std::string bytes(values.size() * width, '\0');
  char* to = bytes.data();
  for (unsigned plane = 0; plane < width; ++plane) {
    for (const Value value : values) {
      *to++ = static_cast<char>(value >> (plane * 8) & 0xFF);
    }
  }
  return bytes;
}

}  // namespace

unsigned widthOf(uint64_t largest) {
  return largest <= 0xFF ? 1 : largest <= 0xFFFF ? 2 : largest <= 0xFFFFFFFF ? 4 : 8;
}

std::string planesOf(const std::vector<uint32_t>& values, unsigned width) {
  return planes(values, width);
}

std::string planesOf(const std::vector<uint64_t>& values, unsigned width) {
  return planes(values, width);
}

std::string compressed(const std::string& bytes) {
  z_stream stream{};
  if (deflateInit2(&stream, LEVEL, Z_DEFLATED, GZIP_WINDOW, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw ReportError("There is not enough memory to compress the samples.");
  }
  std::string result;
  std::string piece(1 << 18, '\0');
  std::size_t at = 0;
  do {
    const std::size_t length = std::min(STEP, bytes.size() - at);
    // zlib reads through the pointer only.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data() + at));
    stream.avail_in = static_cast<uInt>(length);
    at += length;
    do {
      stream.next_out = reinterpret_cast<Bytef*>(piece.data());
      stream.avail_out = static_cast<uInt>(piece.size());
      deflate(&stream, at == bytes.size() ? Z_FINISH : Z_NO_FLUSH);
      result.append(piece, 0, piece.size() - stream.avail_out);
    } while (stream.avail_out == 0);
  } while (at < bytes.size());
  deflateEnd(&stream);
  return result;
}

std::string base64(const std::string& bytes) {
  static constexpr char ALPHABET[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const auto byte = [&](std::size_t offset) -> uint32_t {
      return at + offset < bytes.size() ? static_cast<unsigned char>(bytes[at + offset]) : 0;
    };
    const uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
    text += ALPHABET[group >> 18];
    text += ALPHABET[group >> 12 & 63];
    text += at + 1 < bytes.size() ? ALPHABET[group >> 6 & 63] : '=';
    text += at + 2 < bytes.size() ? ALPHABET[group & 63] : '=';
  }
  return text;
}

void writeColumn(std::ostream& out, std::string_view name, std::string_view type, std::size_t count,
                 std::string_view encoding, const std::string& bytes) {
  out << "<script type=\"text/plain\" class=\"column\" data-name=\"" << name << "\" data-type=\""
      << type << "\" data-count=\"" << count << "\" data-encoding=\"" << encoding << "\">"
      << base64(compressed(bytes)) << "</script>\n";
}

}  // namespace report
