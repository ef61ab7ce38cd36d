// Trap managers, status messages, trap numbers and the update pass, without a socket.
#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "ctrlwrap.h"
#include "fatal.h"
#include "random.h"
#include "simplectrltrap.h"
#include "simplevarmgr.h"
#include "trapupdate.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

TrapIndex noTraps[] = {{0, 0, 0, 0, 0}};
CtrlReadWrite* noControls[] = {nullptr};

// Keeps what it is given and answers as it is told.
struct Recorder : NetTrap {
  Recorder() : NetTrap(noTraps, noControls) {}
  int Send(const void* buf, unsigned int size) override {
    const unsigned char* const bytes = static_cast<const unsigned char*>(buf);
    messages.emplace_back(bytes, bytes + size);
    return answer;
  }
  std::vector<Bytes> messages;
  int answer = 0;
};

// A variable that is whatever bytes the test puts in it; it counts how often it is read.
struct Variable : ReadVarMgr {
  void get(void* buf, unsigned int size) const override {
    ++reads;
    std::memcpy(buf, value.data(), size);
  }
  Bytes value = Bytes(8);
  mutable unsigned int reads = 0;
};

template <class T>
void append(Bytes& to, T number) {
  unsigned char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  to.insert(to.end(), bytes, bytes + sizeof number);
}

Bytes message(unsigned int var, unsigned int index, const Bytes& body) {
  Bytes all;
  for (const size_t field : {size_t{7}, body.size(), size_t{var}, size_t{index}}) {
    append(all, static_cast<std::uint16_t>(field));
  }
  all.insert(all.end(), body.begin(), body.end());
  return all;
}

int hookResult = 0;
Texts hooked;
int hook(int var, int specific, const char* kind) {
  hooked.push_back(std::to_string(var) + " " + std::to_string(specific) + " " + kind);
  return hookResult;
}
std::string called(unsigned int var, unsigned int specific) {
  return std::to_string(var) + " " + std::to_string(specific) + " Trap";
}

TEST(CmdStsIface, BuildsMessagesUpToItsBufferAndRefusesLongerOnes) {
  Recorder trap;
  CmdStsIface iface(&trap);
  for (const unsigned int size : {0U, 504U}) {
    const Bytes body(size, 0xA5);
    EXPECT_EQ(iface.sendStatus(0x12345, 0xABCDE, size == 0 ? nullptr : body.data(), size), 0);
    EXPECT_EQ(trap.messages.back(), message(0x2345, 0xBCDE, body));
  }
  CaptureStdout();
  EXPECT_EQ(iface.sendStatus(1, 0, "", 505), -1);
  EXPECT_EQ(iface.sendStatus(1, 0, "", 0xFFFFFFFF), -1) << "size + 8 wraps";
  EXPECT_EQ(GetCapturedStdout(),
            "CmdStsIface::sendStatus, mem buffer not enught(513:512)\n"
            "CmdStsIface::sendStatus, mem buffer not enught(7:512)\n");
  EXPECT_EQ(trap.messages.size(), 2U);
}

// A manager on a variable of any size, which adds `extra` bytes behind the state word.
struct Watch : CtrlTrapMgr {
  Watch(const Variable& var, unsigned int size, Bytes& body)
      : CtrlTrapMgr(77, 0x0201, var, buffers, size, body.empty() ? nullptr : body.data(),
                    static_cast<unsigned int>(body.size())) {}
  unsigned int getAuxData(void* buf, unsigned int size) override {
    std::memset(buf, 0xEE, std::min(extra, size));
    return std::min(extra, size);
  }
  unsigned int extra = 0;
  unsigned char memory[28] = {9, 9, 9, 9, 1, 1, 1, 1, 1, 1, 1, 1, 9, 9, 9, 9};
  void* buffers[2] = {memory + 4, memory + 16};
};

// The rule as two lines: a message is due when nothing has been delivered or the value differs
// from what was; a delivery makes the value the reference.
TEST(CtrlTrapMgr, FollowsTheReferenceThroughRandomValuesAndFailures) {
  Random random(3);
  for (int round = 0; round < 400; ++round) {
    const unsigned int size = 1 + random.below(8);
    Bytes body(random.oneIn(2) ? 0 : 8 + random.below(12));
    Recorder trap;
    CmdStsIface iface(&trap);
    Variable var;
    Watch mgr(var, size, body);
    std::optional<Bytes> delivered;
    for (unsigned int poll = 1; poll <= 60; ++poll) {
      var.value[random.below(size)] = static_cast<unsigned char>(random.below(2));
      const Bytes now(var.value.begin(), var.value.begin() + size);
      const bool connected = !random.oneIn(8);
      mgr.ctrlInitTraps(connected ? &iface : nullptr);
      mgr.extra = random.below(12);
      trap.answer = random.oneIn(3) ? random.between(-1, 5) : 0;
      trap.messages.clear();

      const bool due = connected && delivered != now;
      ASSERT_EQ(mgr.serviceTraps(), due && trap.answer != 0);
      ASSERT_EQ(var.reads, poll) << "each poll reads the variable, connected or not";
      ASSERT_EQ(trap.messages.size(), due ? 1U : 0U);
      if (due) {
        unsigned int word = 0;
        for (const unsigned char byte : now) {
          word = word * 256 + byte;
        }
        Bytes expected;
        append(expected, word);
        expected.resize(body.empty() ? 4 : 4 + std::min<size_t>(mgr.extra, body.size() - 4), 0xEE);
        ASSERT_EQ(trap.messages[0], message(77, 0x0201, expected));
        delivered = trap.answer == 0 ? now : delivered;
      }
    }
  }
}

struct Event : CtrlEventTrapMgr {
  using CtrlEventTrapMgr::CtrlEventTrapMgr;
  bool needTrap() override { return due; }
  void postTx(int err) override {
    CtrlEventTrapMgr::postTx(err);
    told.push_back(err);
  }
  unsigned int getAuxData(void* buf, unsigned int size) override {
    return excess ? size + 1 : CtrlEventTrapMgr::getAuxData(buf, size);
  }
  bool due = true, excess = false;
  std::vector<int> told;
};

// A short body in a buffer of just its size, so that the sanitizer sees a read behind it.
TEST(CtrlEventTrapMgr, ReportsEventsAndShortBodiesAreNotReadPastTheirEnd) {
  TrapIndex table[] = {{9, 1, 1, 1, 0}, {0, 0, 0, 0, 0}};
  NetHookTrap trap(table, noControls, hook);
  CmdStsIface iface(&trap);
  Bytes lowFirst;
  append(lowFirst, 1U);
  for (unsigned int size = 0; size <= 8; ++size) {
    Bytes body(size);
    Event event(9, 0, size == 0 ? nullptr : body.data(), size);
    event.ctrlInitTraps(&iface);
    hookResult = size % 2 == 0 ? 0 : 5;
    hooked.clear();
    EXPECT_EQ(event.serviceTraps(), hookResult != 0);
    event.due = false;
    EXPECT_FALSE(event.serviceTraps());
    EXPECT_EQ(event.told, std::vector<int>{hookResult});
    EXPECT_EQ(hooked, Texts{called(9, size == 0 || size >= 4 ? 1001 : 1000U + lowFirst[0])});
    Bytes direct = message(9, 0, Bytes(size, 0));
    direct.resize(16, 0x55);  // what lies behind the body is not the body
    EXPECT_EQ(trap.Send(direct.data(), 16), hookResult);
    EXPECT_EQ(hooked.back(), called(9, 1000));
  }
}

// Every element is numbered by going through them one by one, as the tables are read.
TEST(NetHookTrap, NumbersAndFindsLikeABruteForceEnumeration) {
  Random random(4);
  for (int round = 0; round < 300; ++round) {
    std::vector<TrapIndex> table;
    for (unsigned int row = 0, rows = random.below(6); row < rows; ++row) {
      table.push_back({100 + row, random.below(50), 1 + random.below(4), 1 + random.below(4),
                       random.oneIn(3) ? 5000 + 100 * row : 0});
    }
    const std::vector<TrapIndex> given = table;
    table.push_back({0, 8, 8, 8, 7});
    CaptureStdout();
    NetHookTrap trap(table.data(), noControls, hook);
    const std::string said = GetCapturedStdout();
    CmdStsIface iface(&trap);
    std::string log;
    unsigned int next = 1000, control = 999;
    for (const TrapIndex& row : given) {
      const bool counted = row.m_base == 0 || &row == &given[0];
      unsigned int number = counted ? next : row.m_base;
      next += counted ? 2 * row.m_d1 * row.m_d2 : 0;
      char line[100];
      std::snprintf(line, sizeof line, "varid[%u], ctrl_id[%u], d1[%u], d2[%u], base[%u]\n",
                    row.m_varid, row.m_controlid, row.m_d1, row.m_d2, number);
      log += line;
      for (unsigned int element = 0; element < row.m_d1 * row.m_d2; ++element) {
        const unsigned int index = element % row.m_d1 | element / row.m_d1 << 8;
        for (unsigned int state = 0; state < 2; ++state, ++number) {
          ASSERT_EQ(trap.Lookup_specific(row.m_varid, index, static_cast<int>(state), control),
                    static_cast<int>(number));
          ASSERT_EQ(control, row.m_controlid);
          ASSERT_EQ(iface.sendStatus(row.m_varid, index, &state, 4), hookResult);
          ASSERT_EQ(hooked.back(), called(row.m_varid, number));
        }
      }
    }
    ASSERT_EQ(said, log);
  }
}

TEST(UpdateTraps, OnePassServesEveryManagerAndReportsAFailure) {
  TrapIndex table[] = {{10, 0, 1, 1, 0}, {12, 0, 1, 1, 0}, {0, 0, 0, 0, 0}};
  NetDevice device(table, noControls, hook);
  Variable var;
  CtrlIntTrapMgr a(10, 0, var, nullptr, 0), b(11, 0, var, nullptr, 0), c(12, 0, var, nullptr, 0);
  CtrlTrapMgr* const all[] = {&a, &b, &c, nullptr};  // b has no row in the table: it always fails
  CtrlTrapMgr* const good[] = {&a, &c, nullptr};
  hookResult = 0;
  hooked.clear();
  EXPECT_FALSE(updateTraps(all, &device, false));
  EXPECT_EQ(var.reads, 0U);
  CaptureStdout();
  EXPECT_TRUE(updateTraps(all, &device, true));
  EXPECT_EQ(GetCapturedStdout(), "NetTrap::Send, wrong varid/index[11/0x0000]\n");
  EXPECT_FALSE(updateTraps(good, &device, true));
  EXPECT_EQ(hooked, (Texts{called(10, 1000), called(12, 1002)})) << "nothing has changed since";
  var.value[3] = 1;
  EXPECT_FALSE(updateTraps(good, &device, false));
  EXPECT_EQ(hooked.size(), 2U);
  EXPECT_FALSE(updateTraps(good, &device, true));
  EXPECT_EQ(hooked.back(), called(12, 1003)) << "a change made while disabled comes later";
  device.getCmdStsIface()->activate(false);  // switches nothing
  EXPECT_TRUE(get_trap_flag_status());
  EXPECT_FALSE(trap_enable_flag || trap_enable_timer.isRunning());
  CaptureStdout();
  EXPECT_EQ(NetHookTrap(table, noControls, hook).Exit(), 0);
  EXPECT_THAT(GetCapturedStdout(), testing::EndsWith("\nNetTrap::Exit\n"));
}

TEST(NetTrap, SendEnableReadsTheFirstControlWithBothNumbers) {
  int none = 0, high = 1 << 24;
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt zero(none, group, 0, nullptr, RANGE_CLIP);
  ReadWriteVarMgrSimpleInt top(high, group, 0, nullptr, RANGE_CLIP);
  CtrlReadWriteVarMgr off(5, 1, zero), on(5, 2, top), hidden(5, 1, top);
  CtrlReadWrite* controls[] = {&off, &on, &hidden, nullptr};
  const NetTrap trap(noTraps, controls);
  EXPECT_TRUE(trap.Send_enable(5, 2));
  EXPECT_FALSE(trap.Send_enable(5, 1) || trap.Send_enable(6, 2) || trap.Send_enable(5, 3));
}

TEST(TrapsDeathTest, FaultsOfTheApplicationsTablesStopTheProcess) {
  TrapIndex table[] = {{1, 0, 2, 2, 0}, {0, 0, 0, 0, 0}};
  Variable var;
  char body[8];
  void* buffers[] = {body, body};
  void* missing[] = {nullptr, nullptr};
  unsigned int control = 0;
  NetHookTrap trap(table, noControls, hook);
  NetTrap plain(table, noControls);
  CmdStsIface iface(&trap);
  CtrlTrapMgr* const none[] = {nullptr};
  NetDevice device(table, noControls, hook);
  CtrlTrapMgr holes(1, 0, var, missing, 4, nullptr, 0);
  Event overlong(1, 0, body, sizeof body);
  overlong.excess = true;
  overlong.ctrlInitTraps(&iface);
  EXPECT_FATAL(NetTrap(nullptr, noControls), "index_array != nullptr");
  EXPECT_FATAL(NetTrap(table, nullptr), "ctrl_table != nullptr");
  EXPECT_FATAL(NetHookTrap(table, noControls, nullptr), "trap_func != nullptr");
  EXPECT_FATAL(trap.Send(nullptr, 8), "buf != nullptr");
  EXPECT_FATAL(trap.Send(body, 0), "size != 0");
  EXPECT_FATAL(trap.Send(body, 7), "size >= sizeof header");
  EXPECT_FATAL(plain.Send(nullptr, 8), "buf != nullptr");
  EXPECT_FATAL(plain.Send(body, 0), "size != 0");
  EXPECT_FATAL(plain.Send(body, 8), "m_trap_mgr != nullptr");
  EXPECT_FATAL(trap.Lookup_specific(1, 0x0200, 0, control),
               "Control 1, index 512:\nAssertion failed: i2 < row->m_d2");
  EXPECT_FATAL(CmdStsIface(nullptr), "trap != nullptr");
  EXPECT_FATAL(iface.sendStatus(1, 0, nullptr, 4), "data != nullptr");
  EXPECT_FATAL(Event(1, 0, body, 0), "(trap_data == nullptr) == (trap_data_size == 0)");
  EXPECT_FATAL(Event(1, 0, nullptr, 4), "(trap_data == nullptr) == (trap_data_size == 0)");
  EXPECT_FATAL(overlong.serviceTraps(), "aux <= room");
  EXPECT_FATAL(CtrlTrapMgr(1, 0, var, nullptr, 4, nullptr, 0), "state_array != nullptr");
  EXPECT_FATAL(CtrlTrapMgr(1, 0, var, buffers, 0, nullptr, 0), "state_size > 0");
  EXPECT_FATAL(CtrlTrapMgr(1, 7, var, buffers, 8, body, 7),
               "index 7:\nAssertion failed: trap_data ==");
  EXPECT_FATAL(holes.serviceTraps(),
               "Control 1, index 0:\nAssertion failed: state_array[cur] != nullptr");
  EXPECT_FATAL(updateTraps(nullptr, &device, false), "traps != nullptr");
  EXPECT_FATAL(updateTraps(none, nullptr, false), "pDev != nullptr");
  EXPECT_FATAL(updateTrapsThrough(nullptr, iface, false), "traps != nullptr");
}

}  // namespace
