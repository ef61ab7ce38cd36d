#include "varmgr.h"

#include <cstring>

#include "bytes.h"

namespace {

constexpr unsigned int INT_BYTES = 4;

// The characters up to the first zero byte, at most `max`.
unsigned int boundedLength(const char* text, unsigned int max) {
  const void* const zero = std::memchr(text, 0, max);
  return zero == nullptr ? max : static_cast<unsigned int>(static_cast<const char*>(zero) - text);
}

}  // namespace

void ReadVarMgr::setBufInt(void* buf, unsigned int size, int val) {
  if (buf == nullptr || size == 0) {
    return;
  }
  const unsigned int low = size < INT_BYTES ? size : INT_BYTES;
  unsigned char* const bytes = static_cast<unsigned char*>(buf);
  std::memset(bytes, val < 0 ? 0xFF : 0, size - low);
  putBigEndian(bytes + size - low, low, static_cast<unsigned int>(val));
}

void ReadVarMgr::setBufStr(void* buf, unsigned int size, const char* str, bool flag) {
  if (buf == nullptr || size == 0) {
    return;
  }
  if (flag) {
    std::memcpy(buf, str, size);
    return;
  }
  const unsigned int n = str == nullptr ? 0 : boundedLength(str, size - 1);
  if (n > 0) {
    std::memcpy(buf, str, n);
  }
  std::memset(static_cast<char*>(buf) + n, 0, size - n);
}

int ReadWriteVarMgr::convert(const void* buf, unsigned int size) {
  if (buf == nullptr || size == 0) {
    return 0;
  }
  const unsigned char* p = static_cast<const unsigned char*>(buf);
  if (size > INT_BYTES) {
    p += size - INT_BYTES;
    size = INT_BYTES;
  }
  unsigned int val = getBigEndian(p, size);
  if (size < INT_BYTES && (p[0] & 0x80) != 0) {
    val |= 0xFFFFFFFFU << (8 * size);
  }
  return static_cast<int>(val);
}

ReadWriteVarMgrInt::ReadWriteVarMgrInt(const bounds_t* b, range_t o)
    : bounds(b), numBounds(calcNumBounds(b)), val(DEFAULT), overflow(o) {}

void ReadWriteVarMgrInt::get(void* buf, unsigned int size) const {
  setBufInt(buf, size, val);
}

void ReadWriteVarMgrInt::set(const void* buf, unsigned int size) {
  val = getBoundsVal(convert(buf, size), true, overflow, bounds, numBounds);
}

bool ReadWriteVarMgrInt::validate(const void* buf, unsigned int size) const {
  const int v = convert(buf, size);
  return (buf != nullptr || size == 0) && getBoundsVal(v, true, RANGE_CLIP, bounds, numBounds) == v;
}

void ReadWriteVarMgrInt::increment(int delta) {
  const unsigned int sum = static_cast<unsigned int>(val) + static_cast<unsigned int>(delta);
  val = getBoundsVal(static_cast<int>(sum), delta >= 0, overflow, bounds, numBounds);
}

const bounds_t ReadWriteVarMgrBool::BOUNDS[2] = {{FALSE, TRUE}, BOUNDS_END};

ReadWriteVarMgrBool::ReadWriteVarMgrBool(range_t o) : ReadWriteVarMgrInt(BOUNDS, o) {}

const bounds_t ReadWriteVarMgrStr::BOUNDS_PRINTABLE[2] = {{' ', '~'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_ALNUM[4] = {
    {'0', '9'}, {'A', 'Z'}, {'a', 'z'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_ALPHA[3] = {{'A', 'Z'}, {'a', 'z'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_ALPHA_UPPER[2] = {{'A', 'Z'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_ALPHA_LOWER[2] = {{'a', 'z'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_DIGIT[2] = {{'0', '9'}, BOUNDS_END};
const bounds_t ReadWriteVarMgrStr::BOUNDS_HEX[3] = {{'0', '9'}, {'A', 'F'}, BOUNDS_END};

ReadWriteVarMgrStr::ReadWriteVarMgrStr(void* buf, unsigned int size, const bounds_t* b)
    : str(static_cast<char*>(buf)),
      len(size == 0 ? 0 : size - 1),
      bounds(b),
      numBounds(calcNumBounds(b)) {
  if (buf != nullptr && size != 0) {
    std::memset(buf, 0, size);
  }
}

char ReadWriteVarMgrStr::getBoundsChar(char c) const {
  return static_cast<char>(
      getBoundsVal(static_cast<unsigned char>(c), true, RANGE_CLIP, bounds, numBounds));
}

void ReadWriteVarMgrStr::get(void* buf, unsigned int size) const {
  setBufStr(buf, size, len == 0 ? nullptr : str, false);
}

bool ReadWriteVarMgrStr::validate(const void* buf, unsigned int size) const {
  if (buf == nullptr) {
    return false;
  }
  const char* const text = static_cast<const char*>(buf);
  const unsigned int n = size < len ? size : len;
  for (unsigned int i = 0; i < n && text[i] != 0; ++i) {
    if (getBoundsChar(text[i]) != text[i]) {
      return false;
    }
  }
  return true;
}

void ReadWriteVarMgrStr::set(const void* buf, unsigned int size) {
  if (str == nullptr || len == 0 || buf == nullptr || size == 0) {
    return;
  }
  const unsigned int n = size < len ? size : len;
  std::memmove(str, buf, n);
  str[n] = 0;
  for (char* c = str; *c != 0; ++c) {
    *c = getBoundsChar(*c);
  }
}

void ReadWriteVarMgrStr::setChar(char c, unsigned int pos) {
  if (str == nullptr || pos >= len) {
    return;
  }
  if (pos <= boundedLength(str, len)) {
    str[pos] = c == 0 ? c : getBoundsChar(c);
  }
}

void getCurVarMgrVal(ReadBufVarMgr& var, void* buf, unsigned int size) {
  var.refresh();
  var.get(buf, size);
}

int startVarMgrSet(ReadWriteVarMgr& var, const void* buf, unsigned int size) {
  if (!var.startXaction()) {
    return 1;
  }
  var.set(buf, size);
  return 0;
}

int startVarMgrReset(ReadWriteVarMgr& var) {
  if (!var.startXaction()) {
    return 1;
  }
  var.init();
  return 0;
}

int commitVarMgr(ReadWriteVarMgr& var) {
  if (!var.isConsistent()) {
    return 1;
  }
  var.commit();
  return 0;
}
