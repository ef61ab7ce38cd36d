// What an application writes against the headers has to compile, with every compiler and for every
// target. Nothing of it runs.
#include "presetmgr.h"
static_assert(FLASH_PARM_BLK_SIZE > PRESET_HDR_SIZE && NUM_PRESETS > 0 && TIMEOUT_ABS_WRITE > 0);
#include <sys/socket.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cbtimer.h"
#include "comp.h"
#include "crc.h"
#include "presets.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"
#include "simplectrltrap.h"
#include "simplectrlwrapvar.h"
#include "simplevarmgr.h"
#include "trapupdate.h"

#if defined(__clang__)
#pragma clang diagnostic ignored "-Wmissing-braces"  // the numbers of a header need none
#endif

namespace {

// Names of the application, which the classes that it derives from leave alone.
int family, level, state, running, started;
enum Outcome { SENT };
void run() {}
void join() {}

// Variables and entries: as members with an initial value, in arrays and in containers.
const bounds_t percent[] = {{0, 100}, {-2147483647 - 1, 2147483647}};
RefreshMgr group;
bool first = true;
CtrlReadWrite* members[2];
ReadWriteVarMgrSimpleInt gain(level, group, 5, percent, RANGE_CLIP);
struct Channel {
  ReadWriteVarMgrSimpleBool mute{on, group, ReadWriteVarMgrBool::OFF, RANGE_WRAP};
  CtrlReadWriteVarMgr entry{7, 0, mute};
  CtrlIntTrapMgr trap = {7, 0, mute, nullptr, 0};
  int on = 0;
};
struct Flag : ReadWriteVarMgrBool {
  Flag() : ReadWriteVarMgrBool(RANGE_CLIP) {}
  bool refresh() override { return false; }
  void init() override { restore(NO); }
  bool startXaction() override { return true; }
  void endXaction() override {}
  bool isConsistent() override { return val == YES; }
  void commit() const override {}
  void restore(vals_e to) { val = to; }
};
struct Reset : SimpleCtrlCmd {
  Reset() : SimpleCtrlCmd(9, 0, percent, first, members, 2, nullptr, 0, nullptr, RANGE_CLIP) {}
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_BOOL; }
  int confirm() override { return family = val; }
};

// Fields with no more than packing asks for.
struct Version : PresetField {
  int reset() override { return 0; }
  int set(void**, unsigned int, unsigned int&) override { return width; }
  int get(void**, unsigned int, unsigned int&) override { return width; }
  int commit() const override { return 0; }
  void endCommit() override { publish(3); }
  void publish(int w) { width = w; }
  int width = 3, check = 0;
};
PresetFieldVarInt fields[] = {gain, {gain, 8, conv8BitUint, true}};
PresetFieldFill spare[] = {{true, 3}, {false, 40}};

// Senders, watchers and threads that call what the names mean outside of them.
struct Sender : NetTrap {
  using NetTrap::NetTrap;
  int Send(const void* buf, unsigned int size) override {
    return send(m_sock, buf, size, 0) > 0 ? Outcome::SENT : -1;
  }
};
struct Contact : CtrlEventTrapMgr {
  Contact() : CtrlEventTrapMgr(1, 2, nullptr, 0) {}
  bool needTrap() override { return send(0, nullptr, 0, 0) == SENT; }
};
struct Poller : Noncopyable, JThread {
  void* Thread() override {
    ThreadStarted(), run(), join();
    return started + state > running ? &state : nullptr;
  }
};

Timer timers[2] = {true, false};
CBTimer callbacks[] = {true, false};
component_t header = {"product", "component", "here", 1, 0, "1.0", "today", 1, 0x1234};
subcomp_t file = {"name", sizeof header, calcCRC16(0, nullptr, 0), "", 0};

}  // namespace

bool surface(bool on, NetTrap* sender) {
  auto now = Timer::sysTime;
  auto tick = Timer::cb;
  volatile unsigned int* const counter = &Timer::sysTime;
  Timer::sysTime *= *counter + now + (on ? Timer::sysTime : 0U);
  std::printf("%u %d", Timer::sysTime, tick == cbTimerISR);
  file.filesize ^= header.crc += on ? ++file.filecrc : 0U;
  for (const bounds_t& row : ReadWriteVarMgrStr::BOUNDS_ALNUM)
    family += row.max;
  auto result = ERR_OK;
  result = PresetMgr().openNew(getUShort(0, percent)) + loadType(0, nullptr);
  CmdStsIface ways[] = {sender};
  IntrptLock lock = Timer::level;
  eternity::exception error = std::string("no file");
  std::vector<Flag> flags(3);
  Version version;
  verPresetField_t list[] = {{0, PRESET_FIELD_VALID, fields}, {1, 2, &version}, {0, 0, nullptr}};
  Channel().trap.ctrlInitTraps(ways), Contact().needTrap(), Poller().Start(), Reset().endSet();
  return isBlkErased(0) && result == ERR_OK && initPreset(list) > 0;
}
