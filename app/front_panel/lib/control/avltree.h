// An ordered map from an unsigned 32-bit index to a fixed-size payload, in a pool of the caller.
//
// A height-balanced (AVL) binary search tree; nothing is allocated, nodes are never removed and
// never move. The caller owns the pool, aligns it to 4 bytes and leaves it alone. Inserts run in
// one thread at start-up; afterwards any number of threads may call find. A full pool and a second
// insert of one index stop the process. Invariants: (1) a node's height is 1 + the greater of its
// children's, a null child counting as -1, and the two differ by at most 1; (2) indices to the
// left of a node are below its own, to the right above; (3) indices are unique.
#pragma once

/// The tree. Its pool outlives it, and it the registry that was given its address, the process.
/// It is not copied: two trees would take slots of one pool.
class AVLTree {
 public:
  struct avl_node;
  /// A pointer to a node, aligned to 4 bytes on every host: slots are a multiple of 4 long, so
  /// with 64-bit pointers every second header would otherwise be misaligned.
  typedef avl_node* link_t __attribute__((aligned(4)));

  /// The header of a node; its payload stands directly behind it.
  struct avl_node {
    link_t left;         ///< subtree of the smaller indices, or null
    link_t right;        ///< subtree of the larger indices, or null
    link_t parent;       ///< null at the root
    int height;          ///< 0 for a leaf
    unsigned int index;  ///< the key
  };

  /// Bytes of a node's header; a node takes NODE_SIZE plus the rounded payload size of the pool.
  static constexpr int NODE_SIZE = sizeof(avl_node);

  /// Makes an empty tree over the pool `buf` of `bufsize` bytes, for payloads of `paysize` bytes,
  /// rounded up to a multiple of 4. Neither reads nor clears the pool.
  /// REQUIRES: the rounded size is a 32-bit number: `paysize` is at most 0xFFFFFFFC.
  AVLTree(char* buf, unsigned int bufsize, unsigned int paysize);
  AVLTree(const AVLTree&) = delete;
  AVLTree& operator=(const AVLTree&) = delete;
  /// Leaves the pool as it is.
  virtual ~AVLTree() = default;

  /// Adds a node and copies the rounded payload size from `data`. O(log n), no recursion.
  /// REQUIRES: the pool has a free slot and `index` is not in the tree.
  void insert(unsigned int index, void* data);

  /// The payload of `index`, inside the pool and aligned to 4 bytes, or null when `index` is not
  /// in the tree. The caller may change the payload.
  void* find(unsigned int index);

 private:
  static long height(avl_node* node);
  static long max(long a, long b);
  static void updateHeight(avl_node* node);
  static void s_rotate_left(link_t* old_root_in);
  static void s_rotate_right(link_t* old_root_in);
  static void d_rotate_left(link_t* old_root);
  static void d_rotate_right(link_t* old_root);
  link_t* linkTo(avl_node* node);
  void rebalance(avl_node* node, unsigned int index);

  link_t root = nullptr;
  const unsigned int PAY_SIZE;
  const unsigned int MAX_INDEX;
  unsigned int next_free_index = 0;
  char* const node_array;
};
