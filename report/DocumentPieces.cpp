#include "report/DocumentPieces.h"

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

// Appends to what is in the buffer, without moving it.
bool DocumentPieces::_read() {
  if (buffer_.size() < end_ + PIECE + PADDING) {
    buffer_.resize(end_ + PIECE + PADDING);
  }
  const std::size_t count = std::fread(buffer_.data() + end_, 1, PIECE, &file_);
  end_ += count;
  bytesRead_ += count;
  if (count == 0 && std::ferror(&file_) != 0) {
    throw NoDocument(std::string("it cannot be read (") + std::strerror(errno) + ").");
  }
  return count > 0;
}

// The first byte from `at` on that is no blank; `at` is left there.
char DocumentPieces::_skipBlanks(std::size_t& at) {
  for (;;) {
    while (at < end_ && isBlank(buffer_[at])) {
      ++at;
    }
    if (at < end_) {
      return buffer_[at];
    }
    if (at - begin_ > LONGEST_ROW || !_read()) {
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
    while (at >= end_) {
      if (at - begin_ > LONGEST_ROW || !_read()) {
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
    text += at < end_ ? buffer_[at] : ' ';
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
  begin_ = at;
}

// Leaves one byte in front, for the bracket of the next rows.
void DocumentPieces::_moveToFront() {
  std::memmove(buffer_.data() + 1, buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_ - 1;
  begin_ = 1;
}

// What is from begin_ up to `end`, where a comma or a bracket stands that is no part of it.
void DocumentPieces::_handOut(std::size_t end) {
  buffer_[begin_ - 1] = '[';
  buffer_[end] = ']';
  rows_ = std::string_view(buffer_).substr(begin_ - 1, end - begin_ + 2);
}

// The rows end at the first '}', behind the ']' that closes them.
bool DocumentPieces::_endOfTable(std::size_t scanned) {
  const std::string_view text(buffer_.data(), end_);
  const std::size_t brace = text.find('}', scanned);
  if (brace == std::string_view::npos) {
    return false;
  }
  const std::size_t bracket = text.rfind(']', brace);
  if (bracket == std::string_view::npos || bracket < begin_) {
    throw NoDocument("the rows of \"samples\" are not closed.");
  }
  _handOut(bracket);
  begin_ = brace + 1;
  atEnd_ = true;
  return true;
}

// Behind the last row that another one follows; 0 where there is none. A row's last entry is an
// array of pairs, so that of the brackets alone "]][" stands there and nowhere else. No such place
// is wholly before `scanned`.
std::size_t DocumentPieces::_endOfLastRow(std::size_t scanned) const {
  std::size_t brackets[2] = {0, 0};  // places, from the left, of the last two that were met
  int before = 0;                    // brackets before `scanned`
  for (std::size_t at = end_; at > begin_ && before < 2; --at) {
    const char byte = buffer_[at - 1];
    if (byte != '[' && byte != ']') {
      continue;
    }
    before += at <= scanned;
    if (byte == ']' && brackets[1] != 0 && buffer_[brackets[0] - 1] == ']' &&
        buffer_[brackets[1] - 1] == '[') {
      return brackets[0];
    }
    brackets[1] = brackets[0];
    brackets[0] = at;
  }
  return 0;
}

bool DocumentPieces::nextRows() {
  if (atEnd_) {
    return false;
  }
  _moveToFront();
  std::size_t scanned = begin_;
  for (;;) {
    if (_endOfTable(scanned)) {
      return true;
    }
    if (const std::size_t end = _endOfLastRow(scanned)) {
      std::size_t next = end;
      _expect(next, ',', "between two rows of \"samples\"");
      if (_skipBlanks(next) != '[') {
        throw NoDocument("something that is no row stands in \"samples\".");
      }
      _handOut(end);
      begin_ = next;
      return true;
    }
    scanned = end_;
    if (end_ - begin_ > LONGEST_ROW) {
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
  std::size_t at = begin_;
  if (_skipBlanks(at) != ',') {
    throw NoDocument("there are no tables behind \"samples\".");
  }
  std::string text(1, '{');
  appendPlainText(text, std::string_view(buffer_.data(), end_).substr(at + 1));
  buffer_.clear();
  buffer_.shrink_to_fit();
  return text;
}

}  // namespace report
