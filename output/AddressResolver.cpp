#include "output/AddressResolver.h"

#include <utility>

#include "kestrel/Singleton.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SymbolTableStore.h"

AddressResolver::AddressResolver(std::function<void()> beforeLoading)
    : beforeLoading_(std::move(beforeLoading)),
      threads_(kestrel::Singleton<ThreadStore>::Instance()),
      maps_(kestrel::Singleton<MMapStore>::Instance()),
      symbolTables_(kestrel::Singleton<SymbolTableStore>::Instance()),
      answers_(std::size_t{1} << ANSWER_BITS) {}

RangedItem* AddressResolver::resolve(ThreadInfo* thread, uint64_t address) {
  const uint32_t pid = thread->pid;
  Answer& known = _slotOf(pid, address);
  const uint32_t generation = maps_->generation(pid);
  if (known.address == address && known.pid == pid && known.generation == generation &&
      known.map != nullptr) {
    return _use(known);
  }
  MMapInfo* const map = maps_->get(pid, address);
  if (map == nullptr) {
    // Not kept: only the first visit to a page counts a use of its owner, and an address that the
    // made-up map does not hold makes another.
    MMapInfo* const madeUp = _makeUpMap(thread, address);
    ++madeUp->refCount;
    return madeUp;
  }
  if (map->symbolTable == nullptr) {
    beforeLoading_();
  }
  const Answer found{address, pid, generation, map,
                     symbolTables_->getSymbolTable(map)->getFunction(address, map)};
  if (!maps_->sharesStart(pid, *map)) {
    known = found;
  }
  return _use(found);
}

// Multiplicative hashing: the product's high bits depend on all bits of address and pid.
AddressResolver::Answer& AddressResolver::_slotOf(uint32_t pid, uint64_t address) {
  const uint64_t product = (address + (uint64_t{pid} << 40)) * 0x9E3779B97F4A7C15U;
  return answers_[static_cast<std::size_t>(product >> (64 - ANSWER_BITS))];
}

MMapInfo* AddressResolver::_makeUpMap(ThreadInfo* thread, uint64_t address) {
  const ThreadInfo* owner = thread;
  if (thread->pid != thread->tid) {
    ThreadInfo* const process = threads_->getProcess(thread->pid);
    ++process->refCount;
    owner = process;
  }
  return maps_->getFake(owner->pid, address, owner->name);
}

RangedItem* AddressResolver::_use(const Answer& answer) {
  ++answer.map->refCount;
  if (answer.function == nullptr) {
    return answer.map;
  }
  ++answer.function->refCount;
  return answer.function;
}
