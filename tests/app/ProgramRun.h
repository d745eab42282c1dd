// Runs tracemill as its users do: as a process of its own, in a folder of its own, with TZ=UTC and
// the C locale. A run that takes longer than two minutes is killed, if no other limit is given.
#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <utility>
#include <vector>

class TempDir;

struct ProgramResult {
  int status = -1;  // the exit status; 1000 + the number of the signal that killed it
  std::string out;
  std::string err;
  std::size_t peakMemory = 0;  // bytes
};

// A run that has begun. Killed by the destructor if nobody waited for it.
class RunningProgram {
 public:
  RunningProgram(RunningProgram&& other) noexcept;
  RunningProgram& operator=(RunningProgram&& other) = delete;
  ~RunningProgram();

  bool isRunning() const;
  void sendSignal(int number) const;
  // Once.
  ProgramResult wait();

 private:
  friend class ProgramRun;
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  RunningProgram();

  pid_t child_ = -1;
  File out_;
  File err_;
  std::unique_ptr<TempDir> programFolder_;  // of an ordinary user's copy
};

class ProgramRun {
 public:
  enum class Output {
    CAPTURED,
    FULL_DISK,    // every write fails
    CLOSED_PIPE,  // nobody reads
    CLOSED,       // there is no descriptor 1
  };
  using Resource = decltype(RLIMIT_FSIZE);

  // `folder` becomes the working directory; it must outlive the run.
  explicit ProgramRun(std::string folder) : folder_(std::move(folder)) {}

  ProgramRun& arguments(std::vector<std::string> arguments);
  ProgramRun& variable(const std::string& name, const std::string& value);
  ProgramRun& standardOutput(Output output);
  // The settings' symbol list command; without one the real program runs, with its own.
  ProgramRun& lister(const std::string& command);
  // When root runs the test, the program runs as "nobody", who becomes the owner of the folder and
  // of all that is in it when the run starts. Other users run it as themselves.
  ProgramRun& asOrdinaryUser();
  // The run is killed after so many seconds.
  ProgramRun& longest(unsigned seconds);
  // With this resource limit (RLIMIT_...). A file that would become too large does not end the
  // program by a signal; its writes fail.
  ProgramRun& limit(Resource resource, rlim_t value);

  ProgramResult run() const { return start().wait(); }
  RunningProgram start() const;

 private:
  [[noreturn]] void _becomeProgram(std::vector<std::string> words, int out, int err) const;
  void _applyLimits() const;
  std::vector<std::string> _words() const;

  std::string folder_;
  std::vector<std::string> arguments_;
  std::map<std::string, std::string> variables_{{"TZ", "UTC"}, {"LC_ALL", "C"}};
  Output output_ = Output::CAPTURED;
  std::string lister_;
  bool asOrdinaryUser_ = false;
  unsigned longest_ = 120;
  std::vector<std::pair<Resource, rlim_t>> limits_;
};
