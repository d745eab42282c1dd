#include "prepare/Prepare.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>

#include "prepare/Contents.h"
#include "prepare/ConverterFiles.h"
#include "prepare/Names.h"
#include "prepare/Options.h"
#include "prepare/PlainRecording.h"
#include "prepare/Preparation.h"
#include "prepare/PrepareError.h"
#include "prepare/PreparedFolder.h"
#include "prepare/Progress.h"
#include "prepare/Quality.h"
#include "prepare/RecordedFiles.h"
#include "prepare/StandardInput.h"
#include "recordings/Recording.h"
#include "recordings/RecordingError.h"

namespace prepare {

namespace {

using recordings::Recording;
using recordings::TimeOrder;

std::string temporaryDirectory() {
  const char* const given = std::getenv("TMPDIR");
  return given == nullptr || *given == '\0' ? "/tmp" : given;
}

std::unique_ptr<Recording> openRecording(const Options& options, const std::string& scratch) {
  return options.recording == "-" ? std::make_unique<Recording>(openStandardInput(scratch))
                                  : Recording::open(options.recording);
}

// By name as perf shows it; modifiers behind a colon may be left out.
bool isCalled(const recordings::Event& event, const std::string& name) {
  return event.name == name || event.name.substr(0, event.name.find(':')) == name;
}

std::string eventNames(const Recording& recording) {
  std::string names;
  for (const recordings::Event& event : recording.events()) {
    names += (names.empty() ? "" : ", ") + event.name;
  }
  return names;
}

// Which events' samples are taken, and the first of them.
std::vector<bool> chooseEvents(const Recording& recording, const Options& options,
                               std::uint32_t& first) {
  const std::vector<recordings::Event>& events = recording.events();
  std::vector<bool> wanted(events.size());
  for (const std::string& name : options.events) {
    bool isFound = false;
    for (std::size_t i = 0; i < events.size(); ++i) {
      if (isCalled(events[i], name)) {
        wanted[i] = isFound = true;
      }
    }
    if (!isFound) {
      throw UsageError("--event: " + recording.name() + " holds no event '" + name + "'; it has " +
                       eventNames(recording) + ".");
    }
  }
  if (options.events.empty()) {
    std::size_t chosen = 0;
    while (chosen + 1 < events.size() && events[chosen].attribute.isDummy()) {
      ++chosen;
    }
    wanted[chosen] = true;
  }
  first = 0;
  while (!wanted[first]) {
    ++first;
  }
  return wanted;
}

// Whether the converter, which takes addresses of low maps for those in the file, would be wrong.
class LowMaps {
 public:
  explicit LowMaps(const RecordedFiles& files) : files_(files) {}

  bool mustBeHigh(const recordings::Mapping& mapping) {
    if (mapping.file->kind != recordings::MappedFile::Kind::FILE) {
      return mapping.fileOffset != mapping.start;
    }
    auto known = layouts_.find(mapping.file);
    if (known == layouts_.end()) {
      known = layouts_.emplace(mapping.file, files_.layoutOf(*mapping.file)).first;
    }
    const auto& layout = known->second;
    return layout &&
           layout->addressOfOffset(mapping.fileOffset).value_or(mapping.start) != mapping.start;
  }

 private:
  const RecordedFiles& files_;
  std::map<const recordings::MappedFile*, std::optional<listing::Layout>> layouts_;
};

// One attempt; a second one trusts no marks of the recording.
struct Attempt {
  Attempt(Recording& source, const Options& options, const std::string& path,
          const std::vector<bool>& wanted, std::uint32_t event, const RecordedFiles& files,
          LowMaps& lowMaps, Progress& progress)
      : output(path, source.events()[event].attribute, fieldsOf(source, event)),
        preparation(
            source, output,
            {wanted, options.keepUnknown, options.maxFrames,
             [&lowMaps](const recordings::Mapping& map) { return lowMaps.mustBeHigh(map); },
             [&files](const recordings::MappedFile& file) { return files.locationOf(file); },
             [&progress](std::uint64_t done, std::uint64_t all) { progress.show(done, all); }}) {}

  static PlainRecording::Fields fieldsOf(const Recording& source, std::uint32_t event) {
    const recordings::SampleLayout& layout = source.layout(event);
    return {layout.hasTime(), layout.hasCpu(), layout.hasChain() || layout.hasStackDump()};
  }

  PlainRecording output;
  Preparation preparation;
};

void list(const Options& options) {
  const auto recording = openRecording(options, temporaryDirectory());
  recordings::WalkCounts counts;
  recording->count(counts);
  std::fputs(contentsOf(*recording, counts, options.window).c_str(), stdout);
}

void prepareFolder(const Options& options) {
  PreparedFolder folder(options.output.empty() ? PreparedFolder::placeFor(options.recording)
                                               : options.output);
  Progress progress(options.quiet);
  progress.start("reading " + options.recording);
  const auto recording = openRecording(options, folder.workPath());
  std::uint32_t event = 0;
  const std::vector<bool> wanted = chooseEvents(*recording, options, event);
  const RecordedFiles recorded(recording->header().facts, options.listing);
  LowMaps lowMaps(recorded);
  recordings::WalkCounts walk;
  std::unique_ptr<Attempt> attempt;
  bool isInOrder = false;
  for (const TimeOrder::Trust trust : {TimeOrder::Trust::ROUNDS, TimeOrder::Trust::NOTHING}) {
    if (!isInOrder) {
      attempt.reset();
      attempt =
          std::make_unique<Attempt>(*recording, options, folder.workPath(ConverterFiles::RECORDING),
                                    wanted, event, recorded, lowMaps, progress);
      isInOrder = recording->walk(attempt->preparation, trust, folder.workPath(), walk);
    }
  }
  attempt->preparation.finish();

  ConverterFiles files(folder);
  Names names(*recording, attempt->preparation, recorded, options.listing, files);
  progress.start("finding names");
  names.find([&progress](std::size_t done, std::size_t all) { progress.show(done, all); });
  names.write(attempt->output);
  attempt->output.finish();
  files.finish({names.hasKernelList(), attempt->preparation.counts().longestChain});
  const Quality quality(*recording, walk, attempt->preparation, names, event);
  folder.write("quality.json", quality.json());
  const std::string window =
      options.window.empty() ? "" : windowLine(*recording, walk, options.window);
  folder.commit();
  progress.finish();
  if (!options.quiet) {
    std::fputs(quality.text().c_str(), stderr);
    std::fprintf(
        stderr, "Convert it: tracemill -c %s/tracemill.conf -o profile.json\n",
        (options.output.empty() ? PreparedFolder::placeFor(options.recording) : options.output)
            .c_str());
  }
  std::fputs(window.c_str(), stdout);
}

}  // namespace

int run(int count, char* const* words) {
  try {
    const Options options = Options::parse(count, words);
    switch (options.action) {
      case Options::Action::HELP:
        std::fputs(Options::helpText(), stdout);
        break;
      case Options::Action::VERSION:
        std::puts("tracemill-prepare " TRACEMILL_VERSION);
        break;
      case Options::Action::LIST:
        list(options);
        break;
      case Options::Action::PREPARE:
        prepareFolder(options);
        break;
    }
    if (std::fflush(stdout) != 0) {
      std::fputs("tracemill-prepare: standard output cannot be written.\n", stderr);
      return 1;
    }
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "tracemill-prepare: %s\n", error.what());
    return 2;
  } catch (const std::bad_alloc&) {
    std::fputs("tracemill-prepare: out of memory.\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tracemill-prepare: %s\n", error.what());
  }
  return 1;
}

}  // namespace prepare
