// The control registry: reads, validates, sets and confirms controls by number.
//
// A variable id names a family; a variable index, in the encoded form of the family's converter,
// one of its members. A request reaches an entry only if the entry stores exactly its id and index.
// The registry, one per process, owns nothing: trees, pools, arrays, queue and entries are the
// application's and live as long as the process. Start-up runs in one thread: ctrl_sys_init,
// registrations, then requests, which take no lock: the application serialises them. No request
// allocates. Faults of the application's tables stop the process; requests are only ever refused.
#pragma once

#include "avltree.h"
#include "ctrlwrap.h"

// Results of the requests.
constexpr int CTRL_ERR_SUCCESS = 0;    ///< done
constexpr int CTRL_ERR_BADVALUE = -1;  ///< part of the interface; not returned
constexpr int CTRL_ERR_NOBUFFER = -2;  ///< the confirm queue is full
constexpr int CTRL_ERR_PARAM = -3;     ///< the request is refused
constexpr int CTRL_ERR_GENERIC = -4;   ///< part of the interface; not returned

/// The most dimensions that a family can have.
constexpr unsigned int MAX_CTRL_DIMS = 16;

/// A family's converter: turns the variable index `idx` into a subscript of the family's array.
/// `dim` holds the family's `ndim` dimensions. It needs no range check of its own.
typedef unsigned int (*CmdStsIdx2ArrIdxFn)(unsigned int idx, const unsigned int* dim,
                                           unsigned int ndim);

/// Converter of a scalar: every index is subscript 0. REQUIRES: `ndim` is 0.
unsigned int cmd_sts_idx_conv0D(unsigned int idx, const unsigned int* dim, unsigned int ndim);
/// Converter of a one-dimensional family: the index is the subscript.
/// REQUIRES: `ndim` is 1 and `dim` is not null.
unsigned int cmd_sts_idx_conv1D(unsigned int idx, const unsigned int* dim, unsigned int ndim);
/// Converter of a two-dimensional family: bits 0 to 7 are the first subscript, bits 8 to 15 the
/// second. At most 256 positions per dimension. REQUIRES: `ndim` is 2 and `dim` is not null.
unsigned int cmd_sts_idx_conv2D(unsigned int idx, const unsigned int* dim, unsigned int ndim);

// Payloads stand in a pool that is aligned to 4 bytes, on hosts with wider pointers too. These
// types let the compiler know it.
typedef CmdStsIdx2ArrIdxFn CtrlConvField __attribute__((aligned(4)));
typedef CtrlReadWrite* const* CtrlRWArrayField __attribute__((aligned(4)));
typedef CtrlRead* const* CtrlReadArrayField __attribute__((aligned(4)));

/// The description of a family.
struct CtrlRWNode {
  unsigned int dim[MAX_CTRL_DIMS];  ///< only the first `ndim` are meaningful
  unsigned int ndim;                ///< number of dimensions
  CtrlConvField conv;               ///< never null
  unsigned int arrSize;             ///< product of the dimensions; 1 when `ndim` is 0
};

/// Payload of the read-write tree. The application constructs that tree with its size.
struct ReadWriteNode {
  CtrlRWNode desc;           ///< the family's shape
  CtrlRWArrayField ctrlarr;  ///< the application's array; a null element is a hole
};

/// Payload of the read tree. The application constructs that tree with its size.
struct ReadNode {
  CtrlRWNode desc;             ///< the family's shape
  CtrlReadArrayField ctrlarr;  ///< as in ReadWriteNode
};

/// Preparation of an upgrade.
typedef void (*upgradePrepareFn_t)();
/// End of an upgrade.
typedef void (*upgradeFinishFn_t)();
/// Preparation of a reboot.
typedef bool (*rebootPrepareFn_t)();
/// Validity check of an application file of `size` bytes.
typedef bool (*isAppFileValidFn_t)(const void* data, unsigned int size);

/// Starts the registry: stores the trees and the confirm queue, then runs init on every entry of
/// `rArray` and of `rwArray`, both ended by a null pointer. An entry may register its family from
/// inside its init.
/// `rw`, `r`: the read-write tree and the read tree; one may be null as long as nobody registers a
/// family in it or asks for one. `confirmArray`, `confirmSize`: the confirm queue and its capacity,
/// the number of sets that may wait for one ctrlDoConfirm. Trees, queue and entries are kept by
/// address; the two arrays are only walked. The arguments from `appBuf` on are accepted and not
/// used.
/// REQUIRES: `rwArray` and `rArray` are not null; nor is `confirmArray`, unless the size is 0.
void ctrl_sys_init(AVLTree* rw, AVLTree* r, CtrlReadWrite** rwArray, CtrlRead** rArray,
                   CtrlReadWrite** confirmArray, unsigned int confirmSize, void* appBuf,
                   unsigned int appBufSize, upgradePrepareFn_t pu, upgradeFinishFn_t fu,
                   rebootPrepareFn_t pr, isAppFileValidFn_t vf, char* qrnt_prodname,
                   char* ostrand_prodfamily);

/// Registers a read-write family of any number of dimensions with any converter. `dim` is copied
/// and may be null when `ndim` is 0; `array` is kept by address, and so are the entries in it. A
/// stock converter for another number of dimensions stops the process at the first request.
/// REQUIRES: ctrl_sys_init has run; `ndim` is at most MAX_CTRL_DIMS; `conv`, `array` and, above
/// `ndim` 0, `dim` are not null; the tree has room and does not hold `varId` yet.
void ctrl_register_rw(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                      CmdStsIdx2ArrIdxFn conv, CtrlReadWrite* const* array);
/// Registers a read-write family of up to two dimensions with a stock converter. A dimension of 1
/// drops out; a 0 in either place makes the family a scalar. REQUIRES as above.
void ctrl_register_rw(unsigned int varId, unsigned int dim1, unsigned int dim2,
                      CtrlReadWrite* const* array);
/// The same for a read-only family.
void ctrl_register_read(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                        CmdStsIdx2ArrIdxFn conv, CtrlRead* const* array);
/// The same for a read-only family of up to two dimensions.
void ctrl_register_read(unsigned int varId, unsigned int dim1, unsigned int dim2,
                        CtrlRead* const* array);

/// Reads a control into the value buffer `buffer` of `length` bytes, looking at read-only families
/// first. A hole reads as zeros. Returns CTRL_ERR_SUCCESS, or CTRL_ERR_PARAM with `buffer`
/// untouched. A read of a read-write variable refreshes it, as a check does: ctrlDoValidateSet.
/// REQUIRES: ctrl_sys_init has run.
int ctrlDoGet(unsigned int varid, unsigned int varidx, unsigned int length, void* buffer);

/// The read-write entry of a pair, or null; why is printed on standard output, unless the entry
/// found there stores another id or index. REQUIRES: ctrl_sys_init has run.
CtrlReadWrite* ctrlGetRWEntry(unsigned int varid, unsigned int varidx);

/// Validates the `length` bytes at `data`, queues the entry for confirmation and sets it. Returns
/// CTRL_ERR_SUCCESS; CTRL_ERR_PARAM, with a warning printed, when there is no such control or the
/// value is not acceptable; CTRL_ERR_NOBUFFER when the confirm queue is full. A refused set stores
/// nothing and leaves the earlier sets queued. But its check, as that of every set, runs the
/// entry's validate: a variable refreshes itself there, and when its group has been marked since,
/// an earlier set of the same variable that is still queued gives way to the global's value, which
/// its confirm then publishes. REQUIRES: ctrl_sys_init has run.
int ctrlDoValidateSet(unsigned int varid, unsigned int varidx, const void* data,
                      unsigned int length);

/// Queues `vmgr` for confirmation and sets it, without validation. Returns what its set returns.
/// REQUIRES: the confirm queue has room.
int generic_set(const void* data, unsigned int len, CtrlReadWrite& vmgr);

/// Calls confirm on every entry set since the last call, in the order of the sets, an entry that
/// was set twice twice. An entry whose confirm fails does not stop the others. Returns
/// CTRL_ERR_SUCCESS.
/// A confirm of the application may set further controls, which are confirmed in the same pass. It
/// does not read or check controls that wait in the queue: on a variable that is a refresh, and the
/// commits in front of it have marked the group, so that the waiting value would be dropped. Nor
/// does it call ctrlDoConfirm, which would begin with the first entry again, itself included.
int ctrlDoConfirm();

/// Places of the confirm queue that are taken: sets that wait for ctrlDoConfirm.
unsigned int ctrlWaiting();

/// Empties the confirm queue, and no entry is confirmed: nothing of the waiting sets is published.
/// What was set stays in the entries until their next set or refresh. Returns how many places were
/// taken.
unsigned int ctrlDoCancel();

/// Counts how often ctrlDoConfirm and ctrlDoCancel have emptied the queue: a set that was made in
/// an earlier round does not wait any more.
unsigned int ctrlRound();

/// Takes `entry` out of the confirm queue, all places that it has there; the others keep their
/// order. False when it had none. May be called from inside a confirm.
bool ctrlDoCancel(const CtrlReadWrite& entry);
