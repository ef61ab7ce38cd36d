// Preset fields over integer and text variables.
//
// An automatic field derives its width from the bounds of its variable, so a change of the bounds
// changes the layout of an image from that field on; a manual field is given its width.
//
// The application owns fields, variables and the scratch buffers of text fields, which may share
// one. One thread at a time. A table that does not fit its variable is a fatal assertion: a width
// too small for the value, a scratch buffer too small for the text, bounds rows out of order or
// touching, an automatic text field without bounds, and, in set, a value outside its bounds.
#pragma once

#include "bitmanip.h"
#include "bounds.h"
#include "presetvar.h"
#include "varmgr.h"

/// Field value of the parameter value `val`: its number among the allowed values, which are counted
/// from 0 without the gaps. `bounds`: `numBounds` rows; without rows the result is `val`. A value
/// in a gap is not detected. REQUIRES: `val` within the span of the rows, rows ascending and not
/// touching.
int getPresetField(int val, const bounds_t* bounds, unsigned int numBounds);

/// Parameter value of the field value `val`, the inverse of getPresetField. A field value below
/// 0 gives the lowest bound and one above the largest the highest bound; where a list has more
/// than 2^31 values, `val` is taken as unsigned.
/// REQUIRES: rows ascending and not touching, as far as they are walked.
int getPresetParm(int val, const bounds_t* bounds, unsigned int numBounds);

/// Bits that the largest field value of the `nb` rows at `b` plus `extra` needs; `def` without
/// rows.
inline unsigned int getPresetFieldNumBits(const bounds_t* b, unsigned int nb, unsigned int def,
                                          unsigned int extra) {
  if (b == nullptr || nb == 0) {
    return def;
  }
  return calcNumBits(static_cast<unsigned int>(getPresetField(b[nb - 1].max, b, nb)) + extra);
}

/// Converts a value on its way into the image (`set` true) or out of it (`set` false).
using convFn_t = int (*)(int val, bool set);

/// Keeps the low byte on the way out: undoes the sign extension of an unsigned 8-bit field.
int conv8BitUint(int in, bool set);

/// The field of an integer or boolean variable.
class PresetFieldVarInt : public PresetFieldVar, public PresetRecallField {
 public:
  /// Automatic form: the width follows from the bounds of `v`, 32 bits without bounds.
  PresetFieldVarInt(ReadWriteVarMgrInt& v);
  /// Manual form: `nb` bits, `c` the conversion or null, `s` whether a value that is read is sign
  /// extended. A value fits the width as an unsigned or as a sign-extended number, whatever `s`.
  /// REQUIRES: `nb` at most UNSIGNED_BITS.
  PresetFieldVarInt(ReadWriteVarMgrInt& v, unsigned int nb, convFn_t c, bool s);

  void init() override;
  /// Refreshes the variable and writes its value.
  int set(void** buf, unsigned int bufSize, unsigned int& startBit) override;
  /// On -1 neither cursor nor variable has changed; on -2 the cursor has moved on.
  int get(void** buf, unsigned int bufSize, unsigned int& startBit) override;

  PresetRecallField* preset_recall_field_() override { return this; }
  unsigned int recallWidth() const override { return numBits; }
  void recallKeep(void* undo) override;
  void recallPutBack(const void* undo) override;
  bool recallIsConsistent() const override { return var.isConsistent(); }
  void recallPublish() const override;

 private:
  void preset_calc_masks_();

  ReadWriteVarMgrInt& ivar;
  const bool convMode;     // the field value is derived from the bounds
  const bool checkSign;    // a value read is sign extended
  unsigned int signCheck;  // top bit of the field
  unsigned int signMask;   // the bits above the field
  const convFn_t conv;
  unsigned int numBits;
  int preset_kept_ = 0;  // what recallKeep() noted
};

/// The field of a text variable. It takes maxlen() positions whatever the length of the text; a
/// text that is shorter is followed by the terminator in every remaining position.
class PresetFieldVarStr : public PresetFieldVar, public PresetRecallField {
 public:
  /// How a text is laid out.
  enum mode_t {
    MODE_AUTO = 0,    ///< positions as wide as the bounds and the terminator behind them need
    MODE_MANUAL = 1,  ///< positions of 8 bits, terminator 0
  };

  /// `s`: scratch buffer of `ss` bytes in which get assembles the text. It and `v` are held by
  /// address.
  /// REQUIRES: `s` not null. At init: `ss` greater than maxlen() of `v`, and for MODE_AUTO bounds
  /// with at least one row.
  PresetFieldVarStr(ReadWriteVarMgrStr& v, void* s, unsigned int ss, mode_t m);

  void init() override;
  /// Refreshes the variable and writes its text. On -1 the positions that had room are written.
  int set(void** buf, unsigned int bufSize, unsigned int& startBit) override;
  /// On -1 the cursor stands behind the positions read, and the variable has not changed.
  int get(void** buf, unsigned int bufSize, unsigned int& startBit) override;

  PresetRecallField* preset_recall_field_() override { return this; }
  unsigned int recallWidth() const override { return svar.maxlen() * numBits; }
  unsigned int recallUndoSize() const override { return svar.get() == nullptr ? 0 : svar.maxlen(); }
  void recallKeep(void* undo) override;
  void recallPutBack(const void* undo) override;
  bool recallIsConsistent() const override { return var.isConsistent(); }
  void recallPublish() const override;

 private:
  ReadWriteVarMgrStr& svar;
  unsigned char* const str;
  const unsigned int size;  // of the scratch buffer in bytes
  const bool convMode;      // MODE_AUTO
  unsigned int numBits;     // per position
  unsigned int checkMask;   // bits that no position may have
  unsigned int terminator;  // the position value that ends the text
};
