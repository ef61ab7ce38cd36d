// A simulated NOR part: a medium in RAM that counts, takes its time, and loses power on demand.
//
// It follows the rules of a real part (programming clears bits, an erase sets a whole block) and
// stops the process when its user breaks one: an odd or foreign address, a second operation or a
// read while one is in flight, a word that would need a 0 turned to 1, an erase or a word too many
// in one pass. A power cut is armed for an operation to come. From it on every operation does
// nothing, completion checks stay false and reads deliver 0xFF, until powerUp; what the cut left
// is in array(). The caller owns the part; one thread; no operation allocates.
#pragma once

#include "pfmedium.h"

/// See above. Operations are words programmed and blocks erased, counted from 1.
class PfSimMedium : public PfMedium {
 public:
  /// One operation, as it was asked for.
  struct Operation {
    bool erase;             ///< a block was erased; else a word was programmed
    unsigned int addr;      ///< store address of the word, or of the block's first byte
    unsigned short word;    ///< the programmed value; 0xFFFF for an erase
    unsigned short before;  ///< the word at `addr` before the operation
  };

  /// Work done since the last clearCounters.
  struct Counters {
    unsigned long long words;   ///< words programmed
    unsigned long long erases;  ///< blocks erased
    unsigned long long reads;   ///< words read
  };

  /// How an operation is cut off.
  enum Cut {
    CUT_AFTER,   ///< it has taken full effect
    CUT_INSIDE,  ///< it has taken effect on some bits: any subset of those that it changes
  };

  /// Sets for how many polls a word and an erase are not yet complete; 0 at start.
  void setLatency(unsigned int wordPolls, unsigned int erasePolls);

  /// Arms a power cut for the `nth` operation from now, 1 for the next; 0 disarms. `seed` picks
  /// the bits of a CUT_INSIDE.
  void cutAt(unsigned long long nth, Cut cut, unsigned int seed = 0);

  /// Loses power now. An operation in flight has taken effect.
  void cutPower() { hasPower = false; }

  /// False from a power cut until powerUp.
  bool powered() const { return hasPower; }

  /// Restores power on what is left, nothing in flight, no cut armed.
  void powerUp();

  /// Marks the start of a pass. From the first call on, a pass may start one operation.
  void beginPass();

  /// The content, also while power is lost.
  const NorArray& array() const { return content; }

  /// Replaces the content. REQUIRES: nothing is in flight.
  void load(const NorArray& image);

  /// The work done since the start or the last clearCounters.
  const Counters& counters() const { return count; }
  /// Sets all counters to 0.
  void clearCounters() { count = Counters{}; }

  /// The operation started last, a cut one included.
  const Operation& lastOperation() const { return last; }

  void init() override;
  void read(unsigned int addr, unsigned char* buf, unsigned int len) override;
  bool isErased(unsigned int id) override;
  void startProgram(unsigned int addr, unsigned short word) override;
  void startErase(unsigned int id) override;
  bool poll() override;
  void reset() override {}

 private:
  bool start(const Operation& operation, unsigned int polls);
  void tearErase(unsigned int addr);

  NorArray content;
  Counters count{};
  Operation last{};
  unsigned int wordLatency = 0;
  unsigned int eraseLatency = 0;
  unsigned int pollsLeft = 0;
  bool inFlight = false;
  bool hasPower = true;
  bool countsPasses = false;
  unsigned int startedInPass = 0;
  unsigned long long cutIn = 0;  // operations until the cut, that one included; 0 for none
  Cut cutKind = CUT_AFTER;
  unsigned int random = 0;
};
