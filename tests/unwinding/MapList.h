// The maps of a process, for tests.
#pragma once

#include <optional>
#include <vector>

#include "unwinding/Map.h"

class MapList : public unwinding::MapLookup {
 public:
  void add(const unwinding::Map& map) { maps_.push_back(map); }
  std::optional<unwinding::Map> find(std::uint64_t address) const override {
    for (const unwinding::Map& each : maps_) {
      if (each.holds(address)) {
        return each;
      }
    }
    return std::nullopt;
  }

 private:
  std::vector<unwinding::Map> maps_;
};
