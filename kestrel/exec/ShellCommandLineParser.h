// Splits a command line into words as a shell would, without running one, and puts words together
// again. Only blanks and tabs part words; single quotes, double quotes and backslashes group and
// escape. Nothing is expanded. Stateless: any thread.
#pragma once

#include <string>
#include <vector>

namespace kestrel {

class ShellCommandLineParser {
 public:
  // Appends the words of `line` to `args`, which is not cleared. A quote that is never closed still
  // ends its word at the end of the line, and a backslash that ends the line is dropped.
  static void parse(const std::string& line, std::vector<std::string>& args);

  // The command line that parse() splits into exactly `words`, whatever bytes they hold. Words that
  // need quotes get double ones; control characters that have an escape are written as such, so
  // that the line can be logged.
  static std::string unparse(const std::vector<std::string>& words);
};

}  // namespace kestrel
