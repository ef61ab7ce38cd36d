// The trap generation server: what it takes for a command, and how it bears its clients.
#include <algorithm>

#include "loopback.h"
#include "process.h"
#include "program.h"
#include "random.h"
#include "trapcommand.h"

namespace {

using Texts = std::vector<std::string>;

std::string command(unsigned int specific, const std::string& manager = "127.0.0.1:16200") {
  return trapCommandText(specific, manager);
}

TEST(TrapCommand, TheDevicesFormIsAcceptedWithinItsLimits) {
  const std::string longest(213, 'm');
  const struct {
    std::string text;
    bool good;
  } CASES[] = {{command(1), true},
               {command(2147483647, "localhost:65535"), true},
               {command(1000, "a-b_c.d:1"), true},
               {command(2100000000, longest), true},
               {command(2100000000, longest + "m"), false},
               {command(0), false},
               {command(2147483648), false},
               {command(1000, "h:65536"), false},
               {command(1000, "h:0"), false},
               {command(1000, "h:99999999999"), false},
               {command(1000, ""), false},
               {command(1000, "-C"), false},
               {command(1000, "[::1]:162"), false},
               {command(1000, "host;reboot"), false}};
  for (const auto& c : CASES) {
    TrapCommand got;
    EXPECT_EQ(parseTrapCommand(c.text, got) == nullptr, c.good) << c.text;
    EXPECT_TRUE(!c.good || command(got.specific, got.manager) == c.text) << c.text;
  }
}

// A server whose snmptrap is a script that writes its arguments to the file "ran". Trap 666 takes
// for ever, and 777 fails when it has told where snmptrap's state and process group are.
class TrapServerTest : public testing::Test {
 protected:
  void start(Texts options) {
    writeWhole("snmptrap",
               "#!/bin/sh\n[ $9 != 666 ] || sleep 60\nline=$(printf '[%s]' \"$@\")\n"
               "echo \"$line\" >> ran\n[ $9 != 777 ] || {\n"
               "  readlink -f $SNMP_PERSISTENT_DIR > state\n"
               "  cut -d' ' -f5 /proc/$$/stat > group\n  exit 3\n}\n");
    chmod("snmptrap", 0700);
    options.insert(options.begin(), {TRAPSERVER, "--port", "0", "--snmptrap",
                                     std::filesystem::current_path() / "snmptrap"});
    unsetenv("SNMP_PERSISTENT_DIR");
    server = std::make_unique<Process>(options, "log");
    const std::string before = "listening on 127.0.0.1:";
    EXPECT_TRUE(server->says(before));
    const std::string said = server->output();
    port = static_cast<unsigned short>(std::stoul(said.substr(said.find(before) + before.size())));
  }
  static std::string ran(unsigned int specific) {
    return "[-v][1][-c][fabric][udp:127.0.0.1:16200][tamrisvaneTraps.1][][6][" +
           std::to_string(specific) + "][][tamrisvaneInstance.1][i][1]";
  }
  static Texts allRan() {
    Texts lines;
    std::ifstream in("ran");
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  // Sends in pieces, which fails once the server has dropped the connection.
  static void sendAll(int sock, const std::string& bytes, size_t piece = 65536) {
    for (size_t at = 0; at < bytes.size(); at += piece) {
      send(sock, bytes.data() + at, std::min(piece, bytes.size() - at), MSG_NOSIGNAL);
    }
  }
  // The server closes; nothing ever comes from it.
  static bool dropped(int sock) {
    char byte;
    return recv(sock, &byte, 1, 0) <= 0;
  }

  TempDir dir;
  std::unique_ptr<Process> server;
  unsigned short port;
};

TEST_F(TrapServerTest, GarbageFloodsAndVanishingClientsCostTheOthersNothing) {
  start({});
  Random random(8);
  const long idle = openDescriptors(server->id());
  const int device[] = {connectTo(port), connectTo(port)};
  Texts expected[2];
  unsigned int number = 1000;
  for (int round = 0; round < 12; ++round) {
    for (int d = 0; d < 2; ++d) {
      std::string bytes;
      for (unsigned int n = random.below(4); n > 0; --n) {
        bytes += command(++number) + '\0';
        expected[d].push_back(ran(number));
      }
      sendAll(device[d], bytes, 1 + random.below(150));
    }
    const int bad = connectTo(port);
    const std::string garbage[] = {
        "",                                             // says nothing
        command(5000).substr(0, 40),                    // half, then gone
        std::string(4000000, 'x'),                      // never ends
        command(5001, "h;touch owned") + '\0',          // no address
        "touch owned" + ('\0' + command(5002)) + '\0',  // no command, then one
        std::string(200000, '\0'),                      // nothing, many times
    };
    sendAll(bad, garbage[round % 6]);
    EXPECT_TRUE(round % 6 < 2 || dropped(bad));
    const linger hard = {round / 6, 0};  // gone with a reset
    setsockopt(bad, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    close(bad);
  }
  const size_t all = expected[0].size() + expected[1].size();
  EXPECT_TRUE(comesTrue([&] { return allRan().size() >= all; }));
  const Texts lines = allRan();
  EXPECT_EQ(lines.size(), all);
  for (const Texts& sent : expected) {  // in order among those of one connection
    Texts got;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(got), [&](const std::string& line) {
      return std::count(sent.begin(), sent.end(), line) != 0;
    });
    EXPECT_EQ(got, sent);
  }
  EXPECT_FALSE(std::filesystem::exists("owned"));
  close(device[0]);
  close(device[1]);
  EXPECT_TRUE(comesTrue([&] { return openDescriptors(server->id()) == idle; }));
  EXPECT_TRUE(server->says("refused, longer than any command: xxx"));
  EXPECT_TRUE(server->says("trap 1001 to 127.0.0.1:16200 sent\n"));
  EXPECT_EQ(server->end(), 0);
}

TEST_F(TrapServerTest, FailuresAreTheirOwnLineAndAtTheEndEverythingThatCameIsSent) {
  start({"--seconds", "1"});
  const int device = connectTo(port);
  std::string bytes = command(666) + '\0' + command(777) + '\0';
  sendAll(device, bytes);
  EXPECT_TRUE(server->says("trap 666 to 127.0.0.1:16200 not sent, snmptrap took too long\n"));
  EXPECT_TRUE(server->says("trap 777 to 127.0.0.1:16200 not sent, snmptrap ended with 3\n"));
  std::string state = readWhole("state");
  state.pop_back();
  EXPECT_EQ(std::filesystem::status(state).permissions(), std::filesystem::perms::owner_all);
  EXPECT_NE(std::stoi(readWhole("group")), getpgid(server->id())) << "Ctrl-C ends it, too";
  bytes.clear();
  for (unsigned int number = 2000; number < 2050; ++number) {
    bytes += command(number) + '\0';
  }
  sendAll(device, bytes);
  EXPECT_TRUE(server->says("trap 2000 to"));
  kill(server->id(), SIGTERM);
  EXPECT_TRUE(dropped(device));
  sendAll(device, command(2050) + '\0' + "half");  // as a device that has not noticed yet
  EXPECT_EQ(connectTo(port), -1);
  EXPECT_EQ(server->wait(), 0);
  EXPECT_EQ(allRan().size(), 52U);
  EXPECT_EQ(allRan().back(), ran(2050));
  EXPECT_TRUE(server->says("refused, half a command: half\nended\n"));
  EXPECT_FALSE(std::filesystem::exists(state));
  close(device);
}

// Clients that say nothing, half a command or one and then nothing take all places. Those that wait
// for one have sent and gone. In the end two more come at the very moment of a signal.
TEST_F(TrapServerTest, SilentClientsMakeWayAndWhoWaitsLosesNothing) {
  constexpr unsigned int PLACES = 64;
  constexpr unsigned int WAITING = 5;
  start({"--silence", "1"});
  std::vector<int> silent;
  for (unsigned int i = 0; i < PLACES; ++i) {
    silent.push_back(connectTo(port));
  }
  sendAll(silent[0], command(1000) + '\0');
  sendAll(silent[1], "half");
  EXPECT_TRUE(server->says("refused, half a command: half\n"));
  char byte;
  EXPECT_EQ(recv(silent[2], &byte, 1, MSG_DONTWAIT), -1) << "nobody needs its place";
  EXPECT_EQ(allRan(), Texts{ran(1000)});
  silent.push_back(connectTo(port));
  for (unsigned int number = 2000; number < 2001 + WAITING; ++number) {
    const int device = connectTo(port);
    sendAll(device, command(number) + '\0' + command(666 + number) + '\0');
    shutdown(device, SHUT_WR);
    silent.push_back(device);
  }
  EXPECT_TRUE(dropped(silent[2])) << "silent for the longest time";
  sendAll(silent[2], command(3000) + '\0');  // it has not noticed yet
  EXPECT_TRUE(comesTrue([] { return allRan().size() == 2 * (1 + WAITING) + 2; }));
  for (const int signal : {SIGSTOP, SIGTERM}) {
    silent.push_back(connectTo(port));
    sendAll(silent.back(), command(4000) + '\0');
    kill(server->id(), signal);
  }
  EXPECT_EQ(server->end(SIGCONT), 0);
  EXPECT_EQ(allRan().size(), 2 * (1 + WAITING) + 4);
  for (const int client : silent) {
    close(client);
  }
}

TEST_F(TrapServerTest, EachTrapThatThereIsNoTimeForHasItsLine) {
  start({"--seconds", "60", "--at-end", "1"});
  const int device = connectTo(port);
  sendAll(device, command(666) + '\0');
  const std::string bytes = command(1000) + '\0';
  size_t sent = 0;
  for (ssize_t n = 0; n >= 0 && sent < 3000 * bytes.size();) {
    n = send(device, bytes.data() + sent % bytes.size(), bytes.size() - sent % bytes.size(),
             MSG_DONTWAIT);
    sent += n > 0 ? static_cast<size_t>(n) : 0;
  }
  EXPECT_EQ(server->end(SIGINT), 0);
  const std::string log = server->output();
  EXPECT_NE(log.find("trap 666 to 127.0.0.1:16200 not sent, no time left\n"), log.npos);
  const std::string line = "trap 1000 to 127.0.0.1:16200 not sent, no time left\n";
  size_t lines = 0;
  for (size_t at = 0; (at = log.find(line, at) + 1) != 0;) {
    ++lines;
  }
  EXPECT_EQ(lines, sent / bytes.size());
  close(device);
}

}  // namespace
