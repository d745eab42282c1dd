// What an address of a process refers to, and the cache of such answers. A profile's addresses
// repeat by the thousand: finding one here costs a small part of searching the process's maps and a
// symbol table for it, and its text in the document is at hand, too. One thread only.
#pragma once

#include <cstdint>
#include <vector>

#include "model/MMapInfo.h"
#include "symbols/FunctionInfo.h"

// One answer. Borrows map and function.
struct ResolvedAddress {
  // Takes the answer and formats its text.
  void set(uint32_t ofPid, uint64_t ofAddress, MMapInfo* itsMap, FunctionInfo* itsFunction);
  // The function, or else the map: what a row refers to.
  RangedItem* item() const {
    return function != nullptr ? static_cast<RangedItem*>(function) : map;
  }
  // One more row refers to it.
  void countUse() {
    ++map->refCount;
    if (function != nullptr) {
      ++function->refCount;
    }
  }

  uint64_t address = 0;
  uint32_t pid = 0;
  uint32_t generation = 0;  // of the process's maps, when this was found
  MMapInfo* map = nullptr;  // null: no answer
  FunctionInfo* function = nullptr;
};

class AddressCache {
 public:
  AddressCache() : places_(PLACES) {}

  // The answer for the address, while the process's maps have this generation (see
  // MMapStore::generation()); null if none is known.
  ResolvedAddress* find(uint32_t pid, uint64_t address, uint32_t generation) {
    ResolvedAddress& place = _placeOf(pid, address);
    return place.address == address && place.pid == pid && place.generation == generation &&
                   place.map != nullptr
               ? &place
               : nullptr;
  }
  // Has the processor fetch the place that find() will look at.
  void prefetch(uint32_t pid, uint64_t address) { __builtin_prefetch(&_placeOf(pid, address)); }
  // The place of the answer, to be filled. It may hold another address's.
  ResolvedAddress& place(uint32_t pid, uint64_t address) { return _placeOf(pid, address); }

 private:
  static constexpr std::size_t PLACE_BITS = 13;  // 512 KiB in all: fits a second-level cache
  static constexpr std::size_t PLACES = std::size_t{1} << PLACE_BITS;

  // Multiplicative hashing: the product's high bits depend on all bits of address and pid.
  ResolvedAddress& _placeOf(uint32_t pid, uint64_t address) {
    const uint64_t product = (address + (uint64_t{pid} << 40)) * 0x9E3779B97F4A7C15U;
    return places_[static_cast<std::size_t>(product >> (64 - PLACE_BITS))];
  }

  std::vector<ResolvedAddress> places_;
};
