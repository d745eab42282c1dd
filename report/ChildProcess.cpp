#include "report/ChildProcess.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "report/ReportError.h"

extern char** environ;

namespace report {

namespace {

constexpr int PIPE_SIZE = 1 << 20;  // bytes; what the kernel allows everyone

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, Output output) {
  int ends[2] = {-1, -1};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output == Output::READ) {
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw ReportError(std::string("Cannot make a pipe: ") + std::strerror(errno) + ".");
    }
    // The fewer waits for each other the better; where that much is not allowed, it stays as it is.
    fcntl(ends[0], F_SETPIPE_SZ, PIPE_SIZE);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  } else if (output == Output::TO_STANDARD_ERROR) {
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  } else if (output == Output::DISCARD) {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  std::vector<char*> words;
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));  // execve's signature; it copies them
  }
  words.push_back(nullptr);
  const int error = posix_spawnp(&pid_, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (ends[1] != -1) {
    close(ends[1]);
    output_ = fdopen(ends[0], "rb");
  }
  if (error != 0) {
    pid_ = -1;
    if (output_ != nullptr) {
      std::fclose(output_);
    }
    throw ReportError("Cannot run " + arguments[0] + ": " + std::strerror(error) +
                      ". Install it, or put it on the search path (PATH).");
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ != -1) {
    kill(pid_, SIGTERM);
    wait();
  }
  closeOutput();
}

void ChildProcess::closeOutput() {
  if (output_ != nullptr) {
    std::fclose(output_);
    output_ = nullptr;
  }
}

int ChildProcess::wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string companion(const std::string& name) {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path beside = self.parent_path() / name;
  return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : name;
}

}  // namespace report
