#include "report/Pipeline.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "kestrel/ReplacementFile.h"
#include "report/ChildProcess.h"
#include "report/DocumentReader.h"
#include "report/ReportError.h"

namespace report {

namespace {

constexpr char PREPARER[] = "tracemill-prepare";
constexpr char CONVERTER[] = "tracemill";
constexpr char FOLDER_SUFFIX[] = ".prepared";  // what the preparer makes beside the recording

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void prepare(const std::string& recording, const LoadOptions& options) {
  using Output = ChildProcess::Output;
  const Output output = options.quiet                   ? Output::DISCARD
                        : options.reportToStandardError ? Output::TO_STANDARD_ERROR
                                                        : Output::INHERIT;
  const int status = ChildProcess({companion(PREPARER), recording}, output).wait();
  if (status != 0) {
    throw ReportError("Preparing " + recording + " failed: " + PREPARER + " ended with status " +
                      std::to_string(status) + ". Run \"" + PREPARER + " " + recording +
                      "\" to see what it says.");
  }
}

std::vector<std::string> conversion(const std::string& recording, const std::string& document) {
  const std::string configuration = recording + FOLDER_SUFFIX + "/tracemill.conf";
  return {companion(CONVERTER), "-c", configuration, "-o", document};
}

void checkConversion(int status, const std::string& recording) {
  if (status != 0) {
    throw ReportError("Converting " + recording + " failed: " + CONVERTER + " ended with status " +
                      std::to_string(status) + "; it says above why, and its log in " + recording +
                      FOLDER_SUFFIX + " says more.");
  }
}

// The document is read while it is written, and never on a disk.
Profile convertThroughPipe(const std::string& recording) {
  ChildProcess converter(conversion(recording, "/dev/stdout"), ChildProcess::Output::READ);
  try {
    Profile profile = readDocument(converter.output(), "The document of " + recording);
    checkConversion(converter.wait(), recording);
    return profile;
  } catch (const ReportError&) {
    // A converter that failed explains a document that is none. It must not wait for a reader.
    converter.closeOutput();
    checkConversion(converter.wait(), recording);
    throw;
  }
}

Profile convertIntoFile(const std::string& recording, const std::string& document) {
  kestrel::ReplacementFile file(document);
  if (!file.isOpen()) {
    throw ReportError("Cannot write " + document + ": " + std::strerror(errno) + ".");
  }
  const std::vector<std::string> arguments = conversion(recording, file.temporaryPath());
  const int status = ChildProcess(arguments, ChildProcess::Output::TO_STANDARD_ERROR).wait();
  checkConversion(status, recording);
  Profile profile = readDocument(file.temporaryPath());
  if (!file.commit()) {
    throw ReportError("Cannot write " + document + ": " + std::strerror(errno) + ".");
  }
  return profile;
}

}  // namespace

bool isDocument(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw ReportError("Cannot open " + path + ": " + std::strerror(errno) + ".");
  }
  file >> std::ws;
  return file.peek() == '{';
}

Loaded load(const std::string& input, const LoadOptions& options) {
  if (isDocument(input)) {
    options.beginStep("Reading " + input);
    return {readDocument(input), ""};
  }
  options.beginStep("Preparing " + input);
  prepare(input, options);
  options.beginStep("Converting " + input);
  Profile profile = options.keepDocumentAs.empty() ? convertThroughPipe(input)
                                                   : convertIntoFile(input, options.keepDocumentAs);
  return {std::move(profile), contentOf(input + FOLDER_SUFFIX + "/quality.json")};
}

}  // namespace report
