#include "presetwrap.h"

#include "presetmgr.h"

int loadPreset(unsigned short /*type*/, void* buf, unsigned int size, unsigned int verSize,
               const verPresetField_t* list) {
  return applyPreset(buf, size, verSize, list);
}

int storePreset(unsigned short type, void* buf, unsigned int size, unsigned int verSize,
                const verPresetField_t* list, bool flush) {
  PresetMgr record;
  if (record.openFirst(type, PM_WRITE) != ERR_OK && record.openNew(type) != ERR_OK) {
    return 1;
  }
  int result = createPreset(buf, size, verSize, list);
  if (result >= 0) {
    result = record.write(buf, static_cast<unsigned int>(result)) == ERR_OK ? 0 : 2;
  }
  if (flush) {
    PresetMgr::flush();
  }
  record.close();
  return result;
}

recall_t recallStored(unsigned short type, void* buf, unsigned int size, unsigned int verSize,
                      const verPresetField_t* list, recallNewer_t newer, void* undo,
                      unsigned int undoSize) {
  PresetMgr record;
  const int opened = record.openFirst(type, PM_READ);
  if (opened != ERR_OK) {
    return opened == ERR_NOT_FOUND ? RECALL_NOT_FOUND : RECALL_BUSY;
  }
  unsigned int length = size;
  if (record.read(buf, length) != ERR_OK) {
    return RECALL_UNREADABLE;
  }
  record.close();
  return recallPreset(buf, length, verSize, list, newer, undo, undoSize);
}

int removeStored(unsigned short type) {
  PresetMgr record;
  int result = ERR_NOT_FOUND;
  for (int opened = record.openFirst(type, PM_WRITE); opened != ERR_NOT_FOUND;
       opened = record.openNext()) {
    if (opened == ERR_OK) {
      record.remove();
    }
    if (result != ERR_CANNOT_OPEN) {
      result = opened;
    }
  }
  return result;
}
