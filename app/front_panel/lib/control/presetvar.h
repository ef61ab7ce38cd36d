// Preset fields: how one entry of a preset image is packed, unpacked and made effective.
//
// Mind the direction of the words: set sets the image from the variable, get gets the variable
// from the image. A change from an image has three steps over the whole list: get (or reset) begins
// the variable's transaction and stages the value, commit publishes it, endCommit ends the
// transaction. An image has no tags or lengths, so a field takes the same number of bits each time.
//
// The application owns fields and variables; a variable outlives its field. Nothing allocates,
// prints or locks: one thread at a time. A broken cursor (bitmanip.h) is a fatal assertion.
#pragma once

#include "varmgr.h"

class PresetRecallField;

/// One entry of a preset image. `buf` and `startBit` are the cursor of bitmanip.h, and `bufSize` is
/// the room in bits that is left at the call.
class PresetField {
 public:
  /// Nothing to give back. The field is in no list that is still used.
  virtual ~PresetField() = default;

  /// Prepares the field. Runs once, before set and get.
  virtual void init() {}
  /// Begins a change and stages the initial value. 0 when staged, 1 when the change was refused.
  virtual int reset() = 0;
  /// Writes the field to the stream. The bits that it took, or -1: no room.
  virtual int set(void** buf, unsigned int bufSize, unsigned int& startBit) = 0;
  /// Begins a change and stages the value read from the stream. The bits that the field took, or
  /// -1: no room, or -2: the change was refused.
  virtual int get(void** buf, unsigned int bufSize, unsigned int& startBit) = 0;
  /// Publishes the staged value if it is consistent. 0 when published, 1 when not.
  virtual int commit() const = 0;
  /// Ends the change, whatever went before.
  virtual void endCommit() = 0;

  /// What a recall needs besides, or null: a field class that has it overrides this. The name is
  /// one that no class uses for anything else.
  virtual PresetRecallField* preset_recall_field_() { return nullptr; }
};

/// What recallPreset (presetrecall.h) needs of a field besides get, reset and endCommit. A field
/// class has all of it, as a second base, or none of it: the fields of the library do, and a class
/// of the application that does not takes part in everything else.
class PresetRecallField {
 public:
  /// The bits that get takes, in every image. Valid after init.
  virtual unsigned int recallWidth() const = 0;
  /// The bytes of undo memory that recallKeep fills.
  virtual unsigned int recallUndoSize() const { return 0; }
  /// Brings the variable up to date and notes its value, in the field itself or in the
  /// recallUndoSize() bytes at `undo`.
  virtual void recallKeep(void* undo) = 0;
  /// Puts back exactly what recallKeep noted; a staged value is gone.
  virtual void recallPutBack(const void* undo) = 0;
  /// Tells whether the staged value may be published.
  virtual bool recallIsConsistent() const = 0;
  /// Publishes the staged value, whatever the variable says: it was asked.
  virtual void recallPublish() const = 0;

 protected:
  /// Objects are not destroyed through this class.
  ~PresetRecallField() = default;
};

/// An entry that holds a variable. Set and get are left to the class for the type of its value.
class PresetFieldVar : public PresetField {
 public:
  /// `v` outlives the field.
  PresetFieldVar(ReadWriteVarMgr& v);

  /// Brings the variable to its initial value.
  void init() override;
  int reset() override;
  int commit() const override;
  void endCommit() override;

  /// Begins a change of the variable and stages the value in the value buffer `p` of `size` bytes.
  /// 0 when staged, -2 when the change was refused. The transaction stays open.
  int setVar(const void* p, unsigned int size);

 protected:
  ReadWriteVarMgr& var;  ///< the variable
};
