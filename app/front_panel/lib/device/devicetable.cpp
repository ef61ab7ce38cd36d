#include "devicetable.h"

#include <cstdio>
#include <cstring>

#include "debug.h"

namespace device {

namespace {

constexpr unsigned int INT_SIZE = 4;

unsigned int hashOf(const char* name, std::size_t length) {
  unsigned int hash = 2166136261U;  // FNV-1a
  for (std::size_t i = 0; i < length; ++i) {
    hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619U;
  }
  return hash;
}

bool isNamed(const Family& family, const char* name, std::size_t length) {
  const char* const own = family.facts().name;
  return std::strncmp(own, name, length) == 0 && own[length] == 0;
}

Family* familyIn(AVLTree& tree, unsigned int key) {
  const FamilyNode* const node = static_cast<const FamilyNode*>(tree.find(key));
  return node == nullptr ? nullptr : node->family;
}

}  // namespace

// Enters a family into the trees by which it is found.
void Controls::enter(Family& family) {
  const Facts& f = family.facts();
  CTRL_ASSERT(!family.wrong(family.taken, "it stands in the device twice: name it once"));
  family.taken = true;
  FamilyNode node = {&family};
  const std::size_t length = std::strlen(f.name);
  const unsigned int hash = hashOf(f.name, length);
  CTRL_ASSERT(!family.wrong(findFamily(f.name, length) != nullptr,
                            "another family has this name: take another"));
  if (Family* const first = familyIn(*store.byName, hash)) {
    family.sameHash = first->sameHash;
    first->sameHash = &family;
  } else {
    store.byName->insert(hash, &node);
  }
  CTRL_ASSERT(!family.wrong(familyIn(*store.byId, f.id) != nullptr,
                            "another family has this id: take another"));
  store.byId->insert(f.id, &node);
}

void Controls::checkAllTaken() const {
  for (const Family* f = Family::declared; f != nullptr; f = f->next) {
    CTRL_ASSERT(!f->wrong(!f->taken, "it is declared and not in the device: name it there"));
  }
}

void Controls::onChange(ChangeFn fn) {
  CTRL_ASSERT(!started);  // what changed before would be told then
  told = fn;
}

void Controls::start() {
  CTRL_ASSERT(!started);
  started = true;
  for (Family* const f : *this) {
    f->check();
    enter(*f);
  }
  checkAllTaken();
  CtrlReadWrite* noSettings[] = {nullptr};
  CtrlRead* noReadings[] = {nullptr};
  ctrl_sys_init(store.rw, store.ro, noSettings, noReadings, store.queue, store.queueSize, nullptr,
                0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  for (Family* const f : *this) {
    f->start();
  }
}

const Family* Controls::findFamily(const char* name, std::size_t length) const {
  const Family* f = familyIn(*store.byName, hashOf(name, length));
  while (f != nullptr && !isNamed(*f, name, length)) {
    f = f->sameHash;
  }
  return f;
}

const Family* Controls::findFamily(unsigned int id) const {
  return familyIn(*store.byId, id);
}

Control Controls::find(const char* name, unsigned int first, unsigned int second) const {
  const Family* const f = findFamily(name, std::strlen(name));
  if (f == nullptr || first >= f->facts().dim[0] || second >= f->facts().dim[1]) {
    return {};
  }
  return {f, first * f->facts().dim[1] + second};
}

Control Controls::findNumber(unsigned int id, unsigned int index) const {
  const Family* const f = findFamily(id);
  const unsigned int k = f == nullptr ? 0 : f->member(index);
  return f == nullptr || k == f->size() ? Control{} : Control{f, k};
}

void Controls::get(const Control& control, void* buf, unsigned int size) const {
  CTRL_ASSERT(control.family != nullptr);
  control.family->entry(control.member).get(buf, size);
}

int Controls::get(const Control& control) const {
  unsigned char buf[INT_SIZE];
  get(control, buf, sizeof buf);
  return ReadWriteVarMgr::convert(buf, sizeof buf);
}

int Controls::validate(const Control& control, const void* data, unsigned int size) const {
  if (control.family == nullptr) {
    return CTRL_ERR_PARAM;
  }
  const CtrlReadWrite* const entry = control.family->settable(control.member);
  const Facts& f = control.family->facts();
  // An entry cuts a text that is too long; whoever sets a text by this layer is told.
  const bool fits = f.textSize == 0 || size < f.textSize ||
                    (data != nullptr && std::memchr(data, 0, f.textSize) != nullptr);
  return entry != nullptr && fits && entry->validate(data, size) ? CTRL_ERR_SUCCESS
                                                                 : CTRL_ERR_PARAM;
}

int Controls::set(const Control& control, const void* data, unsigned int size) {
  const int result = validate(control, data, size);
  if (result != CTRL_ERR_SUCCESS) {
    return result;
  }
  CtrlReadWrite& entry = *control.family->settable(control.member);
  if (!ctrlDoCancel(entry) && ctrlWaiting() >= store.queueSize) {
    return CTRL_ERR_NOBUFFER;
  }
  generic_set(data, size, entry);
  return CTRL_ERR_SUCCESS;
}

int Controls::set(const Control& control, int value) {
  unsigned char buf[INT_SIZE];
  ReadVarMgr::setBufInt(buf, sizeof buf, value);
  const bool isText = control.family != nullptr && control.family->facts().textSize != 0;
  return isText ? CTRL_ERR_PARAM : set(control, buf, sizeof buf);
}

int Controls::set(const Control& control, const char* text) {
  const bool isText = control.family != nullptr && control.family->facts().textSize != 0;
  return isText ? set(control, text, static_cast<unsigned int>(std::strlen(text)) + 1)
                : CTRL_ERR_PARAM;
}

unsigned int Controls::waiting() const {
  return ctrlWaiting();
}

void Controls::lock() {
  if (keeper != nullptr) {
    keeper->lock();
  }
}

void Controls::unlock() {
  if (keeper != nullptr) {
    keeper->unlock();
  }
}

unsigned int Controls::confirm() {
  CTRL_ASSERT(!confirming);
  const unsigned int count = ctrlWaiting();
  lock();
  confirming = true;
  ctrlDoConfirm();
  confirming = false;
  if (followBehind) {
    follow();
  }
  unlock();
  settled(count > 0);
  return count;
}

void Controls::follow() {
  followBehind = confirming;
  for (Family* const f : *this) {
    f->follow(!confirming);
  }
}

unsigned int Controls::cancel() {
  CTRL_ASSERT(!confirming);
  const unsigned int count = ctrlDoCancel();
  follow();
  return count;
}

unsigned int Controls::carryOut(const Setting* settings, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    const Setting& s = settings[i];
    if (validate(s.control, s.data, s.size) != CTRL_ERR_SUCCESS) {
      return i;
    }
  }
  lock();
  for (unsigned int i = 0; i < count; ++i) {
    const Setting& s = settings[i];
    s.control.family->publish(s.control.member, s.data, s.size);
  }
  unlock();
  settled(count > 0);
  return count;
}

void Controls::reset() {
  for (Family* const f : *this) {
    f->reset();
    f->follow(false);  // at once it would undo a set that has a second place ahead in the queue
  }
  followBehind = confirming;
}

void Controls::changed() {
  follow();
  settled(true);
}

void Controls::settled(bool mark) {
  if (mark && keeper != nullptr) {
    keeper->mark();
  }
  tellAgain = true;
  if (telling || confirming) {
    return;  // told when the function that is told has returned, or behind the confirm
  }
  telling = true;
  while (tellAgain) {
    tellAgain = false;
    for (Family* const f : *this) {
      if (f->told != nullptr || told != nullptr) {
        f->tell(told);
      }
    }
  }
  telling = false;
}

}  // namespace device
