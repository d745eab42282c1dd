// Call chains, each kept once: a tree whose nodes are a frame called by the chain of their parent.
// A chain is the number of its innermost node. Frames are numbers of the caller's choice. Node 0 is
// the empty chain; a parent's number is below its children's. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace report {

class StackTree {
 public:
  static constexpr uint32_t ROOT = 0;

  StackTree();

  // The chain in which `frame` was called by the chain `parent`; made if it does not exist.
  // Throws ReportError when there are more than 2^32 - 2 of them.
  uint32_t intern(uint32_t parent, uint32_t frame) {
    const Child last = lastChildren_[parent];
    if (last.node == 0 || last.frame != frame) {
      const uint32_t node = _lookUp(parent, frame);
      lastChildren_[parent] = {frame, node};
      return node;
    }
    return last.node;
  }

  std::size_t size() const { return parents_.size(); }  // with the root
  uint32_t parent(uint32_t node) const { return parents_[node]; }
  uint32_t frame(uint32_t node) const { return frames_[node]; }  // not of the root

  // Numbers the nodes anew, each before its children and these side by side with all that is below
  // them (pre-order), so that a subtree is a range. Returns the new number of each old one.
  std::vector<uint32_t> sortDepthFirst();
  // Calls from the root: 0 for the root itself.
  std::vector<uint32_t> depths() const;

 private:
  // The key is beside the node, so that a look-up reads one place in memory.
  struct Slot {
    uint64_t key = 0;   // the parent in the upper half, the frame in the lower
    uint32_t node = 0;  // 0: free
  };

  struct Child {
    uint32_t frame = 0;
    uint32_t node = 0;  // 0: none
  };

  uint32_t _lookUp(uint32_t parent, uint32_t frame);
  void _grow();
  std::size_t _slotOf(uint64_t key) const;
  void _renumber(const std::vector<uint32_t>& numbers);

  std::vector<uint32_t> parents_;
  std::vector<uint32_t> frames_;
  // The child of each node that was asked for last: mostly the one asked for next, and beside that
  // of the child in memory.
  std::vector<Child> lastChildren_;
  std::vector<Slot> slots_;  // open addressing, at most three quarters full
};

}  // namespace report
