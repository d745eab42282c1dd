// The run of tracemill from command line to exit status: options, configuration, logging, kernel
// symbols, the two passes over the recording and the tables that follow. Start-up failures end the
// run with status 1 and one message; a recording that cannot be read gives an ERROR line and a
// document without the missing rows. A run for which memory is not enough ends with one message and
// status 1, too. Log: "main".
//
// One run a process: the stores live in process-wide single instances.
#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "app/Options.h"
#include "kestrel/OutputFile.h"
#include "kestrel/TimeConverter.h"
#include "kestrel/json/JSOM.h"

namespace kestrel {
class JsomWriter;
class Logger;
}  // namespace kestrel
struct PerfSettings;

class Driver {
 public:
  // The exit status of the process.
  int run(int argc, char* const* argv);

 private:
  struct FreeReserve {
    void operator()(void* reserve) const;
  };

  int _run(int argc, char* const* argv);
  void _reportEnd(const char* why);
  void _reportOutOfMemory();
  static void _registerFileLogAdapter();
  bool _loadConfiguration();
  void _configureLogging();
  void _readSettings();
  static void _registerKernelSymbols();
  void _loadKernelSymbols();
  void _chooseFiles();
  bool _openInput();
  bool _openOutput();
  bool _rewindInput();
  bool _sharesOutputWithLog() const;
  bool _writeDocument();
  void _writeTables(kestrel::JsomWriter& writer);
  bool _finishOutput();

  kestrel::TimeConverter timeConverter_;
  Options options_;
  kestrel::JSOM config_;
  PerfSettings* settings_ = nullptr;
  kestrel::Logger* log_ = nullptr;
  std::optional<std::string> inputName_;
  std::optional<std::string> outputName_;  // none: standard output
  bool append_ = false;
  std::ifstream input_;
  std::optional<kestrel::OutputFile> outputFile_;  // none: standard output
  std::ostream* output_ = nullptr;
  std::unique_ptr<void, FreeReserve> reserve_;  // given back when memory runs out, for saying so
};
