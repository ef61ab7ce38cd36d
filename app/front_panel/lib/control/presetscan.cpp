// Start-up scan, factory image and format of the preset store.
#include <cstring>

#include "bytes.h"
#include "debug.h"
#include "pflash.h"
#include "presetstore.h"

namespace {

presetStore_t& store = presetStore;

// The medium's words.
class FlashWords final : public PresetWords {
 public:
  unsigned short word(unsigned int addr) const override {
    unsigned char buf[2];
    pfReadBlk(addr, buf, sizeof buf);
    return static_cast<unsigned short>(getBigEndian(buf, sizeof buf));
  }
};

void clearTable(preset_t (&table)[NUM_PRESETS]) {
  for (preset_t& preset : table) {
    initPreset(preset);
  }
}

// Everything but the blocks as it is without a preset.
void clearUser() {
  initList(store.writeList);
  initList(store.delList);
  store.curOp = NUM_PRESETS;
  clearTable(store.user);
  ++store.userEpoch;
  store.flashAddrEnd = FLASH_PARM_BLK_SIZE;
  store.lastWordDirty = false;
  store.ramCopyEnd = 0;
  store.forceCopy = false;
  store.absTimeoutStarted = false;
  store.incTimeoutStarted = false;
}

void fillEntry(preset_t& preset, unsigned int dataStart, unsigned int type, unsigned int size) {
  preset.erased = false;
  preset.serv[0] = {PREOP_NONE, dataStart, static_cast<unsigned short>(type), size};
}

void copyToRAM(const PresetWords& words, const presetRec_t& rec) {
  CTRL_ASSERT(store.ramCopyEnd + rec.size <= RAM_COPY_SIZE);
  unsigned char* const to = store.ramCopy + store.ramCopyEnd;
  for (unsigned int i = 0; i < rec.size; i += 2) {
    unsigned char pair[2];
    putBigEndian(pair, sizeof pair, words.word(rec.data + i));
    std::memcpy(to + i, pair, rec.size - i > 1 ? 2 : 1);
  }
  store.ramCopyEnd += rec.size;
}

// A live record into the index. An earlier one of its id is superseded by it; its payload's bytes
// in ramCopy are dead.
void takeRecord(const PresetWords& words, const presetRec_t& rec) {
  preset_t& preset = store.user[rec.id];
  preset.superseded = !preset.erased;
  fillEntry(preset, store.ramCopyEnd, rec.type, rec.size);
  preset.fladdr = rec.addr;
  copyToRAM(words, rec);
}

// Reads the log of block `blkid` into the index and finds its end. False when it is corrupt.
bool readLog(const PresetWords& words, unsigned int blkid, unsigned int ver) {
  const presetRec_t last = presetWalkLog(words, blkid, ver, [&words](const presetRec_t& rec) {
    if (rec.state == REC_LIVE) {
      takeRecord(words, rec);
    }
  });
  if (last.state == REC_CORRUPT) {
    return false;
  }
  // Nothing is ever programmed over dirty space, an unconfirmed record included: the block counts
  // as full. A stray last word alone only makes the block shorter by that word.
  const unsigned int end = getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
  const unsigned int dirty = presetFirstDirty(words, last.addr, end);
  store.lastWordDirty = dirty == end - 2;
  store.flashAddrEnd = dirty < end - 2 ? end : last.addr;
  return true;
}

}  // namespace

void PresetMgr::initGlob() {
  if (store.init) {
    return;
  }
  pfInit();
  store.init = true;
  clearTable(store.factory);
  ++store.factoryEpoch;
  store.factoryData = nullptr;
  store.factorySize = 0;
  clearUser();

  const FlashWords words;
  const int live = presetLiveBlk(words);
  for (unsigned int id = 0; id < TOTAL_FLASH_BLKS; ++id) {
    store.blkState[id] = isBlkErased(id) ? BLK_ERASED : BLK_DEALLOC;
    store.blkReadsValid[id] = presetBlkVersion(words, id) >= 0;
  }
  if (live < 0) {
    return;
  }
  const unsigned int blkid = static_cast<unsigned int>(live);
  const unsigned int ver = static_cast<unsigned int>(presetBlkVersion(words, blkid));
  if (!readLog(words, blkid, ver)) {
    clearUser();
    return;
  }
  store.blkState[blkid] = BLK_ALLOC;
  store.blkReadsValid[blkid] = false;
  store.forceCopy = ver != CUR_VER;
}

int PresetMgr::setFactory(void* buf, unsigned int len) {
  initGlob();
  clearTable(store.factory);
  ++store.factoryEpoch;
  const bool given = buf != nullptr && len > 0;
  store.factoryData = given ? static_cast<const unsigned char*>(buf) : nullptr;
  store.factorySize = given ? len : 0;

  unsigned int addr = 0;
  for (preset_t& preset : store.factory) {
    if (store.factorySize - addr < FACTORY_PRESET_HDR_SIZE) {
      return 0;
    }
    const unsigned int type = getUShort(addr, store.factoryData);
    const unsigned int size = getUShort(addr + 2, store.factoryData);
    addr += FACTORY_PRESET_HDR_SIZE;
    if (type > PRESET_TYPE_MASK || size == 0 || presetPadded(size) > store.factorySize - addr) {
      clearTable(store.factory);
      store.factoryData = nullptr;
      store.factorySize = 0;
      return 1;
    }
    fillEntry(preset, addr, type, size);
    addr += presetPadded(size);
  }
  return 0;
}

void PresetMgr::format() {
  initGlob();
  cancelService();
  clearUser();
  for (blkState_t& state : store.blkState) {
    state = BLK_DEALLOC;
  }
}
