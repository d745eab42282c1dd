#include <map>
#include <random>

#include <gtest/gtest.h>

#include "report/StackTree.h"

namespace report {

TEST(StackTreeTest, AChainIsKeptOnce) {
  StackTree tree;
  const uint32_t first = tree.intern(StackTree::ROOT, 7);
  const uint32_t second = tree.intern(first, 8);
  EXPECT_EQ(tree.intern(StackTree::ROOT, 7), first);
  EXPECT_EQ(tree.intern(first, 8), second);
  EXPECT_NE(tree.intern(StackTree::ROOT, 8), second);
  EXPECT_EQ(tree.size(), 4U);
}

TEST(StackTreeTest, FrameZeroBelowTheRootIsNoFreePlace) {
  StackTree tree;
  const uint32_t node = tree.intern(StackTree::ROOT, 0);
  EXPECT_NE(node, StackTree::ROOT);
  EXPECT_EQ(tree.intern(StackTree::ROOT, 0), node);
}

// Against a map, beyond several sizes of the table.
TEST(StackTreeTest, ManyChains) {
  StackTree tree;
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> known;
  std::mt19937 chance(1);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t parent = static_cast<uint32_t>(chance() % tree.size());
    const uint32_t frame = static_cast<uint32_t>(chance() % 20);
    const uint32_t node = tree.intern(parent, frame);
    const auto [place, isNew] = known.try_emplace({parent, frame}, node);
    ASSERT_EQ(place->second, node);
    ASSERT_EQ(tree.size(), known.size() + 1);
  }
}

TEST(StackTreeTest, DepthFirstASubtreeIsARange) {
  StackTree tree;
  const uint32_t a = tree.intern(StackTree::ROOT, 1);
  const uint32_t b = tree.intern(StackTree::ROOT, 2);
  const uint32_t ac = tree.intern(a, 3);
  const uint32_t bd = tree.intern(b, 4);
  const uint32_t ae = tree.intern(a, 5);
  const std::vector<uint32_t> numbers = tree.sortDepthFirst();
  EXPECT_EQ(numbers[StackTree::ROOT], StackTree::ROOT);
  EXPECT_EQ(numbers[a], 1U);
  EXPECT_EQ(numbers[ac], 2U);
  EXPECT_EQ(numbers[ae], 3U);
  EXPECT_EQ(numbers[b], 4U);
  EXPECT_EQ(numbers[bd], 5U);
  EXPECT_EQ(tree.parent(3), 1U);
  EXPECT_EQ(tree.frame(5), 4U);
  EXPECT_EQ(tree.depths(), (std::vector<uint32_t>{0, 1, 2, 2, 1, 2}));
  EXPECT_EQ(tree.intern(4, 4), 5U) << "chains are found under their new numbers";
}

}  // namespace report
