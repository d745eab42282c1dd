// Memory for classes with very many objects, a base of theirs: a recording can have a hundred
// thousand maps, a list a million functions. Objects lie one behind the other, which takes less
// memory and time than the heap. What is freed serves later objects of the class; nothing goes back
// to the system before the process ends. One thread only.
//
// With TRACEMILL_NO_POOLS they come from the heap, where an address sanitizer watches them.
#pragma once

#include <cstddef>
#include <new>

#include "kestrel/MemoryPieces.h"

template <typename T>
class Pooled {
#ifndef TRACEMILL_NO_POOLS
 public:
  static void* operator new(std::size_t size) {
    return size == sizeof(T) ? _pool().take() : ::operator new(size);
  }
  static void operator delete(void* memory, std::size_t size) noexcept {
    if (size == sizeof(T)) {
      _pool().giveBack(memory);
    } else {
      ::operator delete(memory);
    }
  }

 private:
  class Pool {
   public:
    void* take() {
      static_assert(alignof(T) <= alignof(std::max_align_t) && sizeof(T) >= sizeof(Free));
      if (free_ == nullptr) {
        return memory_.take(sizeof(T));
      }
      Free* const first = free_;
      free_ = first->next;
      return first;
    }
    void giveBack(void* memory) { free_ = ::new (memory) Free{free_}; }

   private:
    struct Free {
      Free* next;
    };

    kestrel::MemoryPieces memory_;
    Free* free_ = nullptr;
  };

  static Pool& _pool() {
    static Pool* const pool = new Pool;  // objects may outlive every static one
    return *pool;
  }
#endif
};
