// Turns the records of a recording, as they come in the order of time, into a plain recording: each
// address is looked up at its moment, and placed so that the converter, which knows no moments,
// comes to the same answer. Memory grows neither with the number of samples nor with that of the
// processes that have ended. One thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "prepare/AddressCounts.h"
#include "prepare/Placement.h"
#include "prepare/PlainRecording.h"
#include "prepare/PlainTasks.h"
#include "prepare/RunTimeCode.h"
#include "prepare/ShelvedTable.h"
#include "prepare/StackDumps.h"
#include "prepare/TouchedCode.h"
#include "recordings/Processes.h"
#include "recordings/Recording.h"

namespace prepare {

// Of addresses, in one of the two modes of a processor.
struct ModeCounts {
  std::uint64_t all = 0;
  std::uint64_t mapped = 0;  // a map held the address
};

struct PreparationCounts {
  ModeCounts kernelSamples;
  ModeCounts userSamples;
  ModeCounts kernelCallers;  // entries of call chains behind the first
  ModeCounts userCallers;
  std::uint64_t movedSamples = 0;
  std::uint64_t samplesUnderOtherNames = 0;  // than the thread's last
  std::uint64_t renumberedSamples = 0;       // of threads that have another tid now
  std::size_t longestChain = 0;              // frames, the sampled address included

  std::uint64_t samples() const { return kernelSamples.all + userSamples.all; }
};

class Preparation : public recordings::RecordVisitor {
 public:
  struct Settings {
    std::vector<bool> wantedEvents;
    bool keepUnknown = false;      // addresses of call chains that no map holds
    std::size_t mostFrames = 127;  // of a chain that is found from a stack dump
    // Where temporary files are made.
    std::string scratchDirectory;
    // Asked once, and only if samples fell into a kernel that no map tells of.
    std::function<std::optional<recordings::KernelImage>()> assumedKernel;
    std::function<bool(const recordings::Mapping&)> mustBeHigh;
    StackDumps::Locator locate;
    std::function<void(std::uint64_t, std::uint64_t)> progress;
  };

  // The recording and the output are borrowed.
  Preparation(const recordings::Recording& recording, PlainRecording& output, Settings settings);

  bool wantsSamplesOf(std::uint32_t event) override { return settings_.wantedEvents[event]; }
  void onSample(std::uint32_t event, const recordings::Sample& sample) override;
  void onMap(const recordings::MapRecord& map) override;
  void onComm(const recordings::CommRecord& comm) override;
  void onFork(const recordings::TaskRecord& task) override;
  void onExit(const recordings::TaskRecord& task) override;
  void onKsymbol(const recordings::KsymbolRecord& symbol) override { processes_.onKsymbol(symbol); }
  void onProgress(std::uint64_t done, std::uint64_t all) override { settings_.progress(done, all); }

  // After the walk.
  void finish();
  const PreparationCounts& counts() const { return counts_; }
  // Null unless there were stack dumps.
  const StackDumps* stackDumps() const { return stackDumps_.get(); }
  const recordings::Processes& processes() const { return processes_; }
  const RunTimeCode& runTimeCode() const { return runTimeCode_; }
  // By the pid that they have in the plain recording.
  const ShelvedTable<PlainProcess>& plainProcesses() const { return plainProcesses_; }
  // By the tid that they have there.
  const ShelvedTable<SampledThread>& threads() const { return threads_; }

  // Sampled addresses, and callers of every CALLERS_COUNTED_EVERY-th sample, by MappedFile::index
  // (KERNEL_INDEX: the kernel itself) and address in that file, as recorded (offsets for files).
  const AddressCounts& sampledAddresses() const { return sampledAddresses_; }
  const AddressCounts& callerAddresses() const { return callerAddresses_; }
  // By the numbers of the files; without the kernel itself. Complete after finish().
  const TouchedCode& touchedCode() const { return touchedCode_; }
  static constexpr std::uint32_t KERNEL_INDEX = 0x7fffffff;
  static constexpr std::uint64_t CALLERS_COUNTED_EVERY = 8;

 private:
  enum class Mode { KERNEL, USER, OTHER };
  // Who a sample is of. Its pointers stay good until processes are forgotten.
  struct Task {
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint32_t writtenTid = 0;
    recordings::Process* process = nullptr;
    const recordings::Thread* recorded = nullptr;
    SampledThread* thread = nullptr;
    PlainProcess* plain = nullptr;
  };
  // Where the addresses of a page were last found to be, and which were; one line of the
  // processor's cache.
  struct alignas(64) Remembered {
    std::uint64_t version = 0;  // of the maps it was looked up in
    const PlainProcess* plain = nullptr;
    std::uint64_t page = 0;
    Piece* piece = nullptr;  // null: in no map
    std::uint32_t file = 0;  // that piece's, and where in it the page begins
    std::uint64_t pageInFile = 0;
    std::uint64_t touched = 0;  // not yet in touchedCode_: a word of it
  };
  // A sample that waits for its chain, or behind one that does.
  struct Waiting {
    recordings::Sample sample;  // without views
    Task task;
    Mode mode = Mode::OTHER;
    std::uint64_t version = 0;          // of the process's maps
    std::vector<std::uint64_t> frames;  // as far as they are known, placed
    std::unique_ptr<StackDump> dump;    // null: waits only
  };
  static constexpr std::size_t MOST_WAITING = 256;
  static constexpr std::size_t TASKS = 1024;
  static constexpr std::uint32_t FIRST_SUBSTITUTE = 0x80000000;
  static constexpr std::size_t REMEMBERED = 8192;
  static constexpr std::size_t FETCHED_AHEAD = 4;  // addresses of a chain

  Task& _taskOf(const recordings::Sample& sample);
  std::uint32_t _writtenTid(std::uint32_t pid, std::uint32_t tid);
  void _forgetLongGone();
  void _setAside(std::uint32_t tid);
  void _countName(Task& task);
  bool _isInKernel(std::uint64_t address) const;
  void _assumeKernel();
  void _reserve();
  void _fetch(const Task& task, std::uint64_t address) const;
  Piece* _findPiece(Task& task, Mode mode, std::uint64_t address);
  Piece* _findPieceIn(Task& task, const recordings::AddressSpace& maps, std::uint64_t version,
                      std::uint64_t address);
  Piece* _lookUp(Task& task, const recordings::AddressSpace& maps, std::uint64_t version,
                 std::uint64_t address);
  void _forget(Remembered& known);
  std::uint64_t _placeSampled(Task& task, Mode mode, std::uint64_t address);
  void _addCaller(Task& task, Mode mode, std::uint64_t address);
  void _addUserCaller(Task& task, const recordings::AddressSpace& maps, std::uint64_t version,
                      std::uint64_t address);
  void _addPlaced(ModeCounts& counts, Piece* piece, std::uint64_t address);
  void _write(const recordings::Sample& sample, const Task& task);
  void _wait(std::uint32_t event, const recordings::Sample& sample, const Task& task, Mode mode);
  void _finishWaiting();
  void _addCallers(Task& task, Mode sampled, std::uint32_t event, const recordings::Sample& sample);
  void _addBranches(Task& task, const recordings::Sample& sample);
  static Mode _modeOf(std::uint16_t misc);

  const recordings::Recording& recording_;
  PlainRecording& output_;
  Settings settings_;
  PlacementRules rules_;
  recordings::Processes processes_;
  RunTimeCode runTimeCode_;
  ShelvedTable<PlainProcess> plainProcesses_;
  ShelvedTable<SampledThread> threads_;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> substitutes_;  // by pid and tid
  std::uint32_t nextSubstitute_ = FIRST_SUBSTITUTE;
  PreparationCounts counts_;
  AddressCounts sampledAddresses_;
  AddressCounts callerAddresses_;
  TouchedCode touchedCode_;
  bool isKernelSettled_ = false;
  bool areCallersCounted_ = false;  // of the sample in hand
  std::array<Task, TASKS> tasks_;
  std::vector<Remembered> remembered_;
  std::vector<std::uint64_t> frames_;
  std::unique_ptr<StackDumps> stackDumps_;
  std::vector<Waiting> waiting_;
};

}  // namespace prepare
