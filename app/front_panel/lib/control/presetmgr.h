// Preset store: up to 300 typed payloads that survive a power cut, and the handles to them.
//
// A PresetMgr is a handle on one entry of the one store of the process. Its operations work on a
// RAM copy and never wait; service, called periodically, brings the medium (pflash.h) into line. A
// payload is opaque bytes under a 13-bit type. Several entries may have one type.
//
// All memory is static, nothing allocates, and there is no lock: everything here runs on one
// thread. The first call runs the start-up scan and takes as long as reading a block word by word.
// A null buffer and a fault in the store's own bookkeeping stop the process, the medium's content
// never.
#pragma once

#include "bytes.h"
#include "flash_config.h"
#include "pflash.h"
#include "tessel_timer.h"

/// Version of the format that is written. Version 0 is read.
constexpr unsigned int CUR_VER = 1;
/// Entries in each index table.
constexpr unsigned int NUM_PRESETS = 300;
/// Bytes of the header of a record: head word, id, size.
constexpr unsigned int PRESET_HDR_SIZE = 6;
/// Bytes of the header of a record in a factory image.
constexpr unsigned int FACTORY_PRESET_HDR_SIZE = 4;
/// Quiet time after the latest write before it is stored, in ticks: 20 seconds.
constexpr unsigned int TIMEOUT_INC_WRITE = 20000000 / Timer::tickTime;
/// Longest wait after the first write that is not yet stored, in ticks: 60 seconds.
constexpr unsigned int TIMEOUT_ABS_WRITE = 60000000 / Timer::tickTime;

/// Store address of block `id`, 0 or 1.
constexpr unsigned int getBlkAddr(unsigned int id) {
  return id * FLASH_PARM_BLK_SIZE;
}
/// Block that holds store address `addr`.
constexpr unsigned int getBlkId(unsigned int addr) {
  return addr < FLASH_PARM_BLK_SIZE ? 0 : 1;
}
/// True when every byte of block `blkid` reads erased on the medium.
inline bool isBlkErased(unsigned int blkid) {
  return pfIsBlkErased(blkid);
}
/// The 16-bit number at offset `addr` of the factory image `buf`.
inline unsigned short getUShort(unsigned int addr, const void* buf) {
  return static_cast<unsigned short>(
      getBigEndian(static_cast<const unsigned char*>(buf) + addr, 2));
}

/// Access to an entry: many readers or one writer.
enum pmAccess_t {
  PM_READ = 0,   ///< shared with other readers
  PM_WRITE = 1,  ///< alone
};

// Results of the handle operations. Each failure leaves the store as it was.
constexpr int ERR_OK = 0;            ///< done
constexpr int ERR_NOT_FOUND = 1;     ///< no entry matches, no free entry, or the search has ended
constexpr int ERR_CANNOT_OPEN = 2;   ///< the entry's use conflicts with the requested access
constexpr int ERR_NOT_OPEN = 3;      ///< the handle is not open for this operation
constexpr int ERR_WRITE_FAILED = 4;  ///< the block has no room for this payload, or it is empty
constexpr int ERR_READ_FAILED = 6;   ///< the entry holds no data

/// A handle on one entry of the store. Closes itself; may be opened again without limit. It is not
/// copied: each handle counts as one use of its entry.
class PresetMgr {
 public:
  /// A closed handle.
  PresetMgr();
  /// Closes the handle.
  ~PresetMgr();
  PresetMgr(const PresetMgr&) = delete;
  PresetMgr& operator=(const PresetMgr&) = delete;

  /// Opens the lowest user entry of `searchType`, whose top three bits are dropped, as on every
  /// open. Every open first closes an open handle; one that fails leaves it closed.
  /// ERR_OK, ERR_NOT_FOUND, or ERR_CANNOT_OPEN with the search standing on the busy entry.
  int openFirst(unsigned short searchType, pmAccess_t access);

  /// Opens the lowest factory entry of `searchType` for reading. Results as openFirst.
  int openFirstFactory(unsigned short searchType);

  /// Opens the next entry of this handle's search, with its access. Results as openFirst.
  int openNext();

  /// Takes the lowest free user entry for writing. It holds no preset, and no search finds it,
  /// until the first write; closed without one, it is free again. ERR_OK or ERR_NOT_FOUND.
  int openNew(unsigned short openType);

  /// Gives the entry back. ERR_OK or ERR_NOT_OPEN.
  int close();

  /// Replaces the entry's payload with the `len` bytes at `buf`. They can be read at once and
  /// reach the medium later; bytes equal to the present payload change nothing and start no timer.
  /// ERR_OK; ERR_NOT_OPEN when not open for writing; ERR_WRITE_FAILED when `len` is 0 or all live
  /// payloads, each with its header of 6 bytes and rounded up to even, would no longer fit one
  /// block behind its header of 4 bytes. REQUIRES: `buf` is not null.
  int write(const void* buf, unsigned int len);

  /// Copies the payload to `buf`. `len` is the room in `buf` on entry, and a smaller one truncates;
  /// on return it is the number of bytes delivered. ERR_OK; ERR_NOT_OPEN; ERR_READ_FAILED when
  /// nothing has been written to the entry. REQUIRES: `buf` is not null unless `len` is 0.
  int read(void* buf, unsigned int& len);

  /// Deletes the preset and closes the handle. ERR_OK, or ERR_NOT_OPEN when not open for writing.
  int remove();

  /// The lowest type above `after` that a user entry has, or -1 when there is none. Starting from
  /// -1 it walks all types in use, each once. Needs no handle and minds no open one.
  static int nextType(int after);

  /// One pass of the write-behind service: moves one word or starts one erase, never waits.
  /// Changes reach the medium 20 seconds after the last of a run of writes and 60 seconds after
  /// the first, one word per pass. The application calls it periodically, at any period.
  static void service();

  /// One pass that does not wait for the times above. 1: work is left. 0: the medium holds
  /// everything; to get there the caller repeats flush. 0 also before the store's first use. A
  /// medium in a file may still have to wait for its disk: repeat flush until its error() is empty,
  /// too.
  static int flush();

  /// Empties the user store. Open handles lose their entries: read and write return ERR_NOT_OPEN.
  /// The medium is erased by the passes that follow. A power cut before flush has returned 0 may
  /// leave presets; one inside an erase may leave them damaged.
  static void format();

  /// Installs the factory image of `len` bytes at `buf`, which stays valid and unchanged while it
  /// is installed; a null `buf` or a `len` of 0 removes it. Open factory handles lose their
  /// entries. 0, or 1 for a bad image, which leaves none installed.
  static int setFactory(void* buf, unsigned int len);

 private:
  static void initGlob();
  int open(bool first);
  bool isOpenForWriting() const;
  bool isCurrent() const;

  bool isOpen = false;
  pmAccess_t acc = PM_READ;
  unsigned int id = NUM_PRESETS;  // also the search cursor
  unsigned short type = 0xFFFF;
  bool userPreset = true;  // else a factory entry
  unsigned int epoch = 0;  // of the table when the handle was opened
};
