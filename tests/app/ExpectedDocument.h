// Lays out an expected document value by value, for documents too long to be written down. Counts
// the bytes of a line as the writer's format says, by itself: before any value, once 24576 bytes
// have been counted, a line feed starts the count anew.
#pragma once

#include <string>
#include <string_view>
#include <vector>

class ExpectedDocument {
 public:
  explicit ExpectedDocument(bool indented) : indented_(indented) {}

  ExpectedDocument& open(char bracket);   // '{' or '['
  ExpectedDocument& close(char bracket);  // '}' or ']'
  ExpectedDocument& label(std::string_view name);
  // A number, or anything else that stands as it is.
  ExpectedDocument& value(std::string_view text);
  ExpectedDocument& value(unsigned long long number) { return value(std::to_string(number)); }
  // A quoted text of which the writer counts `counted` bytes.
  ExpectedDocument& quoted(std::string_view escaped, std::size_t counted);
  ExpectedDocument& quoted(std::string_view text) { return quoted(text, text.size() + 2); }
  // "name":{"descriptions":{...},"data":[
  ExpectedDocument& openTable(const std::string& name);
  ExpectedDocument& closeTable() { return close(']').close('}'); }

  const std::string& text() const { return text_; }
  // Forced line feeds so far that followed exactly 24576 counted bytes.
  unsigned exactBreaks() const { return exactBreaks_; }
  // All forced line feeds so far.
  unsigned breaks() const { return breaks_; }

 private:
  void _put(std::string_view bytes, std::size_t counted);
  void _startLine();
  void _startValue();

  const bool indented_;
  std::string text_;
  std::size_t column_ = 0;
  std::size_t depth_ = 0;
  bool first_ = true;      // nothing stands in the innermost container yet
  bool labelled_ = false;  // a label waits for its value
  unsigned breaks_ = 0;
  unsigned exactBreaks_ = 0;
};
