// Writes a JSON text straight to an output stream, value by value, without a tree: every byte of
// the output document comes from here. The layout is exact: readers of the document, and tests,
// compare it byte for byte.
//
// The writer checks only the order of the calls. A call in the wrong place prints one line on
// standard error (the text, the state as a raw byte, a line feed), writes nothing to the stream and
// changes nothing; later calls go on normally. Errors of the stream are not looked at here, and an
// exception of its buffer becomes badbit, as with the stream's own operations: whoever owns the
// stream checks it at the end.
//
// `raw` means: the bytes need no escaping and are written as they are. A null string is written as
// null, without quotes. Lengths are bytes. Nothing is written after the last bracket, no line feed
// either. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace kestrel {

class JsomWriter {
 private:
  std::ostream* out_;  // borrowed

 public:
  // False: compact. True: one space of indentation a level. To be set before the first value.
  bool whitespace = false;

  // Borrows the stream, which must outlive the writer; it is never closed here.
  explicit JsomWriter(std::ostream* out);
  JsomWriter(const JsomWriter&) = delete;
  JsomWriter& operator=(const JsomWriter&) = delete;
  virtual ~JsomWriter();  // calls end()

  void appendNull();
  void appendBoolean(bool value);
  void appendString(const char* s, int length, bool raw);
  void appendString(const std::string& s, bool raw);
  void appendLong(long long value);
  void appendUnsignedLong(unsigned long long value);
  void appendInt(int value);
  void appendUnsignedInt(unsigned int value);
  // The bytes are written as they are: they must be valid JSON.
  void appendJsonValue(const char* text, int length);
  // An array of numbers, and of such arrays, in the compact layout: gives the bytes that it would
  // give value by value.
  void appendNumberArray(const char* text, int length);
  // As above, for a part of its text that ends between two values. The array is open in between.
  void appendArrayPiece(const char* text, int length);
  // At most `precision` fraction digits, zeros at the end removed; 0 gives six digits, not trimmed.
  // Beyond 1e16 the exponent notation is used whatever the precision. Text over 255 bytes is cut.
  void appendDouble(long double value, int precision);
  void startObject();
  void startArray();

  void appendLabel(const char* label, int length, bool raw);
  void appendLabel(const char* label, bool raw);

  void endObject();
  void endArray();
  // Finishes the document whatever is open (a label without a value gets null) and flushes the
  // stream. The writer is at the top level again and can be used for another document.
  void end();

  // Raw output: counts the bytes for the line length, but neither checks nor changes the state.
  void write(const char* bytes, int length);
  void writeChar(char byte);
  void flush();

 private:
  struct ValueText;

  bool _beginValue(const char* operation, ValueText& text);
  void _finishValue(ValueText& text, const char* value, int length);
  void _appendInteger(const char* operation, unsigned long long magnitude, bool isNegative);
  void _appendSigned(const char* operation, long long value);
  void _appendString(const char* s, std::streamsize length, bool raw);
  void _appendLabel(const char* label, std::streamsize length, bool raw);
  void _close(char bracket);
  void quote(const char* s, std::streamsize length, bool raw);
  void _putEscaped(const char* s, std::streamsize length);
  void indent();
  std::size_t _indentLength() const;  // bytes of the line feed and the spaces
  void pushState(char state);
  void popState();
  void _put(const char* bytes, std::streamsize length);  // does not count
  void _noteFailureOfBuffer();
  void _count(std::streamsize bytes);

  // The innermost open construct: 0 none, '{' object without and '}' with a member, ':' label that
  // awaits its value, '[' array without and ']' with an element.
  char state_ = 0;
  std::int32_t column_ = 0;  // bytes since the last forced line break, as far as they are counted
  std::string stateStack_;   // states of the enclosing constructs, the innermost last
};

}  // namespace kestrel
