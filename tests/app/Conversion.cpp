#include "tests/app/Conversion.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string_view>
#include <utility>

namespace {

// A log line begins so: '0' stands for a digit, 'a' for a letter.
constexpr std::string_view STAMP = "aaa 00 00:00:00.000 [";

bool beginsWithStamp(std::string_view line) {
  return line.size() > STAMP.size() &&
         std::equal(STAMP.begin(), STAMP.end(), line.begin(), [](char expected, char byte) {
           const auto code = static_cast<unsigned char>(byte);
           return expected == '0'   ? std::isdigit(code) != 0
                  : expected == 'a' ? std::isalpha(code) != 0
                                    : expected == byte;
         });
}

// With a '#' for each hexadecimal number that is marked as one.
std::string withoutPointers(std::string_view message) {
  std::string text;
  while (!message.empty()) {
    const std::size_t at = message.find("0x");
    text += message.substr(0, at);
    if (at == std::string_view::npos) {
      break;
    }
    const std::size_t end = message.find_first_not_of("0123456789abcdef", at + 2);
    text += '#';
    message = message.substr(std::min(end, message.size()));
  }
  return text;
}

std::string withoutDuration(const std::string& message) {
  constexpr std::string_view BEFORE = "Conversion completed in ";
  constexpr std::string_view AFTER = " seconds.";
  if (!message.starts_with(BEFORE) || !message.ends_with(AFTER)) {
    return message;
  }
  const std::size_t digits = message.size() - BEFORE.size() - AFTER.size();
  const std::string seconds = message.substr(BEFORE.size(), digits);
  // Six digits behind the point.
  const bool wellFormed = seconds.size() > 7 && seconds[seconds.size() - 7] == '.' &&
                          seconds.find_first_not_of("0123456789.") == std::string::npos;
  return std::string(BEFORE) + (wellFormed ? "#" : seconds) + std::string(AFTER);
}

// "Mar 07 14:03:09.042 [main]: INFO text" becomes "INFO [main] text".
std::string readLine(const std::string& line) {
  const std::size_t nameEnd = line.find("]: ", STAMP.size());
  const std::size_t levelEnd = line.find(' ', nameEnd == std::string::npos ? 0 : nameEnd + 3);
  if (!beginsWithStamp(line) || nameEnd == std::string::npos || levelEnd == std::string::npos) {
    return "not a log line: " + line;
  }
  const std::string name = line.substr(STAMP.size(), nameEnd - STAMP.size());
  const std::string level = line.substr(nameEnd + 3, levelEnd - nameEnd - 3);
  return level + " [" + name + "] " + withoutDuration(withoutPointers(line.substr(levelEnd + 1)));
}

template <typename Test>
LogTexts linesThat(const LogTexts& log, Test test) {
  LogTexts chosen;
  std::copy_if(log.begin(), log.end(), std::back_inserter(chosen), test);
  return chosen;
}

}  // namespace

LogTexts readLog(const std::string& log) {
  LogTexts texts;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    texts.push_back(readLine(line));
  }
  return texts;
}

LogTexts linesOf(const LogTexts& log, const std::string& logger) {
  const std::string name = " [" + logger + "] ";
  return linesThat(log, [&](const std::string& line) {
    return line.compare(line.find(' '), name.size(), name) == 0;
  });
}

LogTexts ConversionResult::messages() const {
  return linesThat(log, [](const std::string& line) {
    return !line.starts_with("DEBUG ") && !line.starts_with("TRACE ");
  });
}

LogTexts ConversionResult::complaints() const {
  return linesThat(messages(), [](const std::string& line) { return !line.starts_with("INFO "); });
}

std::string ConversionResult::sampleRows() const {
  const std::string before = "\"bt.mapkey\":\"backtrace map key\"},\"data\":[";
  const std::size_t from = document.find(before);
  const std::size_t to = document.find("]},\"libraries\"");
  if (from == std::string::npos || to == std::string::npos) {
    return "no table in " + document;
  }
  return document.substr(from + before.size(), to - from - before.size());
}

Conversion::Conversion(const std::string& recording) { folder_.write("recording.perf", recording); }

Conversion& Conversion::setting(const std::string& members) {
  settings_ += "  " + members + ",\n";
  return *this;
}

Conversion& Conversion::arguments(std::vector<std::string> arguments) {
  arguments_ = std::move(arguments);
  return *this;
}

Conversion& Conversion::lister(const std::string& command) {
  lister_ = command;
  return *this;
}

Conversion& Conversion::asOrdinaryUser() {
  asOrdinaryUser_ = true;
  return *this;
}

ConversionResult Conversion::run() const { return finish(start()); }

RunningProgram Conversion::start() const {
  std::filesystem::remove(folder_.file("run.log"));
  folder_.write("golden.conf",
                "{\n"
                "  \"kernelSymbolFile\": \"kernel.syms\",\n"
                "  \"symbolCacheDir\": \"cache\",\n"
                "  \"log\": {\"level\": \"ALL\", \"default\": \"ALL\",\n"
                "          \"adapter\": {\"type\": \"file\", \"baseName\": \"run.log\"}},\n" +
                    settings_ + "}\n");
  std::vector<std::string> words{"-c", "golden.conf",  "-i", "recording.perf",
                                 "-o", "document.json"};
  words.insert(words.end(), arguments_.begin(), arguments_.end());
  ProgramRun program(folder_.path());
  program.arguments(std::move(words)).lister(lister_);
  return asOrdinaryUser_ ? program.asOrdinaryUser().start() : program.start();
}

ConversionResult Conversion::finish(RunningProgram running) const {
  const ProgramResult result = running.wait();
  return {result.status, folder_.read("document.json"), result.out, result.err,
          readLog(folder_.read("run.log"))};
}
