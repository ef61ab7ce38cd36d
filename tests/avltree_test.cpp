// The index tree: its invariants on random shapes, and its refusals.
#include "avltree.h"

#include <array>
#include <cstring>
#include <set>

#include "fatal.h"
#include "random.h"

namespace {

using Node = AVLTree::avl_node;
using Payload = std::array<unsigned int, 2>;
constexpr unsigned int NODE = static_cast<unsigned int>(AVLTree::NODE_SIZE);

// A tree over a pool that starts at an address aligned to 4 bytes and no more, with guard words
// behind it. Slots are read straight from the pool, as the layout promises.
class TreeTest : public testing::Test {
 protected:
  static constexpr unsigned int SLOT = NODE + sizeof(Payload);
  static constexpr unsigned int GUARD = 0xA5A5A5A5;

  void makeTree(unsigned int nodes) {
    pool.assign(nodes * SLOT / 4 + 3, GUARD);
    // Off the alignment of 8, so that links of 64 bits would be misaligned if they were plain.
    base = reinterpret_cast<char*>(pool.data());
    base += reinterpret_cast<std::uintptr_t>(base) % 8 == 0 ? 4 : 0;
    tree = std::make_unique<AVLTree>(base, nodes * SLOT, sizeof(Payload));
    slots.clear();
  }

  Node* slot(std::size_t n) { return reinterpret_cast<Node*>(base + n * SLOT); }

  // Checks a subtree against every invariant and returns its height.
  int check(Node* node, Node* parent, std::uint64_t low, std::uint64_t high, std::size_t& count) {
    if (node == nullptr) {
      return -1;
    }
    ++count;
    EXPECT_TRUE(node->parent == parent && node->index >= low && node->index < high);
    const int left = check(node->left, node, low, node->index, count);
    const int right = check(node->right, node, node->index + std::uint64_t{1}, high, count);
    EXPECT_EQ(node->height, 1 + std::max(left, right));
    EXPECT_LE(std::abs(left - right), 1);
    return node->height;
  }

  void checkAll() {
    Node* root = slot(0);
    while (root->parent != nullptr) {
      root = root->parent;
    }
    std::size_t count = 0;
    check(root, nullptr, 0, std::uint64_t{1} << 32, count);
    ASSERT_EQ(count, slots.size());
    for (std::size_t n = 0; n < slots.size(); ++n) {
      ASSERT_EQ(slot(n)->index, slots[n]) << "slots are taken in order";
      const Payload expected = {slots[n], ~slots[n]};
      ASSERT_EQ(static_cast<const void*>(tree->find(slots[n])), slot(n) + 1) << "nodes never move";
      ASSERT_EQ(std::memcmp(slot(n) + 1, expected.data(), sizeof expected), 0);
    }
    ASSERT_EQ(pool.back(), GUARD) << "written behind the pool";
  }

  std::vector<std::uint32_t> pool;
  char* base = nullptr;
  std::unique_ptr<AVLTree> tree;
  std::vector<unsigned int> slots;
};

TEST_F(TreeTest, AnyOrderOfKeysKeepsTheInvariants) {
  Random random(3);
  const auto key = [&random] {  // of every magnitude, from both ends of the range
    const unsigned int index = random.word() >> random.below(32);
    return random.oneIn(2) ? index : ~index;
  };
  for (unsigned int round = 0; round < 400 && !HasFailure(); ++round) {
    const unsigned int nodes = round == 0 ? 2000 : 1 + round % 30;
    makeTree(nodes);
    std::set<unsigned int> keys;
    while (keys.size() < nodes) {
      const unsigned int index = key();
      Payload payload = {index, ~index};
      if (keys.insert(index).second) {
        tree->insert(index, payload.data());
        slots.push_back(index);
      }
    }
    checkAll();
    for (int i = 0; i < 100; ++i) {
      const unsigned int index = key();
      ASSERT_EQ(tree->find(index) != nullptr, keys.count(index) == 1);
    }
  }
}

TEST(AvlTree, AFullPoolAndADuplicateAreFatal) {
  alignas(4) char pool[3 * (NODE + 84)];
  char data[84] = {};
  for (const unsigned int missing : {0U, 1U}) {
    AVLTree tree(pool, sizeof pool - missing, 81);  // rounded up
    EXPECT_EQ(tree.find(5), nullptr);
    for (unsigned int i = 0; i < 3 - missing; ++i) {
      tree.insert(i, data);
    }
    EXPECT_FATAL(tree.insert(10, data), "MAX_INDEX > next_free_index");
  }
  AVLTree tree(pool, sizeof pool, 0);
  for (const unsigned int index : {5U, 2U, 8U}) {
    tree.insert(index, nullptr);
  }
  EXPECT_FATAL(tree.insert(5, nullptr), "duplicate");
  EXPECT_FATAL(tree.insert(2, nullptr), "duplicate");
  for (const unsigned int paysize : {0xFFFFFFFCU, 0xFFFFFFF9U, 0U - NODE, 0x80000000U}) {
    AVLTree none(pool, sizeof pool, paysize);  // no slot of this size fits
    EXPECT_EQ(none.find(5), nullptr);
    EXPECT_FATAL(none.insert(5, data), "MAX_INDEX > next_free_index");
  }
  EXPECT_FATAL(AVLTree(pool, sizeof pool, 0xFFFFFFFD), "paysize <= 0xFFFFFFFC");
}

}  // namespace
