#include "report/Report.h"

#include <fstream>
#include <iostream>
#include <string>

#include "report/DocumentReader.h"
#include "report/PageWriter.h"
#include "report/ProfileBuilder.h"
#include "report/ReportError.h"

namespace report {

int run(int argc, char** argv) {
  if (argc < 3) return 2;
  try {
    Profile profile = readDocument(argv[1]);
    RecordingFacts facts;
    facts.name = fileNameOf(argv[1]);
    if (argc > 3) {
      addBaseline(profile, readDocument(argv[3]));
      facts.baselineName = fileNameOf(argv[3]);
    }
    std::ofstream out(argv[2]);
    writePage(out, profile, facts);
  } catch (const ReportError& problem) {
    std::cerr << "tracemill-report: " << problem.what() << "\n";
    return 1;
  }
  return 0;
}

}  // namespace report
