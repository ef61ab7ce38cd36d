// The socket path of the trap device against a server that is absent, late, slow and gone.
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <thread>

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

// Answers Send with the words that it wrote to standard output.
class NetTrapTest : public testing::Test {
 protected:
  NetTrapTest() { setenv("TRAP_MANAGER", "127.0.0.1", 1); }

  // One message: variable 9 with state word 0 up to the number of the trap.
  static int deliver(NetTrap& trap, unsigned int specific, unsigned int varid = 9) {
    unsigned char message[12];
    const status_t header = {7, 4, static_cast<std::uint16_t>(varid), 0};
    const unsigned int word = specific - NetTrap::S_TRAP_BASE_START;
    memcpy(message, &header, sizeof header);
    memcpy(message + sizeof header, &word, sizeof word);
    return trap.Send(message, sizeof message);
  }
  static std::string command(unsigned int specific, const std::string& manager = "127.0.0.1") {
    return "snmptrap -v 1 -c fabric " + manager + " tamrisvaneTraps.1 \"\" 6 " +
           std::to_string(specific) + " \"\" tamrisvaneInstance.1 i 1";
  }
  static bool said(const std::string& words) {
    return GetCapturedStdout().find(words) != std::string::npos;
  }
  void startServer() { server = std::make_unique<TextServer>(NetTrap::S_TRAP_PORT); }

  TrapPortLock lock;
  CtrlReadWrite* controls[1] = {nullptr};
  TrapIndex table[2] = {{9, 0, 1, 1, 0}, {0, 0, 0, 0, 0}};
  std::unique_ptr<TextServer> server;
};

TEST_F(NetTrapTest, AnAbsentServerIsTriedAgainUntilItIsThereAndAGoneOneIsNot) {
  const long before = openDescriptors();
  NetTrap trap(table, controls);
  unsetenv("TRAP_MANAGER");
  CaptureStdout();
  EXPECT_EQ(trap.Init(), 0);
  const std::string words = GetCapturedStdout();
  EXPECT_EQ(words.find("trap manager is: 192.168.1.1[3859]\nserver IP: 127.0.0.1, "), 0U) << words;
  EXPECT_NE(words.find("NetTrap: can not connect to trap generation server\n"), words.npos);

  setenv("TRAP_MANAGER", "127.0.0.1", 1);
  trap.Init();
  for (int i = 0; i < 20; ++i) {
    CaptureStdout();
    EXPECT_EQ(deliver(trap, 1001, 1), -1);  // the connection comes before the table
    const std::string failed = GetCapturedStdout();
    EXPECT_EQ(failed.find("NetTrap::Send\nserver IP: "), 0U);
    EXPECT_EQ(failed.substr(failed.find(" 3859\n") + 6),
              "NetTrap::Send---> can not connect to trap generation server\n");
  }
  EXPECT_EQ(openDescriptors(), before);

  startServer();
  CaptureStdout();
  EXPECT_EQ(deliver(trap, 1019), 0);
  EXPECT_TRUE(said("\nsending trap command: " + command(1019) + "\n"));
  CaptureStdout();
  EXPECT_EQ(deliver(trap, 1001, 1), -1);
  EXPECT_EQ(GetCapturedStdout(), "NetTrap::Send\nNetTrap::Send, wrong varid/index[1/0x0000]\n");
  server->acceptClient();
  EXPECT_EQ(server->texts(), std::vector<std::string>{command(1019)});
  EXPECT_EQ(server->rest, "");

  server.reset();
  startServer();
  deliver(trap, 1001);  // a socket takes one more text before it knows that its peer is gone
  for (int i = 0; i < 3; ++i) {
    CaptureStdout();
    EXPECT_EQ(deliver(trap, 1001), -1);
    EXPECT_TRUE(said("Fail sending trap\n")) << "a broken socket stays, and no signal ends us";
  }
  server.reset();
  EXPECT_EQ(openDescriptors(), before + 1);
  CaptureStdout();
  EXPECT_EQ(trap.Exit(), 0);
  EXPECT_EQ(GetCapturedStdout(), "NetTrap::Exit: close the trap socket\n");
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NetTrapTest, AnAddressThatDoesNotFitSendsNothingAtAll) {
  startServer();
  for (const size_t length : {size_t{213}, size_t{214}, size_t{5000}}) {
    const std::string manager(length, 'm');
    setenv("TRAP_MANAGER", manager.c_str(), 1);
    NetTrap trap(table, controls);
    trap.Init();
    CaptureStdout();
    EXPECT_EQ(deliver(trap, 3000000000), length == 213 ? 0 : -1);
    EXPECT_EQ(said("NetTrap::Send\nNetTrap::Send, trap manager address is too long\n"),
              length != 213);
    server->acceptClient();
    const std::vector<std::string> texts = server->texts();
    EXPECT_EQ(texts, length == 213 ? std::vector<std::string>{command(3000000000, manager)}
                                   : std::vector<std::string>{});
    EXPECT_EQ(server->rest, "");
    trap.Exit();
  }
}

struct NarrowTrap : NetTrap {
  using NetTrap::NetTrap;
  void narrow() {
    const int small = 4096;
    setsockopt(m_sock, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
  }
};

// Sends come back short and interrupted, to a reader so slow that the socket is always full. What
// Send says is delivered has to arrive whole, and nothing else may.
TEST_F(NetTrapTest, ASlowServerGetsWholeCommandsWhateverInterruptsThem) {
  startServer();
  NarrowTrap trap(table, controls);
  trap.Init();
  trap.narrow();
  server->acceptClient();
  std::atomic<bool> done{false};
  std::vector<std::string> got, sent;
  std::thread reader([&] {
    while (!done) {
      usleep(1000);
      server->appendTexts(got);
    }
  });
  Random random(6);
  onSend = [&](size_t size) {
    errno = EINTR;
    return random.oneIn(8) ? -1 : random.between(1, static_cast<int>(size));
  };
  CaptureStdout();
  for (unsigned int number = 1001; number < 2000; ++number) {
    if (deliver(trap, number) == 0) {
      sent.push_back(command(number));
    }
  }
  GetCapturedStdout();
  onSend = nullptr;
  done = true;
  reader.join();
  server->appendTexts(got);
  EXPECT_LT(sent.size(), 999U) << "nothing was interrupted before its first byte";
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(server->rest, "");
  trap.Exit();
}

// The server comes and goes at random, and some sends break half way; before the server goes it
// reads all that has come. Every trap that Send calls delivered was read by one server or another,
// in order, none twice, and no half command stands in front of one.
TEST_F(NetTrapTest, AReconnectingSenderLosesNothingOverItsServersRestarts) {
  Random random(5);
  const long before = openDescriptors();
  // The address with a port is what snmptrap takes; the sender never connects to it.
  setenv("TRAP_MANAGER", "192.0.2.1:16200", 1);
  std::vector<std::string> delivered, got;
  bool breaks = false;
  onSend = [&](size_t size) {
    errno = ENOBUFS;
    return !breaks ? static_cast<ssize_t>(size) : size > 40 ? ssize_t{30} : -1;
  };
  CaptureStdout();
  CaptureStderr();
  {
    NetReconnectTrap trap(table, controls);
    trap.Init();
    for (unsigned int number = 1001; number < 2000; ++number) {
      if (random.oneIn(4)) {
        if (server) {
          server.reset();
        } else {
          startServer();
        }
      }
      if (random.oneIn(50)) {
        trap.Exit();
      }
      breaks = random.oneIn(10);
      const bool sent = deliver(trap, number) == 0;
      ASSERT_EQ(sent, server != nullptr && !breaks);
      if (server) {
        server->acceptPending();
        server->appendTexts(got);
      }
      if (sent) {
        delivered.push_back(command(number, "192.0.2.1:16200"));
      }
    }
  }
  GetCapturedStdout();
  GetCapturedStderr();
  onSend = nullptr;
  server.reset();
  EXPECT_GT(delivered.size(), 300U);
  EXPECT_TRUE(got == delivered);
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
