// Direct access to a memory-mapped NOR flash part: read mode, aligned reads, the erased test.
//
// Stands beside the parameter flash operations (pflash.h) for a board that has such a part; the
// library itself does not call it. The part is reached at p_flash, which a host may point at
// memory of its own, aligned to 4 bytes: the read-mode command then overwrites that memory's first
// two bytes with 0xFF. The bus is big-endian: the byte at the lowest address is the high-order one
// of its word. No lock, no check of the size; one thread at a time. What stops the process: an
// address or a block number outside a part given to that part's functions.
#pragma once

/// One flash part that the direct layer can drive.
struct flash_part_t {
  const char* name;       ///< name of the part
  unsigned short mfg_id;  ///< manufacturer id
  unsigned short dev_id;  ///< device id
  unsigned int blocks;    ///< number of erase blocks
  unsigned int size;      ///< bytes in the part
  /// Number of the block that holds byte address `addr`. REQUIRES: `addr` is below size.
  unsigned int (*a2b)(unsigned int addr);
  /// Byte address at which block `block` starts. REQUIRES: `block` is below blocks.
  unsigned int (*b2a)(unsigned int block);
};

/// The known parts.
extern const flash_part_t flash_part[9];

/// The row of the part in use; null, since no part is identified in this configuration.
extern const flash_part_t* p_flash_part;

/// Base of the flash, at start 0x08000000.
extern volatile void* p_flash;

/// Initialises the direct layer. Does nothing in this configuration.
void flash_init();

/// Copies `size` bytes from flash offset `start` to `data`, through aligned 32-bit reads only.
void flash_read_block(void* data, unsigned int size, unsigned int start);

/// True when every byte of the `size` bytes from flash offset `start` is 0xFF.
bool flash_is_range_erased(unsigned int start, unsigned int size);
