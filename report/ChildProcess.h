// A program that is run as one step. Standard output may be read while it runs; whatever else it
// says goes where this program's standard error goes.
#pragma once

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

namespace report {

class ChildProcess {
 public:
  enum class Output { INHERIT, TO_STANDARD_ERROR, READ, DISCARD };

  // Starts it. Throws ReportError when it cannot be run. `arguments` begins with the program: a
  // path, or a name that is looked for on the search path.
  ChildProcess(const std::vector<std::string>& arguments, Output output);
  // Ends it if it still runs, and waits for it.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // With Output::READ: what it prints.
  std::FILE& output() const { return *output_; }
  // Nobody reads on: whatever else it prints ends it.
  void closeOutput();
  // Waits for its end: its exit status, 128 and the signal when one ended it.
  int wait();

 private:
  pid_t pid_ = -1;
  std::FILE* output_ = nullptr;
};

// The program `name` beside this one, or just the name, to be looked for on the search path.
std::string companion(const std::string& name);

}  // namespace report
