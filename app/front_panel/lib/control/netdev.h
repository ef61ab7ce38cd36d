// The trap device: turns status messages into SNMP traps.
//
// NetTrap sends each trap as one snmptrap command, a text with its zero byte, over TCP to the trap
// generation server of this device. NetHookTrap calls the application instead. The application
// owns the trap table and the control table and keeps them, the trap table writable, for as long
// as the device. One thread, the one that polls the trap managers; a send blocks it for as long as
// the system takes. What stops the process: a null table, hook or message, a message without a
// header, a Send before Init where a socket is used, and an index whose second subscript lies
// outside its row.
#pragma once

#include "cmdstsiface.h"
#include "comdevice.h"
#include "ctrlwrap.h"

/// A row of the trap table, which ends at the first row with m_varid 0. Each element of the control
/// has two consecutive trap numbers, for state word 0 and for state word 1:
/// m_base + 2 * (i2 * m_d1 + i1), and one more, where i1 and i2 are the subscripts in the index.
struct TrapIndex {
  unsigned int m_varid;      ///< variable id
  unsigned int m_controlid;  ///< the application's number of the control
  unsigned int m_d1;         ///< elements of the first dimension: bits 0 to 7 of an index
  unsigned int m_d2;         ///< elements of the second dimension: bits 8 to 15 of an index
  unsigned int m_base;       ///< trap number of the first element; 0 asks for the next free one
};

/// The application's delivery of a trap: variable id, trap number and the text "Trap". Returns 0
/// when the trap is delivered; anything else makes its manager try again at the next poll.
using trap_mgr_hook_t = int (*)(int, int, const char*);

/// What became of a trap that was to go out. After BROKEN the socket is no good, and half a command
/// may be out.
enum class NetTrapOutcome { SENT, NOT_SENT, BROKEN };

/// Sends traps to the trap generation server. It is not copied: it stands for its connection.
class NetTrap {
 public:
  static constexpr unsigned int S_TRAP_BASE_START = 1000;     ///< first trap number
  static constexpr unsigned short S_TRAP_PORT = 3859;         ///< the server's TCP port
  static constexpr char S_TRAP_MANAGER_IP[] = "192.168.1.1";  ///< manager unless told otherwise

  /// Numbers the rows of `index_array` from S_TRAP_BASE_START on and writes them to standard
  /// output. The first row starts there whatever its m_base says; another row keeps one of its
  /// own. `ctrl_table` ends with a null pointer. REQUIRES: neither is null.
  NetTrap(TrapIndex* index_array, CtrlReadWrite** ctrl_table);
  NetTrap(const NetTrap&) = delete;
  NetTrap& operator=(const NetTrap&) = delete;
  /// Closes no socket.
  virtual ~NetTrap();

  /// Delivers the trap of the status message in the `size` bytes at `buf`. 0, or -1 with a line.
  /// A body shorter than the state word stands for its low bytes. Connects first when there is no
  /// connection, to the trap manager's address. A socket that fails stays in use.
  /// REQUIRES: `buf` is not null, `size` covers the header, and Init has run.
  virtual int Send(const void* buf, unsigned int size);

  /// Closes the socket; no Send may follow but behind a new Init. Always 0.
  virtual int Exit();

  /// Takes the trap manager's address from the environment variable TRAP_MANAGER, else
  /// S_TRAP_MANAGER_IP, and connects to the server on the loopback host; a connection that is there
  /// is closed first. The text stays in the environment. Always 0; without a server the first Send
  /// tries again.
  int Init();

  /// The trap number of state word `data` on a control, whose m_controlid goes to `control_id`.
  /// 0 when `varid` is not in the table; `control_id` is then left alone. A state word other than
  /// 0 and 1 runs into the numbers of the elements behind.
  /// REQUIRES: bits 8 to 15 of `index` are below the row's m_d2.
  int Lookup_specific(unsigned int varid, unsigned int index, int data,
                      unsigned int& control_id) const;

  /// Is the control `varid`, `index`, a trap's enable switch, in the control table and not 0?
  bool Send_enable(unsigned int varid, unsigned int index) const;

 protected:
  /// The steps of Send, with the host to connect to when there is no connection.
  NetTrapOutcome net_trap_send_(const char* host, const void* buf, unsigned int size);

  TrapIndex* const m_index_array;      ///< the trap table
  CtrlReadWrite** const m_ctrl_table;  ///< the control table
  const char* m_trap_mgr = nullptr;    ///< the trap manager's address; null before Init
  int m_sock = -1;                     ///< the connection; negative for none

 private:
  void net_trap_close_();

  bool net_trap_closed_ = false;  // Exit has closed m_sock, which keeps its number
};

/// A NetTrap for applications that outlive their server's restarts. It notices before each trap
/// that the server has closed the connection, drops the socket then and after a failed send, and
/// connects again, always to the loopback host, within the same or the next Send. A Send may
/// follow Exit. Owns its socket and closes it at destruction.
class NetReconnectTrap : public NetTrap {
 public:
  /// As NetTrap.
  using NetTrap::NetTrap;
  ~NetReconnectTrap() override;

  int Send(const void* buf, unsigned int size) override;
  int Exit() override;

 private:
  bool serverGone() const;
  void drop();
};

/// Hands traps to the application's hook; uses no socket and needs no Init.
class NetHookTrap : public NetTrap {
 public:
  /// As NetTrap. REQUIRES: `trap_func` is not null.
  NetHookTrap(TrapIndex* index_array, CtrlReadWrite** ctrl_table, trap_mgr_hook_t trap_func);
  ~NetHookTrap() override;

  /// Returns what the hook returns; -1 with a line when the message has no trap.
  int Send(const void* buf, unsigned int size) override;
  /// Writes a line. Always 0.
  int Exit() override;

 protected:
  const trap_mgr_hook_t m_trapFunc;  ///< the hook
};

/// What updateTraps (trapupdate.h) drives: a hook trap and the status interface wired to it. The
/// managers that were polled with it hold the address of that interface.
class NetDevice : public COMDevice {
 public:
  /// As NetHookTrap.
  NetDevice(TrapIndex* index_array, CtrlReadWrite** ctrl_table, trap_mgr_hook_t trap_func);

  /// The interface that the trap managers send through.
  CmdStsIface* getCmdStsIface() { return &cmdStsIface; }

 protected:
  NetHookTrap m_net_trap;   ///< the sender
  CmdStsIface cmdStsIface;  ///< the interface on it
};
