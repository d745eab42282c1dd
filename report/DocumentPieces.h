// Cuts a document into what fits in memory: pieces of whole rows of "samples", then everything
// behind that table. Rows of samples hold numbers and brackets only, so that their ends are found
// without looking at strings; the parser that gets the pieces sees to the rest.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace report {

// The bytes are no document; what() is a sentence on why.
class NoDocument : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class DocumentPieces {
 public:
  static constexpr std::size_t PADDING = 64;  // what simdjson asks for

  explicit DocumentPieces(std::FILE& file) : file_(file) {}  // borrows the open file

  // Reads up to the first row of "samples", which has to be the first table.
  void skipToSamples();
  // Reads the next whole rows. False at the end of the table.
  bool nextRows();
  // The rows as a JSON array of rows. Valid until the next call; they lie where they were read, and
  // PADDING bytes behind them may be read, too.
  std::string_view rows() const { return rows_; }
  // After the last rows: the members of the document behind "samples", as a JSON object in which
  // each string is UTF-8 without control characters: what is none is replaced by U+FFFD.
  std::string rest();

  uint64_t bytesRead() const { return bytesRead_; }

 private:
  bool _read();
  char _skipBlanks(std::size_t& at);
  void _expect(std::size_t& at, char wanted, const char* where);
  std::string _readString(std::size_t& at);
  void _moveToFront();
  bool _endOfTable(std::size_t scanned);
  std::size_t _endOfLastRow(std::size_t scanned) const;
  void _handOut(std::size_t end);

  std::FILE& file_;
  std::string buffer_;
  std::size_t begin_ = 0;  // in the buffer: read and not yet handed out, up to end_
  std::size_t end_ = 0;
  std::string_view rows_;
  uint64_t bytesRead_ = 0;
  bool atEnd_ = false;  // of the table
};

}  // namespace report
