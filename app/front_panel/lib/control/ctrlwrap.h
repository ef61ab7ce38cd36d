// Control entries: the object behind one variable id and variable index.
//
// CtrlRead and CtrlReadWrite are what the registry (ctrlsys.h), the preset file and the trap device
// see of a control. An application class with behaviour of its own derives from one of them; two
// adapters put a variable manager (varmgr.h) behind the interface. Entries live as long as the
// registry, own nothing and hold no lock: requests are serialised by the application. A get of
// CtrlReadWriteVarMgr refreshes its manager, so it is a change and no reader for another thread:
// CtrlSaved is, and stands for an entry in the table of the preset file. A name that does not fit
// stops the process at construction: it is the key in that file.
#pragma once

#include <mutex>

#include "varmgr.h"

/// A control that can be read.
class CtrlRead {
 public:
  /// `varid`, `ind`: the numbers under which the control is reached, `ind` in the encoded form of
  /// the family's converter. REQUIRES: they have at most 13 decimal digits together.
  CtrlRead(unsigned int varid, unsigned int ind);
  /// Nothing to give back. The entry is in no family that still serves.
  virtual ~CtrlRead() = default;

  /// The variable index.
  virtual unsigned int getIndex() const { return index; }
  /// The text name "CV-<id>-I-<index>", decimal.
  virtual const char* getName() const { return name; }
  /// How the value is carried.
  virtual CTRL_DATA_TYPE getType() const = 0;
  /// Writes the value to the value buffer `buf`, exactly `size` bytes.
  virtual void get(void* buf, unsigned int size) = 0;
  /// Brings the control to its initial state; run once by ctrl_sys_init.
  virtual void init() = 0;

  /// The variable id.
  unsigned int getVarID() const { return varId; }

 protected:
  const unsigned int varId;  ///< what getVarID returns
  const unsigned int index;  ///< what getIndex returns
  char name[20];             ///< what getName returns
};

/// A control that can be changed: validate, set, confirm.
class CtrlReadWrite : public CtrlRead {
 public:
  /// As CtrlRead.
  CtrlReadWrite(unsigned int varid, unsigned int ind) : CtrlRead(varid, ind) {}

  /// Tells whether the `size` bytes in `buf` are an acceptable value. Does not store them.
  virtual bool validate(const void* buf, unsigned int size) const = 0;
  /// Takes the value from `buf`. Returns 0 on success.
  virtual int set(const void* buf, unsigned int size) = 0;
  /// Makes the value of the last set take effect. Returns 0 when it did.
  virtual int confirm() = 0;
};

/// A read-only control on a variable manager.
class CtrlReadVarMgr : public CtrlRead {
 public:
  /// `readvar` outlives the entry.
  CtrlReadVarMgr(unsigned int varid, unsigned int ind, const ReadVarMgr& readvar);

  CTRL_DATA_TYPE getType() const override;
  /// The manager's working value; nothing is refreshed.
  void get(void* buf, unsigned int size) override;
  void init() override {}

 protected:
  const ReadVarMgr& rvar;  ///< the manager
};

/// A read-write control on a variable manager.
class CtrlReadWriteVarMgr : public CtrlReadWrite {
 public:
  /// `readwritevar` outlives the entry.
  CtrlReadWriteVarMgr(unsigned int varid, unsigned int ind, ReadWriteVarMgr& readwritevar);

  CTRL_DATA_TYPE getType() const override;
  /// Refreshes the manager first, so a read can change its working value: after a marked change of
  /// the group it drops a set of this variable that waits for its confirm.
  void get(void* buf, unsigned int size) override;
  void init() override;
  /// Starts the manager's transaction and refreshes it before the check, which drops a waiting set
  /// as get does, also when the new value is then refused; false also when the transaction is
  /// refused. Nothing here or in the registry calls endXaction: a manager with a real transaction
  /// ends it in commit, and takes a start behind a start.
  bool validate(const void* buf, unsigned int size) const override;
  /// Always 0: the manager forces the value into its bounds.
  int set(const void* buf, unsigned int size) override;
  /// Commits if the manager is consistent; 1 if it is not.
  int confirm() override;

 protected:
  ReadWriteVarMgr& rwvar;  ///< the manager
};

/// A control as the preset file sees it: its confirmed value, which its manager publishes to a
/// global of the application. It takes the place of the entry in the table of initPresets.
///
/// get reads the global alone, so that it may run on the preset thread at any time: it neither
/// shows a value that is set and not confirmed nor touches the manager. For that, whoever writes
/// the global holds `guard`: round ctrlDoConfirm, the recall of a setup, an assignment. That is one
/// thread, the one of the requests, which reads without it. set and confirm belong to it as well;
/// they work on the entry.
class CtrlSaved : public CtrlReadWrite {
 public:
  /// `e`: the entry. `confirmed`: the global of its integer or boolean variable. `guard`: a mutex
  /// of the application, one for any number of controls. All are there before this object and
  /// outlive it; the entry's numbers are read here, so that it stands in front of this object in
  /// one file. Nobody holds `guard` when calling what calls this object: initPresets, and of Preset
  /// Save_now, Stop, Var_commit, xml_serialize and Test. The entry's confirm runs with it held, and
  /// takes it no second time.
  /// REQUIRES: `e` is an integer or boolean control; getType, at the latest in initPresets, checks.
  CtrlSaved(CtrlReadWrite& e, const int& confirmed, std::mutex& guard);
  /// A global of another type would be copied here and never looked at again.
  CtrlSaved(CtrlReadWrite& e, const int&& confirmed, std::mutex& guard) = delete;
  /// The first form for a text control; `confirmed` is zero-terminated. REQUIRES: it is not null.
  CtrlSaved(CtrlReadWrite& e, const char* confirmed, std::mutex& guard);

  /// The entry's. REQUIRES: the global is of this kind.
  CTRL_DATA_TYPE getType() const override;
  /// The confirmed value. Any thread; waits for `guard`.
  void get(void* buf, unsigned int size) override;
  /// Does nothing: the registry initialises the entry.
  void init() override {}
  bool validate(const void* buf, unsigned int size) const override;
  int set(const void* buf, unsigned int size) override;
  /// Confirms the entry with `guard` held.
  int confirm() override;

 private:
  CtrlReadWrite& entry;
  const int* const number;
  const char* const text;
  std::mutex& lock;
};
