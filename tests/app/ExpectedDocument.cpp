#include "tests/app/ExpectedDocument.h"

#include "tests/support/TableTexts.h"

namespace {

constexpr std::size_t LINE_LIMIT = 24576;

}  // namespace

ExpectedDocument& ExpectedDocument::open(char bracket) {
  _startValue();
  _put(std::string(1, bracket), 1);
  ++depth_;
  first_ = true;
  return *this;
}

ExpectedDocument& ExpectedDocument::close(char bracket) {
  --depth_;
  _startLine();
  _put(std::string(1, bracket), 1);
  first_ = false;
  return *this;
}

ExpectedDocument& ExpectedDocument::label(std::string_view name) {
  if (!first_) {
    _put(",", 1);
  }
  _startLine();
  _put("\"" + std::string(name) + "\":", name.size() + 3);
  first_ = false;
  labelled_ = true;
  return *this;
}

ExpectedDocument& ExpectedDocument::value(std::string_view text) {
  _startValue();
  _put(text, text.size());
  return *this;
}

ExpectedDocument& ExpectedDocument::quoted(std::string_view escaped, std::size_t counted) {
  _startValue();
  _put("\"" + std::string(escaped) + "\"", counted);
  return *this;
}

void ExpectedDocument::_put(std::string_view bytes, std::size_t counted) {
  text_ += bytes;
  column_ += counted;
}

void ExpectedDocument::_startLine() {
  if (!indented_) {
    return;
  }
  if (depth_ == 0) {
    text_ += '\n';
    column_ = 0;
    return;
  }
  _put("\n" + std::string(depth_, ' '), depth_ + 1);
}

void ExpectedDocument::_startValue() {
  if (!labelled_ && !first_) {
    _put(",", 1);
  }
  if (indented_ && labelled_) {
    _put(" ", 1);
  } else if (depth_ > 0) {
    _startLine();
  }
  if (column_ >= LINE_LIMIT) {
    ++breaks_;
    exactBreaks_ += column_ == LINE_LIMIT ? 1U : 0U;
    text_ += '\n';
    column_ = 0;
  }
  first_ = false;
  labelled_ = false;
}

ExpectedDocument& ExpectedDocument::openTable(const std::string& name) {
  label(name).open('{').label("descriptions").open('{');
  for (const auto& [column, description] : columnsOf(name)) {
    label(column).quoted(description);
  }
  return close('}').label("data").open('[');
}
