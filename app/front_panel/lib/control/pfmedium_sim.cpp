#include "pfmedium_sim.h"

#include <cstring>

#include "bytes.h"
#include "debug.h"

namespace {

// A word programmed over one that is not erased either keeps every 0 that it finds, or is a mask:
// a value in which only the bits to clear are 0. A mask follows one state of its word.
constexpr struct {
  unsigned short mask;
  unsigned short field;   // the bits that name the state
  unsigned short before;  // the state in front of the mask
} MASKS[] = {
    {0x3FFF, 0xE000, 0x6000},  // confirms a record
    {0x1FFF, 0xE000, 0x2000},  // deletes a record
    {0xEFFF, 0xFFFE, 0x7FFE},  // invalidates a block
};

bool canProgram(unsigned int before, unsigned int word) {
  if ((word & ~before) == 0) {
    return true;
  }
  for (const auto& m : MASKS) {
    if (word == m.mask && (before & m.field) == m.before) {
      return true;
    }
  }
  return false;
}

// Steps the generator `state` and returns 16 random bits.
unsigned int nextRandom(unsigned int& state) {
  state = state * 1664525U + 1013904223U;
  return (state >> 16) & 0xFFFF;
}

}  // namespace

void PfSimMedium::setLatency(unsigned int wordPolls, unsigned int erasePolls) {
  wordLatency = wordPolls;
  eraseLatency = erasePolls;
}

void PfSimMedium::cutAt(unsigned long long nth, Cut cut, unsigned int seed) {
  cutIn = nth;
  cutKind = cut;
  random = seed * 2654435761U + 1;
}

void PfSimMedium::powerUp() {
  hasPower = true;
  cutIn = 0;
  init();
}

void PfSimMedium::beginPass() {
  countsPasses = true;
  startedInPass = 0;
}

void PfSimMedium::load(const NorArray& image) {
  CTRL_ASSERT(!inFlight);
  content = image;
}

void PfSimMedium::init() {
  inFlight = false;
  startedInPass = 0;
}

void PfSimMedium::read(unsigned int addr, unsigned char* buf, unsigned int len) {
  if (!hasPower) {
    std::memset(buf, 0xFF, len);
    return;
  }
  CTRL_ASSERT(!inFlight);
  content.read(addr, buf, len);
  count.reads += len / 2;
}

bool PfSimMedium::isErased(unsigned int id) {
  CTRL_ASSERT(!hasPower || !inFlight);
  return !hasPower || content.isErased(id);
}

// Takes note of an operation that takes `polls` polls. False when it must not take full effect.
bool PfSimMedium::start(const Operation& operation, unsigned int polls) {
  CTRL_ASSERT(!inFlight);
  CTRL_ASSERT(!countsPasses || startedInPass == 0);
  last = operation;
  ++startedInPass;
  ++(operation.erase ? count.erases : count.words);
  inFlight = true;
  pollsLeft = polls;
  if (cutIn == 0 || --cutIn != 0) {
    return true;
  }
  hasPower = false;
  return cutKind == CUT_AFTER;
}

void PfSimMedium::startProgram(unsigned int addr, unsigned short word) {
  if (!hasPower) {
    return;
  }
  const unsigned short before = content.word(addr);
  CTRL_ASSERT(canProgram(before, word));
  const bool whole = start({false, addr, word, before}, wordLatency);
  const unsigned int kept = whole ? 0 : nextRandom(random);
  content.program(addr, static_cast<unsigned short>(word | kept));
}

void PfSimMedium::startErase(unsigned int id) {
  if (!hasPower) {
    return;
  }
  const unsigned int addr = id * FLASH_PARM_BLK_SIZE;
  if (start({true, addr, 0xFFFF, content.word(addr)}, eraseLatency)) {
    content.erase(id);
  } else {
    tearErase(addr);
  }
}

// Sets some bits of the block at `addr`: by the seed hardly any or nearly all, here and there or up
// to a place within the block, and of its first two words at times only the bit that invalidates
// it.
void PfSimMedium::tearErase(unsigned int addr) {
  const unsigned int shape = nextRandom(random);
  const unsigned int front = (shape & 4) != 0 ? nextRandom(random) % FLASH_PARM_BLK_SIZE : 0;
  for (unsigned int i = 0; i < FLASH_PARM_BLK_SIZE; i += 2) {
    unsigned int set = nextRandom(random);
    for (unsigned int n = shape >> 12; n > 0; --n) {
      set = (shape & 1) != 0 ? set & nextRandom(random) : set | nextRandom(random);
    }
    if (front != 0) {
      set = i < front ? 0xFFFF : (shape & 2) != 0 ? set & 0x1111 : 0;
    } else if ((shape & 8) != 0 && i < 4) {
      set = i == 0 ? 0x1000 : 0;
    }
    unsigned char* const at = content.bytes + addr + i;
    putBigEndian(at, 2, getBigEndian(at, 2) | set);
  }
}

bool PfSimMedium::poll() {
  if (!hasPower || (inFlight && pollsLeft > 0)) {
    pollsLeft -= hasPower ? 1 : 0;
    return false;
  }
  inFlight = false;
  return true;
}
