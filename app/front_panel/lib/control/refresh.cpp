#include "refresh.h"

#include <cstring>

void RefreshMgr::allocId(RefreshId& id) {
  const unsigned int free = ~use;
  id.token = free & (~free + 1);  // the lowest set bit, 0 if there is none
  use |= id.token;
  ref |= id.token;
}

void RefreshMgr::freeId(RefreshId& id) {
  use &= ~id.token;
  ref &= ~id.token;
  id.invalidate();
}

bool RefreshMgr::needRefresh(const RefreshId& id) {
  const bool marked = (ref & id.token) != 0;
  ref &= ~id.token;
  return marked;
}

bool refreshVar(RefreshMgr& ref, RefreshId& id, void* dest, const void* src, unsigned int size) {
  if (!id.isValid()) {
    ref.allocId(id);
  }
  if (!ref.needRefresh(id) || std::memcmp(dest, src, size) == 0) {
    return false;
  }
  std::memmove(dest, src, size);
  return true;
}

bool refreshInt(RefreshMgr& ref, RefreshId& id, int& dest, int src) {
  return refreshVar(ref, id, &dest, &src, sizeof src);
}

bool refreshStr(RefreshMgr& ref, RefreshId& id, char* dest, const char* src) {
  return refreshVar(ref, id, dest, src, static_cast<unsigned int>(std::strlen(src)) + 1);
}
