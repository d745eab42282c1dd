// The command line of tracemill.
#pragma once

#include <optional>
#include <string>

struct Options {
  std::string configFile = "tracemill.conf";  // -c
  double clockStart = 0.0;                    // -s, seconds on the caller's clock; 0: no window
  double clockDuration = 0.0;                 // -d, seconds; 0: open end
  std::optional<std::string> inputFile;       // -i
  std::optional<std::string> outputFile;      // -o
  bool append = false;                        // -a
  double skew = 1.0;                          // -A
  double offset = 0.0;                        // -B
  double base = 0.0;                          // -C

  // Reads the command line with getopt; a later option overrides an earlier one, numbers are what
  // strtod makes of them, arguments that are no options are ignored. The exit status when the run
  // is to end here: after -h, which prints the usage to standard output, or at the first mistake,
  // which prints one line to standard error.
  std::optional<int> parse(int argc, char* const* argv);
};
