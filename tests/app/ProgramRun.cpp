#include "tests/app/ProgramRun.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned LONGEST_RUN = 120;  // seconds
constexpr int SIGNAL_BASE = 1000;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File makeCapture() {
  File file(std::tmpfile(), &std::fclose);
  if (file == nullptr) {
    throw std::runtime_error("cannot create a temporary file");
  }
  return file;
}

std::string contentOf(const File& file) {
  std::string content;
  std::array<char, 65536> block{};
  ssize_t count = 0;
  off_t at = 0;
  while ((count = pread(fileno(file.get()), block.data(), block.size(), at)) > 0) {
    content.append(block.data(), static_cast<std::size_t>(count));
    at += count;
  }
  return content;
}

int openOutput(ProgramRun::Output output, int capture) {
  switch (output) {
    case ProgramRun::Output::CAPTURED:
      return capture;
    case ProgramRun::Output::FULL_DISK:
      return open("/dev/full", O_WRONLY | O_CLOEXEC);
    case ProgramRun::Output::CLOSED_PIPE: {
      std::array<int, 2> ends{};
      if (pipe(ends.data()) != 0) {
        return -1;
      }
      close(ends[0]);
      return ends[1];
    }
    case ProgramRun::Output::CLOSED:
      return -1;
  }
  return -1;
}

int statusOf(pid_t child) {
  int state = 0;
  while (waitpid(child, &state, 0) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error("cannot wait for the program");
    }
  }
  return WIFSIGNALED(state) ? SIGNAL_BASE + WTERMSIG(state) : WEXITSTATUS(state);
}

}  // namespace

ProgramRun& ProgramRun::arguments(std::vector<std::string> arguments) {
  arguments_ = std::move(arguments);
  return *this;
}

ProgramRun& ProgramRun::variable(const std::string& name, const std::string& value) {
  variables_[name] = value;
  return *this;
}

ProgramRun& ProgramRun::standardOutput(Output output) {
  output_ = output;
  return *this;
}

ProgramRun& ProgramRun::lister(const std::string& command) {
  lister_ = command;
  return *this;
}

ProgramResult ProgramRun::run() const {
  const File out = makeCapture();
  const File err = makeCapture();
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (child == 0) {
    _becomeProgram(fileno(out.get()), fileno(err.get()));
  }
  ProgramResult result;
  result.status = statusOf(child);
  result.out = contentOf(out);
  result.err = contentOf(err);
  return result;
}

std::vector<std::string> ProgramRun::_words() const {
  std::vector<std::string> words{TRACEMILL_PROGRAM};
  if (!lister_.empty()) {
    words = {TRACEMILL_WITH_LISTER, lister_};
  }
  words.insert(words.end(), arguments_.begin(), arguments_.end());
  return words;
}

// In the child, where the test's process has one thread: ordinary calls are safe.
void ProgramRun::_becomeProgram(int out, int err) const {
  std::vector<std::string> words = _words();
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  for (const auto& [name, value] : variables_) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  dup2(err, STDERR_FILENO);
  const int output = openOutput(output_, out);
  if (output < 0) {
    close(STDOUT_FILENO);
  } else {
    dup2(output, STDOUT_FILENO);
  }
  alarm(LONGEST_RUN);
  if (chdir(folder_.c_str()) == 0) {
    execv(argv[0], argv.data());
  }
  std::perror("cannot run the program");
  _exit(126);
}
