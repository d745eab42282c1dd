#include "tests/app/ProgramRun.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/OrdinaryUser.h"
#include "tests/support/TempDir.h"

namespace {

constexpr int SIGNAL_BASE = 1000;

std::string contentOf(std::FILE* file) {
  std::string content;
  std::array<char, 65536> block{};
  ssize_t count = 0;
  off_t at = 0;
  while ((count = pread(fileno(file), block.data(), block.size(), at)) > 0) {
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

// Makes them the ordinary user's.
void giveAway(const std::filesystem::path& folder) {
  const auto give = [](const std::filesystem::path& path) {
    if (lchown(path.c_str(), OrdinaryUser::ID, OrdinaryUser::ID) != 0) {
      throw std::runtime_error("cannot give away " + path.string());
    }
  };
  give(folder);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    give(entry.path());
  }
}

// A copy of the program that every user can reach.
std::string copyForEveryUser(const std::string& program, const TempDir& folder) {
  using std::filesystem::perms;
  constexpr perms RUNNABLE = perms::owner_all | perms::group_read | perms::group_exec |
                             perms::others_read | perms::others_exec;
  std::filesystem::permissions(folder.path(), RUNNABLE);
  std::filesystem::copy_file(program, folder.file("program"));
  std::filesystem::permissions(folder.file("program"), RUNNABLE);
  return folder.file("program");
}

bool becomeOrdinaryUser() {
  return setgroups(0, nullptr) == 0 && setgid(OrdinaryUser::ID) == 0 &&
         setuid(OrdinaryUser::ID) == 0;
}

}  // namespace

RunningProgram::RunningProgram()
    : out_(std::tmpfile(), &std::fclose), err_(std::tmpfile(), &std::fclose) {
  if (out_ == nullptr || err_ == nullptr) {
    throw std::runtime_error("cannot create a temporary file");
  }
}

RunningProgram::RunningProgram(RunningProgram&& other) noexcept
    : child_(std::exchange(other.child_, -1)),
      out_(std::move(other.out_)),
      err_(std::move(other.err_)),
      programFolder_(std::move(other.programFolder_)) {}

RunningProgram::~RunningProgram() {
  if (child_ != -1) {
    sendSignal(SIGKILL);
    waitpid(child_, nullptr, 0);
  }
}

bool RunningProgram::isRunning() const {
  siginfo_t end{};
  return waitid(P_PID, static_cast<id_t>(child_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         end.si_pid == 0;
}

void RunningProgram::sendSignal(int number) const { kill(child_, number); }

ProgramResult RunningProgram::wait() {
  int state = 0;
  rusage usage{};
  while (wait4(child_, &state, 0, &usage) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error("cannot wait for the program");
    }
  }
  child_ = -1;
  ProgramResult result;
  result.status = WIFSIGNALED(state) ? SIGNAL_BASE + WTERMSIG(state) : WEXITSTATUS(state);
  result.out = contentOf(out_.get());
  result.err = contentOf(err_.get());
  result.peakMemory = static_cast<std::size_t>(usage.ru_maxrss) * 1024;
  return result;
}

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

ProgramRun& ProgramRun::asOrdinaryUser() {
  asOrdinaryUser_ = geteuid() == 0;
  return *this;
}

ProgramRun& ProgramRun::longest(unsigned seconds) {
  longest_ = seconds;
  return *this;
}

ProgramRun& ProgramRun::limit(Resource resource, rlim_t value) {
  limits_.emplace_back(resource, value);
  return *this;
}

RunningProgram ProgramRun::start() const {
  RunningProgram running;
  std::vector<std::string> words = _words();
  if (asOrdinaryUser_) {
    running.programFolder_ = std::make_unique<TempDir>();
    words[0] = copyForEveryUser(words[0], *running.programFolder_);
    giveAway(folder_);
  }
  running.child_ = fork();
  if (running.child_ < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (running.child_ == 0) {
    _becomeProgram(std::move(words), fileno(running.out_.get()), fileno(running.err_.get()));
  }
  return running;
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
void ProgramRun::_becomeProgram(std::vector<std::string> words, int out, int err) const {
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
  alarm(longest_);
  _applyLimits();
  if (chdir(folder_.c_str()) == 0 && (!asOrdinaryUser_ || becomeOrdinaryUser())) {
    execv(argv[0], argv.data());
  }
  std::perror("cannot run the program");
  _exit(126);
}

void ProgramRun::_applyLimits() const {
  for (const auto& [resource, value] : limits_) {
    const rlimit limit{value, value};
    setrlimit(resource, &limit);
    if (resource == RLIMIT_FSIZE) {
      std::signal(SIGXFSZ, SIG_IGN);
    }
  }
}
