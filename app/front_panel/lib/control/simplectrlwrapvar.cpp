#include "simplectrlwrapvar.h"

#include <algorithm>
#include <cstring>

#include "debug.h"

const CmdStsIdx2ArrIdxFn DEFAULT_CONV[4] = {cmd_sts_idx_conv0D, cmd_sts_idx_conv1D,
                                            cmd_sts_idx_conv2D, nullptr};

unsigned int calcSize(const unsigned int* allDim, unsigned int numDim) {
  CTRL_ASSERT(numDim == 0 || allDim != nullptr);
  unsigned int size = 1;
  for (unsigned int i = 0; i < numDim; ++i) {
    size *= allDim[i];
  }
  return size;
}

void checkDims(const unsigned int* dim, unsigned int numDim) {
  if (numDim == 0) {
    return;
  }
  CTRL_ASSERT(dim != nullptr);
  for (unsigned int i = 0; i < numDim; ++i) {
    CTRL_ASSERT(dim[i] != 0);
  }
}

CmdStsIdx2ArrIdxFn checkConv(CmdStsIdx2ArrIdxFn conv, unsigned int numDim) {
  if (conv != nullptr) {
    return conv;
  }
  constexpr unsigned int LAST = sizeof DEFAULT_CONV / sizeof DEFAULT_CONV[0] - 1;
  conv = DEFAULT_CONV[std::min(numDim, LAST)];
  CTRL_ASSERT(conv != nullptr);
  return conv;
}

namespace {

void registerFamily(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                    CmdStsIdx2ArrIdxFn conv, CtrlRead* const* array) {
  ctrl_register_read(varId, dim, ndim, conv, array);
}

void registerFamily(unsigned int varId, const unsigned int* dim, unsigned int ndim,
                    CmdStsIdx2ArrIdxFn conv, CtrlReadWrite* const* array) {
  ctrl_register_rw(varId, dim, ndim, conv, array);
}

unsigned int familySize(unsigned int id, unsigned int idx, const unsigned int* d, unsigned int nd) {
  const AssertSubject about(AssertSubject::CONTROL, id, idx);
  return calcSize(d, nd);
}

}  // namespace

template <class Entry>
CtrlFamily<Entry>::CtrlFamily(unsigned int id, unsigned int idx, bool& ainit, Entry** arr,
                              unsigned int arrSize, const unsigned int* d, unsigned int nd,
                              CmdStsIdx2ArrIdxFn c)
    : ctrlArrInit(ainit),
      ctrlArr(arr),
      ctrlArrSize(familySize(id, idx, d, nd)),
      dim(d),
      numDim(nd),
      conv(c) {
  const AssertSubject about(AssertSubject::CONTROL, id, idx);
  CTRL_ASSERT(ctrlArr != nullptr);
  CTRL_ASSERT(ctrlArrSize > 0);
  CTRL_ASSERT(ctrlArrSize <= arrSize);
  checkDims(d, nd);
  conv = checkConv(c, nd);
}

template <class Entry>
void CtrlFamily<Entry>::join(Entry* entry, unsigned int id, unsigned int idx) const {
  if (ctrlArrInit) {
    ctrlArrInit = false;
    std::fill_n(ctrlArr, ctrlArrSize, nullptr);
    registerFamily(id, dim, numDim, conv, ctrlArr);
  }
  const AssertSubject about(AssertSubject::CONTROL, id, idx);
  const unsigned int i = conv(idx, dim, numDim);
  CTRL_ASSERT(i < ctrlArrSize);
  CTRL_ASSERT(ctrlArr[i] == nullptr);
  ctrlArr[i] = entry;
}

template class CtrlFamily<CtrlRead>;
template class CtrlFamily<CtrlReadWrite>;

SimpleCtrlReadVarMgr::SimpleCtrlReadVarMgr(unsigned int id, unsigned int idx, const ReadVarMgr& var,
                                           bool& ainit, CtrlRead** arr, unsigned int arrSize,
                                           const unsigned int* d, unsigned int nd,
                                           CmdStsIdx2ArrIdxFn c)
    : CtrlReadVarMgr(id, idx, var), ctrl_family_(id, idx, ainit, arr, arrSize, d, nd, c) {}

void SimpleCtrlReadVarMgr::init() {
  ctrl_family_.join(this, varId, index);
}

SimpleCtrlReadWriteVarMgr::SimpleCtrlReadWriteVarMgr(unsigned int id, unsigned int idx,
                                                     ReadWriteVarMgr& var, bool& ainit,
                                                     CtrlReadWrite** arr, unsigned int arrSize,
                                                     const unsigned int* d, unsigned int nd,
                                                     CmdStsIdx2ArrIdxFn c)
    : CtrlReadWriteVarMgr(id, idx, var), ctrl_family_(id, idx, ainit, arr, arrSize, d, nd, c) {}

void SimpleCtrlReadWriteVarMgr::init() {
  CtrlReadWriteVarMgr::init();
  ctrl_family_.join(this, varId, index);
}

SimpleCtrlCmd::SimpleCtrlCmd(unsigned int id, unsigned int idx, const bounds_t* b, bool& ainit,
                             CtrlReadWrite** arr, unsigned int arrSize, const unsigned int* d,
                             unsigned int nd, CmdStsIdx2ArrIdxFn c, range_t o)
    : CtrlReadWrite(id, idx),
      bounds(b),
      numBounds(calcNumBounds(b)),
      val(0),
      overflow(o),
      ctrl_family_(id, idx, ainit, arr, arrSize, d, nd, c) {}

void SimpleCtrlCmd::get(void* buf, unsigned int size) {
  if (size > 0) {
    std::memset(buf, 0, size);
  }
}

void SimpleCtrlCmd::init() {
  ctrl_family_.join(this, varId, index);
}

bool SimpleCtrlCmd::validate(const void* buf, unsigned int size) const {
  const int v = ReadWriteVarMgr::convert(buf, size);
  return (buf != nullptr || size == 0) && getBoundsVal(v, true, RANGE_CLIP, bounds, numBounds) == v;
}

int SimpleCtrlCmd::set(const void* buf, unsigned int size) {
  val = getBoundsVal(ReadWriteVarMgr::convert(buf, size), true, overflow, bounds, numBounds);
  return 0;
}
