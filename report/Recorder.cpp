#include "report/Recorder.h"

#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <unistd.h>

#include "report/ChildProcess.h"
#include "report/ReportError.h"

namespace report {

namespace {

constexpr char PERF[] = "perf";
constexpr char FREQUENCY[] = "997";  // samples a second; a prime, so as not to run in step

// The file that a command runs: itself, or what the search path has of that name.
std::string programFile(const std::string& command) {
  if (command.find('/') != std::string::npos) {
    return command;
  }
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "/usr/bin:/bin" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string file = folder + "/" + command;
    if (access(file.c_str(), X_OK) == 0) {
      return file;
    }
  }
  return command;
}

std::size_t count(std::string_view bytes, std::string_view part) {
  std::size_t found = 0;
  for (std::size_t at = bytes.find(part); at != std::string_view::npos;
       at = bytes.find(part, at + part.size())) {
    ++found;
  }
  return found;
}

bool worksHere(const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {PERF, "record", "-q", "-o", "/dev/null"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), {"--", "true"});
  return ChildProcess(arguments, ChildProcess::Output::DISCARD).wait() == 0;
}

}  // namespace

bool keepsFramePointers(const std::string& path) {
  constexpr std::size_t MOST = 64 << 20;  // enough of any program to judge by
  std::ifstream file(path, std::ios::binary);
  std::string bytes(MOST, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  Elf64_Ehdr header;
  if (bytes.size() < sizeof header || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0) {
    return false;
  }
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.e_machine == EM_AARCH64) {
    return true;
  }
  // push %rbp; mov %rsp,%rbp against endbr64 or, without those, pop %rbp; ret: where functions that
  // keep the pointer begin and end. Functions without a frame of their own have neither.
  const std::size_t frames = count(bytes, "\x55\x48\x89\xE5");
  const std::size_t entries = count(bytes, "\xF3\x0F\x1E\xFA");
  const std::size_t returns = count(bytes, "\xC3");
  return frames * 4 >= (entries > 0 ? entries : returns / 2) && frames > 0;
}

std::vector<std::string> recordingOptions(const std::string& program) {
  std::vector<std::string> options;
  for (const char* event : {"cycles", "cpu-clock", "cpu-clock:u"}) {
    for (const bool hasClock : {true, false}) {
      options = {"-e", event, "-F", FREQUENCY, "--sample-cpu"};
      if (hasClock) {
        options.insert(options.end(), {"-k", "CLOCK_MONOTONIC"});
      }
      if (worksHere(options)) {
        options.push_back("--call-graph");
        options.push_back(keepsFramePointers(programFile(program)) ? "fp" : "dwarf,16384");
        return options;
      }
    }
  }
  throw ReportError(
      "perf record does not work here. Try \"perf record true\" to see why: it may not be installed (Debian: linux-perf), or not be allowed: then run this as root, or lower /proc/sys/kernel/perf_event_paranoid.");
}

void record(const std::vector<std::string>& command, const std::vector<std::string>& furtherOptions,
            const std::string& path) {
  std::vector<std::string> arguments = {PERF, "record", "-o", path};
  const std::vector<std::string> options = recordingOptions(command[0]);
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), furtherOptions.begin(), furtherOptions.end());
  arguments.push_back("--");
  arguments.insert(arguments.end(), command.begin(), command.end());
  // The status is the program's own, so that the file tells whether there is a recording.
  std::error_code error;
  std::filesystem::rename(path, path + ".old", error);
  const int status = ChildProcess(arguments, ChildProcess::Output::INHERIT).wait();
  if (!std::filesystem::exists(path, error) || std::filesystem::file_size(path, error) == 0) {
    throw ReportError("Nothing was recorded: perf record ended with status " +
                      std::to_string(status) + "; it says above why.");
  }
}

}  // namespace report
