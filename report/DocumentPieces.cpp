#include "report/DocumentPieces.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "report/PlainText.h"
#include "report/ReportError.h"

namespace report {

namespace {

constexpr std::size_t PIECE = 1 << 20;
// A row has at most some thousand entries of 45 bytes; this is far beyond.
constexpr std::size_t LONGEST_ROW = 64 << 20;

bool isBlank(char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; }

}  // namespace

bool DocumentPieces::_read() {
  const std::size_t held = buffer_.size();
  buffer_.resize(held + PIECE);
  const std::size_t count = std::fread(buffer_.data() + held, 1, PIECE, &file_);
  buffer_.resize(held + count);
  bytesRead_ += count;
  if (count == 0 && std::ferror(&file_) != 0) {
    throw NoDocument(std::string("it cannot be read (") + std::strerror(errno) + ").");
  }
  return count > 0;
}

// The first byte from `at` on that is no blank; `at` is left there.
char DocumentPieces::_skipBlanks(std::size_t& at) {
  for (;;) {
    while (at < buffer_.size() && isBlank(buffer_[at])) {
      ++at;
    }
    if (at < buffer_.size()) {
      return buffer_[at];
    }
    if (at > LONGEST_ROW || !_read()) {
      throw NoDocument("it ends too early.");
    }
  }
}

void DocumentPieces::_expect(std::size_t& at, char wanted, const char* where) {
  if (_skipBlanks(at) != wanted) {
    throw NoDocument(std::string("there is no '") + wanted + "' " + where + ".");
  }
  ++at;
}

std::string DocumentPieces::_readString(std::size_t& at) {
  _expect(at, '"', "where a name should begin");
  std::string text;
  for (;; ++at) {
    while (at >= buffer_.size()) {
      if (at > LONGEST_ROW || !_read()) {
        throw NoDocument("a name has no end.");
      }
    }
    if (buffer_[at] == '"') {
      ++at;
      return text;
    }
    if (buffer_[at] == '\\') {
      ++at;
    }
    text += at < buffer_.size() ? buffer_[at] : ' ';
  }
}

void DocumentPieces::skipToSamples() {
  std::size_t at = 0;
  _expect(at, '{', "at its beginning");
  if (_readString(at) != "samples") {
    throw NoDocument("\"samples\" is not its first table.");
  }
  _expect(at, ':', "behind \"samples\"");
  _expect(at, '{', "at the beginning of \"samples\"");
  while (_readString(at) != "data") {
    _expect(at, ':', "behind \"descriptions\"");
    _expect(at, '{', "at the beginning of the descriptions");
    while (_skipBlanks(at) != '}') {
      _readString(at);
      _expect(at, ':', "in the descriptions");
      _readString(at);
      if (_skipBlanks(at) == ',') {
        ++at;
      }
    }
    ++at;
    _expect(at, ',', "behind the descriptions");
  }
  _expect(at, ':', "behind \"data\"");
  _expect(at, '[', "at the beginning of the rows");
  buffer_.erase(0, at);
}

// The rows end at the first '}', behind the ']' that closes them.
bool DocumentPieces::_endOfTable(std::size_t scanned) {
  const void* brace = std::memchr(buffer_.data() + scanned, '}', buffer_.size() - scanned);
  if (brace == nullptr) {
    return false;
  }
  const auto end = static_cast<std::size_t>(static_cast<const char*>(brace) - buffer_.data());
  const std::size_t bracket = buffer_.rfind(']', end);
  if (bracket == std::string::npos) {
    throw NoDocument("the rows of \"samples\" are not closed.");
  }
  rows_.assign(1, '[').append(buffer_, 0, bracket).append(1, ']');
  buffer_.erase(0, end + 1);
  atEnd_ = true;
  return true;
}

bool DocumentPieces::nextRows() {
  if (atEnd_) {
    return false;
  }
  std::size_t scanned = 0;
  std::ptrdiff_t depth = 0;  // open brackets at `scanned`
  for (;;) {
    if (_endOfTable(scanned)) {
      return true;
    }
    // Counting is quick; only then the last place at which no row is open is looked for.
    const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(scanned);
    depth += std::count(from, buffer_.end(), '[') - std::count(from, buffer_.end(), ']');
    std::ptrdiff_t open = depth;
    for (std::size_t at = buffer_.size(); at > scanned; --at) {
      const char byte = buffer_[at - 1];
      if (byte == ']' && open == 0) {
        rows_.assign(1, '[').append(buffer_, 0, at).append(1, ']');
        // The comma behind the row belongs to neither piece.
        std::size_t next = at;
        if (_skipBlanks(next) == ',') {
          ++next;
        }
        buffer_.erase(0, next);
        return true;
      }
      open += byte == ']' ? 1 : byte == '[' ? -1 : 0;
    }
    scanned = buffer_.size();
    if (scanned > LONGEST_ROW) {
      throw NoDocument("a row of \"samples\" has no end.");
    }
    if (!_read()) {
      throw NoDocument("it ends within \"samples\".");
    }
  }
}

std::string DocumentPieces::rest() {
  while (_read()) {
  }
  std::size_t at = 0;
  if (_skipBlanks(at) != ',') {
    throw NoDocument("there are no tables behind \"samples\".");
  }
  std::string text(1, '{');
  appendPlainText(text, std::string_view(buffer_).substr(at + 1));
  buffer_.clear();
  buffer_.shrink_to_fit();
  return text;
}

}  // namespace report
