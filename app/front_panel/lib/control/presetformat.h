// The preset store's format on the medium, and the reader of it.
//
// Constants and a decoder without state: it sees the medium only as words from a PresetWords, so
// the start-up scan and a tool that looks at a file read it through the same code. It takes any
// content, reads only inside the block that it was asked about, and stops the process for nothing.
// It allocates nothing and owns nothing; any thread.
#pragma once

#include "presetmgr.h"

/// Bytes of the header of a block: block word, version word.
constexpr unsigned int PRESET_BLK_HDR_SIZE = 4;
/// The bits of a head word that are the preset's type.
constexpr unsigned short PRESET_TYPE_MASK = 0x1FFF;

// Block words. Each step of a block's life only clears bits.
constexpr unsigned short BLK_WORD_COPIED = 0xFFFE;      ///< copy finished, not yet valid
constexpr unsigned short BLK_WORD_VALID = 0x7FFE;       ///< valid if the version word follows
constexpr unsigned short BLK_WORD_VALID_VER0 = 0x7FFF;  ///< valid, version 0
constexpr unsigned short BLK_MASK_INVALID = 0xEFFF;     ///< programmed over a valid block word
constexpr unsigned short BLK_WORD_VERSION = 0x0000;     ///< version word of version 1

// Head words: the type under the first, then two masks over it.
constexpr unsigned short REC_WORD_STARTED = 0x6000;  ///< first programming
constexpr unsigned short REC_WORD_BEGUN = 0x7FFF;    ///< one bit of it, where it comes in two steps
constexpr unsigned short REC_MASK_CONFIRM = 0x3FFF;  ///< makes a complete record live
constexpr unsigned short REC_MASK_DELETE = 0x1FFF;   ///< deletes a live record
constexpr unsigned short REC_WORD_NONE = 0xFFFF;     ///< no record: the end of the log

/// Bytes that `size` payload bytes take up on the medium.
constexpr unsigned int presetPadded(unsigned int size) {
  return (size + 1) & ~1U;
}

/// Where the decoder reads.
class PresetWords {
 public:
  /// The word at store address `addr`, which is even and inside the store's area.
  virtual unsigned short word(unsigned int addr) const = 0;

 protected:
  /// Objects are not destroyed through this class.
  ~PresetWords() = default;
};

/// What stands at a record's place.
enum presetRecState_t {
  REC_END,          ///< nothing: erased, or too near to the block's end
  REC_UNCONFIRMED,  ///< started and never confirmed; its head word may be torn
  REC_LIVE,         ///< a preset, unless a later record of its id supersedes it
  REC_DELETED,      ///< marked deleted
  REC_CORRUPT,      ///< nothing that the format has; `fault` tells what
};

/// A record. Of one that is at its end, unconfirmed or corrupt, only the first three are set.
struct presetRec_t {
  presetRecState_t state;  ///< what stands there
  unsigned int addr;       ///< store address of its head word
  const char* fault;       ///< of a corrupt record, in plain words; else null
  unsigned int type;       ///< 13 bits, in version 0 15 bits; 0 when deleted in version 0
  unsigned int id;         ///< may be any number when deleted
  unsigned int size;       ///< payload bytes
  unsigned int data;       ///< store address of the payload
  unsigned int next;       ///< store address behind the record
};

/// Version of valid block `blkid`, or -1 when it is not valid.
int presetBlkVersion(const PresetWords& words, unsigned int blkid);

/// Store address of the first record of block `blkid` in version `ver`.
unsigned int presetLogStart(unsigned int blkid, unsigned int ver);

/// The record at `addr` in a block of version `ver` that ends at `end`.
presetRec_t presetReadRec(const PresetWords& words, unsigned int addr, unsigned int end,
                          unsigned int ver);

/// Walks the log of block `blkid` in version `ver` and calls `take` with each complete record, live
/// or deleted. Returns what ends the log: a record in another state.
template <class Take>
presetRec_t presetWalkLog(const PresetWords& words, unsigned int blkid, unsigned int ver,
                          Take take) {
  const unsigned int end = getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
  presetRec_t rec = presetReadRec(words, presetLogStart(blkid, ver), end, ver);
  while (rec.state == REC_LIVE || rec.state == REC_DELETED) {
    take(rec);
    rec = presetReadRec(words, rec.next, end, ver);
  }
  return rec;
}

/// First address from `addr` on whose word is not erased; `end` when all are.
unsigned int presetFirstDirty(const PresetWords& words, unsigned int addr, unsigned int end);

/// The block whose log the store takes at start-up, or -1 when none is valid. Of two valid blocks,
/// the old one and the copy of it, it is the newer one as far as their contents tell, and a
/// corrupt one only if both are.
int presetLiveBlk(const PresetWords& words);
