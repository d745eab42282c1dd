#include "recordings/AddressSpace.h"

#include <random>
#include <utility>

namespace recordings {

namespace {

// Nobody who writes a recording can foresee them, so no order of maps makes a deep tree.
std::uint64_t nextPriority() {
  static std::mt19937_64 generator{std::random_device{}()};
  return generator();
}

}  // namespace

AddressSpace::AddressSpace(const AddressSpace& other) : root_(_own(other.root_)) {}

AddressSpace::AddressSpace(AddressSpace&& other) noexcept
    : root_(std::exchange(other.root_, nullptr)) {}

AddressSpace& AddressSpace::operator=(AddressSpace other) noexcept {
  std::swap(root_, other.root_);
  return *this;
}

AddressSpace::~AddressSpace() { _release(root_); }

AddressSpace::Node* AddressSpace::_own(Node* node) {
  if (node != nullptr) {
    ++node->owners;
  }
  return node;
}

void AddressSpace::_release(Node* node) {
  while (node != nullptr && --node->owners == 0) {
    _release(node->left);
    Node* const right = node->right;
    delete node;
    node = right;
  }
}

AddressSpace::Node* AddressSpace::_make(const Mapping& mapping, std::uint64_t priority, Node* left,
                                        Node* right) {
  return new Node{mapping, priority, left, right, 1};
}

void AddressSpace::_split(const Node* node, std::uint64_t at, Node*& below, Node*& above) {
  if (node == nullptr) {
    below = above = nullptr;
    return;
  }
  const Mapping& mapping = node->mapping;
  if (mapping.end <= at) {
    Node* rest = nullptr;
    _split(node->right, at, rest, above);
    below = _make(mapping, node->priority, _own(node->left), rest);
  } else if (mapping.start >= at) {
    Node* rest = nullptr;
    _split(node->left, at, below, rest);
    above = _make(mapping, node->priority, rest, _own(node->right));
  } else {
    Mapping head = mapping;
    head.end = at;
    Mapping tail = mapping;
    tail.start = at;
    tail.fileOffset += at - mapping.start;
    below = _make(head, node->priority, _own(node->left), nullptr);
    above = _make(tail, node->priority, nullptr, _own(node->right));
  }
}

// Takes over both.
AddressSpace::Node* AddressSpace::_join(Node* below, Node* above) {
  if (below == nullptr || above == nullptr) {
    return below == nullptr ? above : below;
  }
  Node* joined = nullptr;
  if (below->priority >= above->priority) {
    joined =
        _make(below->mapping, below->priority, _own(below->left), _join(_own(below->right), above));
    _release(below);
  } else {
    joined =
        _make(above->mapping, above->priority, _join(below, _own(above->left)), _own(above->right));
    _release(above);
  }
  return joined;
}

void AddressSpace::add(const Mapping& mapping) {
  if (mapping.start >= mapping.end) {
    return;
  }
  Node* below = nullptr;
  Node* from = nullptr;
  Node* covered = nullptr;
  Node* above = nullptr;
  _split(root_, mapping.start, below, from);
  _split(from, mapping.end, covered, above);
  _release(from);
  _release(covered);
  Node* const added = _make(mapping, nextPriority(), nullptr, nullptr);
  _release(std::exchange(root_, _join(_join(below, added), above)));
}

void AddressSpace::remove(std::uint64_t start, std::uint64_t end) {
  if (start >= end) {
    return;
  }
  Node* below = nullptr;
  Node* from = nullptr;
  Node* covered = nullptr;
  Node* above = nullptr;
  _split(root_, start, below, from);
  _split(from, end, covered, above);
  _release(from);
  _release(covered);
  _release(std::exchange(root_, _join(below, above)));
}

void AddressSpace::clear() { _release(std::exchange(root_, nullptr)); }

const Mapping* AddressSpace::find(std::uint64_t address) const {
  const Node* node = root_;
  while (node != nullptr) {
    if (address < node->mapping.start) {
      node = node->left;
    } else if (address >= node->mapping.end) {
      node = node->right;
    } else {
      return &node->mapping;
    }
  }
  return nullptr;
}

}  // namespace recordings
