#include "traps.h"

#include <cstdio>
#include <cstring>
#include <optional>

#include "console.h"
#include "device.h"
#include "devicetext.h"
#include "trapupdate.h"

namespace {

const char* yesOrNo(bool yes) {
  return yes ? "yes" : "no";
}

// A server that is away fails every trap of a pass alike, each with four lines of the library: the
// first failure ends the attempts of that pass.
class ServerTrap : public NetReconnectTrap {
 public:
  using NetReconnectTrap::NetReconnectTrap;
  int Send(const void* buf, unsigned int size) override {
    if (!away) {
      away = NetReconnectTrap::Send(buf, size) != 0;
    }
    return away ? -1 : 0;
  }
  const char* manager() const { return m_trap_mgr; }
  bool away = false;
};

// Where the traps go: to the library's device with the hook below, or to the server.

std::optional<NetDevice> hookDevice;
std::optional<ServerTrap> serverTrap;
std::optional<CmdStsIface> serverIface;

using Text = device::LineOf<128>;

// "gain[2][1] off"
void writeCondition(const device::Control& control, const char* about, Text& line) {
  writeName(control, line);
  line.put(' ').put(about);
}

int printTrap(int, int specific, const char* kind) {
  const device::TrapMeaning trap = trapTable.meaningOf(static_cast<unsigned int>(specific));
  Text condition;
  writeCondition(trap.control, trap.about, condition);
  say("%s %d: %s: %s", kind, specific, condition.text(), yesOrNo(trap.state));
  return 0;
}

void listWatch(const device::WatchedControl& watch, const char* about) {
  const unsigned int number = trapTable.numberOf(watch.control());
  Text condition, numbers;
  writeCondition(watch.control(), about, condition);
  numbers.put(number).put('/').put(number + 1);
  say("%-24s %-10s %-4s %s%s", condition.text(), numbers.text(), yesOrNo(watch.now()),
      watch.isDelivered() ? yesOrNo(watch.last()) : "nothing", watch.isDue() ? ", pending" : "");
}

void list() {
  const std::string where =
      serverTrap ? std::string("sent to the trap server for ") + serverTrap->manager() : "printed";
  say("traps are %s; they are %s", trap_enable_flag ? "on" : "off", where.c_str());
  say("%-24s %-10s %-4s delivered", "watched", "no/yes", "now");
  for (const device::WatchedFamily* const watch : trapTable) {
    for (unsigned int k = 0; k < watch->family().size(); ++k) {
      listWatch(watch->control(k), watch->about());
    }
  }
}

bool traps(const char* args) {
  if (*args == 0) {
    list();
    return true;
  }
  const bool on = std::strcmp(args, "on") == 0;
  if (!on && std::strcmp(args, "off") != 0) {
    return complain("traps are on or off, not %s", args);
  }
  trap_enable_flag = on;
  say("traps are %s", args);
  return true;
}

std::vector<std::string> completeSwitch(const std::string& args) {
  std::vector<std::string> found;
  for (const char* const choice : {"on", "off"}) {
    if (std::strncmp(choice, args.c_str(), args.size()) == 0) {
      found.push_back(choice);
    }
  }
  return found;
}

}  // namespace

const Command TRAP_COMMANDS[] = {
    {"traps", "[on|off]", "what is watched and was delivered; or switches all traps", traps,
     completeSwitch},
    {}};

void trapsStart(TrapOutput output) {
  if (output == TrapOutput::SERVER) {
    serverTrap.emplace(trapTable.table(), xmlFile.table());
    serverTrap->Init();
    serverIface.emplace(&*serverTrap);
  } else {
    hookDevice.emplace(trapTable.table(), xmlFile.table(), printTrap);
  }
  trap_enable_flag = output != TrapOutput::NONE;
}

bool trapsPass() {
  if (serverTrap) {
    serverTrap->away = false;
    return !updateTrapsThrough(trapTable.managers(), *serverIface, trap_enable_flag);
  }
  return !updateTraps(trapTable.managers(), &*hookDevice, trap_enable_flag);
}

void trapsService() {
  constexpr unsigned int PASS_MS = 500;
  constexpr unsigned int RETRY_MS = 3000;  // each failed pass prints what the library says of it
  static Timer next(false);
  if (next.isTimeoutExpired()) {
    next.setTimeout(trapsPass() ? PASS_MS : RETRY_MS);
  }
}
