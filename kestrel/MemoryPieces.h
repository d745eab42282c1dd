// Memory for very many small things that are kept until all of them go: texts, or the places of a
// pool. It is taken from large pieces, one thing behind the other, which costs a fraction of the
// heap's time and nothing between them. Large amounts lie in huge pages, where the system has them:
// a list of a million symbols is read in three quarters of the time. One thread only.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace kestrel {

class MemoryPieces {
 public:
  MemoryPieces() = default;
  MemoryPieces(const MemoryPieces&) = delete;
  MemoryPieces& operator=(const MemoryPieces&) = delete;

  // So many bytes, not initialised, behind the ones taken before: where all sizes are a multiple of
  // an alignment up to that of std::max_align_t, so are all places. Valid as long as this object.
  // Throws std::bad_alloc.
  char* take(std::size_t bytes) {
    if (bytes > left_) {
      _addPiece(bytes);
    }
    char* const taken = next_;
    next_ += bytes;
    left_ -= bytes;
    return taken;
  }

 private:
  struct FreePiece {
    bool isHuge = false;
    void operator()(char* piece) const;
  };
  using Piece = std::unique_ptr<char, FreePiece>;

  void _addPiece(std::size_t leastBytes);
  static Piece _makePiece(std::size_t bytes);

  std::vector<Piece> pieces_;
  char* next_ = nullptr;  // in the last piece
  std::size_t left_ = 0;  // bytes behind it
};

}  // namespace kestrel
