#include "tests/kestrel/exec/ExecSupport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

std::size_t countEntries(const char* directory) {
  DIR* const listing = opendir(directory);
  std::size_t count = 0;
  while (listing != nullptr && readdir(listing) != nullptr) {
    ++count;
  }
  if (listing != nullptr) {
    closedir(listing);
  }
  return count - 2;  // "." and ".."
}

rlim_t setDescriptorLimit(rlim_t limit) {
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  const rlim_t former = limits.rlim_cur;
  limits.rlim_cur = limit;
  limits.rlim_max = std::max(limits.rlim_max, limits.rlim_cur);
  setrlimit(RLIMIT_NOFILE, &limits);
  return former;
}

int openAnything() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

}  // namespace

ExecPtr makeExec() { return ExecPtr(new kestrel::LinuxSimpleExec()); }

std::vector<std::string> shell(const std::string& script) { return {"/bin/sh", "-c", script}; }

std::string outputOf(const std::vector<std::string>& command) {
  const ExecPtr exec = makeExec();
  exec->exec(command, nullptr);
  const std::unique_ptr<kestrel::PortablePipe> pipe(exec->claimWritePipe());
  const std::string output = pipe == nullptr ? "no pipe" : readAll(*pipe);
  exec->waitTilDone(0);
  return output;
}

std::string readAll(kestrel::PortableFile& file) {
  std::string all;
  char block[4096];
  for (;;) {
    const int count = file.read(block, sizeof(block));
    if (count > 0) {
      all.append(block, static_cast<std::size_t>(count));
    } else if (count == kestrel::PortableFile::WOULD_BLOCK) {
      pollfd pipe = {dynamic_cast<kestrel::LinuxFileExt*>(file.ext())->getFd(), POLLIN, 0};
      poll(&pipe, 1, 1000);
    } else {
      return all;
    }
  }
}

std::string text(const void* address) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "%p", address);
  return buffer;
}

std::size_t countThreads() { return countEntries("/proc/self/task"); }

std::size_t countDescriptors() { return countEntries("/proc/self/fd") - 1; }  // that of the listing

std::set<int> writablePipes() {
  std::set<int> pipes;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = std::stoi(entry.path().filename());
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode) &&
        (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY) {
      pipes.insert(fd);
    }
  }
  return pipes;
}

int newPipe(const std::set<int>& before) {
  for (const int fd : writablePipes()) {
    if (before.count(fd) == 0) {
      return fd;
    }
  }
  return -1;
}

bool processExists(pid_t pid) { return kill(pid, 0) == 0; }

bool eventually(const std::function<bool()>& condition) {
  const Stopwatch watch;
  while (!condition()) {
    if (watch.seconds() > 10) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

DescriptorShortage::DescriptorShortage(unsigned spare, unsigned limit)
    : formerLimit_(setDescriptorLimit(limit)) {
  for (int fd = openAnything(); fd != -1; fd = openAnything()) {
    taken_.push_back(fd);
  }
  for (unsigned i = 0; i < spare; ++i) {
    close(taken_.back());
    taken_.pop_back();
  }
}

DescriptorShortage::~DescriptorShortage() {
  for (const int fd : taken_) {
    close(fd);
  }
  setDescriptorLimit(formerLimit_);
}

SelectSetFilled::SelectSetFilled() : formerLimit_(setDescriptorLimit(FD_SETSIZE + 1024)) {
  int fd = openAnything();
  for (; fd != -1 && fd < FD_SETSIZE; fd = openAnything()) {
    taken_.push_back(fd);
  }
  close(fd);
}

SelectSetFilled::~SelectSetFilled() {
  for (const int fd : taken_) {
    close(fd);
  }
  setDescriptorLimit(formerLimit_);
}

void exitWith(const std::string& complaint) {
  std::fprintf(stderr, "%s\n", complaint.c_str());
  // Not exit(): the leak check of the sanitizers cannot run in a process without threads or
  // permissions to spare.
  std::_Exit(complaint.empty() ? 0 : 1);
}
