#include "cmdstsiface.h"

#include <cstdio>
#include <cstring>

#include "debug.h"
#include "netdev.h"

USBIface::~USBIface() = default;

void USBIface::activate(bool /*on*/) {}

CmdStsIface::CmdStsIface(NetTrap* trap) : m_trap(trap) {
  CTRL_ASSERT(trap != nullptr);
}

CmdStsIface::~CmdStsIface() = default;

int CmdStsIface::sendStatus(unsigned int var, unsigned int index, const void* data,
                            unsigned int size) {
  constexpr unsigned int headerSize = sizeof(status_t);
  const unsigned int txSize = size + headerSize;
  if (size > sizeof txBuf - headerSize) {
    std::printf("CmdStsIface::sendStatus, mem buffer not enught(%d:512)\n",
                static_cast<int>(txSize));
    return -1;
  }
  const status_t header = {7, static_cast<std::uint16_t>(size), static_cast<std::uint16_t>(var),
                           static_cast<std::uint16_t>(index)};
  std::memcpy(txBuf, &header, headerSize);
  if (size != 0) {
    CTRL_ASSERT(data != nullptr);
    std::memcpy(txBuf + headerSize, data, size);
  }
  return m_trap->Send(txBuf, txSize);
}
