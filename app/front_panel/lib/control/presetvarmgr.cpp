#include "presetvarmgr.h"

#include <cstring>

#include "debug.h"

namespace {

constexpr unsigned int INT_BYTES = 4;

// The values that lie between two neighbouring rows.
unsigned int gapBelow(const bounds_t& row, const bounds_t& lower) {
  CTRL_ASSERT(row.min > lower.max);
  CTRL_ASSERT(row.min <= row.max);
  return static_cast<unsigned int>(row.min) - static_cast<unsigned int>(lower.max) - 1U;
}

// Whether the rows hold more values than a signed field value can count.
bool countsUnsigned(const bounds_t* bounds, unsigned int numBounds) {
  long long count = 0;
  for (unsigned int i = 0; i < numBounds; ++i) {
    count += static_cast<long long>(bounds[i].max) - bounds[i].min + 1;
  }
  return count > 0x80000000LL;
}

}  // namespace

int getPresetField(int val, const bounds_t* bounds, unsigned int numBounds) {
  if (bounds == nullptr || numBounds == 0) {
    return val;
  }
  CTRL_ASSERT(bounds[0].min <= val);
  CTRL_ASSERT(val <= bounds[numBounds - 1].max);
  CTRL_ASSERT(bounds[0].min <= bounds[0].max);
  unsigned int offset = static_cast<unsigned int>(bounds[0].min);
  for (unsigned int i = 1; i < numBounds && val > bounds[i - 1].max; ++i) {
    offset += gapBelow(bounds[i], bounds[i - 1]);
  }
  return static_cast<int>(static_cast<unsigned int>(val) - offset);
}

int getPresetParm(int val, const bounds_t* bounds, unsigned int numBounds) {
  if (bounds == nullptr || numBounds == 0) {
    return val;
  }
  const int low = bounds[0].min;
  const int high = bounds[numBounds - 1].max;
  // In 64 bits no sum wraps past the ends, so a value above the largest cannot come out as one
  // below the lowest.
  long long p = low;
  if (val < 0 && countsUnsigned(bounds, numBounds)) {
    p += static_cast<unsigned int>(val);
  } else {
    p += val;
  }
  for (unsigned int i = 1; i < numBounds && p > bounds[i - 1].max; ++i) {
    p += gapBelow(bounds[i], bounds[i - 1]);
  }
  if (p < low) {
    return low;
  }
  return p > high ? high : static_cast<int>(p);
}

int conv8BitUint(int in, bool set) {
  return set ? in : static_cast<int>(static_cast<unsigned int>(in) & BYTE_MASK);
}

PresetFieldVarInt::PresetFieldVarInt(ReadWriteVarMgrInt& v)
    : PresetFieldVar(v),
      ivar(v),
      convMode(true),
      checkSign(false),
      signCheck(0),
      signMask(0),
      conv(nullptr),
      numBits(0) {}

PresetFieldVarInt::PresetFieldVarInt(ReadWriteVarMgrInt& v, unsigned int nb, convFn_t c, bool s)
    : PresetFieldVar(v),
      ivar(v),
      convMode(false),
      checkSign(s),
      signCheck(0),
      signMask(0),
      conv(c),
      numBits(nb) {
  CTRL_ASSERT(nb <= UNSIGNED_BITS);
  preset_calc_masks_();
}

void PresetFieldVarInt::preset_calc_masks_() {
  signCheck = numBits == 0 ? 0 : 1U << (numBits - 1);
  signMask = ~calcBitMask(numBits);
}

void PresetFieldVarInt::init() {
  PresetFieldVar::init();
  if (convMode) {
    unsigned int nb = 0;
    const bounds_t* const b = ivar.getBounds(nb);
    numBits = getPresetFieldNumBits(b, nb, UNSIGNED_BITS, 0);
  }
  preset_calc_masks_();
}

int PresetFieldVarInt::set(void** buf, unsigned int bufSize, unsigned int& startBit) {
  ivar.refresh();
  const int val = ivar.get();
  unsigned int temp = 0;
  if (convMode) {
    unsigned int nb = 0;
    const bounds_t* const b = ivar.getBounds(nb);
    temp = static_cast<unsigned int>(getPresetField(val, b, nb));
    CTRL_ASSERT((temp & signMask) == 0);
  } else {
    temp = static_cast<unsigned int>(conv != nullptr ? conv(val, true) : val);
    CTRL_ASSERT((temp & signMask) == 0 || (temp & signMask) == signMask);
  }
  const int moved = bitBufferXfer(buf, bufSize, startBit, temp, numBits, true);
  return moved < 0 ? moved : static_cast<int>(numBits);
}

int PresetFieldVarInt::get(void** buf, unsigned int bufSize, unsigned int& startBit) {
  unsigned int temp = 0;
  const int moved = bitBufferXfer(buf, bufSize, startBit, temp, numBits, false);
  if (moved < 0) {
    return moved;
  }
  int val = 0;
  if (convMode) {
    unsigned int nb = 0;
    const bounds_t* const b = ivar.getBounds(nb);
    val = getPresetParm(static_cast<int>(temp), b, nb);
  } else {
    if (checkSign && (temp & signCheck) != 0) {
      temp |= signMask;
    }
    val = static_cast<int>(temp);
    if (conv != nullptr) {
      val = conv(val, false);
    }
  }
  unsigned char bytes[INT_BYTES];
  ReadVarMgr::setBufInt(bytes, INT_BYTES, val);
  const int staged = setVar(bytes, INT_BYTES);
  return staged < 0 ? staged : static_cast<int>(numBits);
}

void PresetFieldVarInt::recallKeep(void* /*undo*/) {
  ivar.refresh();
  preset_kept_ = ivar.get();
}

// The bounds are not applied: the value may have come from the application's global.
void PresetFieldVarInt::recallPutBack(const void* /*undo*/) {
  ivar.val = preset_kept_;
}

// Through commit, which a derived class may have given more to do.
void PresetFieldVarInt::recallPublish() const {
  if (commit() != 0) {
    var.commit();
  }
}

PresetFieldVarStr::PresetFieldVarStr(ReadWriteVarMgrStr& v, void* s, unsigned int ss, mode_t m)
    : PresetFieldVar(v),
      svar(v),
      str(static_cast<unsigned char*>(s)),
      size(ss),
      convMode(m == MODE_AUTO),
      numBits(BYTE_BITS),
      checkMask(~BYTE_MASK),
      terminator(0) {
  CTRL_ASSERT(s != nullptr);
}

void PresetFieldVarStr::init() {
  PresetFieldVar::init();
  CTRL_ASSERT(size > svar.maxlen());
  if (convMode) {
    unsigned int nb = 0;
    const bounds_t* const b = svar.getBounds(nb);
    CTRL_ASSERT(b != nullptr && nb > 0);
    numBits = getPresetFieldNumBits(b, nb, BYTE_BITS, 1);
    terminator = static_cast<unsigned int>(getPresetField(b[nb - 1].max, b, nb)) + 1U;
  }
  checkMask = ~calcBitMask(numBits);
}

int PresetFieldVarStr::set(void** buf, unsigned int bufSize, unsigned int& startBit) {
  const unsigned int len = svar.maxlen();
  svar.refresh();
  const char* const text = svar.get();
  unsigned int nb = 0;
  const bounds_t* const b = svar.getBounds(nb);
  bool more = text != nullptr;
  for (unsigned int i = 0; i < len; ++i) {
    const int c = more ? static_cast<unsigned char>(text[i]) : 0;
    more = c != 0;
    unsigned int temp = terminator;
    if (more) {
      temp = static_cast<unsigned int>(convMode ? getPresetField(c, b, nb) : c);
    }
    CTRL_ASSERT((temp & checkMask) == 0);
    const int moved = bitBufferXfer(buf, bufSize, startBit, temp, numBits, true);
    if (moved < 0) {
      return moved;
    }
    bufSize -= numBits;
  }
  return static_cast<int>(len * numBits);
}

int PresetFieldVarStr::get(void** buf, unsigned int bufSize, unsigned int& startBit) {
  const unsigned int len = svar.maxlen();
  CTRL_ASSERT(size > len);
  unsigned int nb = 0;
  const bounds_t* const b = svar.getBounds(nb);
  bool more = true;
  for (unsigned int i = 0; i < len; ++i) {
    unsigned int temp = 0;
    const int moved = bitBufferXfer(buf, bufSize, startBit, temp, numBits, false);
    if (moved < 0) {
      return moved;
    }
    bufSize -= numBits;
    more = more && temp != terminator;
    unsigned int c = 0;
    if (more) {
      const int val = static_cast<int>(temp);
      c = static_cast<unsigned int>(convMode ? getPresetParm(val, b, nb) : val);
    }
    str[i] = static_cast<unsigned char>(c & BYTE_MASK);
  }
  const int staged = setVar(str, len);
  return staged < 0 ? staged : static_cast<int>(len * numBits);
}

void PresetFieldVarStr::recallKeep(void* undo) {
  svar.refresh();
  const unsigned int bytes = PresetFieldVarStr::recallUndoSize();
  if (bytes > 0) {
    std::memcpy(undo, svar.get(), bytes);
  }
}

void PresetFieldVarStr::recallPutBack(const void* undo) {
  const unsigned int bytes = PresetFieldVarStr::recallUndoSize();
  if (bytes > 0) {
    std::memcpy(svar.str, undo, bytes);
  }
}

void PresetFieldVarStr::recallPublish() const {
  if (commit() != 0) {
    var.commit();
  }
}
