#include "kestrel/MemoryPieces.h"

#include <algorithm>
#include <new>
#include <sys/mman.h>

namespace kestrel {

namespace {

// Pieces grow with what is taken, so that a little stays a little.
constexpr std::size_t SMALLEST_PIECE = 4 * 1024;
constexpr std::size_t GROWING_PIECES = 9;  // up to 1 MiB each
constexpr std::size_t HUGE_PAGE = 2 * 1024 * 1024;
constexpr std::align_val_t HUGE_ALIGNMENT{HUGE_PAGE};

}  // namespace

void MemoryPieces::FreePiece::operator()(char* piece) const {
  if (isHuge) {
    ::operator delete(piece, HUGE_ALIGNMENT);
  } else {
    ::operator delete(piece);
  }
}

void MemoryPieces::_addPiece(std::size_t leastBytes) {
  const std::size_t grown =
      pieces_.size() < GROWING_PIECES ? SMALLEST_PIECE << pieces_.size() : HUGE_PAGE;
  const std::size_t bytes = std::max(leastBytes, grown);
  pieces_.push_back(_makePiece(bytes));
  next_ = pieces_.back().get();
  left_ = bytes;
}

MemoryPieces::Piece MemoryPieces::_makePiece(std::size_t bytes) {
  if (bytes < HUGE_PAGE) {
    return Piece(static_cast<char*>(::operator new(bytes)), {false});
  }
  Piece piece(static_cast<char*>(::operator new(bytes, HUGE_ALIGNMENT)), {true});
  ::madvise(piece.get(), bytes, MADV_HUGEPAGE);  // a wish; without it the pages are small
  return piece;
}

}  // namespace kestrel
