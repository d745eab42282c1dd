#include "prepare/AssumedKernel.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sys/stat.h>

namespace prepare {

namespace {

// Of this system, in seconds since 1970; 0 if it does not say.
std::time_t bootTime() {
  std::ifstream file("/proc/stat");
  for (std::string word; file >> word;) {
    long long seconds = 0;
    if (word == "btime" && file >> seconds) {
      return static_cast<std::time_t>(seconds);
    }
  }
  return 0;
}

bool isOlderThanThisSystem(const std::string& recording) {
  struct stat status {};
  return stat(recording.c_str(), &status) == 0 && status.st_mtime < bootTime();
}

}  // namespace

std::optional<recordings::KernelImage> kernelOfList(const std::string& kallsyms) {
  std::ifstream list(kallsyms);
  recordings::KernelImage kernel;
  for (std::string line; (kernel.start == 0 || kernel.end == 0) && std::getline(list, line);) {
    const std::uint64_t address = std::strtoull(line.c_str(), nullptr, 16);
    if (line.ends_with(" _text") || (kernel.start == 0 && line.ends_with(" _stext"))) {
      kernel.start = kernel.referenceAddress = address;
      kernel.referenceName = line.substr(line.rfind(' ') + 1);
    } else if (line.ends_with(" _etext")) {
      kernel.end = address;
    }
  }
  return kernel.start != 0 && kernel.start < kernel.end ? std::optional(kernel) : std::nullopt;
}

std::optional<recordings::KernelImage> assumedKernel(const std::string& recording,
                                                     const std::string& givenList,
                                                     bool isThisMachine) {
  if (!givenList.empty()) {
    return kernelOfList(givenList);
  }
  const bool isRunning = isThisMachine && (recording == "-" || !isOlderThanThisSystem(recording));
  return isRunning ? kernelOfList("/proc/kallsyms") : std::nullopt;
}

}  // namespace prepare
