#include "report/DocumentReader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <future>
#include <memory>
#include <utility>

#include "report/DocumentPieces.h"
#include "report/DocumentTables.h"
#include "report/ProfileBuilder.h"
#include "report/ReportError.h"

namespace report {

Profile readDocument(std::FILE& file, const std::string& name) {
  try {
    DocumentPieces pieces(file);
    ProfileBuilder builder;
    SampleRowsParser parser;
    pieces.skipToSamples();
    // Rows are added in a thread of their own while the next ones are read: either takes as long.
    std::future<void> adding;
    while (pieces.nextRows()) {
      SampleRows rows = parser.parse(pieces.rows());
      if (adding.valid()) {
        adding.get();
      }
      adding = std::async([&builder, rows = std::move(rows)] { builder.addSamples(rows); });
    }
    adding.get();
    parseOtherTables(pieces.rest(), builder);
    return builder.build();
  } catch (const NoDocument& problem) {
    throw ReportError(name + " is no whole document of tracemill: " + problem.what() +
                      " Convert the recording again, and look at what tracemill says.");
  }
}

Profile readDocument(const std::string& path) {
  const auto closeFile = [](std::FILE* file) { std::fclose(file); };
  const std::unique_ptr<std::FILE, decltype(closeFile)> file(std::fopen(path.c_str(), "rb"),
                                                             closeFile);
  if (!file) {
    throw ReportError("Cannot open " + path + ": " + std::strerror(errno) + ".");
  }
  return readDocument(*file, path);
}

}  // namespace report
