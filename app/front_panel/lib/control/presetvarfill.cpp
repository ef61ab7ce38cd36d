#include "presetvarfill.h"

#include "bitmanip.h"

PresetFieldFill::PresetFieldFill(bool bit, unsigned int numBits)
    : fill(bit ? 0xFFFFFFFFU : 0),
      num(numBits / UNSIGNED_BITS),
      lastBits(numBits % UNSIGNED_BITS),
      totBits(numBits) {}

int PresetFieldFill::set(void** buf, unsigned int bufSize, unsigned int& startBit) {
  return preset_fill_xfer_(buf, bufSize, startBit, true);
}

int PresetFieldFill::get(void** buf, unsigned int bufSize, unsigned int& startBit) {
  return preset_fill_xfer_(buf, bufSize, startBit, false);
}

int PresetFieldFill::preset_fill_xfer_(void** buf, unsigned int bufSize, unsigned int& startBit,
                                       bool dir) const {
  unsigned int bits = fill;
  for (unsigned int i = 0; i < num; ++i) {
    const int moved = bitBufferXfer(buf, bufSize, startBit, bits, UNSIGNED_BITS, dir);
    if (moved < 0) {
      return moved;
    }
    bufSize -= UNSIGNED_BITS;
  }
  const int moved = bitBufferXfer(buf, bufSize, startBit, bits, lastBits, dir);
  return moved < 0 ? moved : static_cast<int>(totBits);
}
