// The socket path of the trap device against a server that is absent, late, slow and gone.
#include <cerrno>
#include <functional>
#include <memory>

#include "loopback.h"
#include "netdev.h"
#include "random.h"

// What the next send shall do with so many bytes: take some, or fail with errno. Null: all.
static std::function<ssize_t(size_t)> onSend;

// In place of the C library's: the only way to a short count at a chosen place.
extern "C" ssize_t send(int sock, const void* buf, size_t size, int flags) {
  const ssize_t plan = onSend ? onSend(size) : static_cast<ssize_t>(size);
  return plan < 0 ? -1 : sendto(sock, buf, static_cast<size_t>(plan), flags, nullptr, 0);
}

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;
using Texts = std::vector<std::string>;

class NetTrapTest : public testing::Test {
 protected:
  NetTrapTest() { setenv("TRAP_MANAGER", "127.0.0.1", 1); }
  ~NetTrapTest() override { onSend = nullptr; }

  // Sends variable 9 with state word 0 up to the number of the trap. What it prints goes to `said`.
  int deliver(NetTrap& trap, unsigned int specific, unsigned int varid = 9) {
    const unsigned int word = specific - NetTrap::S_TRAP_BASE_START;
    CaptureStdout();
    CaptureStderr();
    const int result = CmdStsIface(&trap).sendStatus(varid, 0, &word, sizeof word);
    GetCapturedStderr();
    said = GetCapturedStdout();
    return result;
  }
  static std::string command(unsigned int specific, const std::string& manager = "127.0.0.1") {
    return trapCommandText(specific, manager);
  }
  void startServer() { server = std::make_unique<TextServer>(NetTrap::S_TRAP_PORT); }
  // What the server has read since the last look; nothing may be left of a half command.
  Texts received() {
    Texts texts;
    server->read(texts);
    EXPECT_EQ(server->rest, "");
    return texts;
  }

  TrapPortLock lock;
  const long before = openDescriptors();
  CtrlReadWrite* controls[1] = {nullptr};
  TrapIndex table[2] = {{9, 0, 1, 1, 0}, {0, 0, 0, 0, 0}};
  std::unique_ptr<TextServer> server;
  std::string said;
};

TEST_F(NetTrapTest, AnAbsentServerIsTriedAgainUntilItIsThereAndAGoneOneIsNot) {
  NetTrap trap(table, controls);
  unsetenv("TRAP_MANAGER");
  CaptureStdout();
  EXPECT_EQ(trap.Init(), 0);
  said = GetCapturedStdout();
  EXPECT_EQ(said.find("trap manager is: 192.168.1.1[3859]\nserver IP: 127.0.0.1, "), 0U) << said;
  EXPECT_NE(said.find("NetTrap: can not connect to trap generation server\n"), said.npos);

  setenv("TRAP_MANAGER", "127.0.0.1", 1);
  trap.Init();
  EXPECT_EQ(deliver(trap, 1001, 1), -1);  // the connection comes before the table
  EXPECT_EQ(said.find("NetTrap::Send\nserver IP: "), 0U);
  EXPECT_EQ(said.substr(said.find(" 3859\n") + 6),
            "NetTrap::Send---> can not connect to trap generation server\n");
  EXPECT_EQ(trap.Exit(), 0);
  EXPECT_EQ(openDescriptors(), before);

  startServer();
  EXPECT_EQ(deliver(trap, 1019), 0);
  EXPECT_NE(said.find("\nsending trap command: " + command(1019) + "\n"), said.npos);
  EXPECT_EQ(deliver(trap, 1001, 1), -1);
  EXPECT_EQ(said, "NetTrap::Send\nNetTrap::Send, wrong varid/index[1/0x0000]\n");
  server->accept();
  EXPECT_EQ(received(), Texts{command(1019)});

  server.reset();
  startServer();
  deliver(trap, 1001);  // a socket takes one more text before it knows that its peer is gone
  EXPECT_EQ(deliver(trap, 1001), -1) << "no signal ends us";
  EXPECT_EQ(deliver(trap, 1001), -1) << "a broken socket stays";
  EXPECT_NE(said.find("Fail sending trap\n"), said.npos);
  server.reset();
  startServer();
  trap.Init();
  EXPECT_EQ(openDescriptors(), before + 2) << "a listener, and one connection";
  server.reset();
  EXPECT_EQ(trap.Exit(), 0);
  EXPECT_EQ(openDescriptors(), before);
  const int other = dup(STDIN_FILENO);  // gets the number that the socket had
  trap.Exit();
  trap.Init();
  EXPECT_EQ(close(other), 0) << "closed behind its owner's back";
}

TEST_F(NetTrapTest, AnAddressThatDoesNotFitSendsNothingAtAll) {
  startServer();
  for (const size_t length : {size_t{213}, size_t{214}}) {
    const std::string manager(length, 'm');
    setenv("TRAP_MANAGER", manager.c_str(), 1);
    NetTrap trap(table, controls);
    trap.Init();
    const bool fits = length == 213;
    EXPECT_EQ(deliver(trap, 3000000000), fits ? 0 : -1);
    EXPECT_EQ(said == "NetTrap::Send\nNetTrap::Send, trap manager address is too long\n", !fits);
    server->accept();
    EXPECT_EQ(received(), fits ? Texts{command(3000000000, manager)} : Texts{});
    trap.Exit();
  }
}

// The server comes and goes at random, sends come back short, interrupted and broken half way;
// before the server goes it reads all that has come. Every trap that Send calls delivered was read
// by one server or another, in order, none twice, and no half command stands in front of one.
TEST_F(NetTrapTest, AReconnectingSenderLosesNothingOverItsServersRestarts) {
  Random random(5);
  // The address with a port is what snmptrap takes; the sender never connects to it.
  setenv("TRAP_MANAGER", "192.0.2.1:16200", 1);
  Texts delivered, got;
  bool breaks = false;
  onSend = [&](size_t size) {
    errno = breaks ? ENOBUFS : EINTR;
    const bool fails = breaks ? size < 40 : random.oneIn(8);
    return fails ? -1 : random.between(1, static_cast<int>(size) - (breaks ? 1 : 0));
  };
  unsigned int failed = 0;
  {
    NetReconnectTrap trap(table, controls);
    trap.Init();
    for (unsigned int number = 1001; number < 3000; ++number) {
      if (random.oneIn(4)) {
        server ? server.reset() : startServer();
      }
      if (random.oneIn(50)) {
        random.oneIn(2) ? trap.Exit() : trap.Init();
        if (server) {
          server->accept(0);
        }
      }
      breaks = random.oneIn(10);
      const bool sent = deliver(trap, number) == 0;
      ASSERT_FALSE(sent && (server == nullptr || breaks));
      failed += !sent && server != nullptr && !breaks ? 1 : 0;
      if (server) {
        server->accept(0);
        server->read(got);
      }
      if (sent) {
        delivered.push_back(command(number, "192.0.2.1:16200"));
      }
    }
  }
  server.reset();
  EXPECT_GT(delivered.size(), 500U);
  EXPECT_LT(failed, 200U) << "only what is interrupted before its first byte";
  EXPECT_TRUE(got == delivered);
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
