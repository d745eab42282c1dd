#include "prepare/Options.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <getopt.h>
#include <limits>

namespace prepare {

namespace {

enum LongOption {
  OPTION_EVENT = 256,
  OPTION_WINDOW,
  OPTION_KEEP_UNKNOWN,
  OPTION_SYSROOT,
  OPTION_DEBUG_DIR,
  OPTION_KALLSYMS,
  OPTION_VMLINUX,
  OPTION_NO_DEMANGLE,
  OPTION_NO_LINES,
  OPTION_NO_CACHE,
  OPTION_CACHE_SIZE,
  OPTION_LISTING_TIMEOUT,
  OPTION_MAX_FRAMES,
  OPTION_BUNDLE,
  OPTION_VERSION,
};

constexpr option LONG_OPTIONS[] = {
    {"output", required_argument, nullptr, 'o'},
    {"bundle", required_argument, nullptr, OPTION_BUNDLE},
    {"list", no_argument, nullptr, 'l'},
    {"event", required_argument, nullptr, OPTION_EVENT},
    {"window", required_argument, nullptr, OPTION_WINDOW},
    {"keep-unknown", no_argument, nullptr, OPTION_KEEP_UNKNOWN},
    {"sysroot", required_argument, nullptr, OPTION_SYSROOT},
    {"debug-dir", required_argument, nullptr, OPTION_DEBUG_DIR},
    {"kallsyms", required_argument, nullptr, OPTION_KALLSYMS},
    {"vmlinux", required_argument, nullptr, OPTION_VMLINUX},
    {"no-demangle", no_argument, nullptr, OPTION_NO_DEMANGLE},
    {"no-lines", no_argument, nullptr, OPTION_NO_LINES},
    {"no-cache", no_argument, nullptr, OPTION_NO_CACHE},
    {"cache-size", required_argument, nullptr, OPTION_CACHE_SIZE},
    {"listing-timeout", required_argument, nullptr, OPTION_LISTING_TIMEOUT},
    {"max-frames", required_argument, nullptr, OPTION_MAX_FRAMES},
    {"quiet", no_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string& what) {
  throw UsageError(what + " See tracemill-prepare --help.");
}

std::uint64_t numberOf(const char* option, const std::string& text, std::uint64_t largest) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
  const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  if (!isNumber || errno != 0 || *end != '\0' || value == 0 || value > largest) {
    refuse(std::string(option) + ": '" + text + "' is no number from 1 to " +
           std::to_string(largest) + ".");
  }
  return value;
}

// getopt tells a letter that it does not know in optopt: its word may hold others. A long option
// that has a value but takes none is there with its own number.
[[noreturn]] void refuseOption(const std::string& word) {
  if (word.starts_with("--") && word.find('=') != std::string::npos && optopt != 0) {
    refuse(word + " takes no value.");
  }
  refuse((optopt == 0 ? word : std::string("-") + static_cast<char>(optopt)) + ": no such option.");
}

// Bytes, with K, M or G behind the number.
std::uint64_t sizeOf(std::string text) {
  unsigned shift = 0;
  static constexpr char UNITS[] = "KMG";
  for (unsigned unit = 0; unit < 3 && !text.empty(); ++unit) {
    if (text.back() == UNITS[unit]) {
      shift = 10 * (unit + 1);
    }
  }
  if (shift > 0) {
    text.pop_back();
  }
  return numberOf("--cache-size", text, std::numeric_limits<std::uint64_t>::max() >> 32) << shift;
}

void addSysroot(Options& options, const char* directory) {
  if (!options.isSysrootGiven) {
    options.listing.sysroots.clear();
  }
  options.isSysrootGiven = true;
  options.listing.sysroots.emplace_back(directory);
}

// A bundle takes the place of everything else that a run could write.
void checkBundle(const Options& options, bool isListing) {
  if (options.bundle.empty()) {
    refuse("--bundle needs the name of a file.");
  }
  if (isListing || !options.output.empty() || !options.window.empty()) {
    refuse("--bundle writes a bundle and nothing else: leave out --list, --output and --window.");
  }
  if (options.recording == "-") {
    refuse("--bundle takes a recording from a file: save it first.");
  }
}

}  // namespace

Options Options::parse(int count, char* const* words) {
  Options options;
  bool isListing = false;
  bool isBundle = false;
  opterr = 0;
  optind = 0;
  for (;;) {
    const int option = getopt_long(count, words, ":o:lqh", LONG_OPTIONS, nullptr);
    if (option == -1) {
      break;
    }
    switch (option) {
      case 'o':
        options.output = optarg;
        break;
      case 'l':
        isListing = true;
        break;
      case 'q':
        options.quiet = true;
        break;
      case 'h':
        options.action = Action::HELP;
        return options;
      case OPTION_VERSION:
        options.action = Action::VERSION;
        return options;
      case OPTION_EVENT:
        options.events.emplace_back(optarg);
        break;
      case OPTION_BUNDLE:
        options.bundle = optarg;
        isBundle = true;
        break;
      case OPTION_WINDOW:
        options.window = optarg;
        break;
      case OPTION_KEEP_UNKNOWN:
        options.keepUnknown = true;
        break;
      case OPTION_SYSROOT:
        addSysroot(options, optarg);
        break;
      case OPTION_DEBUG_DIR:
        options.listing.debugDirs.emplace_back(optarg);
        break;
      case OPTION_KALLSYMS:
        options.listing.kallsyms = optarg;
        break;
      case OPTION_VMLINUX:
        options.listing.vmlinux = optarg;
        break;
      case OPTION_NO_DEMANGLE:
        options.listing.demangle = false;
        break;
      case OPTION_NO_LINES:
        options.listing.lines = false;
        break;
      case OPTION_NO_CACHE:
        options.listing.cache = false;
        break;
      case OPTION_CACHE_SIZE:
        options.listing.cacheSize = sizeOf(optarg);
        break;
      case OPTION_LISTING_TIMEOUT:
        options.listing.timeout =
            std::chrono::seconds(numberOf("--listing-timeout", optarg, 1000000));
        break;
      case OPTION_MAX_FRAMES:
        options.maxFrames = static_cast<unsigned>(numberOf("--max-frames", optarg, 4096));
        break;
      case ':':
        refuse(std::string(words[optind - 1]) + " needs a value.");
      default:
        refuseOption(words[optind - 1]);
    }
  }
  if (optind + 1 < count) {
    refuse(std::string(words[optind + 1]) + ": one recording at a time.");
  }
  if (optind < count) {
    options.recording = words[optind];
  }
  if (isBundle) {
    options.action = Action::BUNDLE;
    checkBundle(options, isListing);
  } else if (isListing) {
    options.action = Action::LIST;
  }
  return options;
}

const char* Options::helpText() {
  return R"(Usage: tracemill-prepare [options] [perf.data | - | FILE.tar.zst]

Reads any recording of perf record, finds the names of its functions, and writes a folder that
tracemill converts as it stands:

  tracemill-prepare perf.data
  tracemill -c perf.data.prepared/tracemill.conf -o profile.json

  -o, --output DIR         the folder (default: the recording's name with .prepared); one that was
                           prepared before is replaced
      --bundle FILE        write no folder, but one archive with the recording and all files that
                           were hit; given in place of a recording, another machine prepares it
  -l, --list               say what the recording holds, and end
      --event NAME         take the samples of this event; may be repeated (default: the first
                           that is not a dummy)
      --window WHEN,LENGTH print the options of tracemill for a window on the wall clock:
                           14:03:10.5,2s or '2026-11-21 14:03:10.5,500ms'
      --keep-unknown       keep addresses of call chains that are in no map
      --max-frames N       frames of a call chain found from a stack dump (default 127)
      --sysroot DIR        the recorded machine's files are below DIR (default /); may be repeated
      --debug-dir DIR      debug files, laid out as in /usr/lib/debug; may be repeated
      --kallsyms FILE      the recorded kernel's /proc/kallsyms
      --vmlinux FILE       the recorded kernel with symbols
      --no-demangle        names as the linker has them
      --no-lines           no names of source files
      --no-cache           list all files anew, and keep no lists
      --cache-size SIZE    of all kept lists, in bytes, or with K, M or G (default 1G)
      --listing-timeout S  give a file up after so many seconds (default 30)
  -q, --quiet              no progress and no report
  -h, --help               show this help
      --version            show the version

Ends with 0 when the folder or bundle was written, also if a damaged recording could be read in part only, 1
when it could not, 2 when the command line is wrong.
)";
}

}  // namespace prepare
