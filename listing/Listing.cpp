#include "listing/Listing.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <numeric>
#include <optional>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

#include "kestrel/FileUtils.h"
#include "listing/ChildPool.h"
#include "listing/CodeList.h"
#include "listing/Cures.h"
#include "listing/DebugFiles.h"
#include "listing/Debuginfod.h"
#include "listing/Demangler.h"
#include "listing/ElfList.h"
#include "listing/ListCache.h"
#include "listing/RegularFile.h"
#include "listing/Vdso.h"

namespace listing {

namespace {

// Fields of a child's reply, each behind a zero byte. None of them holds one: they are paths and
// numbers.
std::string _join(const std::vector<std::string>& fields) {
  std::string text;
  for (const std::string& field : fields) {
    text += '\0';
    text += field.c_str();
  }
  return text;
}

std::vector<std::string> _split(std::string_view text) {
  std::vector<std::string> fields;
  while (!text.empty()) {
    text.remove_prefix(1);
    fields.emplace_back(text.substr(0, text.find('\0')));
    text.remove_prefix(fields.back().size());
  }
  return fields;
}

Outcome _outcomeOf(const std::string& text) {
  int number = -1;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number >= 0 && number <= static_cast<int>(Outcome::OldPerfMap)
             ? static_cast<Outcome>(number)
             : Outcome::Failed;
}

// What a file holds: its build id, or else where it is and when it was changed.
std::string _contentOf(const std::string& path) {
  const std::optional<RegularFile> file = RegularFile::open(path);
  if (!file) {
    return {};
  }
  const BuildId id = readLayout(*file).value_or(Layout()).buildId;
  return id.empty() ? file->identity() : hexText(id) + ' ' + std::to_string(file->size());
}

// One file on its way to a list.
struct Job {
  std::size_t index = 0;  // of the file
  ElfListTask task;
  bool fetchFile = false;     // from a debuginfod server
  bool fetchSymbols = false;  // same
  std::string source;         // key in the cache; empty: is not kept
  std::string newList;        // where the child writes
};

class ListingRun {
 public:
  ListingRun(const std::vector<File>& files, const Options& options, const std::string& workDir)
      : files_(files),
        options_(options),
        workDir_(workDir),
        cache_(options.cache ? options.effectiveCacheDir() : "", options.cacheSize),
        demangler_(!options.demangle    ? Demangler::Style::Off
                   : options.parameters ? Demangler::Style::WithParameters
                                        : Demangler::Style::Names),
        results_(files.size()) {}

  std::vector<Result> execute(const std::function<void(std::size_t, std::size_t)>& progress) {
    for (const std::size_t index : _byWeight()) {
      _begin(index);
    }
    std::size_t done = files_.size() - jobs_.size();
    const auto report = [&] {
      if (progress) {
        progress(done, files_.size());
      }
    };
    report();
    ChildPool pool(options_.jobs != 0 ? options_.jobs : std::thread::hardware_concurrency(),
                   options_.timeout);
    pool.run(
        jobs_.size(), [this](std::size_t job) { return _work(jobs_[job]); },
        [&](std::size_t job, const std::optional<std::string>& reply) {
          _end(jobs_[job], reply);
          ++done;
          report();
        });
    cache_.trim();
    _addCures();
    return std::move(results_);
  }

 private:
  std::vector<std::size_t> _byWeight() const {
    std::vector<std::size_t> order(files_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
      return files_[a].samples > files_[b].samples;
    });
    return order;
  }

  // Finds the file; what is not in the cache becomes a job.
  void _begin(std::size_t index) {
    const File& file = files_[index];
    Job job;
    job.index = index;
    if (file.kind == File::Kind::PerfMap) {
      _addJob(std::move(job));
      return;
    }
    Result& result = results_[index];
    if (!_locate(file, result)) {
      if (file.kind != File::Kind::Elf || file.buildId.empty() || !Debuginfod::isWanted()) {
        return;
      }
      job.fetchFile = job.fetchSymbols = true;
      _addJob(std::move(job));
      return;
    }
    _prepare(job, result, file);
    if (!_takeFromCache(job, result)) {
      _addJob(std::move(job));
    }
  }

  bool _locate(const File& file, Result& result) {
    Located located = locate(file, options_);
    if (file.isVdso() && located.outcome != Outcome::Named && !options_.otherMachine) {
      located = _locateOwnVdso(file, std::move(located));
    }
    result.outcome = located.outcome;
    result.searched = std::move(located.searched);
    result.file = located.path;
    if (located.outcome == Outcome::BuildIdDiffers) {
      result.foundBuildId = located.found;
    }
    return located.outcome == Outcome::Named;
  }

  Located _locateOwnVdso(const File& file, Located located) {
    const bool is32 = file.kind == File::Kind::Vdso32;
    const std::string image = is32 ? ownVdso32() : ownVdso();
    const std::string path = workDir_ + (is32 ? "/vdso32" : "/vdso");
    if (image.empty() || !kestrel::FileUtils::writeFile(path, image)) {
      return located;
    }
    const BuildId id = readLayout(path).value_or(Layout()).buildId;
    located.searched.push_back("[vdso] of this machine");
    if (file.buildId.empty() ? options_.sameMachine : isSameBuildId(id, file.buildId)) {
      located.outcome = Outcome::Named;
      located.path = path;
    } else if (!file.buildId.empty()) {
      located.outcome = Outcome::BuildIdDiffers;
      located.found = id;
    }
    return located;
  }

  void _prepare(Job& job, Result& result, const File& file) const {
    result.layout = readLayout(result.file).value_or(Layout());
    const DebugFile debug = findDebugFile(file.name, result.file, result.layout, options_);
    result.searched.insert(result.searched.end(), debug.searched.begin(), debug.searched.end());
    job.task.file = result.file;
    job.task.symbols = debug.path;
    job.task.lines = options_.lines;
    job.fetchSymbols =
        debug.path.empty() && !result.layout.buildId.empty() && Debuginfod::isWanted();
    job.source = _contentOf(job.task.file) + '\n' +
                 (debug.path.empty() ? "" : _contentOf(debug.path)) + '\n' +
                 (job.fetchSymbols ? "fetched " : "") + (options_.demangle ? "demangled " : "") +
                 (options_.parameters ? "parameters " : "") + (options_.lines ? "lines " : "");
  }

  bool _takeFromCache(const Job& job, Result& result) {
    const std::optional<ListCache::Entry> entry = cache_.find(job.source);
    if (!entry || (!entry->list.empty() && !_link(entry->list, job.index))) {
      return false;
    }
    result.outcome = entry->outcome;
    // Of the same content at another path.
    result.symbolsFrom = entry->symbolsFrom.starts_with('/') && !job.task.symbols.empty()
                             ? job.task.symbols
                             : entry->symbolsFrom;
    result.list = entry->list.empty() ? "" : _listPath(job.index);
    return true;
  }

  std::string _listPath(std::size_t index) const {
    return workDir_ + '/' + std::to_string(index) + ".list";
  }

  // Where results are read: another run may empty the cache meanwhile.
  bool _link(const std::string& list, std::size_t index) const {
    const std::string path = _listPath(index);
    ::unlink(path.c_str());
    return ::link(list.c_str(), path.c_str()) == 0 || kestrel::FileUtils::copyFile(list, path);
  }

  void _addJob(Job job) {
    job.newList = job.source.empty() ? "" : cache_.temporaryPath();
    if (job.newList.empty()) {
      job.newList = _listPath(job.index);
      job.source.clear();
      ::unlink(job.newList.c_str());
    }
    jobs_.push_back(std::move(job));
  }

  // In a child. Fields: outcome, where the symbols come from, the file; then where was looked.
  std::string _work(Job& job) {
    const File& file = files_[job.index];
    if (file.kind == File::Kind::PerfMap) {
      const CodeListReply reply = writeCodeList(file, options_, demangler_, job.newList);
      std::vector<std::string> fields{std::to_string(static_cast<int>(reply.outcome)), reply.file,
                                      reply.file};
      fields.insert(fields.end(), reply.searched.begin(), reply.searched.end());
      return _join(fields);
    }
    if (job.fetchFile) {
      job.task.file = Debuginfod::fetchExecutable(file.buildId);
      if (job.task.file.empty()) {
        return _join({std::to_string(static_cast<int>(Outcome::NotFound)), "", "", "debuginfod"});
      }
    }
    if (job.fetchSymbols) {
      job.task.symbols =
          Debuginfod::fetchDebugFile(readLayout(job.task.file).value_or(Layout()).buildId);
    }
    job.task.lines = options_.lines;
    const ElfListReply reply = writeElfList(job.task, demangler_, job.newList);
    std::vector<std::string> fields{std::to_string(static_cast<int>(reply.outcome)),
                                    reply.symbolsFrom, job.task.file};
    if (job.fetchFile || job.fetchSymbols) {
      fields.emplace_back("debuginfod");
    }
    return _join(fields);
  }

  void _end(const Job& job, const std::optional<std::string>& reply) {
    Result& result = results_[job.index];
    const std::vector<std::string> fields = reply ? _split(*reply) : std::vector<std::string>();
    if (fields.size() < 3) {
      result.outcome = Outcome::Failed;
      ::unlink(job.newList.c_str());
      return;
    }
    const Outcome outcome = _outcomeOf(fields[0]);
    result.searched.insert(result.searched.end(), fields.begin() + 3, fields.end());
    if (job.fetchFile && outcome == Outcome::NotFound) {
      return;  // the reason found here stays
    }
    result.outcome = outcome;
    result.symbolsFrom = fields[1];
    result.file = fields[2];
    if (job.fetchFile) {
      result.layout = readLayout(result.file).value_or(Layout());
    }
    const bool hasList = ::access(job.newList.c_str(), R_OK) == 0;
    if (!job.source.empty()) {
      // First of all where it is wanted: once it is in the cache, another run may take it away.
      if (hasList && _link(job.newList, job.index)) {
        result.list = _listPath(job.index);
      }
      // A server that was not there today may have the symbols tomorrow.
      const bool mayChange =
          outcome == Outcome::Failed || (job.fetchSymbols && !result.symbolsFrom.starts_with('/'));
      if (!mayChange) {
        cache_.store(job.source, {outcome, result.symbolsFrom, hasList ? job.newList : ""});
      }
      ::unlink(job.newList.c_str());
    } else if (hasList) {
      result.list = job.newList;
    }
  }

  void _addCures() {
    Cures cures(options_);
    std::vector<std::string> stripped;
    for (std::size_t i = 0; i < files_.size(); ++i) {
      if (results_[i].outcome == Outcome::NoSymbols || results_[i].symbolsFrom == ".dynsym") {
        stripped.push_back(files_[i].name);
      }
    }
    cures.prepare(stripped, cache_);
    for (std::size_t i = 0; i < files_.size(); ++i) {
      results_[i].cure = cures.of(files_[i], results_[i]);
    }
  }

  const std::vector<File>& files_;
  const Options& options_;
  const std::string& workDir_;
  ListCache cache_;
  Demangler demangler_;  // of a child
  std::vector<Result> results_;
  std::vector<Job> jobs_;
};

}  // namespace

std::vector<Result> listFiles(const std::vector<File>& files, const Options& options,
                              const std::string& workDir,
                              const std::function<void(std::size_t, std::size_t)>& progress) {
  return ListingRun(files, options, workDir).execute(progress);
}

}  // namespace listing
