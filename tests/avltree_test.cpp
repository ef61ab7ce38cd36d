// The index tree: its invariants on every shape, and its refusals.
#include "avltree.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "fatal.h"
#include "random.h"

namespace {

using Node = AVLTree::avl_node;

// A tree over a pool that starts at an address aligned to 4 bytes and no more, with guard bytes
// behind it. Slots are read straight from the pool, as the layout promises.
class TreeTest : public testing::Test {
 protected:
  static constexpr unsigned int PAYLOAD = 8;
  static constexpr unsigned int SLOT = PAYLOAD + static_cast<unsigned int>(AVLTree::NODE_SIZE);
  static constexpr unsigned int GUARD = 64;

  void makeTree(unsigned int nodes) {
    pool.assign((nodes * SLOT + GUARD) / 4 + 3, 0xA5A5A5A5);
    // Off the alignment of 8, so that links of 64 bits would be misaligned if they were plain.
    base = reinterpret_cast<char*>(pool.data());
    base += reinterpret_cast<std::uintptr_t>(base) % 8 == 0 ? 4 : 0;
    tree = std::make_unique<AVLTree>(base, nodes * SLOT, PAYLOAD);
  }

  void insert(unsigned int index) {
    unsigned char payload[PAYLOAD];
    payloadOf(index, payload);
    tree->insert(index, payload);
    slots.push_back(index);
  }

  static void payloadOf(unsigned int index, unsigned char* payload) {
    for (unsigned int i = 0; i < PAYLOAD; ++i) {
      payload[i] = static_cast<unsigned char>((index >> (i % 4 * 8)) + i);
    }
  }

  Node* slot(std::size_t n) { return reinterpret_cast<Node*>(base + n * SLOT); }

  Node* nodeOf(unsigned int index) {
    const auto at = std::find(slots.begin(), slots.end(), index);
    return slot(static_cast<std::size_t>(at - slots.begin()));
  }

  Node* root() {
    Node* node = slot(0);
    while (node->parent != nullptr) {
      node = node->parent;
    }
    return node;
  }

  // Checks a subtree against every invariant and returns its height.
  int check(Node* node, Node* parent, std::uint64_t low, std::uint64_t high, std::size_t& count) {
    if (node == nullptr) {
      return -1;
    }
    ++count;
    EXPECT_TRUE(node->parent ==
                parent);  // compared by value: a link may not be bound to a reference
    EXPECT_GE(node->index, low);
    EXPECT_LT(node->index, high);
    const int left = check(node->left, node, low, node->index, count);
    const int right = check(node->right, node, node->index + std::uint64_t{1}, high, count);
    EXPECT_EQ(node->height, 1 + std::max(left, right));
    EXPECT_LE(std::abs(left - right), 1);
    return node->height;
  }

  void checkAll() {
    std::size_t count = 0;
    check(root(), nullptr, 0, std::uint64_t{1} << 32, count);
    EXPECT_EQ(count, slots.size());
    for (std::size_t n = 0; n < slots.size(); ++n) {
      ASSERT_EQ(slot(n)->index, slots[n]) << "slots are taken in order";
      unsigned char expected[PAYLOAD];
      payloadOf(slots[n], expected);
      const void* const found = tree->find(slots[n]);
      ASSERT_EQ(found, base + n * SLOT + AVLTree::NODE_SIZE) << "nodes never move";
      ASSERT_EQ(std::memcmp(found, expected, PAYLOAD), 0);
    }
    const char* const end = reinterpret_cast<const char*>(pool.data() + pool.size());
    for (const char* guard = base + slots.size() * SLOT; guard < end; ++guard) {
      ASSERT_EQ(static_cast<unsigned char>(*guard), 0xA5) << "the rest of the pool is untouched";
    }
  }

  std::vector<std::uint32_t> pool;
  char* base = nullptr;
  std::unique_ptr<AVLTree> tree;
  std::vector<unsigned int> slots;
};

TEST_F(TreeTest, EveryOrderOfSevenKeysStaysBalanced) {
  std::vector<unsigned int> order = {1, 2, 3, 4, 5, 6, 7};
  do {
    makeTree(7);
    slots.clear();
    for (const unsigned int index : order) {
      insert(index);
    }
    checkAll();
    ASSERT_LE(root()->height, 3);
  } while (std::next_permutation(order.begin(), order.end()) && !HasFailure());
}

TEST_F(TreeTest, RandomKeysOverTheWholeRangeAreFoundAndOthersAreNot) {
  Random random(3);
  makeTree(2000);
  std::map<unsigned int, bool> model;
  for (const unsigned int index : {0U, 0xFFFFFFFFU, 0x7FFFFFFFU, 0x80000000U}) {
    insert(index);
    model[index] = true;
  }
  while (slots.size() < 2000) {
    const unsigned int index = random.word() >> (random.below(20));
    if (!model[index]) {
      model[index] = true;
      insert(index);
    }
  }
  checkAll();
  for (int i = 0; i < 20000; ++i) {
    const unsigned int index = random.word() >> (random.below(20));
    ASSERT_EQ(tree->find(index) != nullptr, model.count(index) == 1 && model[index]);
  }
}

TEST_F(TreeTest, AscendingKeysGiveTheMinimalHeight) {
  makeTree(1023);
  for (unsigned int index = 1; index <= 1023; ++index) {
    insert(index);
  }
  checkAll();
  EXPECT_EQ(root()->index, 512U);
  EXPECT_EQ(root()->height, 9);
  EXPECT_EQ(nodeOf(1)->height, 0);
}

TEST(AvlTree, SizesFollowThePoolAndThePayload) {
  constexpr unsigned int NODE = static_cast<unsigned int>(AVLTree::NODE_SIZE);
  EXPECT_EQ(NODE, 3 * sizeof(void*) + 8);
  struct {
    unsigned int payload, rounded, bytesMissing;
  } const cases[] = {{80, 80, 0}, {81, 84, 0}, {84, 84, 0}, {80, 80, 1}, {0, 0, 0}};
  for (const auto& c : cases) {
    alignas(4) char pool[2048] = {};
    char data[84] = {};
    const unsigned int size = 10 * (NODE + c.rounded) - c.bytesMissing;
    AVLTree tree(pool, size, c.payload);
    EXPECT_EQ(tree.find(5), nullptr);
    const unsigned int room = c.bytesMissing == 0 ? 10 : 9;
    for (unsigned int i = 0; i < room; ++i) {
      tree.insert(i, data);
    }
    EXPECT_FATAL(tree.insert(room, data), "MAX_INDEX > next_free_index");
  }
}

TEST(AvlTreeDeathTest, ADuplicateIsFatalAtTheRootAndBelow) {
  alignas(4) char pool[1024] = {};
  AVLTree tree(pool, sizeof pool, 0);
  for (const unsigned int index : {5U, 2U, 8U, 1U}) {
    tree.insert(index, nullptr);
  }
  EXPECT_FATAL(tree.insert(5, nullptr), "duplicate");
  EXPECT_FATAL(tree.insert(1, nullptr), "duplicate");
}

}  // namespace
