#include "presetview.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
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

void add(presetFindings_t& to, presetFault_t fault, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

void add(presetFindings_t& to, presetFault_t fault, const char* format, ...) {
  presetFinding_t& finding = to.at[to.count++];
  finding.fault = fault;
  va_list args;
  va_start(args, format);
  std::vsnprintf(finding.line, sizeof finding.line, format, args);
  va_end(args);
  to.worst = std::max(to.worst, fault);
}

// What is to be said of a block that is neither valid nor erased.
void judgeUnused(const presetView_t& view, unsigned int blkid, presetFindings_t& findings) {
  const presetBlkInfo_t& blk = view.blk[blkid];
  const char* const rest = "the store erases it";
  switch (blk.word) {
    case BLK_WORD_VALID& BLK_MASK_INVALID:
    case BLK_WORD_VALID_VER0& BLK_MASK_INVALID:
      add(findings, FAULT_CUT, "block %u has been invalidated and not yet erased; %s.", blkid,
          rest);
      return;
    case BLK_WORD_COPIED:
      add(findings, FAULT_CUT, "block %u is a finished block copy that has not become valid; %s.",
          blkid, rest);
      return;
    case REC_WORD_NONE:
      add(findings, FAULT_CUT,
          "block %u was left in the middle of a block copy or of an erase; %s.", blkid, rest);
      return;
    default:
      break;
  }
  if (view.live >= 0) {
    add(findings, FAULT_CUT,
        "block %u starts with 0x%04X 0x%04X, as a cut-off erase may leave it; %s.", blkid, blk.word,
        blk.verWord, rest);
  } else if (blk.word == BLK_WORD_VALID) {
    add(findings, FAULT_LOSS,
        "block %u has version word 0x%04X, which is no version known here; %s.", blkid, blk.verWord,
        rest);
  } else {
    add(findings, FAULT_LOSS,
        "block %u starts with 0x%04X, which is no block word, and no other block is valid; %s.",
        blkid, blk.word, rest);
  }
}

void judgeLive(const presetView_t& view, unsigned int blkid, presetFindings_t& findings) {
  const presetBlkInfo_t& blk = view.blk[blkid];
  if (blk.last.state == REC_UNCONFIRMED) {
    add(findings, FAULT_CUT,
        "the record at 0x%04X was started and never confirmed; block %u counts as full.",
        blk.last.addr, blkid);
  } else if (blk.full) {
    add(findings, FAULT_LOSS,
        "the space behind the log of block %u is not erased at 0x%04X; the block counts as full.",
        blkid, blk.firstDirty);
  } else if (blk.firstDirty < blkEnd(blkid)) {
    add(findings, FAULT_STRAY,
        "the last word of block %u is not erased; the store does not use it.", blkid);
  }
  if (view.superseded > 0) {
    add(findings, FAULT_CUT,
        "records of block %u that are superseded and not marked deleted: %u; the store leaves them "
        "behind when it rewrites the block, before a removal of their id at the latest.",
        blkid, view.superseded);
  }
  if (blk.version == 0) {
    add(findings, FAULT_CUT, "block %u is of version 0; the store rewrites it in version 1.",
        blkid);
  }
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

presetFindings_t presetJudge(const presetView_t& view) {
  presetFindings_t findings = {};
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    const presetBlkInfo_t& blk = view.blk[blkid];
    if (blk.view == BLKV_LIVE) {
      judgeLive(view, blkid, findings);
    } else if (blk.view == BLKV_OLD) {
      add(findings, FAULT_CUT,
          "block %u is valid as well, as after a power cut at the end of a block copy; the store "
          "takes block %u and erases this one.",
          blkid, 1 - blkid);
    } else if (blk.view == BLKV_UNUSED) {
      judgeUnused(view, blkid, findings);
    }
    if (blk.version >= 0 && blk.last.state == REC_CORRUPT) {
      add(findings, FAULT_LOSS,
          "the log of block %u is corrupt at 0x%04X: %s. The store gives the whole block up and "
          "erases it.",
          blkid, blk.last.addr, blk.last.fault);
    }
  }
  return findings;
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
