// Refresh tokens: tell the variables of a group when to look at their globals again.
//
// A RefreshMgr holds one bit for each variable of its group, at most 32. setRefresh sets the bits
// of all of them; each variable clears its own when it has looked. The application owns a
// RefreshMgr and chooses which variables share it. No locks: the variables of a group and the
// application's writes to their globals belong to one thread, or the application keeps them
// apart. Nothing here allocates, prints or fails loudly: a group without a free bit leaves the
// variable unable to follow its global.
#pragma once

/// One holder's token: exactly one bit, the holder's in its RefreshMgr, or none.
class RefreshId {
 public:
  /// No token.
  RefreshId() = default;
  /// True when the holder has a token.
  bool isValid() const { return token != 0; }
  /// Forgets the token, without giving it back.
  void invalidate() { token = 0; }

 private:
  friend class RefreshMgr;
  unsigned int token = 0;
};

/// One group of up to 32 token holders. They hold its address: it outlives them and stays where it
/// is; a copy is another group.
class RefreshMgr {
 public:
  /// No holders.
  RefreshMgr() = default;
  /// Gives `id` the lowest free token, marked to look once; no token when all 32 are taken.
  void allocId(RefreshId& id);
  /// Takes the token of `id` back. Without one nothing changes.
  void freeId(RefreshId& id);
  /// Marks every holder to look again. The application calls it after it wrote a global.
  void setRefresh() { ref = use; }
  /// Tells whether the holder of `id` is marked, and clears the mark.
  bool needRefresh(const RefreshId& id);

 private:
  unsigned int use = 0;  // tokens handed out
  unsigned int ref = 0;  // holders that have yet to look; a subset of use
};

/// Brings `size` bytes at `dest` up to date from `src`, if the holder of `id` is marked to look.
/// A holder without a token gets one first. True when the bytes changed.
bool refreshVar(RefreshMgr& ref, RefreshId& id, void* dest, const void* src, unsigned int size);

/// refreshVar over one int.
bool refreshInt(RefreshMgr& ref, RefreshId& id, int& dest, int src);

/// refreshVar over the text in `src` with its terminator. The caller sees to it that `dest` has
/// room.
bool refreshStr(RefreshMgr& ref, RefreshId& id, char* dest, const char* src);
