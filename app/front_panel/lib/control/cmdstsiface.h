// The one output path for status messages: a header and a body, handed whole to a trap sender.
//
// The message passes between two objects of one process and never leaves the device in this form,
// so its fields are in the host's byte order. The interface borrows its sender, which outlives it,
// and holds one message buffer: one thread at a time for one object. There is no queue and no
// retry; a failure goes back to the caller, which keeps its state. A null sender or null bytes of
// a body stop the process.
#pragma once

#include <cstddef>
#include <cstdint>

class NetTrap;

/// Header of a status message; the body follows it. All fields in host byte order.
struct status_t {
  std::uint16_t wIntType;   ///< kind of message, always 7
  std::uint16_t wLength;    ///< bytes of the body, the header not counted
  std::uint16_t wVariable;  ///< variable id, its low 16 bits
  std::uint16_t wIndex;     ///< variable index, its low 16 bits
};
static_assert(sizeof(status_t) == 8 && offsetof(status_t, wIntType) == 0 &&
                  offsetof(status_t, wLength) == 2 && offsetof(status_t, wVariable) == 4 &&
                  offsetof(status_t, wIndex) == 6,
              "the body of a status message starts at offset 8");

/// The base class of status interfaces.
class USBIface {
 public:
  /// Nothing to give back.
  virtual ~USBIface();

  /// Does nothing on this platform.
  virtual void activate(bool on);

  /// The interface's active flag; nothing in the library changes it.
  bool isActive() const { return activated; }

 protected:
  bool activated = false;  ///< what isActive reports
};

/// Builds status messages and passes them to a trap sender. Trap managers hold its address: it
/// outlives their last poll.
class CmdStsIface : public USBIface {
 public:
  /// Part of the interface; nothing in the library uses it.
  static constexpr unsigned int STAT_Q_DEFAULT_IF_EL_SIZE = 64;

  /// `trap`: the sender, borrowed. REQUIRES: it is not null.
  CmdStsIface(NetTrap* trap);
  ~CmdStsIface() override;

  /// Sends the `size` bytes at `data`, unconverted, as the body of a message on variable `var`,
  /// index `index`. Returns 0 when the sender took it, -1 with a line on standard output when the
  /// body is longer than 504 bytes, else what the sender returned.
  /// REQUIRES: `data` is not null unless `size` is 0.
  int sendStatus(unsigned int var, unsigned int index, const void* data, unsigned int size);

 protected:
  NetTrap* const m_trap;  ///< the sender
  char txBuf[512] = {};   ///< the message being sent: its header, then its body
};
