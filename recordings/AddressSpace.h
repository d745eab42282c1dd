// What is mapped where: ranges of addresses that do not overlap. A value: copying costs nothing, so
// that a fork shares its parent's maps until one of the two changes, and a copy shows the maps of a
// moment for as long as it is kept. Adding, cutting and finding cost log n. Addresses are run-time
// addresses; ranges are [start, end). One thread.
#pragma once

#include <cstdint>

namespace recordings {

struct MappedFile;

struct Mapping {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  // Of `start` in the file, bytes. For code that is in no file: the address itself.
  std::uint64_t fileOffset = 0;
  const MappedFile* file = nullptr;  // belongs to MappedFiles

  bool holds(std::uint64_t address) const { return address >= start && address < end; }
  // What stays the same where a map is cut: which byte of which file stands at an address.
  std::uint64_t base() const { return start - fileOffset; }
};

class AddressSpace {
 public:
  AddressSpace() = default;
  AddressSpace(const AddressSpace& other);
  AddressSpace(AddressSpace&& other) noexcept;
  AddressSpace& operator=(AddressSpace other) noexcept;
  ~AddressSpace();

  // A new map: what it covers of older ones is cut out of them.
  void add(const Mapping& mapping);
  // Nothing is mapped there any more.
  void remove(std::uint64_t start, std::uint64_t end);
  void clear();

  // The map that holds the address, or null; valid until this space is changed.
  const Mapping* find(std::uint64_t address) const;
  bool isEmpty() const { return root_ == nullptr; }
  template <typename Visit>
  void forEach(Visit visit) const {
    _forEach(root_, visit);
  }

 private:
  // Trees in which a node's priority is above its children's. Nodes are shared and never change.
  struct Node {
    Mapping mapping;
    std::uint64_t priority;
    Node* left;
    Node* right;
    std::uint32_t owners;
  };

  static Node* _own(Node* node);
  static void _release(Node* node);
  static Node* _make(const Mapping& mapping, std::uint64_t priority, Node* left, Node* right);
  // The maps below `at` and those from there on; a map across it is cut in two.
  static void _split(const Node* node, std::uint64_t at, Node*& below, Node*& above);
  static Node* _join(Node* below, Node* above);
  template <typename Visit>
  static void _forEach(const Node* node, Visit& visit) {
    if (node != nullptr) {
      _forEach(node->left, visit);
      visit(node->mapping);
      _forEach(node->right, visit);
    }
  }

  Node* root_ = nullptr;
};

}  // namespace recordings
