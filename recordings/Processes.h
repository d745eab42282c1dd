// The processes of a recording at the moment that its walk has reached, as the kernel keeps them: a
// fork copies the parent's maps, a new program drops them, a new map covers older ones, threads
// share their process's maps, and a pid may come again. To be told of every record in the order of
// time. Memory grows with the processes that live, not with those that have lived, as long as
// forgetLongGone() is called. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "recordings/AddressSpace.h"
#include "recordings/MappedFiles.h"
#include "recordings/SideRecords.h"

namespace recordings {

struct Process {
  std::uint32_t pid = 0;
  std::uint32_t otherThreads = 0;  // that have begun and not ended, besides the first
  bool hasFirstEnded = false;
  AddressSpace maps;
  // Another number with each change of the maps: what was found out about them holds as long as it
  // stays.
  std::uint64_t version = 0;
};

struct Thread {
  std::uint32_t tid = 0;
  std::string name;        // empty: not known
  std::uint64_t life = 0;  // another number each time that a thread of this tid begins
};

// The kernel's side of the address space: itself, its modules, code that it made.
struct KernelImage {
  std::uint64_t start = 0;  // of the map that was recorded; start == end: none was
  std::uint64_t end = 0;
  // That map may end with the text proper; what is the kernel's behind it (code that ran at the
  // start) lies before this address, and before any module.
  std::uint64_t farthestEnd = 0;
  // The symbol that the map was made from, and its address on the recorded machine; 0 where
  // addresses were hidden.
  std::string referenceName;
  std::uint64_t referenceAddress = 0;
  BuildId buildId;
  bool isAssumed = false;  // not told by the recording

  void setEnd(std::uint64_t newEnd);
};

class Processes {
 public:
  // As long as no map tells of the kernel, it is this one: start, end and reference.
  void assumeKernel(const KernelImage& kernel);
  void onMap(const MapRecord& map);
  void onComm(const CommRecord& comm);
  void onFork(const TaskRecord& task);
  void onExit(const TaskRecord& task);
  void onKsymbol(const KsymbolRecord& symbol);

  // Samples of a task may follow its end, but not by much. Whether some ended so long ago that they
  // should be forgotten now.
  bool hasLongGone() const { return gone_.size() >= 2 * GONE_KEPT; }
  // Forgets threads, and processes without threads, that have ended, all but the last GONE_KEPT.
  // `onForgetting` is called for the tid of each just before.
  void forgetLongGone(const std::function<void(std::uint32_t)>& onForgetting);
  static constexpr std::size_t GONE_KEPT = 2048;

  // Made without maps or name if nothing was heard of it. Stays where it is until it is forgotten.
  Process& process(std::uint32_t pid);
  Thread& thread(std::uint32_t tid);
  // Of the thread; empty if nothing was heard of it.
  const std::string& nameOf(std::uint32_t tid) const;
  // Modules and what KSYMBOL records told of; not the kernel itself.
  const Process& kernelCode() const { return kernelCode_; }
  const KernelImage& kernel() const { return kernel_; }
  MappedFiles& files() { return files_; }
  const MappedFiles& files() const { return files_; }

 private:
  void _onKernelMap(const MapRecord& map);
  void _changed(Process& process) { process.version = ++versions_; }
  struct Gone {
    std::uint32_t pid;
    std::uint32_t tid;
    std::uint64_t life;
  };

  std::map<std::uint32_t, Process> processes_;
  std::map<std::uint32_t, Thread> threads_;
  std::deque<Gone> gone_;
  Process kernelCode_;
  KernelImage kernel_;
  MappedFiles files_;
  std::uint64_t versions_ = 0;
};

}  // namespace recordings
