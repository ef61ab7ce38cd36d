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

// Tells whether the word at `addr` is what a power cut inside the first programming of a head word
// may have left: other bits are cleared and bit 15 is not, and nothing stands behind it.
bool isTornHead(const PresetWords& words, unsigned int addr, unsigned int end, unsigned int ver) {
  return ver == CUR_VER && words.word(addr) >> 13 == 7 &&
         presetFirstDirty(words, addr + 2, end) == end;
}

// How far the content of a valid block speaks for its being the newer one.
enum rank_t {
  RANK_CORRUPT,
  RANK_VERSION0,
  RANK_LOG,            // a sound log that has been appended to
  RANK_FINISHED_COPY,  // a log as a block copy leaves it: live records by rising id, a clean tail
};

rank_t rankBlk(const PresetWords& words, unsigned int blkid, unsigned int ver) {
  bool asCopied = true;
  unsigned int lowest = 0;  // id that may come next in a copy
  const presetRec_t last = presetWalkLog(words, blkid, ver, [&](const presetRec_t& rec) {
    asCopied = asCopied && rec.state == REC_LIVE && rec.id >= lowest;
    lowest = rec.id + 1;
  });
  if (last.state == REC_CORRUPT) {
    return RANK_CORRUPT;
  }
  if (ver == 0) {
    return RANK_VERSION0;
  }
  const unsigned int end = getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
  asCopied = asCopied && presetFirstDirty(words, last.addr, end) == end;
  return asCopied ? RANK_FINISHED_COPY : RANK_LOG;
}

// Tells whether record `a` is record `b` with some bits turned to ones, which may have made it
// longer. Both are of version 1.
bool hasGainedOnes(const PresetWords& words, const presetRec_t& a, const presetRec_t& b) {
  bool gained = false;
  for (unsigned int i = 0; a.addr + i < a.next && b.addr + i < b.next; i += 2) {
    const unsigned int wordA = words.word(a.addr + i);
    const unsigned int wordB = words.word(b.addr + i);
    if ((wordA & wordB) != wordB) {
      return false;
    }
    gained = gained || wordA != wordB;
  }
  return gained;
}

// What a finished copy says of its age beside the one in the other block.
struct age_t {
  unsigned int gained;   // records that are those of the other one with some bits turned to ones
  unsigned int records;  // all of them
};

age_t ageOf(const PresetWords& words, unsigned int blkid) {
  unsigned int others[NUM_PRESETS] = {};  // store addresses, by id
  presetWalkLog(words, 1 - blkid, 1, [&](const presetRec_t& rec) { others[rec.id] = rec.addr; });
  const unsigned int otherEnd = getBlkAddr(1 - blkid) + FLASH_PARM_BLK_SIZE;
  age_t age = {0, 0};
  presetWalkLog(words, blkid, 1, [&](const presetRec_t& rec) {
    const unsigned int other = others[rec.id];
    ++age.records;
    age.gained +=
        other != 0 && hasGainedOnes(words, rec, presetReadRec(words, other, otherEnd, 1)) ? 1 : 0;
  });
  return age;
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
    return isTornHead(words, addr, end, ver)
               ? presetRec_t{REC_UNCONFIRMED, addr, nullptr, 0, 0, 0, 0, 0}
               : corrupt(addr, "its head word is none that the format has");
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
  if (rec.size > end - rec.data) {  // an even number, so a pad byte fits with its payload
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
  const rank_t rank0 = rankBlk(words, 0, static_cast<unsigned int>(ver0));
  const rank_t rank1 = rankBlk(words, 1, static_cast<unsigned int>(ver1));
  if (rank0 != rank1) {
    return rank0 > rank1 ? 0 : 1;
  }
  if (rank1 != RANK_FINISHED_COPY) {
    return 1;  // nothing that the store does leads here
  }
  // Until the old block has been erased nothing is appended to the new one, which is a copy as it
  // was finished. So may the old one be, unless something was appended to it. An erase that a power
  // cut has torn gives bits back: here the one that had invalidated the block, and others of its
  // records. Without one, the copy has the presets that were added; a removal would have left its
  // mark in the old log, unless it came in the middle of the copy.
  const age_t age0 = ageOf(words, 0);
  const age_t age1 = ageOf(words, 1);
  if (age0.gained != age1.gained) {
    return age0.gained < age1.gained ? 0 : 1;
  }
  return age0.records > age1.records ? 0 : 1;
}
