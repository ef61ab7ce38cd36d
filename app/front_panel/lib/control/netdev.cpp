#include "netdev.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "debug.h"
#include "socket_wrapper.h"

namespace {

// The trap generation server runs on the device itself.
constexpr char LOOPBACK[] = "127.0.0.1";

#define TRAP_COMMAND_FORMAT \
  "snmptrap -v 1 -c fabric %s tamrisvaneTraps.1 \"\" 6 %u \"\" tamrisvaneInstance.1 i 1"

unsigned int elementsOf(const TrapIndex& row) {
  return row.m_d1 * row.m_d2;
}

void reportRow(const TrapIndex& row) {
  std::printf("varid[%u], ctrl_id[%u], d1[%u], d2[%u], base[%u]\n", row.m_varid, row.m_controlid,
              row.m_d1, row.m_d2, row.m_base);
}

// The state word that opens the body of a message. The bytes that a shorter body does not have
// count as zero where the word's high bytes stand in memory.
int stateWordOf(const status_t& header, const void* buf, unsigned int size) {
  unsigned int length = size - static_cast<unsigned int>(sizeof header);
  length = header.wLength < length ? header.wLength : length;
  std::int32_t word = 0;
  if (length > sizeof word) {
    length = sizeof word;
  }
  const bool highFirst = htonl(1) == 1;
  std::memcpy(reinterpret_cast<char*>(&word) + (highFirst ? sizeof word - length : 0),
              static_cast<const char*>(buf) + sizeof header, length);
  return word;
}

// Finds the trap of a message; false, with a line, when it has none.
bool findTrap(const NetTrap& trap, const void* buf, unsigned int size, unsigned int& varid,
              int& specific) {
  status_t header;
  CTRL_ASSERT(size >= sizeof header);
  std::memcpy(&header, buf, sizeof header);
  unsigned int control_id = 0;
  varid = header.wVariable;
  specific = trap.Lookup_specific(varid, header.wIndex, stateWordOf(header, buf, size), control_id);
  if (specific == 0) {
    std::printf("NetTrap::Send, wrong varid/index[%u/0x%04x]\n", varid,
                static_cast<unsigned int>(header.wIndex));
    return false;
  }
  return true;
}

// A command and its zero byte: 76 fixed characters, an address of up to 213, and 10 digits.
using Command = char[300];

bool makeCommand(const char* manager, int specific, Command& text) {
  const int length = std::snprintf(text, sizeof text, TRAP_COMMAND_FORMAT, manager,
                                   static_cast<unsigned int>(specific));
  if (static_cast<size_t>(length) >= sizeof text) {  // also what snprintf calls an error
    std::puts("NetTrap::Send, trap manager address is too long");
    return false;
  }
  std::printf("sending trap command: %s\n", text);
  return true;
}

bool sendCommand(int sock, const Command& text) {
  const size_t size = std::strlen(text) + 1;
  for (size_t sent = 0; sent < size;) {
    // A peer that has closed is a failure of this trap, not the end of the process.
    const ssize_t count = send(sock, text + sent, size - sent, MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<size_t>(count);
    } else if (errno != EINTR || sent == 0) {
      std::puts("Fail sending trap");
      return false;
    }
  }
  return true;
}

}  // namespace

NetTrap::NetTrap(TrapIndex* index_array, CtrlReadWrite** ctrl_table)
    : m_index_array(index_array), m_ctrl_table(ctrl_table) {
  CTRL_ASSERT(index_array != nullptr);
  CTRL_ASSERT(ctrl_table != nullptr);
  TrapIndex* row = m_index_array;
  row->m_base = S_TRAP_BASE_START;
  if (row->m_varid == 0) {
    return;
  }
  unsigned int next_base = S_TRAP_BASE_START + 2 * elementsOf(*row);
  reportRow(*row);
  for (++row; row->m_varid != 0; ++row) {
    if (row->m_base == 0) {
      row->m_base = next_base;
      next_base += 2 * elementsOf(*row);
    }
    reportRow(*row);
  }
}

NetTrap::~NetTrap() = default;

int NetTrap::Init() {
  const char* const address = std::getenv("TRAP_MANAGER");
  m_trap_mgr = address != nullptr ? address : S_TRAP_MANAGER_IP;
  std::printf("trap manager is: %s[%u]\n", m_trap_mgr, static_cast<unsigned int>(S_TRAP_PORT));
  net_trap_close_();
  m_sock = setup_client(LOOPBACK, S_TRAP_PORT);
  net_trap_closed_ = false;
  if (m_sock < 0) {
    std::puts("NetTrap: can not connect to trap generation server");
  }
  return 0;
}

int NetTrap::Lookup_specific(unsigned int varid, unsigned int index, int data,
                             unsigned int& control_id) const {
  const TrapIndex* row = m_index_array;
  while (row->m_varid != 0 && row->m_varid != varid) {
    ++row;
  }
  if (row->m_varid == 0) {
    return 0;
  }
  const unsigned int i1 = index & 0xFF;
  const unsigned int i2 = (index >> 8) & 0xFF;
  CTRL_ASSERT_ABOUT(i2 < row->m_d2, AssertSubject::CONTROL, varid, index);
  control_id = row->m_controlid;
  return static_cast<int>(row->m_base + static_cast<unsigned int>(data) +
                          2 * (i2 * row->m_d1 + i1));
}

bool NetTrap::Send_enable(unsigned int varid, unsigned int index) const {
  for (CtrlReadWrite* const* entry = m_ctrl_table; *entry != nullptr; ++entry) {
    if ((*entry)->getVarID() == varid && (*entry)->getIndex() == index) {
      unsigned char value[4];
      (*entry)->get(value, sizeof value);
      return ReadWriteVarMgr::convert(value, sizeof value) != 0;
    }
  }
  return false;
}

NetTrapOutcome NetTrap::net_trap_send_(const char* host, const void* buf, unsigned int size) {
  CTRL_ASSERT(buf != nullptr);
  CTRL_ASSERT(size != 0);
  CTRL_ASSERT(m_trap_mgr != nullptr);
  std::puts("NetTrap::Send");
  if (m_sock < 0) {
    m_sock = setup_client(host, S_TRAP_PORT);
    net_trap_closed_ = false;
    if (m_sock < 0) {
      std::puts("NetTrap::Send---> can not connect to trap generation server");
      return NetTrapOutcome::NOT_SENT;
    }
  }
  unsigned int varid = 0;
  int specific = 0;
  Command text;
  if (!findTrap(*this, buf, size, varid, specific) || !makeCommand(m_trap_mgr, specific, text)) {
    return NetTrapOutcome::NOT_SENT;
  }
  return sendCommand(m_sock, text) ? NetTrapOutcome::SENT : NetTrapOutcome::BROKEN;
}

int NetTrap::Send(const void* buf, unsigned int size) {
  return net_trap_send_(m_trap_mgr, buf, size) == NetTrapOutcome::SENT ? 0 : -1;
}

int NetTrap::Exit() {
  std::puts("NetTrap::Exit: close the trap socket");
  net_trap_close_();
  return 0;
}

// By the time of a second call the number may be somebody else's.
void NetTrap::net_trap_close_() {
  if (m_sock >= 0 && !net_trap_closed_) {
    close(m_sock);
    net_trap_closed_ = true;
  }
}

NetReconnectTrap::~NetReconnectTrap() {
  drop();
}

void NetReconnectTrap::drop() {
  if (m_sock >= 0) {
    close(m_sock);
    m_sock = -1;
  }
}

// The server never writes, so whatever makes its socket readable is the end of the connection. A
// send alone would not tell: the first one after the server's end still succeeds, into the void.
bool NetReconnectTrap::serverGone() const {
  pollfd event = {m_sock, POLLIN, 0};
  return poll(&event, 1, 0) > 0;
}

int NetReconnectTrap::Send(const void* buf, unsigned int size) {
  if (m_sock >= 0 && serverGone()) {
    drop();
  }
  const NetTrapOutcome outcome = net_trap_send_(LOOPBACK, buf, size);
  if (outcome == NetTrapOutcome::BROKEN) {
    drop();
  }
  return outcome == NetTrapOutcome::SENT ? 0 : -1;
}

int NetReconnectTrap::Exit() {
  std::puts("NetTrap::Exit: close the trap socket");
  drop();
  return 0;
}

NetHookTrap::NetHookTrap(TrapIndex* index_array, CtrlReadWrite** ctrl_table,
                         trap_mgr_hook_t trap_func)
    : NetTrap(index_array, ctrl_table), m_trapFunc(trap_func) {
  CTRL_ASSERT(trap_func != nullptr);
}

NetHookTrap::~NetHookTrap() = default;

int NetHookTrap::Send(const void* buf, unsigned int size) {
  CTRL_ASSERT(buf != nullptr);
  CTRL_ASSERT(size != 0);
  unsigned int varid = 0;
  int specific = 0;
  if (!findTrap(*this, buf, size, varid, specific)) {
    return -1;
  }
  return m_trapFunc(static_cast<int>(varid), specific, "Trap");
}

int NetHookTrap::Exit() {
  std::puts("NetTrap::Exit");
  return 0;
}

NetDevice::NetDevice(TrapIndex* index_array, CtrlReadWrite** ctrl_table, trap_mgr_hook_t trap_func)
    : m_net_trap(index_array, ctrl_table, trap_func), cmdStsIface(&m_net_trap) {}
