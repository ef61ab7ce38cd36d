#include "presetformat.h"

namespace {

presetRec_t corrupt(unsigned int addr, const char* fault) {
  return {REC_CORRUPT, addr, fault, 0, 0, 0, 0, 0};
}

// State of the record under a head word; its type, too, if it is complete.
presetRecState_t decodeHead(unsigned int head, unsigned int ver, unsigned int& type) {
  if (head == REC_WORD_NONE) {
    return REC_END;
  }
  if (ver == 0) {
    type = head;
    return (head & 0x8000) != 0 ? REC_CORRUPT : head == 0 ? REC_DELETED : REC_LIVE;
  }
  type = head & PRESET_TYPE_MASK;
  switch (head >> 13) {
    case 0:
      return REC_DELETED;
    case 1:
      return REC_LIVE;
    case 3:
      return REC_UNCONFIRMED;
    default:
      return REC_CORRUPT;
  }
}

// How far the content of a valid block speaks for its being the newer one.
enum rank_t {
  RANK_CORRUPT,
  RANK_VERSION0,
  RANK_LOG,            // a sound log that has been appended to
  RANK_FINISHED_COPY,  // a log as a block copy leaves it: no deletion, no rewrite, a clean tail
};

rank_t rankBlk(const PresetWords& words, unsigned int blkid, unsigned int ver) {
  const unsigned int end = getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
  bool seen[NUM_PRESETS] = {};
  bool asCopied = true;
  presetRec_t rec = presetReadRec(words, presetLogStart(blkid, ver), end, ver);
  while (rec.state == REC_LIVE || rec.state == REC_DELETED) {
    asCopied = asCopied && rec.state == REC_LIVE && !seen[rec.id];
    if (rec.state == REC_LIVE) {
      seen[rec.id] = true;
    }
    rec = presetReadRec(words, rec.next, end, ver);
  }
  if (rec.state == REC_CORRUPT) {
    return RANK_CORRUPT;
  }
  if (ver == 0) {
    return RANK_VERSION0;
  }
  asCopied = asCopied && rec.state == REC_END && presetFirstDirty(words, rec.addr, end) == end;
  return asCopied ? RANK_FINISHED_COPY : RANK_LOG;
}

}  // namespace

int presetBlkVersion(const PresetWords& words, unsigned int blkid) {
  const unsigned int addr = getBlkAddr(blkid);
  switch (words.word(addr)) {
    case BLK_WORD_VALID:
      return words.word(addr + 2) == BLK_WORD_VERSION ? 1 : -1;
    case BLK_WORD_VALID_VER0:
      return 0;
    default:
      return -1;
  }
}

unsigned int presetLogStart(unsigned int blkid, unsigned int ver) {
  return getBlkAddr(blkid) + (ver == 0 ? 2 : PRESET_BLK_HDR_SIZE);
}

presetRec_t presetReadRec(const PresetWords& words, unsigned int addr, unsigned int end,
                          unsigned int ver) {
  presetRec_t rec = {REC_END, addr, nullptr, 0, 0, 0, 0, 0};
  if (addr + PRESET_HDR_SIZE > end) {
    return rec;
  }
  rec.state = decodeHead(words.word(addr), ver, rec.type);
  if (rec.state == REC_CORRUPT) {
    return corrupt(addr, "its head word is none that the format has");
  }
  if (rec.state != REC_LIVE && rec.state != REC_DELETED) {
    return {rec.state, addr, nullptr, 0, 0, 0, 0, 0};
  }
  rec.data = addr + PRESET_HDR_SIZE + (ver == 0 ? 2 : 0);
  if (rec.data > end) {
    return corrupt(addr, "its header runs past the end of the block");
  }
  rec.id = words.word(addr + 2);
  rec.size = words.word(addr + 4);
  if (ver == 0) {
    rec.size = rec.size << 16 | words.word(addr + 6);
  }
  if (rec.state == REC_LIVE && rec.id >= NUM_PRESETS) {
    return corrupt(addr, "its id is 300 or more");
  }
  if (rec.state == REC_LIVE && rec.size == 0) {
    return corrupt(addr, "its size is 0");
  }
  const unsigned int room = end - rec.data;
  if (rec.size > room || presetPadded(rec.size) > room) {
    return corrupt(addr, "its payload runs past the end of the block");
  }
  rec.next = rec.data + presetPadded(rec.size);
  return rec;
}

unsigned int presetFirstDirty(const PresetWords& words, unsigned int addr, unsigned int end) {
  while (addr < end && words.word(addr) == REC_WORD_NONE) {
    addr += 2;
  }
  return addr;
}

int presetLiveBlk(const PresetWords& words) {
  const int ver0 = presetBlkVersion(words, 0);
  const int ver1 = presetBlkVersion(words, 1);
  if (ver0 < 0 || ver1 < 0) {
    return ver1 >= 0 ? 1 : ver0 >= 0 ? 0 : -1;
  }
  // Until the old block has been invalidated, nothing is written to either block, so where the
  // contents do not tell the age, both hold every preset that has not changed since the copy.
  return rankBlk(words, 0, static_cast<unsigned int>(ver0)) >
                 rankBlk(words, 1, static_cast<unsigned int>(ver1))
             ? 0
             : 1;
}
