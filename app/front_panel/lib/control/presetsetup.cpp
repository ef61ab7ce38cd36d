// The setup verbs.
#include <cstdint>
#include <cstdio>

#include "debug.h"
#include "presetformat.h"
#include "presetmgr.h"
#include "presets.h"
#include "presetwrap.h"

namespace {

constexpr unsigned int PRESETBUF_SIZE = 1024;  // no image of a setup is larger
constexpr unsigned int VER_SIZE = 1;
constexpr unsigned int UNDO_SIZE = 2048;
constexpr unsigned short SETUP_TYPE = 0;

static_assert(UNDO_SIZE >= PRESETBUF_SIZE * 2, "texts of 4 bits a character fit");

unsigned char presetbuf[PRESETBUF_SIZE];
unsigned char undobuf[UNDO_SIZE];
verPresetField_t* presetList = nullptr;

unsigned short userType(unsigned int which) {
  return static_cast<unsigned short>(which + 1);
}

// The store keeps fewer bits of a type than a number has.
bool isSetup(unsigned short type) {
  return (type & PRESET_TYPE_MASK) == SETUP_TYPE;
}

recall_t recallType(unsigned short type, recallNewer_t newer) {
  return recallStored(type, presetbuf, PRESETBUF_SIZE, VER_SIZE, presetList, newer, undobuf,
                      UNDO_SIZE);
}

}  // namespace

int loadType(unsigned short type, const verPresetField_t* list) {
  return loadPreset(type, presetbuf, PRESETBUF_SIZE, VER_SIZE, list);
}

int saveType(unsigned short type, const verPresetField_t* list) {
  const int result = storePreset(type, presetbuf, PRESETBUF_SIZE, VER_SIZE, list, false);
  CTRL_ASSERT(result != -1);
  return result;
}

void initPresets(verPresetField_t* list) {
  // The low half of the address on a host where it is wider than the format.
  std::printf("%s, list: 0x%04x\n", __func__,
              static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(list) & 0xFFFFFFFFU));
  const unsigned long version = initPreset(list);
  presetList = list;
  std::printf("Power-up preset version is %lu\n", version);
}

int loadSetup() {
  std::puts("Loading setup presets");
  return loadType(SETUP_TYPE, presetList);
}

int saveSetup() {
  return saveType(SETUP_TYPE, presetList);
}

int loadUserSetup(unsigned int which) {
  return loadType(userType(which), presetList);
}

int saveUserSetup(unsigned int which) {
  return saveType(userType(which), presetList);
}

recall_t recallSetup(recallNewer_t newer) {
  return recallType(SETUP_TYPE, newer);
}

recall_t recallUserSetup(unsigned int which, recallNewer_t newer) {
  return recallType(userType(which), newer);
}

int removeUserSetup(unsigned int which) {
  const unsigned short type = userType(which);
  return isSetup(type) ? ERR_NOT_FOUND : removeStored(type);
}

bool userSetupExists(unsigned int which) {
  PresetMgr record;
  return !isSetup(userType(which)) && record.openFirst(userType(which), PM_READ) != ERR_NOT_FOUND;
}

unsigned int listUserSetups(unsigned int* which, unsigned int room) {
  CTRL_ASSERT(which != nullptr || room == 0);
  unsigned int found = 0;
  for (int type = PresetMgr::nextType(SETUP_TYPE); type >= 0; type = PresetMgr::nextType(type)) {
    if (found < room) {
      which[found] = static_cast<unsigned int>(type) - 1;
    }
    ++found;
  }
  return found;
}

int saveBUFPreset(unsigned short type, unsigned int len, const void* buf) {
  PresetMgr record;
  if (record.openFirst(type, PM_WRITE) != ERR_OK && record.openNew(type) != ERR_OK) {
    return 1;
  }
  return record.write(buf, len) == ERR_OK ? 0 : 1;
}

int loadBUFPreset(unsigned short type, unsigned int len, void* buf) {
  PresetMgr record;
  if (record.openFirst(type, PM_WRITE) != ERR_OK) {
    return 1;
  }
  return record.read(buf, len) == ERR_OK ? 0 : 1;
}
