#include "tests/app/ExpectedDocument.h"

namespace {

constexpr std::size_t LINE_LIMIT = 24576;
const char* const DB_KEY = "db key for this process element used in other structs as a reference";

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

ExpectedDocument& ExpectedDocument::openTable(std::string_view name,
                                              const std::vector<std::string>& descriptions) {
  label(name).open('{').label("descriptions").open('{');
  for (std::size_t i = 0; i + 1 < descriptions.size(); i += 2) {
    label(descriptions[i]).quoted(descriptions[i + 1]);
  }
  return close('}').label("data").open('[');
}

ExpectedDocument& ExpectedDocument::openSamples() {
  return openTable("samples", {"key", "key or reference for this sample",     //
                               "ip", "Location of sample, program counter",   //
                               "mapkey", "reference to map entry",            //
                               "time", "time stamp of the sample",            //
                               "cpu", "which core the sample was taken on",   //
                               "pidkey", "reference to the process element",  //
                               "tid", "tid for this sample",                  //
                               "bt.ip", "backtrace program counter",          //
                               "bt.mapkey", "backtrace map key"});
}

ExpectedDocument& ExpectedDocument::openLibraries() {
  return openTable("libraries", {"key", DB_KEY,                                       //
                                 "pidkey", "key or reference to the process",         //
                                 "name", "name of the library or function",           //
                                 "startAddress", "start address of this memory map",  //
                                 "sectionSize", "length of the memory map"});
}

ExpectedDocument& ExpectedDocument::openFunctions() {
  return openTable("functions", {"key", "key for this symbol",                               //
                                 "name", "name of this symbol",                              //
                                 "startAddress", "Base address of this function or symbol",  //
                                 "sectionSize", "Size of this function or symbol",           //
                                 "maps", "array of maps for this sample"});
}

ExpectedDocument& ExpectedDocument::openProcesses() {
  return openTable("processes", {"key", DB_KEY,                                      //
                                 "pid", "The process id associated with this name",  //
                                 "tid", "The thread id",                             //
                                 "name", "Name of the process with the pid and tid"});
}

ExpectedDocument& ExpectedDocument::openFiles() {
  return openTable("files", {"key", "key for this symbol",                    //
                             "name", "name of this symbol",                   //
                             "symbols.ref", "ref to symbol using this file",  //
                             "symbols.linenum", "ref to line number"});
}
