// From what was given to a Profile: prepares and converts a recording with the programs beside this
// one, or reads a document.
#pragma once

#include <functional>
#include <string>

#include "report/Profile.h"
#include "report/RecordingFacts.h"

namespace report {

struct Loaded {
  Profile profile;
  std::string quality;  // quality.json of the preparation; empty for a document
};

struct LoadOptions {
  std::string keepDocumentAs;  // empty: the document goes through a pipe and is not kept
  bool quiet = false;
  bool reportToStandardError = false;                 // the quality report; else to standard output
  std::function<void(const std::string&)> beginStep;  // told what begins
};

// Throws ReportError: which step, why, and what to do.
Loaded load(const std::string& input, const LoadOptions& options);

// Whether a file is a document: JSON begins with a brace, no recording does.
bool isDocument(const std::string& path);

}  // namespace report
