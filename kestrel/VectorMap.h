// A small map from names to owned objects: a list of names and a parallel list of objects, searched
// from the last entry to the first. For a handful of entries. One thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

template <typename T>
class VectorMap {
 public:
  // Takes ownership of `value`. If the name exists, the same pointer changes nothing, and another
  // object is destroyed and replaced; otherwise the entry is appended. Null makes an empty slot.
  void put(const std::string& name, T* value) {
    const std::size_t index = _find(name);
    if (index == names_.size()) {
      std::unique_ptr<T> owned(value);
      names_.push_back(name);
      values_.push_back(std::move(owned));
    } else if (values_[index].get() != value) {
      values_[index].reset(value);
    }
  }

  // Null when the name is missing or its slot is empty. Borrowed.
  T* get(const std::string& name) const {
    const std::size_t index = _find(name);
    return index == names_.size() ? nullptr : values_[index].get();
  }

  std::size_t size() const { return names_.size(); }

 private:
  // size() when the name is missing.
  std::size_t _find(const std::string& name) const {
    for (std::size_t i = names_.size(); i-- > 0;) {
      if (names_[i] == name) {
        return i;
      }
    }
    return names_.size();
  }

  std::vector<std::string> names_;
  std::vector<std::unique_ptr<T>> values_;  // one for each name
};

}  // namespace kestrel
