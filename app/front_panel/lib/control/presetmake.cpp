#include "presetmake.h"

#include "bitmanip.h"
#include "debug.h"

namespace {

// Raises the list version `ver` by what the row says.
void raiseVersion(const verPresetField_t& row, unsigned int& ver) {
  unsigned int rowVer = presetVersion(row.ver);
  if (!isPresetCurrent(row)) {
    CTRL_ASSERT(presetVersion(row.ver) < presetVersion(row.remove));
    rowVer = presetVersion(row.remove);
  }
  if (rowVer > ver) {
    ver = rowVer;
  }
}

}  // namespace

unsigned long presetListVersion(const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  unsigned int maxVer = 0;
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (const verPresetField_t* row = list; row->field != nullptr; ++row, about.next()) {
    raiseVersion(*row, maxVer);
  }
  return maxVer;
}

unsigned long initPreset(const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  unsigned int maxVer = 0;
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (const verPresetField_t* row = list; row->field != nullptr; ++row, about.next()) {
    raiseVersion(*row, maxVer);
    row->field->init();
  }
  return maxVer;
}

int resetPreset(const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  int result = 0;
  const verPresetField_t* end = list;  // behind the last row reached
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (; end->field != nullptr && result == 0; ++end, about.next()) {
    if (isPresetCurrent(*end)) {
      result = end->field->reset();
    }
  }
  for (const verPresetField_t* row = list; row != end && result == 0; ++row) {
    if (isPresetCurrent(*row)) {
      row->field->commit();
    }
  }
  for (const verPresetField_t* row = list; row != end; ++row) {
    if (isPresetCurrent(*row)) {
      row->field->endCommit();
    }
  }
  return result;
}

int createPreset(void* buf, unsigned int size, unsigned int verSize, const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  CTRL_ASSERT(buf != nullptr);
  CTRL_ASSERT(verSize >= 1 && verSize <= PRESET_VER_SIZE_MAX);
  if (verSize > size) {
    return -1;
  }
  unsigned char* const head = static_cast<unsigned char*>(buf);
  void* pre = head + verSize;
  unsigned int bit = BYTE_MSBIT;
  unsigned int preSize = presetBits(size - verSize);
  unsigned int maxVer = 0;
  unsigned int ret = 0;
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (const verPresetField_t* row = list; row->field != nullptr; ++row, about.next()) {
    if (isPresetCurrent(*row)) {
      const int bits = row->field->set(&pre, preSize, bit);
      if (bits < 0) {
        return bits;
      }
      ret += static_cast<unsigned int>(bits);
      preSize -= static_cast<unsigned int>(bits);
    }
    raiseVersion(*row, maxVer);
  }
  if (bit != BYTE_MSBIT) {
    unsigned char* const last = static_cast<unsigned char*>(pre);
    *last = static_cast<unsigned char>(*last | calcBitMask(bit + 1));
  }
  for (unsigned int i = 0; i < verSize; ++i) {
    head[i] = static_cast<unsigned char>((maxVer >> (i * BYTE_BITS)) & BYTE_MASK);
  }
  return static_cast<int>(verSize + (ret + BYTE_BITS - 1) / BYTE_BITS);
}

int applyPreset(void* /*buf*/, unsigned int /*size*/, unsigned int /*verSize*/,
                const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (const verPresetField_t* row = list; row->field != nullptr; ++row, about.next()) {
    if (row->field->commit() != 0) {
      return -1;
    }
    row->field->endCommit();
  }
  return 0;
}
