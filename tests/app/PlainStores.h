// Threads, maps and functions of a conversion as the format's description has them, with nothing
// done to make them fast: what the optimised stores are held against. Shares no code with them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

struct PlainItem {
  uint64_t start = 0;
  uint64_t size = 0;
  uint64_t key = 0;
  uint32_t uses = 0;
  std::string name;

  bool holds(uint64_t address) const {
    return size != 0 && start <= address && address <= start + size - 1;
  }
};

struct PlainTable;

struct PlainMap : PlainItem {
  uint64_t symbolBase = 0;
  PlainTable* table = nullptr;  // null: not asked for yet
};

struct PlainFunction : PlainItem {};

struct PlainThread {
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint32_t uses = 0;
  std::string name;
};

// The index that the halving search lands on among these ascending starts, or -1.
int plainFloor(const std::vector<uint64_t>& starts, uint64_t address);

template <typename Item>
class PlainStore {
 public:
  Item& add(std::unique_ptr<Item> item) {
    std::size_t at = items.size();
    if (!items.empty() && item->start < items.back()->start) {
      at = static_cast<std::size_t>(plainFloor(starts_, item->start) + 1);
    }
    const auto offset = static_cast<std::ptrdiff_t>(at);
    starts_.insert(starts_.begin() + offset, item->start);
    return **items.insert(items.begin() + offset, std::move(item));
  }

  Item* find(uint64_t address) const {
    const int index = plainFloor(starts_, address);
    if (index < 0) {
      return nullptr;
    }
    Item* const item = items[static_cast<std::size_t>(index)].get();
    return item->holds(address) ? item : nullptr;
  }

  std::vector<std::unique_ptr<Item>> items;

 private:
  std::vector<uint64_t> starts_;
};

struct PlainTable {
  PlainStore<PlainFunction> functions;
  std::map<uint64_t, const PlainMap*> users;  // by key
};

// One line of a symbol list: a text symbol, with its source file if that is known.
struct PlainSymbol {
  uint64_t address = 0;
  std::string name;
  std::string file{};
};

// The list as a lister prints it.
std::string listOf(const std::vector<PlainSymbol>& symbols);
