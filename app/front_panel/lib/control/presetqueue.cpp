// Queues and RAM copy of the preset store.
#include <cstring>

#include "debug.h"
#include "presetstore.h"

presetStore_t presetStore;
presetService_t presetService;

namespace {

presetStore_t& store = presetStore;

// A queue and the links that thread it through the table.
struct queue_t {
  list_t& list;
  unsigned int preset_t::*prev;
  unsigned int preset_t::*next;
};

const queue_t writeQueue = {presetStore.writeList, &preset_t::prevWrite, &preset_t::nextWrite};
const queue_t delQueue = {presetStore.delList, &preset_t::prevDel, &preset_t::nextDel};

void checkEnds(const list_t& list) {
  CTRL_ASSERT((list.size == 0) == (list.head >= NUM_PRESETS));
  CTRL_ASSERT((list.size == 0) == (list.tail >= NUM_PRESETS));
}

// A member has another one in front of it or is the head.
bool contains(const queue_t& q, unsigned int id) {
  CTRL_ASSERT(id < NUM_PRESETS);
  checkEnds(q.list);
  return store.user[id].*q.prev < NUM_PRESETS || q.list.head == id;
}

// Makes `to` follow `from`, where an end mark in place of an id stands for the list's own end.
void join(const queue_t& q, unsigned int from, unsigned int to) {
  (from < NUM_PRESETS ? store.user[from].*q.next : q.list.head) = to;
  (to < NUM_PRESETS ? store.user[to].*q.prev : q.list.tail) = from;
}

void append(const queue_t& q, unsigned int id) {
  preset_t& preset = store.user[id];
  CTRL_ASSERT(preset.*q.prev >= NUM_PRESETS && preset.*q.next >= NUM_PRESETS);
  join(q, q.list.tail, id);
  join(q, id, NUM_PRESETS);
  ++q.list.size;
  checkEnds(q.list);
}

void unlink(const queue_t& q, unsigned int id) {
  preset_t& preset = store.user[id];
  CTRL_ASSERT(q.list.size > 0);
  CTRL_ASSERT((preset.*q.prev >= NUM_PRESETS) == (q.list.head == id));
  CTRL_ASSERT((preset.*q.next >= NUM_PRESETS) == (q.list.tail == id));
  join(q, preset.*q.prev, preset.*q.next);
  preset.*q.prev = NUM_PRESETS;
  preset.*q.next = NUM_PRESETS;
  --q.list.size;
  checkEnds(q.list);
}

bool hasPayload(const presetServ_t& serv) {
  return serv.dataStart < RAM_COPY_SIZE;
}

// The slot with the lowest payload from offset `from` on; null when there is none.
presetServ_t* nextPayload(unsigned int from) {
  presetServ_t* lowest = nullptr;
  for (preset_t& preset : store.user) {
    for (presetServ_t& serv : preset.serv) {
      if (hasPayload(serv) && serv.dataStart >= from &&
          (lowest == nullptr || serv.dataStart < lowest->dataStart)) {
        lowest = &serv;
      }
    }
  }
  return lowest;
}

// Closes the gaps that payloads replaced by a later record of their id have left at start-up.
void reclaimRAMCopy() {
  unsigned int end = 0;
  while (presetServ_t* const serv = nextPayload(end)) {
    std::memmove(store.ramCopy + end, store.ramCopy + serv->dataStart, serv->size);
    serv->dataStart = end;
    end += serv->size;
  }
  store.ramCopyEnd = end;
}

}  // namespace

void initPresetServ(presetServ_t& serv) {
  serv = {PREOP_NONE, NO_ADDR, 0xFFFF, 0};
}

void initPreset(preset_t& preset) {
  preset.erased = true;
  initPresetServ(preset.serv[0]);
  initPresetServ(preset.serv[1]);
  preset.fladdr = NO_ADDR;
  preset.superseded = false;
  preset.acc = PM_READ;
  preset.useCount = 0;
  preset.prevWrite = preset.nextWrite = NUM_PRESETS;
  preset.prevDel = preset.nextDel = NUM_PRESETS;
}

void initList(list_t& list) {
  list = {NUM_PRESETS, NUM_PRESETS, 0};
}

void insertWriteList(unsigned int id) {
  if (contains(writeQueue, id)) {
    unlink(writeQueue, id);
  }
  append(writeQueue, id);
}

void removeWriteList(unsigned int id) {
  if (contains(writeQueue, id)) {
    unlink(writeQueue, id);
  }
}

void insertDelList(unsigned int id) {
  if (!contains(delQueue, id)) {
    append(delQueue, id);
  }
}

void dequeueDelList() {
  checkEnds(store.delList);
  if (store.delList.size > 0) {
    unlink(delQueue, store.delList.head);
  }
}

void removeFromRAMCopy(unsigned int start, unsigned int size) {
  CTRL_ASSERT(store.ramCopyEnd <= RAM_COPY_SIZE);
  CTRL_ASSERT(start <= store.ramCopyEnd && size <= store.ramCopyEnd - start);
  const unsigned int behind = start + size;
  std::memmove(store.ramCopy + start, store.ramCopy + behind, store.ramCopyEnd - behind);
  store.ramCopyEnd -= size;
  // Erased entries too: one may have a payload, of a record in flight.
  for (preset_t& preset : store.user) {
    for (presetServ_t& serv : preset.serv) {
      if (hasPayload(serv) && serv.dataStart >= behind) {
        serv.dataStart -= size;
      }
    }
  }
}

void dropPayload(presetServ_t& serv) {
  if (hasPayload(serv)) {
    removeFromRAMCopy(serv.dataStart, serv.size);
  }
  initPresetServ(serv);
}

void setPayload(presetServ_t& serv, unsigned short type, const void* buf, unsigned int len) {
  if (hasPayload(serv) && serv.size == len) {
    std::memcpy(store.ramCopy + serv.dataStart, buf, len);
    serv.op = PREOP_WRITE;
    serv.type = type;
    return;
  }
  dropPayload(serv);
  if (len > RAM_COPY_SIZE - store.ramCopyEnd) {
    reclaimRAMCopy();
  }
  CTRL_ASSERT(len <= RAM_COPY_SIZE - store.ramCopyEnd);
  std::memcpy(store.ramCopy + store.ramCopyEnd, buf, len);
  serv = {PREOP_WRITE, store.ramCopyEnd, type, len};
  store.ramCopyEnd += len;
}
