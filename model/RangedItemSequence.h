// Items by start, those that share theirs in the order that insertions gave them: the container
// behind RangedItemStore. Finding a start, finding an index and inserting anywhere take logarithmic
// time, whatever the order in which items arrive: a recording may list a million maps at random.
// Borrows the items, which must not change their starts. One thread only.
//
// A B+ tree that counts: items lie in leaves, which split when they are full, and every node above
// knows the first start and the number of items of each of its children. A node is searched without
// touching what it refers to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>

#include <boost/container/static_vector.hpp>

#include "model/Pooled.h"
#include "model/RangedItem.h"

class RangedItemSequence {
 public:
  using value_type = RangedItem*;
  // Any insertion makes it worthless.
  class const_iterator;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  RangedItem* operator[](std::size_t index) const;
  RangedItem* back() const { return last_->items.back(); }
  uint64_t lastStart() const { return last_->starts.back(); }
  const_iterator begin() const;
  const_iterator end() const;
  const_iterator last() const;  // end() of an empty sequence

  // The last item whose start is not above `address`; end() if there is none.
  const_iterator floor(uint64_t address) const;
  // The number of items whose starts are not above `address`.
  std::size_t countUpTo(uint64_t address) const;

  // The start is the item's, or one that keeps the order. The item becomes that of `index`; without
  // an index it goes behind all items whose starts are not above its own.
  void insert(uint64_t start, RangedItem* item, std::optional<std::size_t> index = std::nullopt);

 private:
  static constexpr std::size_t NODE_SIZE = 32;
  template <typename T>
  using Slots = boost::container::static_vector<T, NODE_SIZE>;

  struct Node {  // empty for a moment only
    virtual ~Node() = default;
    // Moves what is in `slot` and behind it to a new node.
    virtual std::unique_ptr<Node> split(std::size_t slot) = 0;
    virtual std::size_t count() const = 0;  // of items
    bool isFull() const { return starts.size() == NODE_SIZE; }

    Slots<uint64_t> starts;  // the first one of each child, or those of the items
  };
  struct Leaf : Node, Pooled<Leaf> {
    std::unique_ptr<Node> split(std::size_t slot) override;
    std::size_t count() const override { return items.size(); }

    Slots<RangedItem*> items;
    Leaf* previous = nullptr;
    Leaf* next = nullptr;
  };
  struct Branch : Node, Pooled<Branch> {
    std::unique_ptr<Node> split(std::size_t slot) override;
    std::size_t count() const override;
    void adopt(std::size_t slot, std::unique_ptr<Node> child);

    Slots<std::size_t> counts;
    Slots<std::unique_ptr<Node>> children;
  };

  // The leaf to which `slotIn` leads, which chooses a child of every branch on the way.
  template <typename SlotIn>
  const Leaf& _leaf(SlotIn slotIn) const;
  void _makeRoomInRoot();

  std::unique_ptr<Node> root_;  // null without items
  std::size_t branches_ = 0;    // on the way from the root to a leaf
  std::size_t size_ = 0;
  Leaf* last_ = nullptr;
};

class RangedItemSequence::const_iterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = RangedItem*;
  using difference_type = std::ptrdiff_t;
  using pointer = RangedItem* const*;
  using reference = RangedItem*;

  const_iterator() = default;

  RangedItem* operator*() const { return leaf_->items[slot_]; }
  uint64_t start() const { return leaf_->starts[slot_]; }
  // Whether the item before this one, if there is one, has the same start.
  bool sharesStartBefore() const;
  const_iterator& operator++() {
    if (++slot_ == leaf_->items.size()) {
      leaf_ = leaf_->next;
      slot_ = 0;
    }
    return *this;
  }
  const_iterator operator++(int) {
    const const_iterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const const_iterator& other) const = default;

 private:
  friend class RangedItemSequence;
  const_iterator(const Leaf* leaf, std::size_t slot) : leaf_(leaf), slot_(slot) {}

  const Leaf* leaf_ = nullptr;  // null behind the last item
  std::size_t slot_ = 0;
};

inline RangedItemSequence::const_iterator RangedItemSequence::end() const { return {}; }
