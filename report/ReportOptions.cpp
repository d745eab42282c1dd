#include "report/ReportOptions.h"

#include <getopt.h>
#include <iostream>
#include <map>
#include <sstream>

#ifndef TRACEMILL_VERSION
#define TRACEMILL_VERSION "unknown"
#endif

namespace report {

namespace {

constexpr char USAGE[] =
    R"(Usage: tracemill-report [OPTION...] FILE
       tracemill-report [OPTION...] -- PROGRAM [ARGUMENT...]
       tracemill-report [OPTION...] --compare BEFORE AFTER

Makes a page of a recording: one file, NAME.html, that opens in any browser, offline. FILE is what
perf record wrote, or a document of tracemill. With a PROGRAM, that is recorded first, into perf.data.

  -o, --output FILE          write to FILE; "-" is standard output
  -f, --format FORMAT        html (the page), folded, speedscope, pprof or jsonl
      --compare BEFORE       show what changed since BEFORE, a recording or a document
      --json                 keep the document, too: NAME.json
      --record-options TEXT  further options for perf record, separated by blanks
      --no-open              do not open the page when it is done
  -q, --quiet                say nothing but what went wrong
  -h, --help                 show this help
      --version              show the version

Exit status: 0 when all went well, 1 when a step failed, 2 for a mistake on the command line.
)";

enum LongOption { COMPARE = 256, JSON, RECORD_OPTIONS, NO_OPEN, VERSION };

const std::map<std::string, Format> FORMATS = {{"html", Format::HTML},
                                               {"folded", Format::FOLDED},
                                               {"speedscope", Format::SPEEDSCOPE},
                                               {"pprof", Format::PPROF},
                                               {"jsonl", Format::JSONL}};

int fail(const std::string& sentence) {
  std::cerr << "tracemill-report: " << sentence << " See tracemill-report --help.\n";
  return 2;
}

std::vector<std::string> splitAtBlanks(const std::string& text) {
  std::istringstream words(text);
  std::vector<std::string> result;
  for (std::string word; words >> word;) {
    result.push_back(word);
  }
  return result;
}

}  // namespace

std::string extensionOf(Format format) {
  switch (format) {
    case Format::FOLDED:
      return ".folded";
    case Format::SPEEDSCOPE:
      return ".speedscope.json";
    case Format::PPROF:
      return ".pb.gz";
    case Format::JSONL:
      return ".jsonl";
    case Format::HTML:
      break;
  }
  return ".html";
}

std::optional<int> ReportOptions::parse(int argc, char** argv) {
  static const option OPTIONS[] = {{"output", required_argument, nullptr, 'o'},
                                   {"format", required_argument, nullptr, 'f'},
                                   {"compare", required_argument, nullptr, COMPARE},
                                   {"json", no_argument, nullptr, JSON},
                                   {"record-options", required_argument, nullptr, RECORD_OPTIONS},
                                   {"no-open", no_argument, nullptr, NO_OPEN},
                                   {"quiet", no_argument, nullptr, 'q'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, VERSION},
                                   {nullptr, 0, nullptr, 0}};
  // Up to "--" the options may stand anywhere; what is behind it belongs to the program.
  int own = 1;
  while (own < argc && std::string(argv[own]) != "--") {
    ++own;
  }
  command.assign(argv + std::min(own + 1, argc), argv + argc);
  optind = 0;  // from the beginning, whatever was parsed before
  opterr = 0;
  for (int found; (found = getopt_long(own, argv, ":o:f:qh", OPTIONS, nullptr)) != -1;) {
    switch (found) {
      case 'o':
        output = optarg;
        break;
      case 'f': {
        const auto known = FORMATS.find(optarg);
        if (known == FORMATS.end()) {
          return fail(std::string("There is no format ") + optarg + ".");
        }
        format = known->second;
        break;
      }
      case COMPARE:
        baseline = optarg;
        break;
      case JSON:
        keepDocument = true;
        break;
      case RECORD_OPTIONS:
        recordOptions = splitAtBlanks(optarg);
        break;
      case NO_OPEN:
        open = false;
        break;
      case 'q':
        quiet = true;
        break;
      case 'h':
        std::cout << USAGE;
        return 0;
      case VERSION:
        std::cout << "tracemill-report " << TRACEMILL_VERSION << "\n";
        return 0;
      case ':':
        return fail(std::string("The option ") + argv[optind - 1] + " needs a value.");
      default:
        return fail(std::string("There is no option ") + argv[optind - 1] + ".");
    }
  }
  if (own - optind > 1 || (own - optind == 1 && !command.empty())) {
    return fail("There is more than one file; give one, or a program behind \"--\".");
  }
  if (own - optind == 0 && command.empty()) {
    return fail("Give a recording, a document, or a program behind \"--\".");
  }
  if (!baseline.empty() && format != Format::HTML) {
    return fail("Only a page can compare; leave out --format.");
  }
  input = own - optind == 1 ? argv[optind] : "";
  return std::nullopt;
}

}  // namespace report
