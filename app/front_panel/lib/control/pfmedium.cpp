#include "pfmedium.h"

#include <algorithm>
#include <cstring>

#include "bytes.h"
#include "debug.h"

namespace {

PfMedium* chosen = nullptr;
bool started = false;  // pfInit has run since the last choice

}  // namespace

NorArray::NorArray() {
  std::memset(bytes, 0xFF, sizeof bytes);
}

unsigned short NorArray::word(unsigned int addr) const {
  CTRL_ASSERT(addr % 2 == 0 && addr < FLASH_AREA_SIZE);
  return static_cast<unsigned short>(getBigEndian(bytes + addr, 2));
}

void NorArray::program(unsigned int addr, unsigned short value) {
  putBigEndian(bytes + addr, 2, word(addr) & value);
}

void NorArray::erase(unsigned int id) {
  CTRL_ASSERT(id < TOTAL_FLASH_BLKS);
  std::memset(bytes + id * FLASH_PARM_BLK_SIZE, 0xFF, FLASH_PARM_BLK_SIZE);
}

bool NorArray::isErased(unsigned int id) const {
  CTRL_ASSERT(id < TOTAL_FLASH_BLKS);
  const unsigned char* const block = bytes + id * FLASH_PARM_BLK_SIZE;
  return std::all_of(block, block + FLASH_PARM_BLK_SIZE, [](unsigned char b) { return b == 0xFF; });
}

void NorArray::read(unsigned int addr, unsigned char* buf, unsigned int len) const {
  CTRL_ASSERT(addr % 2 == 0 && len % 2 == 0);
  CTRL_ASSERT(addr <= FLASH_AREA_SIZE && len <= FLASH_AREA_SIZE - addr);
  std::memcpy(buf, bytes + addr, len);
}

PfMedium::~PfMedium() {
  if (chosen == this) {
    pfUseMedium(nullptr);
  }
}

void pfUseMedium(PfMedium* medium) {
  CTRL_ASSERT(medium == nullptr || (chosen == nullptr && !started));
  chosen = medium;
  started = false;
}

PfMedium* pfMedium() {
  return chosen;
}

PfMedium* pfStartMedium() {
  started = true;
  return chosen;
}
