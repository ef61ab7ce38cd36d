// A preset field without a variable: a run of equal bits.
//
// It holds the place of bits that an image must have and nobody reads. Reading passes over them
// and does not compare. The application owns the field. No state that changes; any thread. Stops
// the process only through a broken cursor (bitmanip.h).
#pragma once

#include "presetvar.h"

/// A run of constant bits.
class PresetFieldFill : public PresetField, public PresetRecallField {
 public:
  /// `bit`: what the run consists of; `numBits`: its length in bits.
  PresetFieldFill(bool bit, unsigned int numBits);

  int reset() override { return 0; }
  int set(void** buf, unsigned int bufSize, unsigned int& startBit) override;
  int get(void** buf, unsigned int bufSize, unsigned int& startBit) override;
  int commit() const override { return 0; }
  void endCommit() override {}

  PresetRecallField* preset_recall_field_() override { return this; }
  unsigned int recallWidth() const override { return totBits; }
  void recallKeep(void* /*undo*/) override {}
  void recallPutBack(const void* /*undo*/) override {}
  bool recallIsConsistent() const override { return true; }
  void recallPublish() const override {}

 private:
  int preset_fill_xfer_(void** buf, unsigned int bufSize, unsigned int& startBit, bool dir) const;

  const unsigned int fill;      // all ones or 0
  const unsigned int num;       // whole 32-bit words in the run
  const unsigned int lastBits;  // bits beyond them, 0 to 31
  const unsigned int totBits;   // length of the run in bits
};
