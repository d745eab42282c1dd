// Converts one recording with tracemill, in a temporary folder that holds everything the run reads
// and writes, all named relative to it, so that documents and log lines are the same everywhere:
//
//   recording.perf  the input          golden.conf  the configuration, written anew for each run
//   document.json   the document       run.log      every log line, TRACE included
//   kernel.syms     the kernel's symbol list, unless the test writes one there is none
//   cache/          the symbol cache
#pragma once

#include <string>
#include <vector>

#include "tests/app/ProgramRun.h"
#include "tests/support/PerfFileBuilder.h"
#include "tests/support/TempDir.h"

// Log lines as "LEVEL [logger] message", in the order in which they were logged. What changes from
// run to run stands as a '#': pointers, and the seconds that a conversion took.
using LogTexts = std::vector<std::string>;

// The lines of a log as it was written.
LogTexts readLog(const std::string& log);
// Those of them that one logger wrote.
LogTexts linesOf(const LogTexts& log, const std::string& logger);

struct ConversionResult {
  int status = -1;
  std::string document;
  std::string out;  // standard output
  std::string err;  // standard error
  LogTexts log;

  // The lines at INFO and above.
  LogTexts messages() const;
  // All lines of one logger.
  LogTexts linesOf(const std::string& logger) const { return ::linesOf(log, logger); }
  // The lines at WARN and ERROR.
  LogTexts complaints() const;
  // The text of the rows of "samples" in a compact document.
  std::string sampleRows() const;
};

class Conversion {
 public:
  explicit Conversion(const PerfFileBuilder& recording) : Conversion(recording.bytes()) {}
  explicit Conversion(const std::string& recording);

  const TempDir& folder() const { return folder_; }
  // Members of the configuration's object; a later one of a name counts.
  Conversion& setting(const std::string& members);
  // Besides -c, -i and -o.
  Conversion& arguments(std::vector<std::string> arguments);
  // The settings' symbol list command.
  Conversion& lister(const std::string& command);
  // See ProgramRun.
  Conversion& asOrdinaryUser();

  // May be called again: another process over the same folder.
  ConversionResult run() const;
  // The same in two steps: begun, and what there is when the program has ended.
  RunningProgram start() const;
  ConversionResult finish(RunningProgram running) const;

 private:
  TempDir folder_;
  std::string settings_;
  std::vector<std::string> arguments_;
  std::string lister_;
  bool asOrdinaryUser_ = false;
};
