#include "report/Columns.h"

#include <algorithm>
#include <ostream>
#include <utility>
#include <zlib.h>

#include "report/ReportError.h"

namespace report {

namespace {

// Of real recordings level 3 makes columns a few percent smaller, and takes half as long again.
constexpr int LEVEL = 1;
constexpr int GZIP_WINDOW = 15 + 16;   // the largest window; 16 asks zlib for a gzip header
constexpr std::size_t STEP = 1 << 30;  // zlib counts in 32 bits

class Compressor {
 public:
  Compressor() {
    if (deflateInit2(&stream_, LEVEL, Z_DEFLATED, GZIP_WINDOW, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw ReportError("There is not enough memory to compress the samples.");
    }
  }
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
  ~Compressor() { deflateEnd(&stream_); }

  // Appends what comes out.
  void add(std::string& to, std::string_view bytes, bool isLast) {
    do {
      const std::size_t length = std::min(STEP, bytes.size());
      // zlib reads through the pointer only.
      stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
      stream_.avail_in = static_cast<uInt>(length);
      bytes.remove_prefix(length);
      do {
        stream_.next_out = reinterpret_cast<Bytef*>(piece_.data());
        stream_.avail_out = static_cast<uInt>(piece_.size());
        deflate(&stream_, isLast && bytes.empty() ? Z_FINISH : Z_NO_FLUSH);
        to.append(piece_, 0, piece_.size() - stream_.avail_out);
      } while (stream_.avail_out == 0);
    } while (!bytes.empty());
  }

 private:
  z_stream stream_{};
  std::string piece_ = std::string(1 << 18, '\0');
};

void appendBase64(std::string& to, std::string_view bytes) {
  static constexpr char ALPHABET[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const auto byte = [&](std::size_t offset) -> uint32_t {
      return at + offset < bytes.size() ? static_cast<unsigned char>(bytes[at + offset]) : 0;
    };
    const uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
    const char characters[] = {ALPHABET[group >> 18], ALPHABET[group >> 12 & 63],
                               at + 1 < bytes.size() ? ALPHABET[group >> 6 & 63] : '=',
                               at + 2 < bytes.size() ? ALPHABET[group & 63] : '='};
    to.append(characters, sizeof characters);
  }
}

}  // namespace

struct EncodedText::Stream {
  Compressor compressor;
};

EncodedText::EncodedText() : stream_(std::make_unique<Stream>()) {}

EncodedText::~EncodedText() = default;

void EncodedText::add(std::string_view bytes) {
  stream_->compressor.add(pending_, bytes, false);
  const std::size_t whole = pending_.size() / 3 * 3;
  appendBase64(text_, std::string_view(pending_).substr(0, whole));
  pending_.erase(0, whole);
}

std::string EncodedText::finish() {
  stream_->compressor.add(pending_, {}, true);
  appendBase64(text_, pending_);
  return std::move(text_);
}

unsigned widthOf(uint64_t largest) {
  return largest <= 0xFF ? 1 : largest <= 0xFFFF ? 2 : largest <= 0xFFFFFFFF ? 4 : 8;
}

std::string compressed(const std::string& bytes) {
  std::string result;
  Compressor().add(result, bytes, true);
  return result;
}

void writeColumn(std::ostream& out, std::string_view name, std::string_view type, std::size_t count,
                 std::string_view encoding, std::string_view text) {
  out << "<script type=\"text/plain\" class=\"column\" data-name=\"" << name << "\" data-type=\""
      << type << "\" data-count=\"" << count << "\" data-encoding=\"" << encoding << "\">" << text
      << "</script>\n";
}

}  // namespace report
