#include "bitmanip.h"

#include "debug.h"

unsigned int calcNumBits(unsigned int val) {
  unsigned int bits = 0;
  for (unsigned int mask = 0xFFFFFFFFU; bits < UNSIGNED_BITS && (val & mask) != 0; mask <<= 1) {
    ++bits;
  }
  return bits;
}

int bitBufferXfer(void** buf, unsigned int bufSize, unsigned int& startBit, unsigned int& val,
                  unsigned int valSize, bool dir) {
  CTRL_ASSERT(buf != nullptr);
  CTRL_ASSERT(*buf != nullptr);
  CTRL_ASSERT(startBit <= BYTE_MSBIT);
  CTRL_ASSERT(valSize <= UNSIGNED_BITS);

  if (valSize > bufSize) {
    return -1;
  }
  unsigned char* const first = static_cast<unsigned char*>(*buf);
  unsigned char* byte = first;
  if (!dir) {
    val = 0;
  }
  for (unsigned int rem = valSize; rem > 0;) {
    if (dir && startBit == BYTE_MSBIT) {
      *byte = 0;
    }
    // This step moves `bits` bits, which end `shift` bits above the byte's lowest one.
    const unsigned int storeBits = startBit + 1;
    const unsigned int bits = storeBits <= rem ? storeBits : rem;
    const unsigned int shift = storeBits - bits;
    const unsigned int mask = calcBitMask(bits);
    rem -= bits;
    if (dir) {
      *byte = static_cast<unsigned char>(*byte | (((val >> rem) & mask) << shift));
    } else {
      val |= ((*byte >> shift) & mask) << rem;
    }
    if (shift == 0) {
      startBit = BYTE_MSBIT;
      ++byte;
    } else {
      startBit = shift - 1;
    }
  }
  *buf = byte;
  return static_cast<int>(byte - first);
}
