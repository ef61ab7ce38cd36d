// A look at a preset store's medium without running the store: what its start-up scan would find.
//
// For tools and consoles that show a store. The words come from a PresetWords (presetformat.h), a
// file's bytes or the medium of a running store, and are judged by the decoder that the scan uses.
// Any content is taken; nothing is changed, nothing allocates, nothing stops the process. No
// state; any thread that may read the words.
#pragma once

#include "presetformat.h"

/// What a block is to the store.
enum presetBlkView_t {
  BLKV_ERASED,  ///< every word 0xFFFF
  BLKV_LIVE,    ///< the store takes its records
  BLKV_LOST,    ///< valid, but its log is corrupt: the store gives it up
  BLKV_OLD,     ///< valid, but the other block is taken
  BLKV_UNUSED,  ///< not valid and not erased: left over, to be erased
};

/// One block, see presetView.
struct presetBlkInfo_t {
  presetBlkView_t view;     ///< what it is
  unsigned int word;        ///< block word
  unsigned int verWord;     ///< the word behind it
  int version;              ///< 0 or 1 when it is valid, else -1
  presetRec_t last;         ///< of a valid block: what ended its log
  unsigned int firstDirty;  ///< first address from the log's end on that is not erased; block's end
  bool full;                ///< of a live block: its tail is dirty, so nothing is appended to it
};

/// The store as its start-up scan finds it.
struct presetView_t {
  presetBlkInfo_t blk[TOTAL_FLASH_BLKS];  ///< by block id
  int live;                               ///< the block that the store takes, or -1
  unsigned int record[NUM_PRESETS];       ///< store address of the live record of an id; 0 for none
  unsigned int superseded;                ///< live records with a later one of their id behind them
  unsigned int presets;                   ///< live presets
  unsigned int payload;                   ///< bytes of their payloads
  unsigned int compact;  ///< bytes that a block copy of them fills, block header included
};

/// Looks at both blocks.
presetView_t presetView(const PresetWords& words);

/// What a finding means for the presets.
enum presetFault_t {
  FAULT_CUT,    ///< a trace of a power cut that the store is made for: nothing is lost
  FAULT_STRAY,  ///< no power cut explains it, and no preset can have been there
  FAULT_LOSS,   ///< presets may be lost: the store erases what is no trace of a power cut
};

/// Something that the store does not come up with as it was left.
struct presetFinding_t {
  presetFault_t fault;  ///< how bad it is
  char line[192];       ///< what it is and what the store does about it, as a sentence
};

/// All that there is to say of a medium.
struct presetFindings_t {
  unsigned int count;     ///< how many of the following there are
  presetFinding_t at[8];  ///< three of a live block and two of the other at most
  presetFault_t worst;    ///< FAULT_CUT when there are none
};

/// Judges block words, record headers, and what stands behind the logs. Payloads carry no check
/// sum, so of their bytes nothing can be told.
presetFindings_t presetJudge(const presetView_t& view);

/// The largest payload that a new preset can have, 0 for none.
unsigned int presetRoom(const presetView_t& view);

/// Cells in the map of a block.
constexpr unsigned int PRESET_MAP_CELLS = 256;
/// Bytes of the block that a cell stands for.
constexpr unsigned int PRESET_MAP_CELL_SIZE = FLASH_PARM_BLK_SIZE / PRESET_MAP_CELLS;

/// What the letters of a map mean, as one line of text.
extern const char* const presetMapLegend;

/// Draws block `blkid` as one letter per cell, with a zero byte behind the last. A cell shows what
/// most asks for attention in it: dirty before unconfirmed, then what of live and deleted has more
/// bytes in it, and erased only when all of it is.
void presetMap(const PresetWords& words, const presetView_t& view, unsigned int blkid,
               char (&map)[PRESET_MAP_CELLS + 1]);
