// Variable managers: hold the value of one control, check it, and carry it through a change.
//
// A change runs startXaction, then set or init, then isConsistent and commit, then endXaction. The
// preset fields run all of it; the registry's entries (ctrlwrap.h) never call endXaction.
// Where a committed value goes is left to derived classes (simplevarmgr.h, or the application's).
// A value crosses the interface in a value buffer, bytes with a size: integers are two's
// complement, most significant byte first on any host, cut at the front or sign-extended to the
// size; texts are zero-terminated or zero-padded. A manager owns neither its bounds list nor its
// text buffer. No locks: the application keeps the reads and changes of one manager apart.
// Nothing here allocates, prints or stops the process.
#pragma once

#include "bounds.h"
#include "range.h"

/// How the value of a control is carried.
enum CTRL_DATA_TYPE {
  DATA_TYPE_INT = 0,     ///< a signed integer
  DATA_TYPE_STRING = 1,  ///< a text
  DATA_TYPE_BOOL = 2,    ///< an integer, 0 or 1
};

/// A variable that can be read.
class ReadVarMgr {
 public:
  /// Nothing to give back. No entry, field or trap manager uses the manager any more.
  virtual ~ReadVarMgr() = default;

  /// Writes the value to the value buffer `buf`, exactly `size` bytes.
  virtual void get(void* buf, unsigned int size) const = 0;

  /// How the value is carried; DATA_TYPE_INT unless a class says otherwise.
  virtual CTRL_DATA_TYPE getType() const { return DATA_TYPE_INT; }

  /// Writes `val` as an integer of `size` bytes; nothing when `buf` is null.
  static void setBufInt(void* buf, unsigned int size, int val);

  /// Writes a text; nothing when `buf` is null or `size` is 0. `flag` true copies exactly `size`
  /// bytes from `str`, which shall have them. `flag` false writes the zero-terminated `str` (null
  /// counts as empty), cut to `size` - 1 characters, and fills the rest of the `size` bytes with
  /// zero.
  static void setBufStr(void* buf, unsigned int size, const char* str, bool flag);
};

/// A variable whose value can be brought up to date from where the application holds it.
class ReadBufVarMgr : public ReadVarMgr {
 public:
  /// Takes over the application's present value; true when the manager's value changed by it.
  virtual bool refresh() = 0;
};

/// A variable that can be changed.
class ReadWriteVarMgr : public ReadBufVarMgr {
 public:
  /// Brings the manager to its initial value.
  virtual void init() = 0;
  /// Begins a change; false refuses it.
  virtual bool startXaction() = 0;
  /// Ends a change.
  virtual void endXaction() = 0;
  /// Takes the working value from the value buffer `buf` of `size` bytes, forced into the bounds.
  virtual void set(const void* buf, unsigned int size) = 0;
  /// Tells whether the value in `buf` lies within the bounds. Changes nothing.
  virtual bool validate(const void* buf, unsigned int size) const = 0;
  /// Tells whether the working value may be published.
  virtual bool isConsistent() = 0;
  /// Publishes the working value.
  virtual void commit() const = 0;

  /// Reads the integer in `buf`; its last 4 bytes count when `size` is larger. No bytes read as 0.
  static int convert(const void* buf, unsigned int size);
};

/// A signed 32-bit value with a bounds list.
class ReadWriteVarMgrInt : public ReadWriteVarMgr {
 public:
  /// What the variable reads as before it has a value. Nothing compares against it.
  static constexpr int DEFAULT = -2147483647 - 1;

  /// `b`: the bounds list, or null for none. `o`: what set and increment do with a value outside.
  ReadWriteVarMgrInt(const bounds_t* b, range_t o);

  /// The working value, not refreshed.
  void get(void* buf, unsigned int size) const override;
  void set(const void* buf, unsigned int size) override;
  bool validate(const void* buf, unsigned int size) const override;

  /// Adds `delta` to the working value and forces the sum into the bounds; a gap is jumped in the
  /// direction of the step.
  virtual void increment(int delta);

  /// The working value.
  int get() const { return val; }
  /// The bounds list; its row count goes to `n`.
  const bounds_t* getBounds(unsigned int& n) const {
    n = numBounds;
    return bounds;
  }

 protected:
  const bounds_t* bounds;  ///< the bounds list, or null
  unsigned int numBounds;  ///< its rows
  int val;                 ///< the working value

 private:
  friend class PresetFieldVarInt;  // puts a value back when a recall fails
  const range_t overflow;
};

/// A truth value, 0 or 1.
class ReadWriteVarMgrBool : public ReadWriteVarMgrInt {
 public:
  /// The two values in four spellings.
  enum vals_e {
    FALSE = 0,    ///< 0
    TRUE = 1,     ///< 1
    NO = 0,       ///< 0
    YES = 1,      ///< 1
    DISABLE = 0,  ///< 0
    ENABLE = 1,   ///< 1
    OFF = 0,      ///< 0
    ON = 1,       ///< 1
  };
  /// The row {0, 1}.
  static const bounds_t BOUNDS[2];

  /// `o` RANGE_WRAP makes increment toggle, RANGE_CLIP makes it stop at the ends.
  ReadWriteVarMgrBool(range_t o);

  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_BOOL; }
};

/// A text in a buffer of the caller, each character within a bounds list of byte values.
class ReadWriteVarMgrStr : public ReadWriteVarMgr {
 public:
  static const bounds_t BOUNDS_PRINTABLE[2];    ///< space to tilde
  static const bounds_t BOUNDS_ALNUM[4];        ///< digits, upper case, lower case
  static const bounds_t BOUNDS_ALPHA[3];        ///< upper case, lower case
  static const bounds_t BOUNDS_ALPHA_UPPER[2];  ///< upper case
  static const bounds_t BOUNDS_ALPHA_LOWER[2];  ///< lower case
  static const bounds_t BOUNDS_DIGIT[2];        ///< digits
  static const bounds_t BOUNDS_HEX[3];          ///< digits, A to F

  /// `buf`: the working buffer, `size` bytes with the terminator, zeroed here; it may be null.
  /// `b`: the allowed characters, or null for every byte value.
  ReadWriteVarMgrStr(void* buf, unsigned int size, const bounds_t* b);

  void get(void* buf, unsigned int size) const override;
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_STRING; }
  /// Cuts the text to maxlen() characters. A size of 0 keeps the old text.
  void set(const void* buf, unsigned int size) override;
  /// Looks at the first maxlen() characters only: a text that is too long is valid as far as it
  /// fits. A null `buf` is invalid.
  bool validate(const void* buf, unsigned int size) const override;

  /// The text.
  const char* get() const { return str; }
  /// Capacity in characters, terminator not counted.
  unsigned int maxlen() const { return len; }
  /// The allowed characters; their row count goes to `n`.
  const bounds_t* getBounds(unsigned int& n) const {
    n = numBounds;
    return bounds;
  }
  /// Sets the character at `pos`, forced into the class; a zero byte cuts the text there. `pos`
  /// may equal the text's length, which appends; beyond it, or at maxlen(), nothing happens. Only
  /// this one character is stored: where the text had been cut, what stood behind comes back.
  void setChar(char c, unsigned int pos);

 protected:
  char* const str;         ///< the working buffer, or null; str[len] is always zero
  const unsigned int len;  ///< capacity in characters, terminator not counted

 private:
  friend class PresetFieldVarStr;  // puts a text back when a recall fails
  char getBoundsChar(char c) const;

  const bounds_t* const bounds;
  const unsigned int numBounds;
};

/// Refreshes `var` and writes its value to `buf`.
void getCurVarMgrVal(ReadBufVarMgr& var, void* buf, unsigned int size);
/// Begins a change of `var` and sets it from `buf`. 0 when set, 1 when the change was refused.
int startVarMgrSet(ReadWriteVarMgr& var, const void* buf, unsigned int size);
/// Begins a change of `var` and sets its initial value. 0 when set, 1 when it was refused.
int startVarMgrReset(ReadWriteVarMgr& var);
/// Publishes the working value of `var` if it is consistent. 0 when published, 1 when not.
int commitVarMgr(ReadWriteVarMgr& var);
