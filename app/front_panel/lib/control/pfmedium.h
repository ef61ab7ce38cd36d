// What stands behind the parameter flash operations: one medium, chosen before their first use.
//
// Without a choice there is no medium: reads deliver 0xFF and nothing is kept. The bodies are a
// simulated NOR part (pfmedium_sim.h) and a file (pfmedium_file.h); an application may derive its
// own. A medium belongs to the caller, outlives its use, and runs on the store's thread only. One
// that is destroyed takes itself out of use first. What stops the process: choosing a medium when
// one is in use already, and the preconditions below.
#pragma once

#include "flash_config.h"
#include "noncopyable.h"

/// Content of the store's area under the rules of a NOR part. No checks beyond the addresses.
class NorArray {
 public:
  /// Every bit set.
  NorArray();

  /// The word at `addr`. REQUIRES: addr is even and inside the area, here and below.
  unsigned short word(unsigned int addr) const;

  /// Leaves old content AND `value` at `addr`.
  void program(unsigned int addr, unsigned short value);

  /// Sets every bit of block `id`. REQUIRES: id < TOTAL_FLASH_BLKS, here and below.
  void erase(unsigned int id);

  /// True when every byte of block `id` is 0xFF.
  bool isErased(unsigned int id) const;

  /// Copies `len` bytes from `addr` to `buf`. REQUIRES: both even, the end inside the area.
  void read(unsigned int addr, unsigned char* buf, unsigned int len) const;

  unsigned char bytes[FLASH_AREA_SIZE];  ///< the content, by store address
};

/// A medium. The operations mirror those of pflash.h, which keeps track of what is in flight.
class PfMedium : public Noncopyable {
 public:
  /// Takes the medium out of use.
  virtual ~PfMedium();

  /// Prepares the medium; nothing is in flight afterwards.
  virtual void init() = 0;

  /// Copies `len` bytes from store address `addr` to `buf`. May block.
  virtual void read(unsigned int addr, unsigned char* buf, unsigned int len) = 0;

  /// True when every byte of block `id` reads 0xFF. May block.
  virtual bool isErased(unsigned int id) = 0;

  /// Starts programming `word` at `addr`. Returns without waiting.
  virtual void startProgram(unsigned int addr, unsigned short word) = 0;

  /// Starts erasing block `id`. Returns without waiting.
  virtual void startErase(unsigned int id) = 0;

  /// True when the operation started last has finished. Called again until it is.
  virtual bool poll() = 0;

  /// A flush has found nothing left to do.
  virtual void reset() = 0;
};

/// Puts `medium` behind the parameter flash operations. Null takes the present one out, after
/// which another may be chosen. The store does not notice a change after its start-up scan.
/// REQUIRES: `medium` is null, or no medium is chosen and pfInit has not run without one.
void pfUseMedium(PfMedium* medium);

/// The chosen medium; null for none.
PfMedium* pfMedium();

/// Marks the choice as made, none included, and returns the chosen medium. For pfInit.
PfMedium* pfStartMedium();
