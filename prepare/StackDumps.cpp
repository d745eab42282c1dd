#include "prepare/StackDumps.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sys/utsname.h>
#include <thread>

namespace prepare {

using recordings::MappedFile;

namespace {

// Of a recording that does not say: this machine's.
unwinding::Machine machineOf(std::string architecture) {
  utsname system{};
  if (architecture.empty() && uname(&system) == 0) {
    architecture = system.machine;
  }
  if (architecture == "aarch64" || architecture == "arm64") {
    return unwinding::Machine::Arm64;
  }
  if (architecture.starts_with("arm")) {
    return unwinding::Machine::Arm;
  }
  const bool isX86 =
      architecture.size() == 4 && architecture.front() == 'i' && architecture.ends_with("86");
  return isX86 ? unwinding::Machine::X86 : unwinding::Machine::X86_64;
}

// The maps of a dump, as the unwinder asks for them; remembers files by their index.
class Maps : public unwinding::MapLookup {
 public:
  explicit Maps(const recordings::AddressSpace& maps) : maps_(maps) {}

  std::optional<unwinding::Map> find(std::uint64_t address) const override {
    const recordings::Mapping* const mapping = maps_.find(address);
    if (mapping == nullptr) {
      return std::nullopt;
    }
    const bool hasFile = mapping->file->kind == MappedFile::Kind::FILE ||
                         mapping->file->kind == MappedFile::Kind::VDSO;
    return unwinding::Map{mapping->start, mapping->end, mapping->fileOffset,
                          hasFile ? mapping->file->index : unwinding::NO_FILE};
  }

 private:
  const recordings::AddressSpace& maps_;
};

}  // namespace

// What one thread keeps from batch to batch.
class StackDumps::Worker {
 public:
  explicit Worker(StackDumps& owner) : owner_(owner), unwinder_(owner.files_) {}

  void unwind(StackDump& dump) {
    dump.frames.clear();
    dump.end = unwinding::End::Broken;
    dump.lastFile = unwinding::NO_FILE;
    unwinding::UserState state;
    if (!unwinding::setRegisters(owner_.machine_, dump.abi, owner_.mask_, dump.registers, state)) {
      return;
    }
    state.stack = dump.stack;
    const Maps maps(dump.maps);
    dump.end = unwinder_.unwind(state, maps, owner_.mostFrames_, dump.frames);
    dump.lastFile = unwinder_.lastFile();
  }

 private:
  StackDumps& owner_;
  unwinding::Unwinder unwinder_;
};

StackDumps::StackDumps(const std::string& architecture, std::uint64_t mask, std::size_t mostFrames,
                       const recordings::MappedFiles& files, Locator locator)
    : machine_(machineOf(architecture)),
      mask_(mask),
      mostFrames_(mostFrames),
      files_([&files, locate = std::move(locator)](unwinding::FileId id) {
        return locate(files.all()[id]);
      }) {
  const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
  for (unsigned i = 0; i < processors; ++i) {
    workers_.push_back(std::make_unique<Worker>(*this));
  }
}

StackDumps::~StackDumps() = default;

StackDump StackDumps::take(const recordings::Sample& sample, const recordings::AddressSpace& maps) {
  StackDump dump;
  dump.maps = maps;
  dump.abi = sample.userAbi;
  for (std::size_t at = 0; at + 8 <= sample.userRegisters.size(); at += 8) {
    dump.registers.push_back(
        recordings::numberAt<std::uint64_t>(sample.userRegisters.data() + at, sample.order));
  }
  dump.stack.assign(sample.userStack.begin(), sample.userStack.end());
  return dump;
}

void StackDumps::unwind(const std::vector<StackDump*>& dumps) {
  std::atomic<std::size_t> next = 0;
  const auto work = [&dumps, &next](Worker& worker) {
    for (std::size_t i = next++; i < dumps.size(); i = next++) {
      worker.unwind(*dumps[i]);
    }
  };
  std::vector<std::jthread> threads;
  for (std::size_t i = 1; i < std::min(workers_.size(), dumps.size()); ++i) {
    threads.emplace_back(work, std::ref(*workers_[i]));
  }
  work(*workers_.front());
  threads.clear();
  for (const StackDump* const dump : dumps) {
    ++ends_[static_cast<std::size_t>(dump->end)];
    ++endsByFile_[{dump->end, dump->lastFile}];
  }
}

}  // namespace prepare
