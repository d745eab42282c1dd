// Values by number, of which those that are not needed for now lie on a shelf. A value says how it
// is written down: `std::string text() const`, and how it comes back: a Restore, called with that
// text. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "prepare/Shelf.h"

namespace prepare {

template <typename Value>
class ShelvedTable {
 public:
  using Restore = std::function<Value(const std::string&)>;

  ShelvedTable(const std::string& scratchDirectory, Restore restore)
      : shelf_(scratchDirectory), restore_(std::move(restore)) {}

  // Taken back from the shelf if it is there, new if it is nowhere. Stays where it is until it is
  // set aside.
  Value& operator[](std::uint32_t number) {
    const auto [place, isMissing] = values_.try_emplace(number);
    if (isMissing) {
      if (const auto text = shelf_.take(number)) {
        place->second = restore_(*text);
      }
    }
    return place->second;
  }
  // Null if it is on the shelf or nowhere.
  Value* inHand(std::uint32_t number) {
    const auto place = values_.find(number);
    return place == values_.end() ? nullptr : &place->second;
  }
  void setAside(std::uint32_t number) {
    const auto place = values_.find(number);
    if (place != values_.end()) {
      shelf_.put(number, place->second.text());
      values_.erase(place);
    }
  }

  bool contains(std::uint32_t number) const {
    return values_.contains(number) || shelf_.holds(number);
  }
  std::size_t countInHand() const { return values_.size(); }
  // visit(number, value), by ascending numbers; values on the shelf are read for the call.
  template <typename Visit>
  void forEach(Visit visit) const {
    auto place = values_.begin();
    for (const std::uint32_t number : shelf_.numbers()) {
      for (; place != values_.end() && place->first < number; ++place) {
        visit(place->first, place->second);
      }
      const Value value = restore_(shelf_.read(number));
      visit(number, value);
    }
    for (; place != values_.end(); ++place) {
      visit(place->first, place->second);
    }
  }
  template <typename Visit>
  void forEachInHand(Visit visit) {
    for (auto& [number, value] : values_) {
      visit(number, value);
    }
  }

 private:
  std::map<std::uint32_t, Value> values_;
  mutable Shelf shelf_;
  Restore restore_;
};

}  // namespace prepare
