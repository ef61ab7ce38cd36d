// Handles of the preset store.
#include "presetmgr.h"

#include <cstring>

#include "debug.h"
#include "presetstore.h"

namespace {

presetStore_t& store = presetStore;

// The slot that holds what the entry reads as: a rewrite still waiting, else the present payload.
const presetServ_t& currentServ(const preset_t& preset) {
  return preset.serv[preset.serv[1].op == PREOP_WRITE ? 1 : 0];
}

// Tells whether a block copy could hold all live presets with `len` bytes in entry `id`.
bool fitsBlock(unsigned int id, unsigned int len) {
  if (len > FLASH_PARM_BLK_SIZE) {
    return false;
  }
  unsigned int sum = PRESET_BLK_HDR_SIZE + PRESET_HDR_SIZE + presetPadded(len);
  for (unsigned int i = 0; i < NUM_PRESETS; ++i) {
    const preset_t& preset = store.user[i];
    if (i != id && !preset.erased) {
      sum += PRESET_HDR_SIZE + presetPadded(currentServ(preset).size);
    }
  }
  return sum <= FLASH_PARM_BLK_SIZE;
}

bool holdsData(const preset_t& preset, const void* buf, unsigned int len) {
  if (preset.erased) {
    return false;
  }
  const presetServ_t& serv = currentServ(preset);
  return serv.size == len && std::memcmp(store.ramCopy + serv.dataStart, buf, len) == 0;
}

void startTimers() {
  store.incTimeout.setTimeout(TIMEOUT_INC_WRITE);
  store.incTimeoutStarted = true;
  if (!store.absTimeoutStarted) {
    store.absTimeoutStarted = true;
    store.absTimeout.setTimeout(TIMEOUT_ABS_WRITE);
  }
}

// An entry removed while its record is in flight waits for its delete in the second slot.
bool isFree(unsigned int id) {
  const preset_t& preset = store.user[id];
  return preset.erased && preset.useCount == 0 && preset.serv[1].op != PREOP_DELETE;
}

}  // namespace

PresetMgr::PresetMgr() {
  initGlob();
}

PresetMgr::~PresetMgr() {
  close();
}

// True while the entry is still the one that was opened: no format or setFactory since. After one,
// the entry may be in use by another handle.
bool PresetMgr::isCurrent() const {
  return epoch == (userPreset ? store.userEpoch : store.factoryEpoch);
}

bool PresetMgr::isOpenForWriting() const {
  return isOpen && acc == PM_WRITE;
}

int PresetMgr::openFirst(unsigned short searchType, pmAccess_t access) {
  close();
  acc = access;
  userPreset = true;
  type = searchType & PRESET_TYPE_MASK;
  return open(true);
}

int PresetMgr::openFirstFactory(unsigned short searchType) {
  close();
  acc = PM_READ;
  userPreset = false;
  type = searchType & PRESET_TYPE_MASK;
  return open(true);
}

int PresetMgr::openNext() {
  close();
  if (id >= NUM_PRESETS) {
    return ERR_NOT_FOUND;
  }
  return open(false);
}

int PresetMgr::open(bool first) {
  CTRL_ASSERT(acc == PM_READ || userPreset);
  initGlob();
  isOpen = false;
  preset_t* const table = userPreset ? store.user : store.factory;
  id = first ? 0 : id + 1;
  while (id < NUM_PRESETS && (table[id].erased || currentServ(table[id]).type != type)) {
    ++id;
  }
  if (id >= NUM_PRESETS) {
    return ERR_NOT_FOUND;
  }
  preset_t& preset = table[id];
  const bool isShared = acc == PM_READ && preset.acc != PM_WRITE;
  if (preset.useCount != 0 && !isShared) {
    return ERR_CANNOT_OPEN;
  }
  preset.acc = acc;
  ++preset.useCount;
  epoch = userPreset ? store.userEpoch : store.factoryEpoch;
  isOpen = true;
  return ERR_OK;
}

int PresetMgr::openNew(unsigned short openType) {
  close();
  initGlob();
  acc = PM_WRITE;
  type = openType & PRESET_TYPE_MASK;
  userPreset = true;
  id = 0;
  while (id < NUM_PRESETS && !isFree(id)) {
    ++id;
  }
  if (id >= NUM_PRESETS) {
    return ERR_NOT_FOUND;
  }
  store.user[id].acc = PM_WRITE;
  ++store.user[id].useCount;
  epoch = store.userEpoch;
  isOpen = true;
  return ERR_OK;
}

int PresetMgr::nextType(int after) {
  initGlob();
  int next = -1;
  for (const preset_t& preset : store.user) {
    if (!preset.erased) {
      const int found = currentServ(preset).type;
      next = found > after && (next < 0 || found < next) ? found : next;
    }
  }
  return next;
}

int PresetMgr::close() {
  if (!isOpen) {
    return ERR_NOT_OPEN;
  }
  preset_t& preset = (userPreset ? store.user : store.factory)[id];
  if (isCurrent() && preset.useCount > 0) {
    --preset.useCount;
  }
  isOpen = false;
  return ERR_OK;
}

int PresetMgr::write(const void* buf, unsigned int len) {
  if (!isOpenForWriting() || !isCurrent()) {
    return ERR_NOT_OPEN;
  }
  if (len == 0 || !fitsBlock(id, len)) {
    return ERR_WRITE_FAILED;
  }
  CTRL_ASSERT(buf != nullptr);
  preset_t& preset = store.user[id];
  if (holdsData(preset, buf, len)) {
    return ERR_OK;
  }
  if (isRecordInFlight(id)) {
    setPayload(preset.serv[1], type, buf, len);
  } else {
    setPayload(preset.serv[0], type, buf, len);
    insertWriteList(id);
  }
  preset.erased = false;
  startTimers();
  return ERR_OK;
}

int PresetMgr::read(void* buf, unsigned int& len) {
  if (!isOpen || !isCurrent()) {
    return ERR_NOT_OPEN;
  }
  const preset_t& preset = (userPreset ? store.user : store.factory)[id];
  if (preset.erased) {
    return ERR_READ_FAILED;
  }
  const presetServ_t& serv = currentServ(preset);
  const unsigned int end = userPreset ? store.ramCopyEnd : store.factorySize;
  CTRL_ASSERT(serv.dataStart <= end && serv.size <= end - serv.dataStart);
  if (len > serv.size) {
    len = serv.size;
  }
  if (len > 0) {
    CTRL_ASSERT(buf != nullptr);
    std::memcpy(buf, (userPreset ? store.ramCopy : store.factoryData) + serv.dataStart, len);
  }
  return ERR_OK;
}

int PresetMgr::remove() {
  if (!isOpenForWriting()) {
    return ERR_NOT_OPEN;
  }
  preset_t& preset = store.user[id];
  if (isCurrent() && !preset.erased) {
    dropPayload(preset.serv[1]);
    if (isRecordInFlight(id)) {
      preset.serv[1].op = PREOP_DELETE;
    } else {
      dropPayload(preset.serv[0]);
      if (hasRecord(preset)) {
        preset.serv[0].op = PREOP_DELETE;
        insertDelList(id);
      }
      removeWriteList(id);
    }
    preset.erased = true;
  }
  return close();
}
