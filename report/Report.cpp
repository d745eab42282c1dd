#include "report/Report.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>

#include "kestrel/ReplacementFile.h"
#include "report/ChildProcess.h"
#include "report/PageWriter.h"
#include "report/Pipeline.h"
#include "report/ProfileBuilder.h"
#include "report/Recorder.h"
#include "report/ReportError.h"
#include "report/ReportOptions.h"
#include "report/formats/FoldedWriter.h"
#include "report/formats/JsonlWriter.h"
#include "report/formats/PprofWriter.h"
#include "report/formats/SpeedscopeWriter.h"

namespace report {

namespace {

constexpr char RECORDING[] = "perf.data";

// Says on a terminal what is being done, and how long it took.
class Steps {
 public:
  explicit Steps(bool quiet) : isShown_(!quiet && isatty(STDERR_FILENO) == 1) {}
  ~Steps() { end(); }

  void begin(const std::string& what) {
    end();
    if (isShown_) {
      std::cerr << what << " ..." << std::endl;
      what_ = what;
      start_ = std::chrono::steady_clock::now();
    }
  }
  void end() {
    if (!what_.empty()) {
      const auto took = std::chrono::steady_clock::now() - start_;
      const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(took).count() / 100;
      std::cerr << what_ << ": " << tenths / 10 << "." << tenths % 10 << " s" << std::endl;
      what_.clear();
    }
  }

 private:
  bool isShown_;
  std::string what_;
  std::chrono::steady_clock::time_point start_;
};

// "profile.json" is the document of "profile"; a recording keeps its whole name.
std::string baseNameOf(const std::string& input) {
  return input.ends_with(".json") ? input.substr(0, input.size() - 5) : input;
}

void write(std::ostream& out, Format format, const Profile& profile, const RecordingFacts& facts) {
  switch (format) {
    case Format::HTML:
      return writePage(out, profile, facts);
    case Format::FOLDED:
      return writeFolded(out, profile);
    case Format::SPEEDSCOPE:
      return writeSpeedscope(out, profile, facts);
    case Format::PPROF:
      return writePprof(out, profile, facts);
    case Format::JSONL:
      return writeJsonl(out, profile, facts);
  }
}

// A file appears when it is whole; a pipe or a device is written as it comes.
void writeFile(const std::string& path, Format format, const Profile& profile,
               const RecordingFacts& facts) {
  const auto fail = [&path] {
    throw ReportError("Cannot write " + path + ": " + std::strerror(errno) +
                      ". Name another place with -o.");
  };
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  const bool isReplaced = !exists(status) || is_regular_file(status) || is_directory(status);
  std::optional<kestrel::ReplacementFile> file;
  if (isReplaced && !file.emplace(path).isOpen()) {
    fail();
  }
  std::ofstream out(isReplaced ? file->temporaryPath() : path, std::ios::binary);
  write(out, format, profile, facts);
  out.close();
  if (!out || (isReplaced && !file->commit())) {
    fail();
  }
}

// On a desktop: where there is a display, and somebody at the terminal.
void openPage(const std::string& path) {
  const bool hasDesktop =
      std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
  if (hasDesktop && isatty(STDERR_FILENO) == 1) {
    try {
      ChildProcess({"xdg-open", path}, ChildProcess::Output::DISCARD).wait();
    } catch (const ReportError&) {
      // Its name has been printed: it can be opened by hand.
    }
  }
}

void makeReport(const ReportOptions& options) {
  Steps steps(options.quiet);
  std::string input = options.input;
  if (input.empty()) {
    input = RECORDING;
    steps.begin("Recording " + options.command[0]);
    record(options.command, options.recordOptions, input);
  }
  LoadOptions loading;
  loading.quiet = options.quiet;
  loading.reportToStandardError = options.output == "-";
  loading.beginStep = [&steps](const std::string& step) { steps.begin(step); };
  Loaded before;
  if (!options.baseline.empty()) {
    before = load(options.baseline, loading);
  }
  const std::string base = baseNameOf(input);
  loading.keepDocumentAs = options.keepDocument ? base + ".json" : "";
  Loaded loaded = load(input, loading);

  RecordingFacts facts;
  facts.name = fileNameOf(input);
  facts.qualityJson = loaded.quality;
  if (!options.baseline.empty()) {
    facts.baselineName = fileNameOf(options.baseline);
    facts.baselineQualityJson = before.quality;
    addBaseline(loaded.profile, before.profile);
  }
  if (options.output == "-") {
    write(std::cout, options.format, loaded.profile, facts);
    if (!std::cout.flush()) {
      throw ReportError("Standard output cannot be written.");
    }
    return;
  }
  const std::string output =
      options.output.empty() ? base + extensionOf(options.format) : options.output;
  steps.begin("Writing " + output);
  writeFile(output, options.format, loaded.profile, facts);
  steps.end();
  if (!options.quiet) {
    std::cout << "Wrote " << output << ": " << loaded.profile.samples.size() << " samples.\n";
  }
  if (options.format == Format::HTML && options.open) {
    openPage(output);
  }
}

}  // namespace

int run(int argc, char** argv) {
  ReportOptions options;
  if (const std::optional<int> status = options.parse(argc, argv)) {
    return *status;
  }
  try {
    makeReport(options);
    return 0;
  } catch (const ReportError& problem) {
    std::cerr << "tracemill-report: " << problem.what() << "\n";
  } catch (const std::bad_alloc&) {
    std::cerr
        << "tracemill-report: There is not enough memory for all samples; convert a part of the time with -s and -d of tracemill.\n";
  }
  return 1;
}

}  // namespace report
