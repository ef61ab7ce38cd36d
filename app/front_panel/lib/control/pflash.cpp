#include "pflash.h"

#include <cstring>

#include "debug.h"
#include "pfmedium.h"

namespace {

// True while the matching operation is in flight. Without a medium nothing sets them.
bool writeOp = false;
bool eraseOp = false;

// Polls the operation that `op` stands for, and clears it once the medium has finished it.
bool isComplete(bool& op) {
  PfMedium* const medium = pfMedium();
  if (op && medium != nullptr && !medium->poll()) {
    return false;
  }
  op = false;
  return true;
}

}  // namespace

void pfInit() {
  writeOp = false;
  eraseOp = false;
  if (PfMedium* const medium = pfStartMedium()) {
    medium->init();
  }
}

unsigned int pfGetFlashOffset() {
  return BASE;
}

unsigned int pfReadBlk(unsigned int addr, void* buf, unsigned int len) {
  if (PfMedium* const medium = pfMedium()) {
    medium->read(addr, static_cast<unsigned char*>(buf), len);
  } else {
    std::memset(buf, 0xFF, len);
  }
  return addr + len;
}

unsigned int pfWriteWordNoWait(unsigned int addr, unsigned short word) {
  if (PfMedium* const medium = pfMedium()) {
    CTRL_ASSERT(!writeOp && !eraseOp);
    writeOp = true;
    medium->startProgram(addr, word);
  }
  return addr + 2;
}

bool pfIsWriteComplete() {
  return isComplete(writeOp);
}

void pfBlkEraseNoWait(unsigned int id) {
  CTRL_ASSERT(id < 2);
  if (PfMedium* const medium = pfMedium()) {
    CTRL_ASSERT(!writeOp && !eraseOp);
    eraseOp = true;
    medium->startErase(id);
  }
}

bool pfIsEraseComplete() {
  return isComplete(eraseOp);
}

bool pfIsBlkErased(unsigned int id) {
  PfMedium* const medium = pfMedium();
  return medium == nullptr || medium->isErased(id);
}

void pfReset() {
  if (PfMedium* const medium = pfMedium()) {
    medium->reset();
  }
}
