#include "recordings/Processes.h"

#include <algorithm>

#include "recordings/Abi.h"

namespace recordings {

namespace {

constexpr std::uint64_t KERNEL_BEHIND_TEXT = 32 * 1024 * 1024;
constexpr std::uint64_t END_OF_32_BITS = 1ull << 32;

bool isKernelName(const std::string& name) {
  return name.starts_with("[kernel.kallsyms") || name.starts_with("[guest.kernel.kallsyms");
}

std::uint64_t endOf(const MapRecord& map) {
  const std::uint64_t end = map.start + map.length;
  return end < map.start ? ~std::uint64_t{0} : end;
}

// Old versions of perf let the kernel begin at address 0, or had no address of it to tell; below
// these there are processes.
std::uint64_t startOfKernelFromZero(const MapRecord& map) {
  constexpr std::uint64_t UPPER_HALF = 1ull << 63;
  constexpr std::uint64_t LAST_GIB_OF_32_BITS = 0xC0000000;
  const std::uint64_t end = endOf(map);
  if (map.pageOffset != 0 && map.pageOffset < end) {
    return map.pageOffset;
  }
  return end > UPPER_HALF ? UPPER_HALF : std::min(LAST_GIB_OF_32_BITS, end - 1);
}

}  // namespace

void KernelImage::setEnd(std::uint64_t newEnd) {
  end = newEnd;
  farthestEnd = end + std::min(KERNEL_BEHIND_TEXT, ~end);
}

void Processes::assumeKernel(const KernelImage& kernel) {
  kernel_ = kernel;
  kernel_.setEnd(kernel.end);
  kernel_.isAssumed = true;
}

Process& Processes::process(std::uint32_t pid) {
  const auto [place, isNew] = processes_.try_emplace(pid);
  if (isNew) {
    place->second.pid = pid;
    _changed(place->second);
  }
  return place->second;
}

Thread& Processes::thread(std::uint32_t tid) {
  Thread& thread = threads_[tid];
  thread.tid = tid;
  return thread;
}

const std::string& Processes::nameOf(std::uint32_t tid) const {
  static const std::string NONE;
  const auto place = threads_.find(tid);
  return place == threads_.end() ? NONE : place->second.name;
}

void Processes::onMap(const MapRecord& map) {
  if (map.isOfKernel()) {
    _onKernelMap(map);
    return;
  }
  if ((map.misc & abi::MISC_CPUMODE) == abi::MISC_GUEST_USER) {
    return;  // of a process of another machine, whatever has this pid here
  }
  if (map.isData()) {
    // Not code; but what it covers is no longer what it was.
    Process& owner = process(map.pid);
    owner.maps.remove(map.start, endOf(map));
    _changed(owner);
    return;
  }
  const MappedFile::Kind kind = kindOfMap(map.name, map.flags);
  Mapping mapping{map.start, endOf(map), map.pageOffset, nullptr};
  switch (kind) {
    case MappedFile::Kind::PERF_MAP:
      mapping.file =
          &files_.get(kind, "/tmp/perf-" + std::to_string(map.pid) + ".map", {}, map.pid);
      mapping.fileOffset = mapping.start;
      break;
    case MappedFile::Kind::VDSO:
      mapping.file = &files_.get(mapping.end <= END_OF_32_BITS ? MappedFile::Kind::VDSO_32 : kind,
                                 map.name, map.buildId);
      mapping.fileOffset = 0;
      break;
    default:
      mapping.file = &files_.get(kind, map.name, map.buildId);
      break;
  }
  Process& owner = process(map.pid);
  owner.maps.add(mapping);
  _changed(owner);
}

void Processes::_onKernelMap(const MapRecord& map) {
  if (isKernelName(map.name)) {
    const std::size_t nameEnd = map.name.find(']');
    const bool isGuest = map.name.starts_with("[guest");
    if (!isGuest && map.length > 0) {
      kernel_.start = map.start == 0 ? startOfKernelFromZero(map) : map.start;
      kernel_.setEnd(endOf(map));
      kernel_.isAssumed = false;
      kernel_.referenceAddress = map.pageOffset;
      kernel_.referenceName = nameEnd == std::string::npos ? "" : map.name.substr(nameEnd + 1);
      if (kernel_.referenceName.empty()) {
        const std::size_t dot = map.name.rfind('.');  // [kernel.kallsyms._text]
        kernel_.referenceName = map.name.substr(dot + 1);
        if (!kernel_.referenceName.empty() && kernel_.referenceName.back() == ']') {
          kernel_.referenceName.pop_back();
        }
      }
      kernel_.buildId = map.buildId;
    }
    return;
  }
  if ((map.misc & abi::MISC_CPUMODE) == abi::MISC_GUEST_KERNEL) {
    return;  // a module of another machine's kernel, at addresses of its own
  }
  const Mapping mapping{
      map.start, endOf(map), map.start,
      &files_.get(MappedFile::Kind::MODULE, moduleNameOf(map.name), map.buildId, 0, map.name)};
  kernelCode_.maps.add(mapping);
  _changed(kernelCode_);
}

void Processes::onKsymbol(const KsymbolRecord& symbol) {
  const std::uint64_t end = symbol.start + symbol.length;
  if (end < symbol.start) {
    return;
  }
  if (symbol.isRemoved) {
    kernelCode_.maps.remove(symbol.start, end);
  } else {
    kernelCode_.maps.add({symbol.start, end, symbol.start,
                          &files_.get(MappedFile::Kind::KERNEL_CODE, symbol.name, {})});
  }
  _changed(kernelCode_);
}

void Processes::onComm(const CommRecord& comm) {
  thread(comm.tid).name = comm.name;
  if (comm.isExec) {
    Process& owner = process(comm.pid);
    owner.maps.clear();
    _changed(owner);
  }
}

void Processes::onFork(const TaskRecord& task) {
  Thread& child = thread(task.tid);
  child.name = thread(task.parentTid).name;
  child.life = ++versions_;
  if (task.pid == task.parentPid) {
    ++process(task.pid).otherThreads;
    return;  // shares its process's maps
  }
  const AddressSpace inherited = task.isMadeByPerf ? AddressSpace() : process(task.parentPid).maps;
  Process& started = process(task.pid);
  started.maps = inherited;
  started.otherThreads = 0;
  started.hasFirstEnded = false;
  _changed(started);
}

void Processes::onExit(const TaskRecord& task) {
  gone_.push_back({task.pid, task.tid, thread(task.tid).life});
  Process& owner = process(task.pid);
  if (task.tid == task.pid) {
    owner.hasFirstEnded = true;
  } else if (owner.otherThreads > 0 && --owner.otherThreads == 0 && owner.hasFirstEnded) {
    gone_.push_back({task.pid, task.pid, thread(task.pid).life});
  }
}

void Processes::forgetLongGone(const std::function<void(std::uint32_t)>& onForgetting) {
  while (gone_.size() > GONE_KEPT) {
    const Gone gone = gone_.front();
    gone_.pop_front();
    const auto place = threads_.find(gone.tid);
    if (place == threads_.end() || place->second.life != gone.life) {
      continue;  // the tid has come again
    }
    // Where the first thread ended before the others, the process goes on.
    const auto owner = processes_.find(gone.tid);
    if (owner != processes_.end() && owner->second.otherThreads > 0) {
      continue;
    }
    onForgetting(gone.tid);
    threads_.erase(place);
    if (owner != processes_.end()) {
      processes_.erase(owner);
    }
  }
}

}  // namespace recordings
