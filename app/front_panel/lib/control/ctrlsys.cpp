#include "ctrlsys.h"

#include <cstdio>
#include <cstring>

#include "debug.h"

static_assert(sizeof(ReadWriteNode) == sizeof(ReadNode), "both trees have one payload size");
static_assert(sizeof(ReadWriteNode) % 4 == 0, "the payload is copied whole, without rounding");
static_assert(alignof(ReadWriteNode) <= 4 && alignof(ReadNode) <= 4,
              "payloads are aligned to 4 bytes only");

namespace {

AVLTree* rwTree = nullptr;
AVLTree* readTree = nullptr;
CtrlReadWrite** ctrlConfirmArray = nullptr;
unsigned int ctrlConfirmSize = 0;
unsigned int confirm_index = 0;
unsigned int confirm_next = 0;  // the place that the pass of ctrlDoConfirm comes to next
unsigned int confirm_round = 0;

// What a lookup of an id and an index came to.
enum Stop {
  FOUND,      // an entry with this id and index
  NO_FAMILY,  // the id is not in the tree
  OUTSIDE,    // the subscript is outside the family
  HOLE,       // no entry at this place
  MISMATCH,   // the entry at this place has another id or index
};

template <class Entry>
struct Lookup {
  Stop stop;
  Entry* entry;
};

// Whether a stock converter is the one for this number of dimensions.
bool suits(CmdStsIdx2ArrIdxFn conv, unsigned int ndim) {
  return conv == cmd_sts_idx_conv0D   ? ndim == 0
         : conv == cmd_sts_idx_conv1D ? ndim == 1
                                      : conv != cmd_sts_idx_conv2D || ndim == 2;
}

// The steps that every request takes from the numbers to the entry. Node and Entry are
// ReadWriteNode and CtrlReadWrite, or ReadNode and CtrlRead.
template <class Node, class Entry>
Lookup<Entry> lookup(AVLTree* tree, unsigned int varid, unsigned int varidx) {
  CTRL_ASSERT_ABOUT(tree != nullptr, AssertSubject::CONTROL, varid, varidx);
  const Node* const node = static_cast<const Node*>(tree->find(varid));
  if (node == nullptr) {
    return {NO_FAMILY, nullptr};
  }
  const CmdStsIdx2ArrIdxFn conv = node->desc.conv;
  Entry* const* const ctrlarr = node->ctrlarr;
  CTRL_ASSERT_ABOUT(conv != nullptr, AssertSubject::CONTROL, varid, varidx);
  CTRL_ASSERT_ABOUT(ctrlarr != nullptr, AssertSubject::CONTROL, varid, varidx);
  if (!suits(conv, node->desc.ndim)) {
    const AssertSubject about(AssertSubject::CONTROL, varid, varidx);
    conv(varidx, node->desc.dim, node->desc.ndim);  // stops the process
  }
  const unsigned int k = conv(varidx, node->desc.dim, node->desc.ndim);
  if (k >= node->desc.arrSize) {
    return {OUTSIDE, nullptr};
  }
  Entry* const entry = ctrlarr[k];
  if (entry == nullptr) {
    return {HOLE, nullptr};
  }
  if (entry->getVarID() != varid || entry->getIndex() != varidx) {
    return {MISMATCH, nullptr};
  }
  return {FOUND, entry};
}

template <class Node, class Entry>
void registerFamily(AVLTree* tree, unsigned int varId, const unsigned int* dim, unsigned int ndim,
                    CmdStsIdx2ArrIdxFn conv, Entry* const* array) {
  const AssertSubject about(AssertSubject::FAMILY, varId);
  CTRL_ASSERT(ndim <= MAX_CTRL_DIMS);
  CTRL_ASSERT(conv != nullptr);
  CTRL_ASSERT(array != nullptr);
  CTRL_ASSERT(tree != nullptr);
  CTRL_ASSERT(ndim == 0 || dim != nullptr);
  Node node{};
  node.desc.arrSize = 1;
  for (unsigned int i = 0; i < ndim; ++i) {
    node.desc.dim[i] = dim[i];
    node.desc.arrSize *= dim[i];
  }
  node.desc.ndim = ndim;
  node.desc.conv = conv;
  node.ctrlarr = array;
  tree->insert(varId, &node);
}

// Picks the shape of a family of up to two dimensions.
template <class Node, class Entry>
void registerFamily(AVLTree* tree, unsigned int varId, unsigned int dim1, unsigned int dim2,
                    Entry* const* array) {
  unsigned int dim[2];
  unsigned int ndim = 0;
  if (dim1 != 0 && dim2 != 0) {
    if (dim1 > 1) {
      dim[ndim++] = dim1;
    }
    if (dim2 > 1) {
      dim[ndim++] = dim2;
    }
  }
  static constexpr CmdStsIdx2ArrIdxFn STOCK[] = {cmd_sts_idx_conv0D, cmd_sts_idx_conv1D,
                                                 cmd_sts_idx_conv2D};
  registerFamily<Node>(tree, varId, dim, ndim, STOCK[ndim], array);
}

}  // namespace

unsigned int cmd_sts_idx_conv0D(unsigned int, const unsigned int*, unsigned int ndim) {
  CTRL_ASSERT(ndim == 0);
  return 0;
}

unsigned int cmd_sts_idx_conv1D(unsigned int idx, const unsigned int* dim, unsigned int ndim) {
  CTRL_ASSERT(dim != nullptr);
  CTRL_ASSERT(ndim == 1);
  return idx;
}

unsigned int cmd_sts_idx_conv2D(unsigned int idx, const unsigned int* dim, unsigned int ndim) {
  CTRL_ASSERT(dim != nullptr);
  CTRL_ASSERT(ndim == 2);
  return (idx & 0xFF) * dim[1] + ((idx >> 8) & 0xFF);
}

void ctrl_sys_init(AVLTree* rw, AVLTree* r, CtrlReadWrite** rwArray, CtrlRead** rArray,
                   CtrlReadWrite** confirmArray, unsigned int confirmSize, void*, unsigned int,
                   upgradePrepareFn_t, upgradeFinishFn_t, rebootPrepareFn_t, isAppFileValidFn_t,
                   char*, char*) {
  CTRL_ASSERT(rwArray != nullptr);
  CTRL_ASSERT(rArray != nullptr);
  CTRL_ASSERT(confirmArray != nullptr || confirmSize == 0);
  rwTree = rw;
  readTree = r;
  ctrlConfirmArray = confirmArray;
  ctrlConfirmSize = confirmSize;
  for (; *rArray != nullptr; ++rArray) {
    (*rArray)->init();
  }
  for (; *rwArray != nullptr; ++rwArray) {
    (*rwArray)->init();
  }
}

void ctrl_register_rw(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                      CmdStsIdx2ArrIdxFn conv, CtrlReadWrite* const* array) {
  registerFamily<ReadWriteNode>(rwTree, varId, dim, ndim, conv, array);
}

void ctrl_register_rw(unsigned int varId, unsigned int dim1, unsigned int dim2,
                      CtrlReadWrite* const* array) {
  registerFamily<ReadWriteNode>(rwTree, varId, dim1, dim2, array);
}

void ctrl_register_read(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                        CmdStsIdx2ArrIdxFn conv, CtrlRead* const* array) {
  registerFamily<ReadNode>(readTree, varId, dim, ndim, conv, array);
}

void ctrl_register_read(unsigned int varId, unsigned int dim1, unsigned int dim2,
                        CtrlRead* const* array) {
  registerFamily<ReadNode>(readTree, varId, dim1, dim2, array);
}

int ctrlDoGet(unsigned int varid, unsigned int varidx, unsigned int length, void* buffer) {
  const Lookup<CtrlRead> read = lookup<ReadNode, CtrlRead>(readTree, varid, varidx);
  Stop stop = read.stop;
  CtrlRead* entry = read.entry;
  if (stop == NO_FAMILY) {
    const Lookup<CtrlReadWrite> rw = lookup<ReadWriteNode, CtrlReadWrite>(rwTree, varid, varidx);
    stop = rw.stop;
    entry = rw.entry;
  }
  if (stop == FOUND) {
    entry->get(buffer, length);
    return CTRL_ERR_SUCCESS;
  }
  if (stop == HOLE) {
    if (length > 0) {
      std::memset(buffer, 0, length);
    }
    return CTRL_ERR_SUCCESS;
  }
  return CTRL_ERR_PARAM;
}

CtrlReadWrite* ctrlGetRWEntry(unsigned int varid, unsigned int varidx) {
  const Lookup<CtrlReadWrite> found = lookup<ReadWriteNode, CtrlReadWrite>(rwTree, varid, varidx);
  switch (found.stop) {
    case NO_FAMILY:
      std::puts("varid not found");
      break;
    case OUTSIDE:
      std::puts("subscript out of range rwn");
      break;
    case HOLE:
      std::puts("var null");
      break;
    case MISMATCH:
    case FOUND:
      break;
  }
  return found.entry;
}

int ctrlDoValidateSet(unsigned int varid, unsigned int varidx, const void* data,
                      unsigned int length) {
  CtrlReadWrite* const entry = ctrlGetRWEntry(varid, varidx);
  if (entry == nullptr) {
    std::printf("WARNING:Can't find varid=%d, varidx=%d\n", static_cast<int>(varid),
                static_cast<int>(varidx));
    return CTRL_ERR_PARAM;
  }
  if (!entry->validate(data, length)) {
    // The data carries no terminator; the precision keeps printf inside its `length` bytes.
    const char* const text = data == nullptr ? "" : static_cast<const char*>(data);
    std::printf("\nWARNING: Invalid length=%d, data=%.*s\n", static_cast<int>(length),
                static_cast<int>(length & 0x7FFFFFFF), text);
    return CTRL_ERR_PARAM;
  }
  if (confirm_index >= ctrlConfirmSize) {
    return CTRL_ERR_NOBUFFER;
  }
  generic_set(data, length, *entry);
  return CTRL_ERR_SUCCESS;
}

int generic_set(const void* data, unsigned int len, CtrlReadWrite& vmgr) {
  CTRL_ASSERT_ABOUT(confirm_index < ctrlConfirmSize, AssertSubject::CONTROL, vmgr.getVarID(),
                    vmgr.getIndex());
  ctrlConfirmArray[confirm_index++] = &vmgr;
  return vmgr.set(data, len);
}

int ctrlDoConfirm() {
  // A confirm may queue further entries; they are confirmed in the same pass.
  for (confirm_next = 0; confirm_next < confirm_index;) {
    ctrlConfirmArray[confirm_next++]->confirm();
  }
  ctrlDoCancel();
  return CTRL_ERR_SUCCESS;
}

unsigned int ctrlWaiting() {
  return confirm_index;
}

unsigned int ctrlDoCancel() {
  const unsigned int count = confirm_index;
  confirm_index = 0;
  confirm_next = 0;
  ++confirm_round;
  return count;
}

unsigned int ctrlRound() {
  return confirm_round;
}

bool ctrlDoCancel(const CtrlReadWrite& entry) {
  unsigned int kept = 0;
  unsigned int next = confirm_next;
  for (unsigned int i = 0; i < confirm_index; ++i) {
    if (ctrlConfirmArray[i] != &entry) {
      ctrlConfirmArray[kept++] = ctrlConfirmArray[i];
    } else if (i < confirm_next) {
      --next;
    }
  }
  const bool found = kept < confirm_index;
  confirm_index = kept;
  confirm_next = next;
  return found;
}
