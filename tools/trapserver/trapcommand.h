// The one command that a device sends to its trap generation server.
//
// The text comes from a socket, so it is taken apart strictly: what is not exactly the device's
// form is refused, whatever it might have meant. Nothing is executed from the text itself; the
// server builds the arguments anew from what is kept here. No state; any thread; nothing throws
// but for want of memory.
#pragma once

#include <string>
#include <string_view>

/// The longest command, without its zero byte.
constexpr size_t MAX_TRAP_COMMAND = 299;

/// The two parts of a command that vary.
struct TrapCommand {
  std::string manager;        ///< host name or IPv4 address, with ":" and a UDP port or without
  unsigned int specific = 0;  ///< number of the trap, 1 to 2147483647
};

/// Takes the command `text`, without its zero byte, apart. Returns null, or why it is refused.
const char* parseTrapCommand(std::string_view text, TrapCommand& command);

/// Takes the next command, or what is refused, off the front of `input`, which is what has arrived
/// and is not yet taken. `ended`: nothing more will arrive. Returns false, with `input` as it was,
/// when no more can be told of it. Otherwise `text` is what was taken, and `why` is null, with
/// `command` filled, or why it is refused: what arrives behind that is no command any more. Where
/// the stream was cut into pieces makes no difference.
bool takeTrapCommand(std::string& input, bool ended, TrapCommand& command, std::string& text,
                     const char*& why);
