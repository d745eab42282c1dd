#include "prepare/Prepare.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>

#include "prepare/AssumedKernel.h"
#include "prepare/Bundle.h"
#include "prepare/Bundling.h"
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
          LowMaps& lowMaps, Progress& progress, const std::string& scratchDirectory)
      : output(path, source.events()[event].attribute, fieldsOf(source, event)),
        preparation(
            source, output,
            {wanted, options.keepUnknown, options.maxFrames, scratchDirectory,
             [&options, &files] {
               return assumedKernel(options.recording, options.listing.kallsyms,
                                    files.isThisMachine());
             },
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

// A folder in a temporary place, removed with all it holds.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_(temporaryDirectory() + "/tracemill.XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw PrepareError(temporaryDirectory() +
                         ": no folder can be made there: " + std::strerror(errno) + ".");
    }
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The recording that is asked for; of a bundle, unpacked below `folder` if anything is.
class Source {
 public:
  Source(const Options& options, const std::string& folder, bool recordingOnly)
      : options_(options) {
    if (options.recording == "-" || !isBundle(options.recording)) {
      return;
    }
    folder_ = folder + "/bundle";
    useBundle(options_, Bundle::unpack(options.recording, folder_, recordingOnly));
  }
  ~Source() { remove(); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  bool isUnpacked() const { return !folder_.empty(); }
  const Options& options() const { return options_; }

  // A text for the user: files of a bundle by the names that they had when it was written.
  std::string shown(std::string text) const {
    if (isUnpacked()) {
      replaceAll(text, folder_ + "/root/", "/");
      replaceAll(text, folder_ + "/", "");
    }
    return text;
  }

  // What was unpacked, as soon as it is not needed.
  void remove() const {
    if (isUnpacked()) {
      std::error_code ignored;
      std::filesystem::remove_all(folder_, ignored);
    }
  }

 private:
  // Nothing of this machine is used unless it is named. What is named comes first: files with
  // symbols, where the recorded machine had none.
  static void useBundle(Options& options, const Bundle& bundle) {
    listing::Options& listing = options.listing;
    options.recording = bundle.recording;
    if (!options.isSysrootGiven) {
      listing.sysroots.clear();
    }
    listing.sysroots.push_back(bundle.root());
    listing.perfBuildIdDir = bundle.copies();
    listing.vdso = bundle.vdso();
    listing.vdso32 = bundle.vdso32();
    listing.otherMachine = true;
    if (listing.kallsyms.empty() && listing.vmlinux.empty()) {
      const bool hasVmlinux = std::filesystem::exists(bundle.vmlinux());
      (hasVmlinux ? listing.vmlinux : listing.kallsyms) =
          hasVmlinux ? bundle.vmlinux() : bundle.kallsyms();
    }
  }

  static void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
    }
  }

  Options options_;
  std::string folder_;
};

// A recording on its way into a folder: walked, and its names found.
class Run {
 public:
  // All borrowed.
  Run(const Options& options, const PreparedFolder& folder, Progress& progress)
      : options_(options),
        folder_(folder),
        progress_(progress),
        recording_(openRecording(options, folder.workPath())),
        wanted_(chooseEvents(*recording_, options, event_)),
        recorded_(recording_->header().facts, options.listing),
        lowMaps_(recorded_),
        files_(folder) {
    _walk();
    names_ = std::make_unique<Names>(*recording_, attempt_->preparation, recorded_, options.listing,
                                     files_);
    progress.start("finding names");
    names_->find([&progress](std::size_t done, std::size_t all) { progress.show(done, all); });
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void write() {
    names_->write(attempt_->output);
    attempt_->output.finish(recording_->header().facts);
    files_.finish({names_->hasKernelList(), attempt_->preparation.counts().longestChain});
  }

  const Names& names() const { return *names_; }
  const recordings::MappedFiles& mappedFiles() const {
    return attempt_->preparation.processes().files();
  }
  Quality quality() const {
    return Quality(*recording_, walk_, attempt_->preparation, *names_, event_);
  }
  std::string window() const {
    return options_.window.empty() ? "" : windowLine(*recording_, walk_, options_.window);
  }

 private:
  void _walk() {
    bool isInOrder = false;
    for (const TimeOrder::Trust trust : {TimeOrder::Trust::ROUNDS, TimeOrder::Trust::NOTHING}) {
      if (!isInOrder) {
        attempt_.reset();
        attempt_ = std::make_unique<Attempt>(
            *recording_, options_, folder_.workPath(ConverterFiles::RECORDING), wanted_, event_,
            recorded_, lowMaps_, progress_, folder_.workPath());
        isInOrder = recording_->walk(attempt_->preparation, trust, folder_.workPath(), walk_);
      }
    }
    attempt_->preparation.finish();
  }

  const Options& options_;
  const PreparedFolder& folder_;
  Progress& progress_;
  std::unique_ptr<Recording> recording_;
  std::uint32_t event_ = 0;
  std::vector<bool> wanted_;
  RecordedFiles recorded_;
  LowMaps lowMaps_;
  ConverterFiles files_;
  recordings::WalkCounts walk_;
  std::unique_ptr<Attempt> attempt_;
  std::unique_ptr<Names> names_;
};

void list(const Options& given) {
  const TemporaryFolder folder;
  const Source source(given, folder.path(), true);
  const auto recording = openRecording(source.options(), temporaryDirectory());
  recordings::WalkCounts counts;
  recording->count(counts);
  std::fputs(contentsOf(*recording, counts, given.window).c_str(), stdout);
}

void prepareFolder(const Options& given) {
  const std::string place =
      given.output.empty() ? PreparedFolder::placeFor(given.recording) : given.output;
  PreparedFolder folder(place);
  Progress progress(given.quiet);
  progress.start("reading " + given.recording);
  const Source source(given, folder.workPath(), false);
  std::string report;
  std::string window;
  try {
    Run run(source.options(), folder, progress);
    run.write();
    const Quality quality = run.quality();
    folder.write("quality.json", source.shown(quality.json()));
    report = source.shown(quality.text());
    window = run.window();
  } catch (const UsageError& error) {
    throw UsageError(source.shown(error.what()));
  } catch (const std::runtime_error& error) {
    throw PrepareError(source.shown(error.what()));
  }
  source.remove();
  folder.commit();
  progress.finish();
  if (!given.quiet) {
    std::fputs(report.c_str(), stderr);
    std::fprintf(stderr, "Convert it: tracemill -c %s/tracemill.conf -o profile.json\n",
                 place.c_str());
  }
  std::fputs(window.c_str(), stdout);
}

// What was hit is known after the same work that a folder takes; that one is not kept.
void writeBundle(const Options& options) {
  std::error_code ignored;
  if (std::filesystem::equivalent(options.bundle, options.recording, ignored)) {
    throw UsageError("--bundle: " + options.bundle + " is the recording itself. Name a new file.");
  }
  if (isBundle(options.recording)) {
    throw UsageError("--bundle: " + options.recording + " is a bundle already.");
  }
  BundleWriter bundle(options.bundle, bundledName(options.recording));
  const PreparedFolder folder(options.bundle + ".work");
  Progress progress(options.quiet);
  progress.start("reading " + options.recording);
  const Run run(options, folder, progress);
  progress.start("writing " + options.bundle);
  addRecording(bundle, options.recording);
  const std::size_t leftOut = addHitFiles(bundle, run.names(), run.mappedFiles(), options.listing);
  bundle.commit();
  progress.finish();
  if (!options.quiet) {
    std::fputs(run.quality().text().c_str(), stderr);
    std::fprintf(stderr, "%s: %zu files of %.1f MB.", options.bundle.c_str(), bundle.files(),
                 static_cast<double>(bundle.bytes()) / 1e6);
    if (leftOut > 0) {
      std::fprintf(stderr, " Left out, for they cannot be read: %zu.", leftOut);
    }
    std::fprintf(stderr, "\nOn another machine: tracemill-prepare %s\n",
                 std::filesystem::path(options.bundle).filename().c_str());
  }
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
      case Options::Action::BUNDLE:
        writeBundle(options);
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
