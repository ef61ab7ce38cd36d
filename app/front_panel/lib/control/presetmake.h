// Versioned preset images: a list of variables packed to the bit.
//
// The application owns one list of rows, closed by a row without a field; each row says in which
// version of the list it came in and in which it was dropped. presetrecall.h brings an image back.
//
// Lists, fields, variables and buffers belong to the application. Nothing allocates, prints or
// locks: one list is walked by one thread at a time. A null list, a `verSize` that is not 1 to 4
// and a dropped row whose `ver` is not below its `remove` are fatal assertions.
#pragma once

#include "bitmanip.h"
#include "presetvar.h"

/// `remove` of a row that is current.
constexpr unsigned long PRESET_FIELD_VALID = 0xFFFFFFFFUL;

/// The longest version of an image in bytes.
constexpr unsigned int PRESET_VER_SIZE_MAX = 4;

/// One row of a versioned field list. Rows stay for ever and in their order: a field that is not
/// wanted any more gets the version that dropped it, and a new field is a new row with the next
/// version. So the list knows the layout of every image that was ever made from it. When the
/// variable of a dropped row goes too, a PresetFieldFill of the same width holds its place.
/// Versions are unsigned 32-bit numbers on any host.
struct verPresetField_t {
  unsigned long ver;     ///< list version that brought the row in
  unsigned long remove;  ///< list version that took it out, or PRESET_FIELD_VALID
  PresetField* field;    ///< held by address, as its variable is; null closes the list
};

/// The version `v` as the 32-bit number that counts, also where an unsigned long is wider.
inline unsigned int presetVersion(unsigned long v) {
  return static_cast<unsigned int>(v & 0xFFFFFFFFUL);
}

/// The bits in `bytes` bytes of an image; a room too large to count in bits is cut.
inline unsigned int presetBits(unsigned int bytes) {
  constexpr unsigned int MAX_BYTES = 0xFFFFFFFFU / BYTE_BITS;
  return (bytes < MAX_BYTES ? bytes : MAX_BYTES) * BYTE_BITS;
}

/// True while the row is current, false once it was dropped.
inline bool isPresetCurrent(const verPresetField_t& row) {
  return presetVersion(row.remove) == presetVersion(PRESET_FIELD_VALID);
}

/// The version of the list: the largest `ver` of a current and `remove` of a dropped row.
unsigned long presetListVersion(const verPresetField_t* list);

/// Prepares all fields, dropped ones too, which brings their variables to the initial values.
/// Returns the version of the list. Runs once, before any other operation on the list; a field
/// that was not prepared has no width.
unsigned long initPreset(const verPresetField_t* list);

/// Brings the variables of all current rows to their initial values. 0, or the result of the first
/// field that refused its change, and then none has taken effect. A variable that is not consistent
/// does not take effect either, and that is not told.
int resetPreset(const verPresetField_t* list);

/// Packs the current rows into an image at `buf`, which has room for `size` bytes. Returns the
/// length of the image in bytes, or a negative value: no room. The buffer then holds no image.
/// The version is stored in `verSize` bytes, 1 to 4. A version that does not fit is stored modulo
/// 256^verSize, and nothing reports it: 300 in 1 byte is stored as 44. recallPreset tells what
/// follows; a `verSize` that holds the list version avoids it. REQUIRES: `buf` not null.
int createPreset(void* buf, unsigned int size, unsigned int verSize, const verPresetField_t* list);

/// Makes what the variables of all rows hold take effect, row by row. Reads no image: see
/// recallPreset. 0, or -1 at the first row that is not consistent; the rows before it have taken
/// effect, and it and those behind it are left as they are.
int applyPreset(void* buf, unsigned int size, unsigned int verSize, const verPresetField_t* list);
