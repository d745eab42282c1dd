#include "report/ProfileBuilder.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <type_traits>
#include <utility>

namespace report {

namespace {

constexpr uint64_t KERNEL_HALF = 1ULL << 63;  // of the 64-bit address space

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// Maps of code that a program made at run time: what perf and common runtimes call them.
bool isJit(std::string_view name) {
  return name.starts_with("//anon") || name.starts_with("[anon") || name.starts_with("/memfd:") ||
         name.starts_with("/dev/zero") || name.starts_with("/SYSV") || contains(name, "jitted-") ||
         (contains(name, "/perf-") && name.ends_with(".map")) || contains(name, "doublemapper");
}

LibraryKind kindOf(std::string_view name, uint64_t pidkey, uint64_t start) {
  if (name.starts_with("{")) {
    return LibraryKind::UNKNOWN;
  }
  if (pidkey == 0 || start >= KERNEL_HALF || name == "kernel" || name.starts_with("[kernel") ||
      name.starts_with("[guest.kernel")) {
    return LibraryKind::KERNEL;
  }
  if (isJit(name)) {
    return LibraryKind::JIT;
  }
  const std::string_view file = fileNameOf(name);
  if (contains(file, ".so") || name.starts_with("[vdso") || name.starts_with("[vsyscall")) {
    return LibraryKind::LIBRARY;
  }
  return name.starts_with("/") || !name.starts_with("[") ? LibraryKind::PROGRAM
                                                         : LibraryKind::UNKNOWN;
}

// The converter makes a map for each 64 KiB that no map covers: {app-7f120000}. They are one.
std::string withoutAddress(const std::string& name) {
  const std::size_t dash = name.rfind('-');
  if (name.size() < 3 || name.front() != '{' || name.back() != '}' || dash == std::string::npos ||
      name.starts_with("{stack:")) {
    return name;
  }
  const std::string_view address(name.data() + dash + 1, name.size() - dash - 2);
  const bool isAddress = !address.empty() && address.find_first_not_of("0123456789abcdefABCDEF") ==
                                                 std::string_view::npos;
  return isAddress ? name.substr(0, dash) + "}" : name;
}

}  // namespace

std::string_view fileNameOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos || slash + 1 == path.size() ? path
                                                                     : path.substr(slash + 1);
}

void ProfileBuilder::addSamples(const SampleRows& rows) {
  timeDigits_ = std::max(timeDigits_, rows.timeDigits);
  const std::span<const uint64_t> mapkeys(rows.mapkeys);
  std::size_t begin = 0;
  for (const SampleRows::Row& row : rows.rows) {
    _addSample(row, _addChain(mapkeys.subspan(begin, row.chainEnd - begin), row.cpu));
    begin = row.chainEnd;
  }
}

// A chain, innermost call first. What it begins with like the one before on the same CPU is not
// looked up.
uint32_t ProfileBuilder::_addChain(std::span<const uint64_t> mapkeys, uint32_t cpu) {
  std::vector<Call>& last = lastChains_[cpu % lastChains_.size()];
  auto next = mapkeys.rbegin();
  std::size_t depth = 0;
  while (depth < last.size() && next != mapkeys.rend() && last[depth].mapkey == *next) {
    ++depth;
    ++next;
  }
  last.resize(depth);
  uint32_t stack = depth == 0 ? StackTree::ROOT : last.back().stack;
  for (; next != mapkeys.rend(); ++next) {
    stack = stacks_.intern(stack, mapkeys_.indexOf(*next));
    last.push_back({*next, stack});
  }
  return stack;
}

void ProfileBuilder::_addSample(const SampleRows::Row& row, uint32_t stack) {
  if (row.pidkey != lastThreadKey_ || lastThread_ == NONE) {
    const auto [place, isNew] =
        threadOfKey_.try_emplace(row.pidkey, static_cast<uint32_t>(threadKeys_.size()));
    if (isNew) {
      threadKeys_.push_back(row.pidkey);
    }
    lastThreadKey_ = row.pidkey;
    lastThread_ = place->second;
  }
  timelessCount_ += row.time == NO_TIME;
  samples_.times.push_back(row.time);
  samples_.stacks.push_back(stack);
  samples_.threads.push_back(lastThread_);
  samples_.cpus.push_back(row.cpu);
}

void ProfileBuilder::addLibrary(uint64_t key, uint32_t pidkey, std::string name, uint64_t start) {
  libraries_[key] = {withoutAddress(name), start, pidkey};
}

void ProfileBuilder::addFunction(uint64_t key, std::string name, uint64_t start,
                                 uint64_t firstMap) {
  functions_[key] = {std::move(name), start, firstMap};
}

void ProfileBuilder::addProcess(uint32_t key, uint32_t pid, uint32_t tid, std::string name) {
  if (pid == tid) {
    processNames_[pid] = name;
  }
  processes_[key] = {pid, tid, std::move(name), {}};
}

void ProfileBuilder::addFile(const std::string& name, const std::vector<uint64_t>& functions) {
  for (const uint64_t function : functions) {
    fileOfFunction_[function] = static_cast<uint32_t>(files_.size());
  }
  files_.push_back(name);
}

uint32_t ProfileBuilder::_libraryOf(Profile& profile, uint64_t mapkey) {
  const auto row = libraries_.find(mapkey);
  const std::string name = row == libraries_.end() ? "{unknown}" : row->second.name;
  const auto [place, isNew] =
      libraryByName_.try_emplace(name, static_cast<uint32_t>(profile.libraries.size()));
  if (isNew) {
    const LibraryKind kind = row == libraries_.end()
                                 ? LibraryKind::UNKNOWN
                                 : kindOf(name, row->second.reference, row->second.start);
    profile.libraries.push_back({name, kind});
  }
  return place->second;
}

uint32_t ProfileBuilder::_frameOf(Profile& profile, uint64_t mapkey) {
  Frame frame;
  const auto function = functions_.find(mapkey);
  if (function == functions_.end()) {
    frame.library = _libraryOf(profile, mapkey);
    const std::string& library = profile.libraries[frame.library].name;
    const bool isBracketed = library.starts_with("[") || library.starts_with("{");
    frame.name = isBracketed ? library : "[" + std::string(fileNameOf(library)) + "]";
  } else {
    frame.name = function->second.name;
    frame.library = _libraryOf(profile, function->second.reference);
    const auto file = fileOfFunction_.find(mapkey);
    frame.file = file == fileOfFunction_.end() ? NONE : file->second;
  }
  const auto [place, isNew] =
      frameByName_.try_emplace(frame.name + '\0' + std::to_string(frame.library),
                               static_cast<uint32_t>(profile.frames.size()));
  if (isNew) {
    profile.frames.push_back(std::move(frame));
  }
  return place->second;
}

void ProfileBuilder::_buildStacks(Profile& profile) {
  std::vector<uint32_t> frames;
  frames.reserve(mapkeys_.keys().size());
  for (const uint64_t mapkey : mapkeys_.keys()) {
    frames.push_back(_frameOf(profile, mapkey));
  }
  // Maps of several processes have become one library, so chains fall together, too.
  std::vector<uint32_t> merged(stacks_.size(), StackTree::ROOT);
  for (uint32_t node = 1; node < stacks_.size(); ++node) {
    merged[node] = profile.stacks.intern(merged[stacks_.parent(node)], frames[stacks_.frame(node)]);
  }
  stacks_ = StackTree();
  const std::vector<uint32_t> numbers = profile.stacks.sortDepthFirst();
  for (uint32_t& stack : samples_.stacks) {
    stack = numbers[merged[stack]];
  }
}

void ProfileBuilder::_buildThreads(Profile& profile) {
  for (const uint32_t key : threadKeys_) {
    const auto row = processes_.find(key);
    ProfileThread thread;
    if (row != processes_.end()) {
      thread = row->second;
    } else {
      thread.tid = key;
    }
    const auto name = processNames_.find(thread.pid);
    thread.processName = name == processNames_.end() ? thread.name : name->second;
    profile.threads.push_back(std::move(thread));
  }
}

void ProfileBuilder::_sortSamples() {
  if (std::is_sorted(samples_.times.begin(), samples_.times.end())) {
    return;  // as what was prepared is
  }
  std::vector<uint32_t> order(samples_.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [this](uint32_t left, uint32_t right) {
    return samples_.times[left] < samples_.times[right];
  });
  // One column after the other, so that there is never more than one twice.
  const auto sort = [&order](auto& column) {
    std::decay_t<decltype(column)> result;
    result.reserve(column.size());
    for (const uint32_t sample : order) {
      result.push_back(column[sample]);
    }
    column = std::move(result);
  };
  sort(samples_.times);
  sort(samples_.stacks);
  sort(samples_.threads);
  sort(samples_.cpus);
}

// Samples without a time stand at the end, at the time of the last one that has one.
void ProfileBuilder::_placeTimeless() {
  std::vector<int64_t>& times = samples_.times;
  const std::size_t timed = times.size() - static_cast<std::size_t>(timelessCount_);
  const int64_t last = timed == 0 ? 0 : times[timed - 1];
  std::fill(times.begin() + static_cast<std::ptrdiff_t>(timed), times.end(), last);
}

Profile ProfileBuilder::build() {
  Profile profile;
  _buildStacks(profile);
  _buildThreads(profile);
  _sortSamples();
  _placeTimeless();
  profile.samples = std::move(samples_);
  profile.files = std::move(files_);
  profile.timeDigits = timeDigits_;
  profile.timelessCount = timelessCount_;
  *this = ProfileBuilder();
  return profile;
}

void addBaseline(Profile& profile, const Profile& baseline) {
  std::unordered_map<std::string, uint32_t> libraryByFile, frameByName;
  for (uint32_t i = 0; i < profile.libraries.size(); ++i) {
    libraryByFile.try_emplace(std::string(fileNameOf(profile.libraries[i].name)), i);
  }
  const auto nameOf = [](const Frame& frame, uint32_t library) {
    return frame.name + '\0' + std::to_string(library);
  };
  for (uint32_t i = 0; i < profile.frames.size(); ++i) {
    const Frame& frame = profile.frames[i];
    const std::string file(fileNameOf(profile.libraries[frame.library].name));
    frameByName.try_emplace(nameOf(frame, libraryByFile[file]), i);
  }
  std::vector<uint32_t> frames;
  for (Frame frame : baseline.frames) {
    const Library& library = baseline.libraries[frame.library];
    const auto [place, isNewLibrary] = libraryByFile.try_emplace(
        std::string(fileNameOf(library.name)), static_cast<uint32_t>(profile.libraries.size()));
    if (isNewLibrary) {
      profile.libraries.push_back(library);
    }
    frame.library = place->second;
    const auto [known, isNew] = frameByName.try_emplace(
        nameOf(frame, frame.library), static_cast<uint32_t>(profile.frames.size()));
    if (isNew) {
      if (frame.file != NONE) {
        profile.files.push_back(baseline.files[frame.file]);
        frame.file = static_cast<uint32_t>(profile.files.size() - 1);
      }
      profile.frames.push_back(frame);
    }
    frames.push_back(known->second);
  }
  std::vector<uint32_t> merged(baseline.stacks.size(), StackTree::ROOT);
  for (uint32_t node = 1; node < baseline.stacks.size(); ++node) {
    merged[node] = profile.stacks.intern(merged[baseline.stacks.parent(node)],
                                         frames[baseline.stacks.frame(node)]);
  }
  const std::vector<uint32_t> numbers = profile.stacks.sortDepthFirst();
  for (uint32_t& stack : profile.samples.stacks) {
    stack = numbers[stack];
  }
  profile.baselineCounts.assign(profile.stacks.size(), 0);
  for (const uint32_t stack : baseline.samples.stacks) {
    ++profile.baselineCounts[numbers[merged[stack]]];
  }
  profile.baselineSamples = baseline.samples.size();
  if (baseline.samples.size() > 0) {
    profile.baselineSeconds =
        static_cast<double>(baseline.samples.times.back() - baseline.samples.times.front()) * 1e-9;
  }
}

}  // namespace report
