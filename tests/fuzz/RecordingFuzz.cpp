// Fuzz target: any recording, read from memory and walked to its end, with processes followed as
// far as they go and every byte that a record shows looked at. It ends soon and within a bound of
// memory, hands over every record of a walk in the order of time, and refuses in one sentence.
#include <cstdint>
#include <memory>
#include <string>

#include "recordings/Processes.h"
#include "recordings/Recording.h"
#include "recordings/RecordingError.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using recordings::Bytes;
using recordings::TimeOrder;

// Few packed bytes may be many records, of which so many bytes are held to be sorted.
constexpr std::size_t MEMORY_TO_SORT = 2 * TimeOrder::MEMORY_LIMIT;

class Follower : public recordings::RecordVisitor {
 public:
  bool wantsSamplesOf(std::uint32_t) override { return true; }
  void onSample(std::uint32_t, const recordings::Sample& sample) override {
    require(sample.time == 0 || sample.time == ~std::uint64_t{0} || sample.time >= last_,
            "samples come in the order of time");
    last_ = sample.time == ~std::uint64_t{0} ? last_ : sample.time > last_ ? sample.time : last_;
    for (std::size_t i = 0; i < sample.chainLength(); ++i) {
      sum_ = sum_ + sample.chainWord(i);
    }
    look(sample.userRegisters);
    look(sample.userStack);
    look(sample.branches);
    const recordings::Mapping* const map = processes_.process(sample.pid).maps.find(sample.ip);
    require(map == nullptr || map->holds(sample.ip), "a map that is found holds the address");
  }
  void onMap(const recordings::MapRecord& map) override { processes_.onMap(map); }
  void onComm(const recordings::CommRecord& comm) override { processes_.onComm(comm); }
  void onFork(const recordings::TaskRecord& task) override { processes_.onFork(task); }
  void onExit(const recordings::TaskRecord& task) override {
    processes_.onExit(task);
    if (processes_.hasLongGone()) {
      processes_.forgetLongGone([](std::uint32_t) {});
    }
  }
  void onKsymbol(const recordings::KsymbolRecord& symbol) override { processes_.onKsymbol(symbol); }
  void onProgress(std::uint64_t, std::uint64_t) override {}

 private:
  void look(Bytes bytes) {
    for (const unsigned char byte : bytes) {
      sum_ = sum_ + byte;
    }
  }

  recordings::Processes processes_;
  std::uint64_t last_ = 0;
  volatile std::uint64_t sum_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const AllocationMeter meter;
  try {
    recordings::Recording recording(std::make_unique<recordings::MemoryInput>(Bytes(data, size)));
    recordings::WalkCounts counts;
    Follower trusting;
    if (!recording.walk(trusting, TimeOrder::Trust::ROUNDS, "/tmp", counts)) {
      Follower doubting;
      require(recording.walk(doubting, TimeOrder::Trust::NOTHING, "/tmp", counts),
              "without trust nothing comes too late");
    }
  } catch (const recordings::RecordingError& error) {
    require(*error.what() != '\0', "a refusal says why");
  }
  requireBoundedMemory(meter, size, MEMORY_AT_REST + MEMORY_TO_SORT);
  return 0;
}
