#include "app/Options.h"

#include <cctype>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace {

constexpr const char* PROGRAM = "tracemill";
constexpr const char* DEFAULT_CONFIG_FILE = "tracemill.conf";
constexpr const char* OPTIONS_WITH_ARGUMENT = "csodiABC";

void _printUsage() {
  std::cout << PROGRAM << " - converts raw Perf data to generic plot data. Built " << __DATE__
            << " " << __TIME__ << "\n"
            << " USAGE " << PROGRAM << " [options]\n"
            << "       -h          show this help\n"
            << "       -c file     the configuration file (default " << DEFAULT_CONFIG_FILE << ")\n"
            << "       -s time     Clock start time in seconds\n"
            << "       -d duration Clock duration in seconds\n"
            << "       -i file     Input perf data file\n"
            << "       -o file     Output file (stdout)\n"
            << "       -a          Append output file\n"
            << "       -A number   Time conversion from data to clock multiplier or skew (1.0)\n"
            << "       -B number   Time conversion from data to clock offset (0.0)\n"
            << "       -C number   Time conversion from data to clock base (0.0)\n"
            << " TIME\n\n"
            << "   clockStartTime(-s) = the clock time to start collection.\n\n"
            << "   dataStartTime = the time to start collection, adjusted for input time stamps.\n"
            << "                 = (clockStartTime(-s) - offset(-B)) / skew(-A) + base(-C)\n";
  std::cout.flush();
}

// `character` is what getopt could not use. Codes are printed as numbers, and the "8" is part of
// the text: both kept.
void _printMistake(unsigned char character) {
  const int code = character;
  if (std::string(OPTIONS_WITH_ARGUMENT).find(static_cast<char>(character)) != std::string::npos) {
    std::cerr << "Option -" << static_cast<char>(character) << " requires an argument.\n";
  } else if (std::isprint(code) != 0) {
    std::cerr << "Unknown option `-" << code << "'.\n";
  } else {
    std::cerr << "Unknown option character `8" << code << "'.\n";
  }
}

double _number(const char* text) { return std::strtod(text, nullptr); }

}  // namespace

std::optional<int> Options::parse(int argc, char* const* argv) {
  opterr = 0;
  optind = 0;  // starts getopt afresh, also in a process that used it before
  for (int option = 0; (option = getopt(argc, argv, "hc:s:o:d:i:aA:B:C:")) != -1;) {
    switch (option) {
      case 'h':
        _printUsage();
        return EXIT_FAILURE;  // kept: scripts that probe the program rely on it
      case 'c':
        configFile = optarg;
        break;
      case 's':
        clockStart = _number(optarg);
        break;
      case 'd':
        clockDuration = _number(optarg);
        break;
      case 'i':
        inputFile = optarg;
        break;
      case 'o':
        outputFile = optarg;
        break;
      case 'a':
        append = true;
        break;
      case 'A':
        skew = _number(optarg);
        break;
      case 'B':
        offset = _number(optarg);
        break;
      case 'C':
        base = _number(optarg);
        break;
      default:
        _printMistake(static_cast<unsigned char>(optopt));
        return EXIT_FAILURE;
    }
  }
  return std::nullopt;
}
