// Write-behind service of the preset store: brings the medium into line with RAM.
//
// Each pass polls the operation in flight and then starts at most one more. The operation in
// flight is `action`:
//
//   from             when                                                to
//   any              a block that is given up still reads valid          ACT_BLK_INVALID
//   any              a block has to go                                   ACT_ERASE_BLK
//   any, no copy     the one live record of a removed preset stands      ACT_PRE_DEL
//   any              a batch or a copy has a record to write             ACT_PRE_WRITE
//   ACT_PRE_WRITE    the record has words left, as below                 ACT_PRE_WRITE
//   any, in a copy   the record does not fit: the copy starts over       ACT_ERASE_BLK
//   any, in a copy   the records of all live entries are done            ACT_BLK_VER
//   ACT_BLK_VER      word done                                           ACT_BLK_VALID1
//   ACT_BLK_VALID1   word done                                           ACT_BLK_VALID2
//   ACT_BLK_VALID2   word done, there is an old block                    ACT_BLK_INVALID
//   any but erases   format overtakes the word in flight                 ACT_OVERTAKEN
//   any              no trigger                                          ACT_NONE
//
// "Any" leaves out the states that always go to a next one. The order of the first rows is their
// priority. Within ACT_PRE_WRITE, `numWrBytes` tells the word in flight and so the next one; n is
// the size of the payload, rounded up to even:
//
//   numWrBytes    in flight                                              next
//   0             bit 15 of the head word, if it is cleared alone        head word
//   2             head word                                              id
//   4             id                                                     size
//   6 to n + 4    size or a word of the payload                          word of the payload
//   n + 6         last word of the payload                               confirm mask
//   n + 8         confirm mask, and an older record of the id is live    delete mask on that record
//   n + 8         confirm mask or delete mask                            the record is finished
//
// What a power cut relies on: a new record is confirmed before the older one of its id is deleted;
// a removed preset's record is deleted only if no earlier live one of its id stands in the log; a
// new block is complete before its block word, and valid before the old block is invalidated; every
// block that is given up is invalidated before anything is erased.
#include <cstring>

#include "bytes.h"
#include "debug.h"
#include "pflash.h"
#include "presetstore.h"

namespace {

presetStore_t& store = presetStore;
presetService_t& serv = presetService;

void program(servAction_t action, unsigned int addr, unsigned short word) {
  serv.action = action;
  pfWriteWordNoWait(addr, word);
}

// Programs the next word of the log.
void programLog(unsigned int word) {
  program(ACT_PRE_WRITE, store.flashAddrEnd, static_cast<unsigned short>(word));
  store.flashAddrEnd += 2;
}

// Marks the entry's record deleted; the entry then has none.
void programDelete(servAction_t action, preset_t& preset) {
  program(action, preset.fladdr, REC_MASK_DELETE);
  preset.fladdr = NO_ADDR;
}

void startErase(unsigned int blkid) {
  serv.action = ACT_ERASE_BLK;
  serv.blkid = blkid;
  pfBlkEraseNoWait(blkid);
}

// Invalidates a block that reads valid; its erase follows.
void giveUp(unsigned int blkid) {
  store.blkState[blkid] = BLK_DEALLOC;
  store.blkReadsValid[blkid] = false;
  program(ACT_BLK_INVALID, getBlkAddr(blkid), BLK_MASK_INVALID);
}

// The block that the log is in: the one with its last byte, also when the log fills it to the end.
// During a copy that is the target.
unsigned int logBlk() {
  return getBlkId(store.flashAddrEnd - 1);
}

// Bytes of the record of a payload of `size` bytes.
unsigned int recordSize(unsigned int size) {
  return PRESET_HDR_SIZE + presetPadded(size);
}

// Tells whether `size` more bytes fit the block that the log is in.
bool fitsLog(unsigned int size) {
  const unsigned int end = getBlkAddr(logBlk()) + FLASH_PARM_BLK_SIZE;
  return store.flashAddrEnd + size <= end - (store.lastWordDirty ? 2 : 0);
}

void setTimersAfterBatch() {
  if (store.writeList.size == 0) {
    store.absTimeoutStarted = false;
    store.incTimeoutStarted = false;
  } else if (!store.absTimeoutStarted) {
    store.absTimeoutStarted = true;
    store.absTimeout.setTimeout(TIMEOUT_ABS_WRITE);
  }
}

void finishCopy() {
  setTimersAfterBatch();
  serv.blkCopyOp = false;
  program(ACT_BLK_VER, getBlkAddr(logBlk()) + 2, BLK_WORD_VERSION);
}

// The target has no room left, since payloads have grown or been removed while it was filled. It is
// erased and filled anew. The old block has stayed valid.
void restartCopy() {
  serv.blkCopyOp = false;
  store.forceCopy = true;
  store.blkState[logBlk()] = BLK_DEALLOC;
  startErase(logBlk());
}

// Turns the queues into a copy of all live entries in ascending order, records from here on going
// to the target: the block that is not live, or block 0. Its first bytes stay erased until the copy
// is finished. What was to be deleted or is superseded stays behind in the old block.
void setUpCopy() {
  serv.blkCopyOp = true;
  serv.copyId = 0;
  serv.numPreWrite = 0;
  store.forceCopy = false;
  store.lastWordDirty = false;
  for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
    preset_t& preset = store.user[id];
    preset.fladdr = NO_ADDR;
    preset.superseded = false;
    if (!preset.erased) {
      insertWriteList(id);
    }
  }
  while (store.delList.size > 0) {
    dequeueDelList();
  }
  store.flashAddrEnd = getBlkAddr(store.blkState[0] == BLK_ALLOC ? 1 : 0) + PRESET_BLK_HDR_SIZE;
}

// Programs the head word of the record of `curOp`.
void programHead() {
  serv.numWrBytes = 2;
  programLog((store.user[store.curOp].serv[0].type & PRESET_TYPE_MASK) | REC_WORD_STARTED);
}

// Programs the first word of the record of entry `id`, if it fits. A head word that a power cut has
// torn is known by its bit 15 or by the erased space behind it. Where the block's last word is
// dirty, bit 15 is cleared first and alone.
bool startRecord(unsigned int id) {
  const presetServ_t& data = store.user[id].serv[0];
  CTRL_ASSERT(data.op == PREOP_WRITE || serv.blkCopyOp);
  if (!fitsLog(recordSize(data.size))) {
    return false;
  }
  store.curOp = id;
  serv.preStart = store.flashAddrEnd;
  if (store.lastWordDirty) {
    serv.numWrBytes = 0;
    program(ACT_PRE_WRITE, serv.preStart, REC_WORD_BEGUN);
  } else {
    programHead();
  }
  return true;
}

// Starts the record of the next live entry or, behind the last one, the marks of the target. What
// is rewritten behind it, or is new on a lower id, waits on writeList until the copy is over: a
// finished copy has its records by rising id, which tells it from a log in use.
void continueCopy() {
  while (serv.copyId < NUM_PRESETS && store.user[serv.copyId].erased) {
    ++serv.copyId;
  }
  if (serv.copyId >= NUM_PRESETS) {
    finishCopy();
  } else if (startRecord(serv.copyId)) {
    ++serv.copyId;
  } else {
    restartCopy();
  }
}

// Starts the next record of the batch. One that does not fit, since payloads have grown after the
// batch was measured, goes with all others to the other block.
void continueBatch() {
  if (!startRecord(store.writeList.head)) {
    setUpCopy();
    continueCopy();
  }
}

// The record of `curOp` is complete. A request that came in meanwhile takes the first slot.
void finishRecord() {
  const unsigned int id = store.curOp;
  preset_t& preset = store.user[id];
  if (!serv.blkCopyOp) {
    CTRL_ASSERT(serv.numPreWrite > 0);
    --serv.numPreWrite;
  }
  removeWriteList(id);
  preset.fladdr = serv.preStart;
  preset.serv[0].op = PREOP_NONE;
  if (preset.serv[1].op != PREOP_NONE) {
    CTRL_ASSERT(preset.serv[0].dataStart < RAM_COPY_SIZE);
    dropPayload(preset.serv[0]);
    preset.serv[0] = preset.serv[1];
    initPresetServ(preset.serv[1]);
    preset.serv[0].op == PREOP_WRITE ? insertWriteList(id) : insertDelList(id);
  }
  store.curOp = NUM_PRESETS;
}

// The payload word at `numWrBytes`. The last byte of an odd size is followed by 0xFF.
unsigned int payloadWord(const presetServ_t& data) {
  const unsigned int done = serv.numWrBytes - PRESET_HDR_SIZE;
  const unsigned int len = data.size - done > 1 ? 2 : 1;
  const unsigned int idx = data.dataStart + done;
  CTRL_ASSERT(idx + len <= store.ramCopyEnd);
  unsigned char pair[2] = {0xFF, 0xFF};
  std::memcpy(pair, store.ramCopy + idx, len);
  return getBigEndian(pair, sizeof pair);
}

// The next word of the record of `curOp`. False when the record is finished instead.
bool continueRecord() {
  CTRL_ASSERT(store.curOp < NUM_PRESETS);
  if (serv.numWrBytes == 0) {
    programHead();
    return true;
  }
  preset_t& preset = store.user[store.curOp];
  const unsigned int end = recordSize(preset.serv[0].size);
  if (serv.numWrBytes == end + 2) {
    if (!hasRecord(preset)) {
      finishRecord();
      return false;
    }
    programDelete(ACT_PRE_WRITE, preset);
    return true;
  }
  CTRL_ASSERT(serv.numWrBytes <= end && serv.numWrBytes % 2 == 0);
  if (serv.numWrBytes == end) {
    program(ACT_PRE_WRITE, serv.preStart, REC_MASK_CONFIRM);
  } else if (serv.numWrBytes == 2) {
    programLog(store.curOp);
  } else if (serv.numWrBytes == 4) {
    programLog(preset.serv[0].size);
  } else {
    programLog(payloadWord(preset.serv[0]));
  }
  serv.numWrBytes += 2;
  return true;
}

void finishDelete() {
  CTRL_ASSERT(store.curOp < NUM_PRESETS && store.curOp == store.delList.head);
  presetServ_t& data = store.user[store.curOp].serv[0];
  if (data.op == PREOP_DELETE) {  // else the entry has been written anew
    data.op = PREOP_NONE;
  }
  dequeueDelList();
  store.curOp = NUM_PRESETS;
}

// The target is valid. False when there is no old block to be given up.
bool takeOver() {
  const unsigned int blkid = logBlk();
  store.blkState[blkid] = BLK_ALLOC;
  if (store.blkState[1 - blkid] == BLK_ERASED) {
    return false;
  }
  giveUp(1 - blkid);
  return true;
}

// Phase 1: what follows the operation that has just finished. True when it was another one.
bool continueOperation() {
  const servAction_t done = serv.action;
  serv.action = ACT_NONE;
  switch (done) {
    case ACT_NONE:
    case ACT_BLK_INVALID:
    case ACT_OVERTAKEN:
      break;
    case ACT_ERASE_BLK:
      store.blkState[serv.blkid] = BLK_ERASED;
      break;
    case ACT_PRE_DEL:
      finishDelete();
      break;
    case ACT_PRE_WRITE:
      return continueRecord();
    case ACT_BLK_VER:
      program(ACT_BLK_VALID1, getBlkAddr(logBlk()), BLK_WORD_COPIED);
      return true;
    case ACT_BLK_VALID1:
      program(ACT_BLK_VALID2, getBlkAddr(logBlk()), BLK_WORD_VALID);
      return true;
    case ACT_BLK_VALID2:
      return takeOver();
  }
  return false;
}

bool startErases() {
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    if (store.blkReadsValid[blkid]) {
      giveUp(blkid);
      return true;
    }
  }
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    if (store.blkState[blkid] == BLK_DEALLOC) {
      startErase(blkid);
      return true;
    }
  }
  return false;
}

// A deletion that would bring an earlier record of the id back is left to a copy, which takes what
// is left of the batch along.
bool startDelete() {
  if (store.forceCopy || serv.blkCopyOp || store.delList.size == 0) {
    return false;
  }
  const unsigned int id = store.delList.head;
  CTRL_ASSERT(id < NUM_PRESETS && hasRecord(store.user[id]));
  if (store.user[id].superseded) {
    store.forceCopy = true;
    serv.numPreWrite = 0;
    return false;
  }
  store.curOp = id;
  programDelete(ACT_PRE_DEL, store.user[id]);
  return true;
}

// Phase 2: work that does not wait for a trigger. True when some was started.
bool startDueWork() {
  if (startErases() || startDelete()) {
    return true;
  }
  if (serv.blkCopyOp) {
    continueCopy();
    return true;
  }
  if (serv.numPreWrite > store.writeList.size) {
    serv.numPreWrite = store.writeList.size;  // handles have removed queued entries
  }
  if (serv.numPreWrite > 0) {
    continueBatch();
    return true;
  }
  setTimersAfterBatch();
  return false;
}

// Phase 3: tells whether a batch is to start.
bool isTriggered(bool forceWrite) {
  const bool absExpired = store.absTimeoutStarted && store.absTimeout.isTimeoutExpired();
  const bool incExpired = store.incTimeoutStarted && store.incTimeout.isTimeoutExpired();
  return store.forceCopy || (store.writeList.size > 0 && (forceWrite || absExpired || incExpired));
}

// Tells whether the whole of writeList fits the live block.
bool fitsBatch() {
  unsigned int size = 0;
  unsigned int id = store.writeList.head;
  for (unsigned int n = store.writeList.size; n > 0; --n) {
    CTRL_ASSERT(id < NUM_PRESETS && store.user[id].serv[1].op == PREOP_NONE);
    size += recordSize(store.user[id].serv[0].size);
    id = store.user[id].nextWrite;
  }
  CTRL_ASSERT(id >= NUM_PRESETS);
  return fitsLog(size);
}

void startBatch() {
  store.absTimeoutStarted = store.absTimeoutStarted && !store.absTimeout.isTimeoutExpired();
  store.incTimeoutStarted = store.incTimeoutStarted && !store.incTimeout.isTimeoutExpired();
  const bool noBlock = store.blkState[0] == BLK_ERASED && store.blkState[1] == BLK_ERASED;
  if (store.forceCopy || noBlock || !fitsBatch()) {
    setUpCopy();
    continueCopy();
    return;
  }
  serv.numPreWrite = store.writeList.size;
  continueBatch();
}

bool isOperationComplete() {
  switch (serv.action) {
    case ACT_NONE:
      return true;
    case ACT_ERASE_BLK:
      return pfIsEraseComplete();
    default:
      return pfIsWriteComplete();
  }
}

}  // namespace

bool doService(bool forceWrite) {
  CTRL_ASSERT(store.flashAddrEnd <= FLASH_AREA_SIZE);
  if (!isOperationComplete() || continueOperation() || startDueWork()) {
    return false;
  }
  if (!isTriggered(forceWrite)) {
    return true;
  }
  startBatch();
  return false;
}

void cancelService() {
  if (serv.action != ACT_NONE && serv.action != ACT_ERASE_BLK) {
    serv.action = ACT_OVERTAKEN;
  }
  serv.numPreWrite = 0;
  serv.blkCopyOp = false;
}

int PresetMgr::flush() {
  if (!store.init) {
    return 0;
  }
  if (!doService(true)) {
    return 1;
  }
  pfReset();
  return 0;
}

void PresetMgr::service() {
  initGlob();
  doService(false);
}
