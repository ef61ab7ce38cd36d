// Layout of the parameter flash: the constants that the preset store and its medium share.
//
// The store owns an area of TOTAL_FLASH_BLKS blocks. Store addresses are byte offsets from the
// start of that area; the area itself lies BASE bytes into the parameter flash, which only a
// medium with absolute addresses has to know. Constants only; any thread.
#pragma once

/// Bytes in one parameter flash block, the unit of an erase.
constexpr unsigned int FLASH_PARM_BLK_SIZE = 8192;
/// Flash blocks that the store owns: block ids 0 and 1.
constexpr unsigned int TOTAL_FLASH_BLKS = 2;
/// Flash blocks given to one preset block.
constexpr unsigned int PRESET_FLASH_BLKS = 1;
/// Offset in bytes of the store's area in the parameter flash.
constexpr unsigned int BASE = 16384;

/// Bytes in the store's area: the first address behind the last block.
constexpr unsigned int FLASH_AREA_SIZE = TOTAL_FLASH_BLKS * FLASH_PARM_BLK_SIZE;
