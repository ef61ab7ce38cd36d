// The parameter flash as the preset store sees it: nine operations, and the store uses no others.
//
// Addresses are store addresses: byte offsets from the start of the store's area (flash_config.h).
// The medium is made of 16-bit words at even addresses, most significant byte at the lower
// address. An erased block reads 0xFF; programming a word leaves old content AND programmed value;
// only an erase sets bits again. At most one write or erase is in flight: the completion check of
// the first has returned true before a second one starts. All nine are defined in pflash.cpp, in
// front of the medium that pfmedium.h chooses; without one they keep nothing and read erased. A
// program may link nine of its own instead. No lock: they run on the store's thread. What stops the
// process: a block id of 2 or more, and with a medium a second operation in flight.
#pragma once

#include "flash_config.h"

/// Prepares the medium. The store calls it once, at its start-up, before any other operation.
void pfInit();

/// Offset in bytes of the store's area in the parameter flash: BASE.
unsigned int pfGetFlashOffset();

/// Copies `len` bytes from store address `addr` to `buf` and returns `addr + len`. May block; the
/// store reads at start-up only, one word at an even address at a time.
unsigned int pfReadBlk(unsigned int addr, void* buf, unsigned int len);

/// Starts programming `word` at even store address `addr` and returns `addr + 2` at once.
/// REQUIRES: no write or erase is in flight.
unsigned int pfWriteWordNoWait(unsigned int addr, unsigned short word);

/// True when the word programming started last has finished.
bool pfIsWriteComplete();

/// Starts erasing block `id` and returns at once.
/// REQUIRES: id < 2, and no write or erase is in flight.
void pfBlkEraseNoWait(unsigned int id);

/// True when the erase started last has finished.
bool pfIsEraseComplete();

/// True when every byte of block `id` reads erased. May block; for the start-up scan.
bool pfIsBlkErased(unsigned int id);

/// Tells the medium that a flush has found nothing left to do.
void pfReset();
