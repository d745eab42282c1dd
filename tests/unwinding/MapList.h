// The maps of a process, for tests.
#pragma once

#include <vector>

#include "unwinding/Map.h"

class MapList : public unwinding::MapLookup {
 public:
  void add(const unwinding::Map& map) { maps_.push_back(map); }
  const unwinding::Map* find(std::uint64_t address) const override {
    for (const unwinding::Map& each : maps_) {
      if (address >= each.start && address < each.end) {
        return &each;
      }
    }
    return nullptr;
  }

 private:
  std::vector<unwinding::Map> maps_;
};
