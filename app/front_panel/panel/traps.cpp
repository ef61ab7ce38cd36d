#include "traps.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>

#include "console.h"
#include "device.h"
#include "names.h"
#include "simplectrltrap.h"
#include "trapupdate.h"

namespace {

// The trap table; the library fills in the numbers. A row has one element per member of the family
// that it is about, and the dimensions are those of the variable index.
constexpr unsigned int TOO_HOT = 1, MUTED = 2, SWITCHED_OFF = 3;
TrapIndex trapTable[] = {{ID_TEMPERATURE, TOO_HOT, CHANNELS, 1, 0},
                         {ID_MUTE, MUTED, CHANNELS, 1, 0},
                         {ID_GAIN, SWITCHED_OFF, CHANNELS, BANDS, 0},
                         {0, 0, 0, 0, 0}};

const char* aboutOf(unsigned int controlId) {
  return controlId == TOO_HOT ? "too hot" : controlId == MUTED ? "on" : "off";
}

// What a trap watches: yes or no, from the confirmed values. A variable on a setting would not do,
// because its working copy holds a value as soon as that is set, before it is confirmed.
class Condition : public ReadVarMgr {
 public:
  using Test = bool (*)(unsigned int channel, unsigned int band);
  Condition(Test t, unsigned int c, unsigned int b) : test(t), channel(c), band(b) {}
  bool now() const { return test(channel, band); }
  void get(void* buf, unsigned int size) const override { setBufInt(buf, size, now() ? 1 : 0); }
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_BOOL; }

 private:
  const Test test;
  const unsigned int channel, band;
};

bool tooHot(unsigned int channel, unsigned int) {
  return temperatures[channel].var.degrees > settings.limit;
}
bool muted(unsigned int channel, unsigned int) {
  return settings.mute[channel] != 0;
}
bool switchedOff(unsigned int channel, unsigned int band) {
  return settings.gain[channel][band] == GAIN_OFF;
}

// The library's trap manager, which also remembers what it last delivered, to be shown.
class Watch : private Condition, public CtrlIntTrapMgr {
 public:
  Watch(unsigned int id, Test t, unsigned int c, unsigned int b)
      : Condition(t, c, b),
        CtrlIntTrapMgr(id, c | b << 8, static_cast<const Condition&>(*this), nullptr, 0) {}
  void postTx(int err) override {
    if (err == 0) {
      delivered = getState() != 0;
    }
    CtrlIntTrapMgr::postTx(err);
  }
  unsigned int id() const { return var_id; }
  unsigned int varIndex() const { return index; }
  using Condition::now;
  bool pending() const { return delivered != now(); }

  std::optional<bool> delivered;
};

std::deque<Watch> watches;
std::vector<CtrlTrapMgr*> managers;  // the same, ended by null

void makeWatches() {
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    watches.emplace_back(ID_TEMPERATURE, tooHot, channel, 0U);
  }
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    watches.emplace_back(ID_MUTE, muted, channel, 0U);
  }
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    for (unsigned int band = 0; band < BANDS; ++band) {
      watches.emplace_back(ID_GAIN, switchedOff, channel, band);
    }
  }
  for (Watch& watch : watches) {
    managers.push_back(&watch);
  }
  managers.push_back(nullptr);
}

// Where the traps go: to the library's device with the hook below, or to the server.

const char* yesOrNo(bool yes) {
  return yes ? "yes" : "no";
}

struct HookDevice : NetDevice {
  using NetDevice::NetDevice;
  const NetTrap& trap() const { return m_net_trap; }
};

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

std::optional<HookDevice> hookDevice;
std::optional<ServerTrap> serverTrap;
std::optional<CmdStsIface> serverIface;

const NetTrap& trapDevice() {
  return serverTrap ? *serverTrap : hookDevice->trap();
}

// The number of the trap for no; the next one is for yes.
unsigned int numberOf(const Watch& watch, unsigned int& controlId) {
  return static_cast<unsigned int>(
      trapDevice().Lookup_specific(watch.id(), watch.varIndex(), 0, controlId));
}

int printTrap(int, int specific, const char* kind) {
  for (const Watch& watch : watches) {
    unsigned int controlId = 0;
    const unsigned int yes = static_cast<unsigned int>(specific) - numberOf(watch, controlId);
    if (yes <= 1) {
      say("%s %d: %s %s: %s", kind, specific, controlName(watch.id(), watch.varIndex()).c_str(),
          aboutOf(controlId), yesOrNo(yes == 1));
    }
  }
  return 0;
}

bool list() {
  const std::string where =
      serverTrap ? std::string("sent to the trap server for ") + serverTrap->manager() : "printed";
  say("traps are %s; they are %s", trap_enable_flag ? "on" : "off", where.c_str());
  say("%-24s %-10s %-4s delivered", "watched", "no/yes", "now");
  for (const Watch& watch : watches) {
    unsigned int controlId = 0;
    const unsigned int number = numberOf(watch, controlId);
    const std::string what = controlName(watch.id(), watch.varIndex()) + " " + aboutOf(controlId);
    const std::string numbers = std::to_string(number) + "/" + std::to_string(number + 1);
    say("%-24s %-10s %-4s %s%s", what.c_str(), numbers.c_str(), yesOrNo(watch.now()),
        watch.delivered ? yesOrNo(*watch.delivered) : "nothing",
        watch.pending() ? ", pending" : "");
  }
  return true;
}

bool traps(const char* args) {
  if (*args == 0) {
    return list();
  }
  const bool on = std::strcmp(args, "on") == 0;
  if (!on && std::strcmp(args, "off") != 0) {
    return complain("traps are on or off, not %s", args);
  }
  trap_enable_flag = on;
  say("traps are %s", args);
  return true;
}

std::vector<std::string> completeSwitch(const std::string& word) {
  std::vector<std::string> found;
  for (const char* const choice : {"on", "off"}) {
    if (std::strncmp(choice, word.c_str(), word.size()) == 0) {
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

bool parseTrapOutput(const char* text, TrapOutput& output) {
  const bool server = std::strcmp(text, "server") == 0;
  output = server ? TrapOutput::SERVER : TrapOutput::PRINT;
  return server || std::strcmp(text, "print") == 0;
}

void trapsStart(TrapOutput output) {
  makeWatches();
  if (output == TrapOutput::SERVER) {
    serverTrap.emplace(trapTable, savedControls());
    serverTrap->Init();
    serverIface.emplace(&*serverTrap);
  } else {
    hookDevice.emplace(trapTable, savedControls(), printTrap);
  }
  trap_enable_flag = output != TrapOutput::NONE;
}

bool trapsPass() {
  if (serverTrap) {
    serverTrap->away = false;
    return !updateTrapsThrough(managers.data(), *serverIface, trap_enable_flag);
  }
  return !updateTraps(managers.data(), &*hookDevice, trap_enable_flag);
}

void trapsService() {
  constexpr unsigned int PASS_MS = 500;
  constexpr unsigned int RETRY_MS = 3000;  // each failed pass prints what the library says of it
  static Timer next(false);
  if (next.isTimeoutExpired()) {
    next.setTimeout(trapsPass() ? PASS_MS : RETRY_MS);
  }
}
