#include "presetview.h"

#include <algorithm>
#include <iterator>

namespace {

unsigned int blkEnd(unsigned int blkid) {
  return getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
}

presetBlkInfo_t viewBlk(const PresetWords& words, unsigned int blkid, int live) {
  const unsigned int addr = getBlkAddr(blkid);
  const unsigned int end = blkEnd(blkid);
  presetBlkInfo_t blk = {BLKV_UNUSED, words.word(addr), words.word(addr + 2), -1, {}, end, false};
  blk.version = presetBlkVersion(words, blkid);
  if (blk.version < 0) {
    blk.firstDirty = presetFirstDirty(words, addr, end);
    blk.view = blk.firstDirty == end ? BLKV_ERASED : BLKV_UNUSED;
    return blk;
  }
  blk.last = presetWalkLog(words, blkid, static_cast<unsigned int>(blk.version),
                           [](const presetRec_t&) {});
  blk.firstDirty = presetFirstDirty(words, blk.last.addr, end);
  if (blk.last.state == REC_CORRUPT) {
    blk.view = BLKV_LOST;
  } else if (static_cast<int>(blkid) != live) {
    blk.view = BLKV_OLD;
  } else {
    blk.view = BLKV_LIVE;
    // A stray last word alone does not keep the store from appending in front of it.
    blk.full = blk.firstDirty < end - 2;
  }
  return blk;
}

// What stands in the bytes of a cell.
struct Cell {
  unsigned int live, deleted;
  bool unconfirmed, dirty;
};

using Cells = Cell[PRESET_MAP_CELLS];

// Counts the bytes from `from` up to `to`, offsets in the block, in one of the cells' members.
void countBytes(Cells& cells, unsigned int Cell::*use, unsigned int from, unsigned int to) {
  for (; from < to; ++from) {
    ++(cells[from / PRESET_MAP_CELL_SIZE].*use);
  }
}

char letter(const Cell& cell) {
  if (cell.dirty) {
    return '!';
  }
  if (cell.unconfirmed) {
    return '?';
  }
  if (cell.live == 0 && cell.deleted == 0) {
    return '.';
  }
  return cell.live >= cell.deleted ? '#' : 'x';
}

}  // namespace

const char* const presetMapLegend =
    "# live  x deleted or superseded  ? unconfirmed  . erased  ! dirty, to be erased";

presetView_t presetView(const PresetWords& words) {
  presetView_t view = {};
  view.live = presetLiveBlk(words);
  view.compact = PRESET_BLK_HDR_SIZE;
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    view.blk[blkid] = viewBlk(words, blkid, view.live);
  }
  if (view.live < 0) {
    return view;
  }
  const unsigned int blkid = static_cast<unsigned int>(view.live);
  if (view.blk[blkid].view != BLKV_LIVE) {
    view.live = -1;
    return view;
  }
  unsigned int size[NUM_PRESETS] = {};
  presetWalkLog(words, blkid, static_cast<unsigned int>(view.blk[blkid].version),
                [&](const presetRec_t& rec) {
                  if (rec.state == REC_LIVE) {
                    view.superseded += size[rec.id] != 0 ? 1 : 0;
                    view.record[rec.id] = rec.addr;
                    size[rec.id] = rec.size;
                  }
                });
  for (const unsigned int bytes : size) {
    view.presets += bytes != 0 ? 1 : 0;
    view.payload += bytes;
    view.compact += bytes != 0 ? PRESET_HDR_SIZE + presetPadded(bytes) : 0;
  }
  return view;
}

unsigned int presetRoom(const presetView_t& view) {
  const unsigned int used = view.compact + PRESET_HDR_SIZE;
  return view.presets < NUM_PRESETS && used < FLASH_PARM_BLK_SIZE ? FLASH_PARM_BLK_SIZE - used : 0;
}

void presetMap(const PresetWords& words, const presetView_t& view, unsigned int blkid,
               char (&map)[PRESET_MAP_CELLS + 1]) {
  const unsigned int start = getBlkAddr(blkid);
  const presetBlkInfo_t& blk = view.blk[blkid];
  const bool live = blk.view == BLKV_LIVE;
  unsigned int logEnd = start;
  Cells cells = {};
  if (live) {
    const unsigned int ver = static_cast<unsigned int>(blk.version);
    countBytes(cells, &Cell::live, 0, presetLogStart(blkid, ver) - start);
    logEnd = presetWalkLog(words, blkid, static_cast<unsigned int>(blk.version),
                           [&](const presetRec_t& rec) {
                             const bool current =
                                 rec.state == REC_LIVE && view.record[rec.id] == rec.addr;
                             countBytes(cells, current ? &Cell::live : &Cell::deleted,
                                        rec.addr - start, rec.next - start);
                           })
                 .addr;
  }
  for (unsigned int addr = logEnd; addr < blkEnd(blkid); addr += 2) {
    if (words.word(addr) != REC_WORD_NONE) {
      Cell& cell = cells[(addr - start) / PRESET_MAP_CELL_SIZE];
      (live && blk.last.state == REC_UNCONFIRMED ? cell.unconfirmed : cell.dirty) = true;
    }
  }
  std::transform(std::begin(cells), std::end(cells), map, letter);
  map[PRESET_MAP_CELLS] = '\0';
}
