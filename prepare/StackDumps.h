// Finds the call chains of samples that hold registers and a piece of stack instead of one
// (perf record --call-graph dwarf): many at once, on all processors.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "listing/Options.h"
#include "recordings/AddressSpace.h"
#include "recordings/MappedFiles.h"
#include "recordings/SampleLayout.h"
#include "unwinding/Unwinder.h"

namespace prepare {

// One sample's registers and stack, with the maps of its moment; a copy of both.
struct StackDump {
  recordings::AddressSpace maps;
  std::uint64_t abi = 0;
  std::vector<std::uint64_t> registers;
  std::vector<unsigned char> stack;
  // What came of it: addresses, innermost first.
  std::vector<std::uint64_t> frames;
  unwinding::End end = unwinding::End::Broken;
  unwinding::FileId lastFile = unwinding::NO_FILE;  // of the last address
};

class StackDumps {
 public:
  // Where a mapped file is on this machine, with its separate debug file. Called by any thread.
  using Locator = std::function<unwinding::FrameFiles::Location(const recordings::MappedFile&)>;

  // `architecture` as uname -m prints it; `mask` is the registers' (Attribute::sampleRegsUser).
  // `files` is borrowed; it does not change while unwind() runs.
  StackDumps(const std::string& architecture, std::uint64_t mask, std::size_t mostFrames,
             const recordings::MappedFiles& files, Locator locator);
  ~StackDumps();

  static StackDump take(const recordings::Sample& sample, const recordings::AddressSpace& maps);

  // The address spaces of the dumps must not change meanwhile.
  void unwind(const std::vector<StackDump*>& dumps);

  // How many chains ended in each way, by unwinding::End.
  const std::array<std::uint64_t, 7>& ends() const { return ends_; }
  // The same, by the file that the last address was in (recordings::MappedFile::index).
  const std::map<std::pair<unwinding::End, unwinding::FileId>, std::uint64_t>& endsByFile() const {
    return endsByFile_;
  }

 private:
  class Worker;

  unwinding::Machine machine_;
  std::uint64_t mask_;
  std::size_t mostFrames_;
  unwinding::FrameFiles files_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::array<std::uint64_t, 7> ends_{};
  std::map<std::pair<unwinding::End, unwinding::FileId>, std::uint64_t> endsByFile_;
};

}  // namespace prepare
