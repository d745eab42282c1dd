#include "tests/app/Conversion.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>

namespace {

// The run of one log line: "Mar 07 14:03:09.042 [main]: INFO text".
const char* const LINE = R"(^\w{3} \d\d \d\d:\d\d:\d\d\.\d{3} \[([^\]]*)\]: ([A-Z]+) (.*)$)";

std::string withoutChangingParts(const std::string& message) {
  static const std::regex pointer("0x[0-9a-f]+");
  static const std::regex duration("^Conversion completed in [0-9]+\\.[0-9]{6} seconds\\.$");
  const std::string text =
      std::regex_replace(message, duration, "Conversion completed in # seconds.");
  return std::regex_replace(text, pointer, "#");
}

template <typename Test>
LogTexts linesThat(const LogTexts& log, Test test) {
  LogTexts chosen;
  std::copy_if(log.begin(), log.end(), std::back_inserter(chosen), test);
  return chosen;
}

}  // namespace

LogTexts readLog(const std::string& log) {
  static const std::regex pattern(LINE);
  LogTexts texts;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    std::smatch parts;
    if (std::regex_match(line, parts, pattern)) {
      texts.push_back(parts.str(2) + " [" + parts.str(1) + "] " +
                      withoutChangingParts(parts.str(3)));
    } else {
      texts.push_back("not a log line: " + line);
    }
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

ConversionResult Conversion::run() const {
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
  const ProgramResult run =
      ProgramRun(folder_.path()).arguments(std::move(words)).lister(lister_).run();
  return {run.status, folder_.read("document.json"), run.out, run.err,
          readLog(folder_.read("run.log"))};
}
