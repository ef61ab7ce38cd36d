#include "avltree.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "debug.h"

static_assert(sizeof(AVLTree::avl_node) == 3 * sizeof(void*) + 8, "a header without padding");
static_assert(alignof(AVLTree::avl_node) <= 4, "slots are aligned to 4 bytes only");

namespace {

// The next multiple of 4 has to be a 32-bit number as well.
unsigned int rounded(unsigned int paysize) {
  CTRL_ASSERT(paysize <= 0xFFFFFFFC);
  return (paysize + 3) & ~3U;
}

// Bytes of a slot: with the largest payloads more than 32 bits hold.
std::uint64_t slotSize(unsigned int payload) {
  return std::uint64_t{AVLTree::NODE_SIZE} + payload;
}

}  // namespace

AVLTree::AVLTree(char* buf, unsigned int bufsize, unsigned int paysize)
    : PAY_SIZE(rounded(paysize)),
      MAX_INDEX(static_cast<unsigned int>(bufsize / slotSize(PAY_SIZE))),
      node_array(buf) {}

long AVLTree::height(avl_node* node) {
  return node == nullptr ? -1 : node->height;
}

long AVLTree::max(long a, long b) {
  return a > b ? a : b;
}

void AVLTree::updateHeight(avl_node* node) {
  node->height = static_cast<int>(1 + max(height(node->left), height(node->right)));
}

// Single rotation with the left child: the left child becomes the root of the subtree.
void AVLTree::s_rotate_left(link_t* old_root_in) {
  avl_node* const old_root = *old_root_in;
  CTRL_ASSERT(old_root != nullptr);
  avl_node* const new_root = old_root->left;
  CTRL_ASSERT(new_root != nullptr);
  new_root->parent = old_root->parent;
  old_root->left = new_root->right;
  if (old_root->left != nullptr) {
    old_root->left->parent = old_root;
  }
  new_root->right = old_root;
  old_root->parent = new_root;
  updateHeight(old_root);
  updateHeight(new_root);
  *old_root_in = new_root;
}

// Single rotation with the right child: the mirror image of s_rotate_left.
void AVLTree::s_rotate_right(link_t* old_root_in) {
  avl_node* const old_root = *old_root_in;
  CTRL_ASSERT(old_root != nullptr);
  avl_node* const new_root = old_root->right;
  CTRL_ASSERT(new_root != nullptr);
  new_root->parent = old_root->parent;
  old_root->right = new_root->left;
  if (old_root->right != nullptr) {
    old_root->right->parent = old_root;
  }
  new_root->left = old_root;
  old_root->parent = new_root;
  updateHeight(old_root);
  updateHeight(new_root);
  *old_root_in = new_root;
}

// Double rotation with the left child: that child's right child becomes the root of the subtree.
void AVLTree::d_rotate_left(link_t* old_root) {
  CTRL_ASSERT(*old_root != nullptr);
  s_rotate_right(&(*old_root)->left);
  s_rotate_left(old_root);
}

void AVLTree::d_rotate_right(link_t* old_root) {
  CTRL_ASSERT(*old_root != nullptr);
  s_rotate_left(&(*old_root)->right);
  s_rotate_right(old_root);
}

// The link that points at `node`; the side is found by the keys, for nodes do not record it.
AVLTree::link_t* AVLTree::linkTo(avl_node* node) {
  avl_node* const parent = node->parent;
  if (parent == nullptr) {
    return &root;
  }
  return node->index < parent->index ? &parent->left : &parent->right;
}

// Restores invariant (1) from `node` up to the root, after `index` was added below it.
void AVLTree::rebalance(avl_node* node, unsigned int index) {
  while (node != nullptr) {
    avl_node* const parent = node->parent;
    link_t* const link = linkTo(node);
    const long lean = height(node->left) - height(node->right);
    if (index < node->index && lean == 2) {
      if (index < node->left->index) {
        s_rotate_left(link);
      } else {
        d_rotate_left(link);
      }
    } else if (index > node->index && lean == -2) {
      if (index > node->right->index) {
        s_rotate_right(link);
      } else {
        d_rotate_right(link);
      }
    } else {
      updateHeight(node);
    }
    node = parent;
  }
}

void AVLTree::insert(unsigned int index, void* data) {
  avl_node* parent = nullptr;
  link_t* link = &root;
  bool duplicate = false;
  while (*link != nullptr) {
    parent = *link;
    duplicate = duplicate || index == parent->index;
    link = index < parent->index ? &parent->left : &parent->right;
  }
  CTRL_ASSERT(MAX_INDEX > next_free_index);
  CTRL_ASSERT(!duplicate);

  char* const slot = node_array + static_cast<std::size_t>(next_free_index * slotSize(PAY_SIZE));
  ++next_free_index;
  if (PAY_SIZE > 0) {
    std::memcpy(slot + NODE_SIZE, data, PAY_SIZE);
  }
  *link = new (slot) avl_node{nullptr, nullptr, parent, 0, index};
  rebalance(parent, index);
}

void* AVLTree::find(unsigned int index) {
  avl_node* node = root;
  while (node != nullptr && node->index != index) {
    node = index < node->index ? node->left : node->right;
  }
  return node == nullptr ? nullptr : reinterpret_cast<char*>(node) + NODE_SIZE;
}
