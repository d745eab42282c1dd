// Runs pieces of work in child processes: a crash or a hang costs one piece, not the run. libelf
// and libdw read files that anybody may have made. The children are forks that live on from piece
// to piece; they run no other program. One thread; the caller has no other threads that hold locks
// while this runs.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace listing {

class ChildPool {
 public:
  // At most `processes` at once. A piece that takes longer than `timeout` is killed.
  ChildPool(unsigned processes, std::chrono::milliseconds timeout);

  using Work = std::function<std::string(std::size_t piece)>;  // in a child
  using Done = std::function<void(std::size_t piece,
                                  std::optional<std::string> reply)>;  // here; no reply: it failed

  // Pieces 0 to count - 1, begun in this order, ended in any. Where no process can be made, pieces
  // fail.
  void run(std::size_t count, const Work& work, const Done& done);

 private:
  unsigned processes_;
  std::chrono::milliseconds timeout_;
};

}  // namespace listing
