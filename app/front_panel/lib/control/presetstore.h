// The inside of the preset store: the state that its files share, and their functions.
//
// For presetmgr.cpp (handles), presetscan.cpp (start-up scan, factory image, format),
// presetservice.cpp (write-behind service), presetqueue.cpp (queues and RAM copy) and the tests;
// applications use presetmgr.h. One instance per process, in static memory, without a lock: all of
// this belongs to the store's thread. Every REQUIRES and invariant is a fatal assertion.
#pragma once

#include "flash_config.h"
#include "presetformat.h"
#include "presetmgr.h"
#include "tessel_timer.h"

/// Bytes of the RAM copy: a payload in flight and its successor are in it beside all others.
constexpr unsigned int RAM_COPY_SIZE = 2 * FLASH_PARM_BLK_SIZE;
/// In place of a store address or a RAM copy offset: none.
constexpr unsigned int NO_ADDR = 0xFFFFFFFF;

/// What a service slot asks for.
enum presetOp_t {
  PREOP_NONE = 0,    ///< nothing
  PREOP_WRITE = 1,   ///< a record of its payload
  PREOP_DELETE = 2,  ///< the delete mask on the record
};

/// One service slot.
struct presetServ_t {
  presetOp_t op;           ///< what is asked for
  unsigned int dataStart;  ///< offset in ramCopy, or in the factory image; NO_ADDR for no payload
  unsigned short type;     ///< 0xFFFF for none
  unsigned int size;       ///< payload bytes
};

/// One index entry.
struct preset_t {
  bool erased;            ///< holds no preset
  presetServ_t serv[2];   ///< [0]: present payload; [1]: what arrives while [0] is being written
  unsigned int fladdr;    ///< store address of the record of this entry; NO_ADDR for none
  bool superseded;        ///< the log has an earlier live record of this id, too
  pmAccess_t acc;         ///< access of the latest opener
  unsigned int useCount;  ///< open handles
  unsigned int prevWrite, nextWrite;  ///< links of writeList
  unsigned int prevDel, nextDel;      ///< links of delList
};

/// A queue of ids, threaded through the table; NUM_PRESETS is the end mark.
struct list_t {
  unsigned int head, tail, size;  ///< first id, last id, number of ids
};

/// What a block is used for.
enum blkState_t {
  BLK_ALLOC = 0,    ///< the live block
  BLK_DEALLOC = 1,  ///< to be erased
  BLK_ERASED = 2,   ///< also while a block copy is filling it
};

/// The operation in flight.
enum servAction_t {
  ACT_NONE = 0,
  ACT_ERASE_BLK = 1,    ///< erase of block `blkid`
  ACT_PRE_DEL = 2,      ///< delete mask on the record of `curOp`
  ACT_PRE_WRITE = 3,    ///< a word of the record of `curOp`
  ACT_BLK_VER = 4,      ///< version word of the copied block
  ACT_BLK_VALID1 = 5,   ///< its block word 0xFFFE
  ACT_BLK_VALID2 = 6,   ///< its block word 0x7FFE
  ACT_BLK_INVALID = 7,  ///< mask 0xEFFF on the word of a block that is given up
  ACT_OVERTAKEN = 8,    ///< any word that format overtook: nothing but its completion follows
};

// What stays true between two passes of the service:
// (1) Every entry that is not erased has a payload in ramCopy. It is on the medium, or the entry is
//     on writeList, or its record is in flight.
// (2) serv[1] is empty on every entry but the one whose record is in flight.
// (3) An erased entry has no payload, but for one whose record is in flight.
// (4) An entry is on delList exactly while the record of a removed preset of its id stands in the
//     log that the store appends to, or is being marked deleted. No record of the id is started
//     meanwhile, so a delete cannot hit a later record.
// (5) The old block of a block copy keeps its valid block word until the target has a complete
//     record of every entry with one in the old block that has not been removed.

/// The index, the RAM copy and the state of the blocks.
struct presetStore_t {
  bool init;                      ///< the start-up scan has run
  preset_t user[NUM_PRESETS];     ///< the entries of the log
  preset_t factory[NUM_PRESETS];  ///< only erased, serv[0], acc and useCount matter
  unsigned int userEpoch;         ///< counts what takes the open user handles' entries away
  unsigned int factoryEpoch;      ///< as userEpoch, for factory handles
  list_t writeList;               ///< entries whose serv[0] is to be written as a record
  list_t delList;                 ///< entries whose record is to be marked deleted, oldest first
  unsigned int curOp;             ///< id that the operation in flight is for; else NUM_PRESETS
  blkState_t blkState[TOTAL_FLASH_BLKS];  ///< by block id
  bool blkReadsValid[TOTAL_FLASH_BLKS];   ///< given up and still valid, to be invalidated first
  unsigned int flashAddrEnd;              ///< store address at which the next word of the log goes
  bool lastWordDirty;                     ///< the last word of the log's block cannot be used
  unsigned char ramCopy[RAM_COPY_SIZE];   ///< payloads, in no particular order
  unsigned int ramCopyEnd;                ///< bytes of ramCopy in use
  bool forceCopy;                         ///< a block copy is due even with nothing to write
  const unsigned char* factoryData;       ///< the caller's; null for none
  unsigned int factorySize;               ///< its bytes
  bool absTimeoutStarted, incTimeoutStarted;  ///< the timers count; one that is not running
                                              ///< reads as expired
  Timer absTimeout{false};                    ///< runs from the first write not yet stored
  Timer incTimeout{false};                    ///< runs from the latest write
};

/// State of the write-behind service. All zero at start.
struct presetService_t {
  servAction_t action;       ///< the operation in flight
  unsigned int blkid;        ///< block being erased
  unsigned int numWrBytes;   ///< bytes of the current record programmed so far
  unsigned int preStart;     ///< store address of the current record
  unsigned int numPreWrite;  ///< records left in the batch that is being appended
  bool blkCopyOp;            ///< a block copy is being written
  unsigned int copyId;       ///< lowest id that the copy has not come to
};

/// The store of the process.
extern presetStore_t presetStore;
/// Its service.
extern presetService_t presetService;

/// True when the entry has a record in the log.
inline bool hasRecord(const preset_t& preset) {
  return preset.fladdr < FLASH_AREA_SIZE;
}

/// True while words of a record of entry `id` are being programmed. The service then reads serv[0],
/// which stays as it is, and newer requests go to serv[1]. False while a delete of it is in flight.
inline bool isRecordInFlight(unsigned int id) {
  return presetService.action == ACT_PRE_WRITE && presetStore.curOp == id;
}

/// Sets the slot to no operation and no payload.
void initPresetServ(presetServ_t& serv);
/// Sets the entry to erased, unused and on no queue.
void initPreset(preset_t& preset);
/// Empties the list's ends; the links of its members are the caller's.
void initList(list_t& list);

/// Puts `id` at the tail of writeList, moving it there if it is queued.
/// REQUIRES: id < NUM_PRESETS, here and below.
void insertWriteList(unsigned int id);
/// Takes `id` out of writeList; no effect if it is not queued.
void removeWriteList(unsigned int id);
/// Puts `id` at the tail of delList; no effect if it is queued.
void insertDelList(unsigned int id);
/// Takes the head off delList; no effect on an empty queue.
void dequeueDelList();

/// Cuts `size` bytes at offset `start` out of ramCopy and keeps every other slot's dataStart right.
/// REQUIRES: start + size <= ramCopyEnd <= RAM_COPY_SIZE.
void removeFromRAMCopy(unsigned int start, unsigned int size);
/// Cuts the slot's payload, if it has one, out of ramCopy, and sets the slot to empty.
void dropPayload(presetServ_t& serv);
/// Makes the `len` bytes at `buf` the slot's payload, to be written under `type`: in the place of
/// one of equal size, else at the end of ramCopy. REQUIRES: they fit it beside all other payloads.
void setPayload(presetServ_t& serv, unsigned short type, const void* buf, unsigned int len);

/// One pass of the service. True when it is idle; false while something is in flight or a further
/// pass has work to do. `forceWrite` starts a batch without waiting for the timers.
bool doService(bool forceWrite);
/// Makes the service forget its batch. A word in flight is waited out, with nothing to follow; an
/// erase in flight goes on.
void cancelService();

/// As at process start: the next use of the store scans the medium anew. For tests, after the
/// medium has been powered up; open handles lose their entries.
void resetPresetStore();
