// The rows of a document's tables, parsed with simdjson, into a ProfileBuilder. What is no such row
// throws NoDocument.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "report/ProfileBuilder.h"

namespace report {

class SampleRowsParser {
 public:
  SampleRowsParser();
  ~SampleRowsParser();

  // A JSON array of rows of "samples", with DocumentPieces::PADDING bytes behind it.
  SampleRows parse(std::string_view rows);

 private:
  struct Parser;  // simdjson's, which lives in the .cpp: its header is large
  std::unique_ptr<Parser> parser_;
};

// `text`: an object of the tables "libraries", "functions", "processes" and "files".
void parseOtherTables(std::string text, ProfileBuilder& builder);

// A number of seconds as nanoseconds: digits beyond those are cut off. NO_TIME for what is none,
// like nan, and for what 64 bits do not hold. Counts the fraction's digits.
int64_t parseSeconds(std::string_view token, uint32_t& fractionDigits);

}  // namespace report
