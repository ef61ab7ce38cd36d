// Simple variables: variable managers whose published value is a plain variable of the
// application, the global.
//
// The manager keeps a working copy. commit writes it to the global and marks the group; refresh
// takes a change of the global over, after the application has called setRefresh on the group. A
// set that was not committed is dropped by the next refresh that finds the variable marked. init
// puts the default into the working copy only, and the first refresh overrides it with the global
// unless it was committed. The group, the global and the text buffers are the application's and
// outlive the manager, which is not copied: it holds its token in the group. Threads as in
// refresh.h. Nothing allocates or stops the process.
#pragma once

#include "refresh.h"
#include "varmgr.h"

/// What the variables on an `int` of the application share: everything but the constructor. `Base`,
/// ReadWriteVarMgrInt or ReadWriteVarMgrBool, holds the working copy.
template <class Base>
class ReadWriteVarMgrSimpleNumber : public Base {
 public:
  ReadWriteVarMgrSimpleNumber(const ReadWriteVarMgrSimpleNumber&) = delete;
  ReadWriteVarMgrSimpleNumber& operator=(const ReadWriteVarMgrSimpleNumber&) = delete;
  ~ReadWriteVarMgrSimpleNumber() override { refMgr.freeId(id); }

  /// Takes the global over as it is, bounds not applied.
  bool refresh() override { return refreshInt(refMgr, id, this->val, glob); }
  /// Sets the default, forced into the bounds. The global is not written.
  void init() override {
    unsigned char buf[sizeof defaultVal];
    ReadVarMgr::setBufInt(buf, sizeof buf, defaultVal);
    this->set(buf, sizeof buf);
  }
  bool startXaction() override { return true; }
  void endXaction() override {}
  bool isConsistent() override { return true; }
  /// Writes the working copy to the global and marks the group.
  void commit() const override {
    glob = this->val;
    refMgr.setRefresh();
  }

 protected:
  /// `globalVar`: the global. `inGroup`: the group. `initVal`: the default. `ofBase`: the arguments
  /// of `Base`. Neither reads nor writes the global.
  template <class... Args>
  ReadWriteVarMgrSimpleNumber(int& globalVar, RefreshMgr& inGroup, int initVal, Args... ofBase)
      : Base(ofBase...), refMgr(inGroup), defaultVal(initVal), glob(globalVar) {}

  RefreshMgr& refMgr;  ///< the group

 private:
  RefreshId id;
  const int defaultVal;
  int& glob;
};

/// An integer variable on an `int` of the application.
class ReadWriteVarMgrSimpleInt : public ReadWriteVarMgrSimpleNumber<ReadWriteVarMgrInt> {
 public:
  /// `g`: the global. `r`: the group. `d`: what init sets, forced into the bounds like any value.
  /// `b`, `o`: bounds list and overflow policy. Neither reads nor writes the global.
  ReadWriteVarMgrSimpleInt(int& g, RefreshMgr& r, int d, const bounds_t* b, range_t o)
      : ReadWriteVarMgrSimpleNumber(g, r, d, b, o) {}
};

/// A boolean variable on an `int` of the application.
class ReadWriteVarMgrSimpleBool : public ReadWriteVarMgrSimpleNumber<ReadWriteVarMgrBool> {
 public:
  /// As ReadWriteVarMgrSimpleInt, with the bounds 0 and 1.
  ReadWriteVarMgrSimpleBool(int& v, RefreshMgr& r, ReadWriteVarMgrBool::vals_e d, range_t o)
      : ReadWriteVarMgrSimpleNumber(v, r, d, o) {}
};

/// A text variable on a character buffer of the application.
class ReadWriteVarMgrSimpleStr : public ReadWriteVarMgrStr {
 public:
  /// `r`: the group. `g`: the global buffer, at least as large as the working buffer, or null for
  /// a variable that only holds a text. `buf`, `size`: the working buffer. `b`: the allowed
  /// characters, or null. `i`: the text that init sets, not copied, or null.
  ReadWriteVarMgrSimpleStr(RefreshMgr& r, void* g, void* buf, unsigned int size, const bounds_t* b,
                           const char* i);
  ReadWriteVarMgrSimpleStr(const ReadWriteVarMgrSimpleStr&) = delete;
  ReadWriteVarMgrSimpleStr& operator=(const ReadWriteVarMgrSimpleStr&) = delete;
  ~ReadWriteVarMgrSimpleStr() override;

  /// Takes the global text over, cut to maxlen() characters; the class is not applied.
  bool refresh() override;
  /// Sets the initial text; with a null or empty one the present text stays.
  void init() override;
  bool startXaction() override { return true; }
  void endXaction() override {}
  bool isConsistent() override { return true; }
  /// Copies the text with its terminator to the global, never more than maxlen() + 1 bytes.
  void commit() const override;

 protected:
  RefreshMgr& refMgr;  ///< the group

 private:
  RefreshId id;
  const char* const initStr;
  const unsigned int initStrLen;
  char* const glob;
};
