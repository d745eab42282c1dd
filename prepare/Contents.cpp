#include "prepare/Contents.h"

#include <cstdio>
#include <sstream>

#include "prepare/Options.h"
#include "prepare/WallClock.h"

namespace prepare {

namespace {

// A word of a command line as a shell takes it.
std::string quoted(const std::string& word) {
  constexpr char PLAIN[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=:,./@%^";
  if (!word.empty() && word.find_first_not_of(PLAIN) == std::string::npos) {
    return word;
  }
  std::string result = "'";
  for (const char character : word) {
    result += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return result + "'";
}

}  // namespace

std::string windowLine(const recordings::Recording& recording, const recordings::WalkCounts& counts,
                       const std::string& window) {
  const RecordedClock clock(recording.header(), counts.firstTime);
  const auto first = clock.wallOfFirstSample();
  if (!first) {
    throw UsageError(
        "--window: this recording does not say what the time was. Record with -k mono.");
  }
  return "tracemill " + clock.optionsFor(Window::parse(window, *first)) + "\n";
}

std::string contentsOf(const recordings::Recording& recording, const recordings::WalkCounts& counts,
                       const std::string& window) {
  const recordings::Facts& facts = recording.header().facts;
  const RecordedClock clock(recording.header(), counts.firstTime);
  std::ostringstream out;
  const auto line = [&out](const char* what, const std::string& value) {
    if (!value.empty()) {
      char label[32];
      std::snprintf(label, sizeof label, "%-14s", what);
      out << label << value << "\n";
    }
  };
  std::string commandLine;
  for (const std::string& word : facts.commandLine) {
    commandLine += (commandLine.empty() ? "" : " ") + quoted(word);
  }
  line("host", facts.hostname);
  line("kernel", facts.osRelease + (facts.architecture.empty() ? "" : " " + facts.architecture));
  line("perf", facts.perfVersion);
  line("command line", commandLine);
  line("clock", clock.description());
  if (counts.firstTime != 0) {
    line("first sample", secondsText(counts.firstTime) + " s");
    line("duration", secondsText(counts.lastTime - counts.firstTime) + " s");
  }
  if (const auto wall = clock.wallOfFirstSample()) {
    line("wall clock", wallText(*wall) + " at the first sample");
    const Window all{*wall, counts.lastTime - counts.firstTime + 1};
    line("all of it", "tracemill " + clock.optionsFor(all));
  }
  if (!window.empty()) {
    line("window", windowLine(recording, counts, window).substr(0));
    out.seekp(-1, std::ios::end);  // the line has its end already
  }
  for (std::size_t i = 0; i < recording.events().size(); ++i) {
    char samples[32];
    std::snprintf(samples, sizeof samples, "%12llu samples  ",
                  static_cast<unsigned long long>(counts.samplesOfEvent[i]));
    line(i == 0 ? "events" : "       ", samples + recording.events()[i].name);
  }
  for (const recordings::Damage& damage : counts.damages) {
    line("damaged", damage.what + ", at byte " + std::to_string(damage.offset) + ": " +
                        std::to_string(damage.lostBytes) + " bytes are lost");
  }
  return out.str();
}

}  // namespace prepare
