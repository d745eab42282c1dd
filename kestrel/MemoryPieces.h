// Memory for very many small things that all go at the same time: texts, or the objects of a pool.
// They lie one behind the other in pieces of up to 2 MiB, with nothing between them, and taking one
// costs a fraction of an allocation. The largest pieces ask the system for huge pages, with which a
// list of a million symbols is read in three quarters of the time. One thread only.
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

  // So many bytes, not initialised, valid as long as this object. Nothing is done to align them:
  // they are aligned for a class as long as only objects of that class are taken, as Pooled does.
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
