// Runs tracemill as its users do: as a process of its own, in a folder of its own, with TZ=UTC and
// the C locale. A run that takes longer than two minutes is killed.
#pragma once

#include <map>
#include <string>
#include <vector>

struct ProgramResult {
  int status = -1;  // the exit status; 1000 + the number of the signal that killed it
  std::string out;
  std::string err;
};

class ProgramRun {
 public:
  enum class Output {
    CAPTURED,
    FULL_DISK,    // every write fails
    CLOSED_PIPE,  // nobody reads
    CLOSED,       // there is no descriptor 1
  };

  // `folder` becomes the working directory; it must outlive the run.
  explicit ProgramRun(std::string folder) : folder_(std::move(folder)) {}

  ProgramRun& arguments(std::vector<std::string> arguments);
  ProgramRun& variable(const std::string& name, const std::string& value);
  ProgramRun& standardOutput(Output output);
  // The settings' symbol list command; without one the real program runs, with its own.
  ProgramRun& lister(const std::string& command);

  ProgramResult run() const;

 private:
  [[noreturn]] void _becomeProgram(int out, int err) const;
  std::vector<std::string> _words() const;

  std::string folder_;
  std::vector<std::string> arguments_;
  std::map<std::string, std::string> variables_{{"TZ", "UTC"}, {"LC_ALL", "C"}};
  Output output_ = Output::CAPTURED;
  std::string lister_;
};
