// The command line of tracemill-report.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace report {

enum class Format { HTML, FOLDED, SPEEDSCOPE, PPROF, JSONL };

struct ReportOptions {
  std::string input;                       // a recording or a document; empty: record `command`
  std::vector<std::string> command;        // behind "--"
  std::string baseline;                    // --compare: the recording or document from before
  Format format = Format::HTML;            // -f
  std::string output;                      // -o; "-" is standard output, empty: beside the input
  std::vector<std::string> recordOptions;  // --record-options, split at blanks
  bool keepDocument = false;               // --json
  bool open = true;                        // --no-open
  bool quiet = false;                      // -q

  // Reads the command line. The exit status when the run is to end here: 0 after --help or
  // --version, 2 at a mistake, which has been said on standard error.
  std::optional<int> parse(int argc, char** argv);
};

// What comes behind the name of a file of that format, with the point.
std::string extensionOf(Format format);

}  // namespace report
