#include "symbols/TextArena.h"

#include <algorithm>

namespace {

// Grows with the arena, so that small lists stay small.
constexpr std::size_t SMALLEST_PIECE = 4 * 1024;
constexpr std::size_t LARGEST_PIECE = 1024 * 1024;

}  // namespace

std::string_view TextArena::keep(std::string_view text) {
  if (text.size() > left_) {
    const std::size_t doubled = SMALLEST_PIECE << std::min<std::size_t>(pieces_.size(), 8);
    left_ = std::max(text.size(), std::min(doubled, LARGEST_PIECE));
    pieces_.emplace_back(new char[left_]);
    next_ = pieces_.back().get();
  }
  const std::string_view kept(next_, text.size());
  std::copy(text.begin(), text.end(), next_);
  next_ += text.size();
  left_ -= text.size();
  return kept;
}
