// What the command line of tracemill-prepare asks for. The manual page, the completion and the help
// text list the same options; a test compares them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "listing/Options.h"

namespace prepare {

// The command line cannot be understood; what() is one sentence.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  enum class Action { PREPARE, BUNDLE, LIST, HELP, VERSION };

  Action action = Action::PREPARE;
  std::string recording = "perf.data";  // - for standard input
  std::string output;                   // folder; empty: the recording's name with .prepared
  std::vector<std::string> events;      // empty: the first that is not a dummy
  std::string window;                   // empty: none asked for
  std::string bundle;                   // to be written in place of a folder; empty: none
  bool isSysrootGiven = false;
  bool keepUnknown = false;
  bool quiet = false;
  unsigned maxFrames = 127;  // of a chain that is found from a stack dump
  listing::Options listing;

  // Throws UsageError.
  static Options parse(int count, char* const* words);
  static const char* helpText();
};

}  // namespace prepare
