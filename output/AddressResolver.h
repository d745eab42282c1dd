// What an address of a thread refers to: a function, else a map, else a map made up for it. Keeps
// answers: a profile's addresses repeat by the thousand, and finding one here costs a small part of
// searching the process's maps and a symbol table for it. Takes the stores at construction. One
// thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

class FunctionInfo;
class MMapInfo;
class MMapStore;
class RangedItem;
class SymbolTableStore;
struct ThreadInfo;
class ThreadStore;

class AddressResolver {
 public:
  // `beforeLoading` is called when a map is asked for its symbols for the first time: that may log.
  explicit AddressResolver(std::function<void()> beforeLoading);

  // Counts the use of what it returns, of the map of a function, and of the process that gives its
  // name to a made-up map. Never null.
  RangedItem* resolve(ThreadInfo* thread, uint64_t address);

 private:
  // Borrows map and function. It holds for one address of one process, as long as the process's
  // maps have this generation (see MMapStore::generation()).
  struct Answer {
    uint64_t address = 0;
    uint32_t pid = 0;
    uint32_t generation = 0;
    MMapInfo* map = nullptr;  // null: no answer
    FunctionInfo* function = nullptr;
  };

  static constexpr std::size_t ANSWER_BITS = 13;  // 256 KiB in all: fits a second-level cache

  Answer& _slotOf(uint32_t pid, uint64_t address);
  MMapInfo* _makeUpMap(ThreadInfo* thread, uint64_t address);
  static RangedItem* _use(const Answer& answer);

  std::function<void()> beforeLoading_;
  ThreadStore* threads_;
  MMapStore* maps_;
  SymbolTableStore* symbolTables_;
  std::vector<Answer> answers_;
};
