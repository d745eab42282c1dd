#include "kestrel/json/JsomWriter.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "kestrel/json/DecimalText.h"
#include "kestrel/json/JsonEscapes.h"
#include "kestrel/json/NumberText.h"

namespace kestrel {

namespace {

constexpr std::int32_t BREAK_COLUMN = 24576;
constexpr int INTEGER_BYTES = 32;
constexpr int DOUBLE_BYTES = 256;

// A line feed, 47 spaces and, by the array's size, a zero byte: lines at a depth of 47 or more hold
// that byte too. kept: readers of old documents compare them byte for byte
constexpr char INDENTATION[] = "\n                                               ";
static_assert(sizeof(INDENTATION) == 49);
constexpr std::size_t DEEPEST = 46;  // the last depth whose indentation the spaces can show

constexpr bool _inObject(char state) { return state == '{' || state == '}'; }
constexpr bool _inArray(char state) { return state == '[' || state == ']'; }

void _reportMisuse(const char* operation, const char* problem, char state) {
  std::string line = "ERROR: JsonWriter::";
  line.append(operation).append("() ").append(problem).append(" state: ");
  line += state;  // a zero byte at the top level
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

// What goes out in one write: the separators before a value, and a short value.
struct JsomWriter::ValueText {
  void add(char byte) { *end++ = byte; }
  void add(const char* text, std::size_t length) {
    std::memcpy(end, text, length);
    end += length;
  }

  // A comma, an indentation and a line feed come before the value at most.
  char bytes[2 + sizeof(INDENTATION) + DOUBLE_BYTES];
  char* end = bytes;
};

JsomWriter::JsomWriter(std::ostream* out) : out_(out) {}

JsomWriter::~JsomWriter() {
  try {
    end();
  } catch (...) {
    // A stream that throws has told its owner already, and a destructor must not.
  }
}

void JsomWriter::appendNull() {
  ValueText text;
  if (_beginValue("appendNull", text)) {
    _finishValue(text, "null", 4);
  }
}

void JsomWriter::appendBoolean(bool value) {
  ValueText text;
  if (!_beginValue("appendBoolean", text)) {
    return;
  }
  if (value) {
    _finishValue(text, "true", 4);
  } else {
    _finishValue(text, "false", 5);
  }
}

void JsomWriter::appendString(const char* s, int length, bool raw) {
  _appendString(s, length, raw);
}

void JsomWriter::appendString(const std::string& s, bool raw) {
  _appendString(s.data(), static_cast<std::streamsize>(s.size()), raw);
}

void JsomWriter::_appendString(const char* s, std::streamsize length, bool raw) {
  ValueText text;
  if (!_beginValue("appendString", text)) {
    return;
  }
  _put(text.bytes, text.end - text.bytes);
  quote(s, length, raw);
}

void JsomWriter::_appendInteger(const char* operation, unsigned long long magnitude,
                                bool isNegative) {
  ValueText text;
  if (!_beginValue(operation, text)) {
    return;
  }
  char digits[INTEGER_BYTES];
  char* begin = digits;
  if (isNegative) {
    *begin++ = '-';
  }
  const char* const end = writeDecimal(magnitude, begin);
  _finishValue(text, digits, static_cast<int>(end - digits));
}

void JsomWriter::_appendSigned(const char* operation, long long value) {
  const auto bits = static_cast<unsigned long long>(value);
  _appendInteger(operation, value < 0 ? 0ULL - bits : bits, value < 0);
}

void JsomWriter::appendLong(long long value) { _appendSigned("appendLong", value); }

void JsomWriter::appendUnsignedLong(unsigned long long value) {
  _appendInteger("appendUnsignedLong", value, false);
}

void JsomWriter::appendInt(int value) { _appendSigned("appendInt", value); }

void JsomWriter::appendUnsignedInt(unsigned int value) {
  _appendInteger("appendUnsignedInt", value, false);
}

void JsomWriter::appendJsonValue(const char* text, int length) {
  ValueText lead;
  if (!_beginValue("appendJsonValue", lead)) {
    return;
  }
  _put(lead.bytes, lead.end - lead.bytes);
  write(text, length);
}

void JsomWriter::appendNumberArray(const char* text, int length) {
  std::int32_t column = column_ < BREAK_COLUMN ? column_ : BREAK_COLUMN;
  if (state_ == ']') {
    ++column;  // a comma comes first
  }
  const std::int32_t left = BREAK_COLUMN - (column < BREAK_COLUMN ? column : 0);
  if (!whitespace && length <= left) {  // no forced line break falls inside
    appendJsonValue(text, length);
  } else {
    appendArrayPiece(text, length);
  }
}

void JsomWriter::appendArrayPiece(const char* text, int length) {
  const char* const end = text + length;
  while (text < end) {
    const char* const value = text++;
    if (*value == '[') {
      startArray();
    } else if (*value == ']') {
      endArray();
    } else if (*value != ',') {
      text = std::find_if(value, end, [](char c) { return c == ',' || c == ']'; });
      appendJsonValue(value, static_cast<int>(text - value));
    }
  }
}

void JsomWriter::appendDouble(long double value, int precision) {
  ValueText text;
  if (!_beginValue("appendDouble", text)) {
    return;
  }
  char digits[DOUBLE_BYTES];
  const int length = formatTrimmed(value, precision, digits, DOUBLE_BYTES);
  _finishValue(text, digits, length);
}

void JsomWriter::startObject() {
  ValueText text;
  if (!_beginValue("startObject", text)) {
    return;
  }
  _finishValue(text, "{", 1);
  pushState('{');
}

void JsomWriter::startArray() {
  ValueText text;
  if (!_beginValue("startArray", text)) {
    return;
  }
  _finishValue(text, "[", 1);
  pushState('[');
}

void JsomWriter::appendLabel(const char* label, int length, bool raw) {
  _appendLabel(label, length, raw);
}

void JsomWriter::appendLabel(const char* label, bool raw) {
  const std::size_t length = label == nullptr ? 0 : std::strlen(label);
  _appendLabel(label, static_cast<std::streamsize>(length), raw);
}

void JsomWriter::_appendLabel(const char* label, std::streamsize length, bool raw) {
  if (!_inObject(state_)) {
    _reportMisuse("appendLabel", "No current object on stack.", state_);
    return;
  }
  if (state_ == '}') {
    writeChar(',');
  } else {
    state_ = '}';
  }
  if (whitespace) {
    indent();
  }
  quote(label, length, raw);
  writeChar(':');
  pushState(':');
}

void JsomWriter::endObject() {
  if (!_inObject(state_)) {
    _reportMisuse("endObject", "No current object on stack.", state_);
    return;
  }
  _close('}');
}

void JsomWriter::endArray() {
  if (!_inArray(state_)) {
    _reportMisuse("endArray", "No current array on stack.", state_);
    return;
  }
  _close(']');
}

void JsomWriter::_close(char bracket) {
  popState();
  if (whitespace) {
    indent();
  }
  writeChar(bracket);
}

void JsomWriter::end() {
  if (state_ == ':') {
    appendNull();
  }
  while (state_ != 0) {
    _close(_inObject(state_) ? '}' : ']');
  }
  stateStack_.clear();
  flush();
}

void JsomWriter::write(const char* bytes, int length) {
  if (bytes == nullptr || length <= 0) {
    return;
  }
  _put(bytes, length);
  _count(length);
}

void JsomWriter::writeChar(char byte) {
  out_->put(byte);
  _count(1);
}

void JsomWriter::flush() { out_->flush(); }

// Before every value: checks the place, and collects separators, indentation and the forced line
// break.
bool JsomWriter::_beginValue(const char* operation, ValueText& text) {
  if (_inObject(state_)) {
    _reportMisuse(operation, "Invalid sequence.", state_);
    return false;
  }
  if (state_ == ':') {
    popState();
  }
  if (state_ == '[') {
    state_ = ']';
  } else if (state_ == ']') {
    text.add(',');
    _count(1);
  }
  if (whitespace) {
    if (_inObject(state_)) {
      text.add(' ');
      _count(1);
    } else if (state_ != 0) {
      const std::size_t length = _indentLength();
      text.add(INDENTATION, length);
      _count(static_cast<std::streamsize>(length));
    }
  }
  if (column_ >= BREAK_COLUMN) {
    text.add('\n');
    column_ = 0;
  }
  return true;
}

// Only for values that fit: numbers, words and brackets.
void JsomWriter::_finishValue(ValueText& text, const char* value, int length) {
  text.add(value, static_cast<std::size_t>(length));
  _put(text.bytes, text.end - text.bytes);
  _count(length);
}

void JsomWriter::quote(const char* s, std::streamsize length, bool raw) {
  if (s == nullptr) {
    write("null", 4);
    return;
  }
  writeChar('"');
  if (raw) {
    _put(s, length);
    _count(length);
  } else {
    _putEscaped(s, length);
  }
  writeChar('"');
}

// Only escapes and the bytes after the last one are counted: the places of the forced line breaks
// depend on it.
void JsomWriter::_putEscaped(const char* s, std::streamsize length) {
  std::streamsize start = 0;
  for (std::streamsize i = 0; i < length; ++i) {
    const char letter = jsonEscapeLetter(s[i]);
    if (letter == 0) {
      continue;
    }
    _put(s + start, i - start);
    const char escape[] = {'\\', letter};
    _put(escape, 2);
    _count(1);
    start = i + 1;
  }
  _put(s + start, length - start);
  _count(length - start);
}

void JsomWriter::indent() {
  if (state_ == 0) {
    writeChar('\n');
    column_ = 0;
    return;
  }
  const std::size_t length = _indentLength();
  _put(INDENTATION, static_cast<std::streamsize>(length));
  _count(static_cast<std::streamsize>(length));
}

std::size_t JsomWriter::_indentLength() const {
  const std::size_t depth = stateStack_.size();
  return depth <= DEEPEST ? depth + 2 : sizeof(INDENTATION);
}

void JsomWriter::pushState(char state) {
  if (state_ != 0) {
    stateStack_ += state_;
  }
  state_ = state;
}

void JsomWriter::popState() {
  if (stateStack_.empty()) {
    state_ = 0;
  } else {
    state_ = stateStack_.back();
    stateStack_.pop_back();
  }
}

// As out_->write(), without its preparations for each call where none are due.
void JsomWriter::_put(const char* bytes, std::streamsize length) {
  if (length <= 0) {
    return;
  }
  if (!out_->good() || out_->tie() != nullptr || (out_->flags() & std::ios_base::unitbuf) != 0) {
    out_->write(bytes, length);
    return;
  }
  bool isWritten = false;
  try {
    isWritten = out_->rdbuf()->sputn(bytes, length) == length;
  } catch (...) {
    _noteFailureOfBuffer();
    return;
  }
  if (!isWritten) {
    out_->setstate(std::ios_base::badbit);
  }
}

// Called while the exception of the stream's buffer is handled; as the stream's own operations do.
void JsomWriter::_noteFailureOfBuffer() {
  try {
    out_->setstate(std::ios_base::badbit);
  } catch (const std::ios_base::failure&) {
    // The owner of the stream wants exceptions, and gets the one that says why.
  }
  if ((out_->exceptions() & std::ios_base::badbit) != 0) {
    throw;
  }
}

// Saturates: a line that long is broken before the next value all the same.
void JsomWriter::_count(std::streamsize bytes) {
  if (bytes <= 0) {
    return;
  }
  column_ = bytes > INT32_MAX - column_ ? INT32_MAX : column_ + static_cast<std::int32_t>(bytes);
}

}  // namespace kestrel
