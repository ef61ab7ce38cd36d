// Control families declared as plain objects, one per member, without registration code.
//
// Each object knows its family's array, dimensions and converter. ctrl_sys_init calls init on the
// objects; the first one of a family clears the array and registers the family, and every one puts
// itself into its place. A place that no member claims is a hole. All members of a family receive
// the same flag (true before start-up), array, dimensions and converter; the application owns
// them, and they live as long as the process. Constructors and init run in the start-up thread;
// afterwards the rules of ctrlsys.h hold. Nothing allocates. Tables that do not fit together stop
// the process: a missing or too small array, a dimension of 0, more than 2 dimensions without a
// converter, an index outside the family, two members in one place.
#pragma once

#include <type_traits>

#include "ctrlsys.h"

/// Product of the `numDim` dimensions, in unsigned 32-bit arithmetic; 1 for none.
/// REQUIRES: `numDim` is 0 or `allDim` is not null.
unsigned int calcSize(const unsigned int* allDim, unsigned int numDim);

/// Checks the `numDim` dimensions at `dim`. Returns if they are usable.
/// REQUIRES: `numDim` is 0, or `dim` is not null and no dimension is 0.
void checkDims(const unsigned int* dim, unsigned int numDim);

/// `conv`, or the stock converter for `numDim` dimensions when `conv` is null.
/// REQUIRES: `conv` is not null or `numDim` is at most 2.
CmdStsIdx2ArrIdxFn checkConv(CmdStsIdx2ArrIdxFn conv, unsigned int numDim);

/// The stock converters by number of dimensions, ended by null.
extern const CmdStsIdx2ArrIdxFn DEFAULT_CONV[4];

/// What a member knows of its family. Entry is CtrlRead or CtrlReadWrite.
template <class Entry>
class CtrlFamily {
  static_assert(std::is_same_v<Entry, CtrlRead> || std::is_same_v<Entry, CtrlReadWrite>,
                "a family holds pointers to CtrlRead or to CtrlReadWrite");

 public:
  /// `id`, `idx`: the member, for the report of a fault. `ainit`: the family's flag. `arr`,
  /// `arrSize`: its array and the capacity in elements. `d`, `nd`: its dimensions, not copied, and
  /// their number; `c`: its converter, or null. What `ainit`, `arr` and `d` refer to outlives this.
  /// REQUIRES: `arr` is not null and holds all members; checkDims and checkConv are content.
  CtrlFamily(unsigned int id, unsigned int idx, bool& ainit, Entry** arr, unsigned int arrSize,
             const unsigned int* d, unsigned int nd, CmdStsIdx2ArrIdxFn c);

  /// Registers the family under `id` if no member has done so, and puts `entry` into the place of
  /// the encoded index `idx`. REQUIRES: that place is inside the family, and free.
  void join(Entry* entry, unsigned int id, unsigned int idx) const;

 private:
  bool& ctrlArrInit;
  Entry** const ctrlArr;
  const unsigned int ctrlArrSize;
  const unsigned int* const dim;
  const unsigned int numDim;
  CmdStsIdx2ArrIdxFn conv;
};

/// A member of a read-only family, on a variable manager.
class SimpleCtrlReadVarMgr : public CtrlReadVarMgr {
 public:
  /// `id`, `idx`: variable id and encoded index. `var` outlives the entry. The rest as CtrlFamily.
  SimpleCtrlReadVarMgr(unsigned int id, unsigned int idx, const ReadVarMgr& var, bool& ainit,
                       CtrlRead** arr, unsigned int arrSize, const unsigned int* d, unsigned int nd,
                       CmdStsIdx2ArrIdxFn c);
  /// Joins the family. Runs once per object.
  void init() override;

 private:
  const CtrlFamily<CtrlRead> ctrl_family_;
};

/// A member of a read-write family, on a variable manager.
class SimpleCtrlReadWriteVarMgr : public CtrlReadWriteVarMgr {
 public:
  /// As SimpleCtrlReadVarMgr.
  SimpleCtrlReadWriteVarMgr(unsigned int id, unsigned int idx, ReadWriteVarMgr& var, bool& ainit,
                            CtrlReadWrite** arr, unsigned int arrSize, const unsigned int* d,
                            unsigned int nd, CmdStsIdx2ArrIdxFn c);
  /// Initialises the variable, then joins the family. Runs once per object.
  void init() override;

 private:
  const CtrlFamily<CtrlReadWrite> ctrl_family_;
};

/// A member of a read-write family that carries out a command: the application's class supplies
/// getType and confirm, and confirm acts on `val`.
class SimpleCtrlCmd : public CtrlReadWrite {
 public:
  /// `b`, `o`: bounds list (null for none) and overflow policy of the value; the rest as
  /// SimpleCtrlReadVarMgr.
  SimpleCtrlCmd(unsigned int id, unsigned int idx, const bounds_t* b, bool& ainit,
                CtrlReadWrite** arr, unsigned int arrSize, const unsigned int* d, unsigned int nd,
                CmdStsIdx2ArrIdxFn c, range_t o);

  /// A command reads as zeros, whatever was set.
  void get(void* buf, unsigned int size) override;
  /// Joins the family. Runs once per object.
  void init() override;
  /// Tells whether the value lies within the bounds, whatever the overflow policy.
  bool validate(const void* buf, unsigned int size) const override;
  /// Stores the value, forced into the bounds, for confirm. Returns 0.
  int set(const void* buf, unsigned int size) override;

  /// Does nothing; free for the application's classes to call at the end of a confirm.
  void endSet() {}
  /// The bounds list; its row count goes to `n`.
  const bounds_t* getBounds(unsigned int& n) const {
    n = numBounds;
    return bounds;
  }

 protected:
  const bounds_t* bounds;  ///< the bounds list, or null
  unsigned int numBounds;  ///< its rows
  int val;                 ///< the value that was set; 0 until the first set

 private:
  const range_t overflow;
  const CtrlFamily<CtrlReadWrite> ctrl_family_;
};
