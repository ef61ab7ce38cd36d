// Component files: the container in which firmware files reach the board.
//
// A file is a component header, then for each file in it a subcomponent header with the file's
// data directly behind it, at any address: nothing is aligned. Every header and every file's data
// has a CRC-16. All operations work on bytes that the caller or the boot flash holds; nothing is
// copied, changed or kept. The forms without a length follow the sizes that the file states and are
// for files that are known to be whole. Faults are reported by the result and a line on standard
// output; nothing here stops the process. Any thread may call.
#pragma once

#include <cstddef>

#include "bytes.h"

/// The bytes of a be32_t. A class of their own, so that a header is initialised from numbers, and
/// `c ? header.crc : 0U` still has one meaning.
class be32_bytes_t {
 public:
  be32_bytes_t() = default;
  /// Stores `val`.
  constexpr be32_bytes_t(unsigned int val) : bytes{} { putBigEndian(bytes, sizeof bytes, val); }
  /// The number.
  constexpr unsigned int get() const { return getBigEndian(bytes, sizeof bytes); }

 private:
  unsigned char bytes[4];
};

/// A 32-bit number in a file, most significant byte first: four bytes without alignment that behave
/// as an unsigned int. Only printf and its like, which take no classes, need a cast.
struct be32_t {
  be32_bytes_t stored;  ///< the number as it stands in the file

  /// The number.
  constexpr operator unsigned int() const { return stored.get(); }
  /// Stores `val`. The others are those of an unsigned int.
  constexpr be32_t& operator=(unsigned int val) {
    stored = val;
    return *this;
  }
  constexpr be32_t& operator+=(unsigned int val) { return *this = *this + val; }
  constexpr be32_t& operator-=(unsigned int val) { return *this = *this - val; }
  constexpr be32_t& operator*=(unsigned int val) { return *this = *this * val; }
  constexpr be32_t& operator/=(unsigned int val) { return *this = *this / val; }
  constexpr be32_t& operator%=(unsigned int val) { return *this = *this % val; }
  constexpr be32_t& operator&=(unsigned int val) { return *this = *this & val; }
  constexpr be32_t& operator|=(unsigned int val) { return *this = *this | val; }
  constexpr be32_t& operator^=(unsigned int val) { return *this = *this ^ val; }
  constexpr be32_t& operator<<=(unsigned int val) { return *this = *this << val; }
  constexpr be32_t& operator>>=(unsigned int val) { return *this = *this >> val; }
  constexpr be32_t& operator++() { return *this += 1; }
  constexpr be32_t& operator--() { return *this -= 1; }
  constexpr unsigned int operator++(int) { return (*this += 1) - 1; }
  constexpr unsigned int operator--(int) { return (*this -= 1) + 1; }
};

/// The component header. A text ends with a zero byte unless it fills its field.
struct component_t {
  char product_id[31];         ///< product identification
  char component_id[31];       ///< component identification
  char location_id[6];         ///< location identification
  unsigned char major_rev;     ///< major revision
  unsigned char minor_rev;     ///< minor revision
  char rev_string[11];         ///< revision text
  char creation_date[26];      ///< creation date text
  unsigned char num_subcomps;  ///< number of subcomponents
  be32_t crc;                  ///< CRC of the bytes before it and of its own high half, which is 0
};
static_assert(sizeof(component_t) == 112 && alignof(component_t) == 1);
static_assert(offsetof(component_t, component_id) == 31);
static_assert(offsetof(component_t, location_id) == 62);
static_assert(offsetof(component_t, major_rev) == 68);
static_assert(offsetof(component_t, minor_rev) == 69);
static_assert(offsetof(component_t, rev_string) == 70);
static_assert(offsetof(component_t, creation_date) == 81);
static_assert(offsetof(component_t, num_subcomps) == 107);
static_assert(offsetof(component_t, crc) == 108);

/// The header in front of the data of one file.
struct subcomp_t {
  char filename[52];  ///< file name, ended by a zero byte
  be32_t filesize;    ///< number of data bytes behind this header
  be32_t filecrc;     ///< CRC of the data bytes
  char vctag[52];     ///< a tag text that nothing here looks at
  be32_t crc;         ///< CRC of the bytes before it and of its own high half, which is 0
};
static_assert(sizeof(subcomp_t) == 116 && alignof(subcomp_t) == 1);
static_assert(offsetof(subcomp_t, filesize) == 52);
static_assert(offsetof(subcomp_t, filecrc) == 56);
static_assert(offsetof(subcomp_t, vctag) == 60);
static_assert(offsetof(subcomp_t, crc) == 112);

/// What the component header in the boot flash says, as in component_t. The texts are copied at
/// full width, so they end with a zero byte only if the header's do.
struct bootFlashDesc_t {
  char productId[31];     ///< product identification
  char componentId[31];   ///< component identification
  char locationId[6];     ///< location identification
  int majorRev;           ///< major revision
  int minorRev;           ///< minor revision
  char revString[11];     ///< revision text
  char creationDate[26];  ///< creation date text
  int numFiles;           ///< number of subcomponents
};

/// Checks a whole component file: every header and every file's data, up to the first fault.
/// Returns 1 when it is valid and 0 when it is not, and then has said on standard output what is
/// wrong; subcomponents are numbered from 0. A null pointer is not valid.
unsigned int validate_bin_file(const void* bin_file);

/// The same for a file of unknown origin, in a buffer of `size` bytes: nothing behind them is read,
/// and a part that does not fit in them is not valid. Bytes behind the last file are ignored.
unsigned int validate_bin_file(const void* bin_file, std::size_t size);

/// Finds the file `name` in a component file. Returns the address of its data inside the file and
/// stores their number through `psize`, which may be null; or returns null and stores nothing. A
/// file of that name with damaged data is passed over, with a line on standard output; a damaged
/// header ends the search. A file name without its zero byte is no name.
unsigned char* locate_file_in(const component_t* ch, const char* name, unsigned long* psize);

/// The same for a component file of unknown origin in a buffer of `size` bytes at `ch`.
unsigned char* locate_file_in(const component_t* ch, std::size_t size, const char* name,
                              unsigned long* psize);

/// Finds the file `name` in the boot flash, as locate_file_in does: in the component of the first
/// slot, and if it is not there, in that of the second. Nothing behind the end of the flash is
/// read, which is the board's own (setBootFlashSize).
unsigned char* locate_file(const char* name, unsigned long* psize);

/// Fills `*pDesc` from the first of the boot flash's two slots whose component header is valid;
/// the files behind the header are not looked at. Returns 0, or 1 when there is none or `pDesc` is
/// null.
int getFlashDescriptor(bootFlashDesc_t* pDesc);
