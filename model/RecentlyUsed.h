// Remembers the objects asked for last, by process or thread id: in a recording a few of them make
// most of the records, and a look here costs a tenth of one in a tree. Borrows the objects, which
// must stay where they are. One thread only.
#pragma once

#include <array>
#include <cstdint>

template <typename Object>
class RecentlyUsed {
 public:
  // The object remembered for `id`, or null.
  Object* find(uint32_t id) const {
    const Slot& slot = slots_[id % SLOTS];
    return slot.id == id ? slot.object : nullptr;
  }
  // Forgets another object when both ids share a slot.
  void remember(uint32_t id, Object* object) { slots_[id % SLOTS] = {object, id}; }

 private:
  struct Slot {
    Object* object = nullptr;
    uint32_t id = 0;
  };

  static constexpr uint32_t SLOTS = 64;

  std::array<Slot, SLOTS> slots_{};
};
