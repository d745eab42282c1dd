#include "prepare/Preparation.h"

#include <algorithm>

#include "recordings/Abi.h"

namespace prepare {

namespace abi = recordings::abi;

namespace {

constexpr unsigned PAGE_BITS = 12;
static_assert(TouchedCode::STRETCH == 1 << PAGE_BITS);
// What no map holds is shown in stretches of this size, less what is known on either side.
constexpr std::uint64_t UNKNOWN_SIZE = 0x10000;
constexpr std::uint64_t HIGHEST_ADDRESS = ~std::uint64_t{0} - 1;
// The range that the converter takes for stacks.
constexpr ReservedRange STACKS{0xB0000000, 0xBEFFFFFF};

// Pages of one process lie side by side, and those of the next elsewhere.
std::size_t slotOf(std::uint64_t version, std::uint64_t page) {
  return static_cast<std::size_t>(page ^ (version * 0x9E3779B97F4A7C15ull >> 40));
}

}  // namespace

Preparation::Preparation(const recordings::Recording& recording, PlainRecording& output,
                         Settings settings)
    : recording_(recording),
      output_(output),
      settings_(std::move(settings)),
      plainProcesses_(settings_.scratchDirectory,
                      [this](const std::string& text) {
                        return PlainProcess::restored(text, processes_.files());
                      }),
      threads_(settings_.scratchDirectory, SampledThread::restored),
      remembered_(REMEMBERED) {
  _reserve();
  rules_.mustBeHigh = settings_.mustBeHigh;
}

Preparation::Mode Preparation::_modeOf(std::uint16_t misc) {
  switch (misc & abi::MISC_CPUMODE) {
    case abi::MISC_KERNEL:
      return Mode::KERNEL;
    case abi::MISC_USER:
    case 0:
      return Mode::USER;
    default:
      return Mode::OTHER;
  }
}

void Preparation::onMap(const recordings::MapRecord& map) {
  const recordings::KernelImage& kernel = processes_.kernel();
  const std::uint64_t startBefore = kernel.start;
  const std::uint64_t endBefore = kernel.end;
  processes_.onMap(map);
  runTimeCode_.onMap(map);
  if (kernel.start != startBefore || kernel.end != endBefore) {
    _reserve();
  }
}

// Before the first sample in it is placed.
void Preparation::_assumeKernel() {
  isKernelSettled_ = true;
  if (processes_.kernel().start == processes_.kernel().end && settings_.assumedKernel) {
    if (const auto kernel = settings_.assumedKernel()) {
      processes_.assumeKernel(*kernel);
      _reserve();
    }
  }
}

void Preparation::_reserve() {
  const recordings::KernelImage& kernel = processes_.kernel();
  rules_.reserved = {STACKS};
  if (kernel.start != kernel.end) {
    rules_.reserved.push_back({kernel.start, kernel.farthestEnd - 1});
  }
}

void Preparation::onComm(const recordings::CommRecord& comm) {
  processes_.onComm(comm);
  if (comm.isExec) {
    runTimeCode_.onBegin(comm.pid);
  }
}

void Preparation::onFork(const recordings::TaskRecord& task) {
  processes_.onFork(task);
  if (task.pid != task.parentPid && !task.isMadeByPerf) {
    runTimeCode_.onBegin(task.pid);
  }
}

void Preparation::onExit(const recordings::TaskRecord& task) {
  processes_.onExit(task);
  if (processes_.hasLongGone()) {
    _forgetLongGone();
  }
}

void Preparation::_forgetLongGone() {
  _finishWaiting();
  processes_.forgetLongGone([this](std::uint32_t tid) { _setAside(tid); });
  tasks_.fill({});
  for (Remembered& known : remembered_) {
    _forget(known);
  }
}

// Not where writing it down would cost more than its samples did.
void Preparation::_setAside(std::uint32_t tid) {
  const std::string& name = processes_.nameOf(tid);
  PlainProcess* const process = plainProcesses_.inHand(tid);
  if (process != nullptr && process->newHits >= process->placement.size()) {
    process->name = name;
    plainProcesses_.setAside(tid);
  }
  SampledThread* const thread = threads_.inHand(tid);
  if (thread != nullptr && thread->newSamples >= thread->underOthers.size()) {
    if (!thread->isNameSettled) {
      thread->rename(name);
    }
    threads_.setAside(tid);
  }
}

Preparation::Task& Preparation::_taskOf(const recordings::Sample& sample) {
  Task& task = tasks_[(sample.tid ^ sample.pid * 31) % TASKS];
  if (task.thread == nullptr || task.pid != sample.pid || task.tid != sample.tid) {
    const std::uint32_t writtenTid = _writtenTid(sample.pid, sample.tid);
    task = {sample.pid,
            sample.tid,
            writtenTid,
            &processes_.process(sample.pid),
            &processes_.thread(sample.tid),
            &threads_[writtenTid],
            &plainProcesses_[sample.pid]};
  }
  return task;
}

// The converter knows one process of each tid. A tid that another process had before, or that tells
// nothing (-1, of a task that is gone), becomes one that no task has.
std::uint32_t Preparation::_writtenTid(std::uint32_t pid, std::uint32_t tid) {
  // Two threads are the converter's own: their process is not to be chosen.
  if (tid > 1 || pid == tid) {
    SampledThread& first = threads_[tid];
    if (first.samples == 0) {
      first.recordedTid = tid;
      first.pid = pid;
    }
    if (first.pid == pid) {
      return tid;
    }
    first.isNameSettled = true;
  }
  const auto [place, isNew] = substitutes_.try_emplace({pid, tid}, nextSubstitute_);
  if (isNew) {
    while (threads_.contains(nextSubstitute_)) {
      ++nextSubstitute_;
    }
    place->second = nextSubstitute_++;
    SampledThread& thread = threads_[place->second];
    thread.pid = pid;
    thread.recordedTid = tid;
    thread.isNameSettled = true;
  }
  return place->second;
}

void Preparation::_countName(Task& task) {
  SampledThread& thread = *task.thread;
  ++thread.samples;
  ++thread.newSamples;
  thread.rename(task.recorded->name);
  ++thread.underName;
}

bool Preparation::_isInKernel(std::uint64_t address) const {
  const recordings::KernelImage& kernel = processes_.kernel();
  return address >= kernel.start && address < kernel.farthestEnd;
}

// Has the processor fetch what is remembered of an address of the process, which is looked up soon.
void Preparation::_fetch(const Task& task, std::uint64_t address) const {
  __builtin_prefetch(
      &remembered_[slotOf(task.process->version, address >> PAGE_BITS) % REMEMBERED]);
}

// The piece that holds an address outside the kernel itself; null if no map does.
Piece* Preparation::_findPiece(Task& task, Mode mode, std::uint64_t address) {
  if (mode == Mode::OTHER) {
    return nullptr;
  }
  const recordings::Process& owner = mode == Mode::KERNEL ? processes_.kernelCode() : *task.process;
  return _findPieceIn(task, owner.maps, owner.version, address);
}

inline Piece* Preparation::_findPieceIn(Task& task, const recordings::AddressSpace& maps,
                                        std::uint64_t version, std::uint64_t address) {
  const std::uint64_t page = address >> PAGE_BITS;
  Remembered& known = remembered_[slotOf(version, page) % REMEMBERED];
  if (known.version == version && known.page == page && known.plain == task.plain &&
      (known.piece == nullptr || known.piece->holds(address))) {
    if (known.piece != nullptr) {
      known.piece->hit(address);
      known.touched |= TouchedCode::bitOf(address, page << PAGE_BITS);
    }
    return known.piece;
  }
  return _lookUp(task, maps, version, address);
}

// Apart, so that what is done for each address stays short.
[[gnu::noinline]] Piece* Preparation::_lookUp(Task& task, const recordings::AddressSpace& maps,
                                              std::uint64_t version, std::uint64_t address) {
  const std::uint64_t page = address >> PAGE_BITS;
  Remembered& known = remembered_[slotOf(version, page) % REMEMBERED];
  _forget(known);
  known.version = version;
  known.plain = task.plain;
  known.page = page;
  if (const recordings::Mapping* const mapping = maps.find(address)) {
    Piece& piece = task.plain->placement.place(*mapping, address, rules_);
    piece.hit(address);
    known.piece = &piece;
    known.file = piece.file->index;
    known.pageInFile = (page << PAGE_BITS) - piece.base;
    known.touched = TouchedCode::bitOf(address, page << PAGE_BITS);
  }
  return known.piece;
}

void Preparation::_forget(Remembered& known) {
  if (known.touched != 0) {
    touchedCode_.add(known.file, known.pageInFile, known.touched);
  }
  known = Remembered();
}

// A sampled address: as it stands in the plain recording. The highest of all means to the converter
// that there is none.
std::uint64_t Preparation::_placeSampled(Task& task, Mode mode, std::uint64_t address) {
  address = std::min(address, HIGHEST_ADDRESS);
  ModeCounts& counts = mode == Mode::USER ? counts_.userSamples : counts_.kernelSamples;
  ++counts.all;
  if (mode == Mode::KERNEL && _isInKernel(address)) {
    ++counts.mapped;
    ++task.plain->kernelHits;
    sampledAddresses_.add(KERNEL_INDEX, address);
    return address;
  }
  Piece* piece = _findPiece(task, mode, address);
  if (piece != nullptr) {
    ++counts.mapped;
    sampledAddresses_.add(piece->file->index, address - piece->base);
  } else {
    const std::uint64_t start = address & ~(UNKNOWN_SIZE - 1);
    const recordings::Mapping unknown{start, start + std::min(UNKNOWN_SIZE, ~start), start,
                                      &Placement::unknownFile()};
    piece = &task.plain->placement.place(unknown, address, rules_);
    piece->hit(address);
  }
  ++piece->samples;
  counts_.movedSamples += piece->shift != 0 ? 1 : 0;
  return address + piece->shift;
}

// A caller in a piece, or in none.
inline void Preparation::_addPlaced(ModeCounts& counts, Piece* piece, std::uint64_t address) {
  ++counts.all;
  if (piece != nullptr) {
    ++counts.mapped;
    ++piece->callers;
    if (areCallersCounted_) {
      callerAddresses_.add(piece->file->index, address - piece->base);
    }
    frames_.push_back(address + piece->shift);
  } else if (settings_.keepUnknown) {
    frames_.push_back(address);
  }
}

inline void Preparation::_addUserCaller(Task& task, const recordings::AddressSpace& maps,
                                        std::uint64_t version, std::uint64_t address) {
  _addPlaced(counts_.userCallers, _findPieceIn(task, maps, version, address), address);
}

void Preparation::_addCaller(Task& task, Mode mode, std::uint64_t address) {
  if (mode == Mode::USER) {
    _addUserCaller(task, task.process->maps, task.process->version, address);
    return;
  }
  if (mode == Mode::KERNEL && _isInKernel(address)) {
    ++counts_.kernelCallers.all;
    ++counts_.kernelCallers.mapped;
    ++task.plain->kernelHits;
    if (areCallersCounted_) {
      callerAddresses_.add(KERNEL_INDEX, address);
    }
    frames_.push_back(address);
    return;
  }
  _addPlaced(counts_.kernelCallers, _findPiece(task, mode, address), address);
}

// The words of a chain after each mark begin with the interrupted address itself; in the part that
// was sampled, that is the sample's own and stands in front already.
void Preparation::_addCallers(Task& task, Mode sampled, std::uint32_t event,
                              const recordings::Sample& sample) {
  Mode mode = Mode::USER;
  bool isSampledNext = sampled == mode;
  const bool hasBranches =
      sample.branches.size() > 0 &&
      (recording_.layout(event).attribute().branchSampleType & abi::BRANCH_CALL_STACK) != 0;
  const std::size_t length = sample.chainLength();
  for (std::size_t i = 0; i < std::min(length, FETCHED_AHEAD); ++i) {
    _fetch(task, sample.chainWord(i));
  }
  for (std::size_t i = 0; i < length; ++i) {
    const std::uint64_t word = sample.chainWord(i);
    if (i + FETCHED_AHEAD < length) {
      _fetch(task, sample.chainWord(i + FETCHED_AHEAD));
    }
    if (word >= abi::CONTEXT_FIRST) {
      mode = word == abi::CONTEXT_KERNEL ? Mode::KERNEL
             : word == abi::CONTEXT_USER ? Mode::USER
                                         : Mode::OTHER;
      isSampledNext = mode == sampled && frames_.size() == 1;
      if (hasBranches && mode == Mode::USER) {
        break;
      }
    } else if (isSampledNext) {
      isSampledNext = false;
    } else {
      _addCaller(task, mode, word);
    }
  }
  if (hasBranches) {
    _addBranches(task, sample);
  }
}

// The processor's own record of calls: where the newest one went to, then where each came from.
void Preparation::_addBranches(Task& task, const recordings::Sample& sample) {
  for (std::size_t at = 0; at < sample.branches.size(); at += abi::BRANCH_ENTRY_SIZE) {
    const unsigned char* const entry = sample.branches.data() + at;
    if (at == 0 && _modeOf(sample.misc) != Mode::USER) {
      _addCaller(task, Mode::USER, recordings::numberAt<std::uint64_t>(entry + 8, sample.order));
    }
    _addCaller(task, Mode::USER, recordings::numberAt<std::uint64_t>(entry, sample.order));
  }
}

void Preparation::onSample(std::uint32_t event, const recordings::Sample& sample) {
  runTimeCode_.onSample(sample.time);
  Task& task = _taskOf(sample);
  _countName(task);
  const Mode mode = _modeOf(sample.misc);
  if (mode == Mode::KERNEL && !isKernelSettled_) {
    _assumeKernel();
  }
  areCallersCounted_ = counts_.samples() % CALLERS_COUNTED_EVERY == 0;
  frames_.clear();
  frames_.push_back(_placeSampled(task, mode, sample.ip));
  _addCallers(task, mode, event, sample);
  if (sample.userStack.empty() && waiting_.empty()) {
    _write(sample, task);
  } else {
    _wait(event, sample, task, mode);
  }
}

void Preparation::_write(const recordings::Sample& sample, const Task& task) {
  counts_.longestChain = std::max(counts_.longestChain, frames_.size());
  counts_.renumberedSamples += task.writtenTid != task.tid ? 1 : 0;
  task.plain->newHits += frames_.size();
  output_.addSample(sample, task.writtenTid, frames_);
}

// Chains are found for many samples at once; the maps of the moment are kept with each.
void Preparation::_wait(std::uint32_t event, const recordings::Sample& sample, const Task& task,
                        Mode mode) {
  Waiting waiting;
  waiting.sample = sample;
  waiting.sample.chain = waiting.sample.branches = {};
  waiting.task = task;
  waiting.mode = mode;
  waiting.version = task.process->version;
  waiting.frames = frames_;
  if (!sample.userStack.empty()) {
    if (stackDumps_ == nullptr) {
      stackDumps_ =
          std::make_unique<StackDumps>(recording_.header().facts.architecture,
                                       recording_.layout(event).attribute().sampleRegsUser,
                                       settings_.mostFrames, processes_.files(), settings_.locate);
    }
    waiting.dump = std::make_unique<StackDump>(StackDumps::take(sample, task.process->maps));
  }
  waiting.sample.userRegisters = waiting.sample.userStack = {};
  waiting_.push_back(std::move(waiting));
  if (waiting_.size() >= MOST_WAITING) {
    _finishWaiting();
  }
}

void Preparation::_finishWaiting() {
  std::vector<StackDump*> dumps;
  for (const Waiting& waiting : waiting_) {
    if (waiting.dump != nullptr) {
      dumps.push_back(waiting.dump.get());
    }
  }
  if (!dumps.empty()) {
    stackDumps_->unwind(dumps);
  }
  std::uint64_t number = 0;
  for (Waiting& waiting : waiting_) {
    areCallersCounted_ = ++number % CALLERS_COUNTED_EVERY == 0;
    frames_ = std::move(waiting.frames);
    if (waiting.dump != nullptr) {
      const std::vector<std::uint64_t>& found = waiting.dump->frames;
      // The innermost one is the sampled address, unless that was in the kernel.
      for (std::size_t i = waiting.mode == Mode::USER ? 1 : 0; i < found.size(); ++i) {
        _addUserCaller(waiting.task, waiting.dump->maps, waiting.version, found[i]);
      }
    }
    _write(waiting.sample, waiting.task);
  }
  waiting_.clear();
}

void Preparation::finish() {
  _finishWaiting();
  sampledAddresses_.finish();
  callerAddresses_.finish();
  for (Remembered& known : remembered_) {
    _forget(known);
  }
  plainProcesses_.forEachInHand([this](std::uint32_t pid, PlainProcess& process) {
    process.name = processes_.nameOf(pid).empty() ? process.name : processes_.nameOf(pid);
  });
  threads_.forEachInHand([this](std::uint32_t tid, SampledThread& thread) {
    if (!thread.isNameSettled) {
      thread.rename(processes_.nameOf(tid));
    }
  });
  threads_.forEach([this](std::uint32_t, const SampledThread& thread) {
    counts_.samplesUnderOtherNames += thread.samplesUnderOtherNames();
  });
}

}  // namespace prepare
