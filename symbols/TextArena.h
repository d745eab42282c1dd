// Keeps short texts, such as the names of a million functions, one behind the other in large pieces
// of memory: an allocation for each would take twice the memory and most of the time of reading a
// list. The texts live as long as the arena. One thread only.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

class TextArena {
 public:
  TextArena() = default;
  TextArena(const TextArena&) = delete;
  TextArena& operator=(const TextArena&) = delete;

  // A copy of the text.
  std::string_view keep(std::string_view text);

 private:
  std::vector<std::unique_ptr<char[]>> pieces_;
  char* next_ = nullptr;  // in the last piece
  std::size_t left_ = 0;  // bytes behind it
};
