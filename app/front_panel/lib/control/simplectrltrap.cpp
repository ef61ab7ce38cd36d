#include "simplectrltrap.h"

CtrlIntTrapMgr::CtrlIntTrapMgr(unsigned int id, unsigned int idx, const ReadVarMgr& var,
                               void* trapData, unsigned int trapDataSize)
    : CtrlTrapMgr(id, idx, var, state_array, sizeof temp1, trapData, trapDataSize),
      state_array{&temp1, &temp2} {}

CtrlIntTrapMgr::~CtrlIntTrapMgr() = default;
