#include "report/formats/JsonlWriter.h"

#include <cinttypes>
#include <cstdio>
#include <ostream>
#include <vector>

#include "report/PlainText.h"
#include "report/QualityFacts.h"
#include "report/formats/StackCounts.h"

namespace report {

namespace {

std::string numberOrNull(uint32_t number) {
  return number == NONE ? "null" : std::to_string(number);
}

// Seconds with as many digits as the document had.
std::string seconds(int64_t nanoseconds, uint32_t digits) {
  const bool isNegative = nanoseconds < 0;
  const auto size =
      isNegative ? -static_cast<uint64_t>(nanoseconds) : static_cast<uint64_t>(nanoseconds);
  char text[32];
  std::snprintf(text, sizeof text, "%s%" PRIu64 ".%09" PRIu64, isNegative ? "-" : "",
                size / 1000000000, size % 1000000000);
  std::string result(text);
  result.resize(result.size() - 9 + digits);
  return digits == 0 ? result.substr(0, result.size() - 1) : result;
}

const char* nameOf(LibraryKind kind) {
  static constexpr const char* NAMES[] = {"kernel", "program", "library", "jit", "unknown"};
  return NAMES[static_cast<std::size_t>(kind)];
}

}  // namespace

void writeJsonl(std::ostream& out, const Profile& profile, const RecordingFacts& facts) {
  std::vector<std::string> frames, functions, threads;
  for (const Frame& frame : profile.frames) {
    const Library& library = profile.libraries[frame.library];
    frames.push_back(quotedJson(frame.name));
    functions.push_back(
        ",\"function\":" + frames.back() + ",\"library\":" + quotedJson(library.name) +
        ",\"kind\":\"" + nameOf(library.kind) +
        "\",\"file\":" + (frame.file == NONE ? "null" : quotedJson(profile.files[frame.file])));
  }
  for (const ProfileThread& thread : profile.threads) {
    threads.push_back(",\"pid\":" + numberOrNull(thread.pid) + ",\"tid\":" +
                      numberOrNull(thread.tid) + ",\"process\":" + quotedJson(thread.processName) +
                      ",\"thread\":" + quotedJson(thread.name));
  }
  const std::string host = hostOf(facts.qualityJson);
  const std::string start = "{\"recording\":" + quotedJson(facts.name) +
                            ",\"host\":" + (host.empty() ? "null" : quotedJson(host)) +
                            ",\"time\":";
  const SampleColumns& samples = profile.samples;
  const std::size_t timed = samples.size() - static_cast<std::size_t>(profile.timelessCount);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const uint32_t stack = samples.stacks[i];
    out << start << (i < timed ? seconds(samples.times[i], profile.timeDigits) : "null")
        << ",\"cpu\":" << numberOrNull(samples.cpus[i]) << threads[samples.threads[i]]
        << functions[profile.stacks.frame(stack)] << ",\"stack\":[";
    const char* separator = "";
    for (uint32_t node = stack; node != StackTree::ROOT; node = profile.stacks.parent(node)) {
      out << separator << frames[profile.stacks.frame(node)];
      separator = ",";
    }
    out << "]}\n";
  }
}

}  // namespace report
