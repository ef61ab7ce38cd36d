// The trap generation server: what it takes for a command, and how it bears its clients.
#include <regex.h>

#include <algorithm>

#include "loopback.h"
#include "process.h"
#include "random.h"
#include "trapcommand.h"

namespace {

std::string command(unsigned int specific, const std::string& manager = "127.0.0.1:16200") {
  return "snmptrap -v 1 -c fabric " + manager + " tamrisvaneTraps.1 \"\" 6 " +
         std::to_string(specific) + " \"\" tamrisvaneInstance.1 i 1";
}

// The form as one expression; the ranges of its two numbers beside it.
bool acceptable(const std::string& text) {
  static regex_t form;
  static const int compiled =
      regcomp(&form,
              "^snmptrap -v 1 -c fabric [A-Za-z0-9][-A-Za-z0-9._]*(:([1-9][0-9]{0,9}))?"
              " tamrisvaneTraps\\.1 \"\" 6 ([1-9][0-9]{0,9}) \"\" tamrisvaneInstance\\.1 i 1$",
              REG_EXTENDED);
  EXPECT_EQ(compiled, 0);
  regmatch_t part[4];
  const auto number = [&](int n) {
    return part[n].rm_so < 0 ? 0 : std::stoull(text.substr(static_cast<size_t>(part[n].rm_so)));
  };
  return text.size() <= 299 && text.find('\0') == std::string::npos &&
         regexec(&form, text.c_str(), 4, part, 0) == 0 && number(2) <= 65535 &&
         number(3) <= 2147483647;
}

TEST(TrapCommand, OnlyTheDevicesFormIsAcceptedHoweverItIsBent) {
  Random random(7);
  const char* const managers[] = {
      "192.168.1.1", "localhost:65535", "a-b_c.d:1", "h:65536",     "-C",
      "h:0",         "[::1]:162",       "ssh:x",     "host;reboot", "h:99999999999"};
  const unsigned int numbers[] = {1000, 1, 0, 2147483647, 2147483648, 4294967295};
  const char odd[] = " \"-:;$`|&\n\\0129azAZ.\t\xFF";
  unsigned int accepted = 0;
  for (int i = 0; i < 20000; ++i) {
    const unsigned int which = random.below(12);
    std::string text = command(numbers[random.below(6)],
                               which < 10 ? managers[which] : std::string(which * 20, 'm'));
    for (unsigned int bends = random.below(3); bends > 0; --bends) {
      const size_t at = random.below(static_cast<unsigned int>(text.size()) + 1);
      const size_t gone = random.oneIn(8) ? std::string::npos : random.below(3);
      text.replace(at, gone, random.below(2), odd[random.below(sizeof odd)]);  // its zero too
    }
    TrapCommand got;
    const bool ok = parseTrapCommand(text, got) == nullptr;
    ASSERT_EQ(ok, acceptable(text)) << text;
    ASSERT_TRUE(!ok || command(got.specific, got.manager) == text) << text;
    accepted += ok ? 1 : 0;
  }
  EXPECT_GT(accepted, 1000U);
}

// A server whose snmptrap is a script that writes its arguments to the file "ran".
class TrapServerTest : public testing::Test {
 protected:
  TrapServerTest() {
    writeWhole("snmptrap",
               "#!/bin/sh\n[ $9 != 666 ] || exec sleep 60\nline=$(printf '[%s]' \"$@\")\n"
               "echo \"$line\" >> ran\n[ $9 != 777 ] || exit 3\n");
    chmod("snmptrap", 0700);
    const std::string script = std::filesystem::current_path() / "snmptrap";
    server = std::make_unique<Process>(
        std::vector<std::string>{TRAPSERVER, "--port", "0", "--seconds", "1", "--snmptrap", script},
        "log");
    const std::string before = "listening on 127.0.0.1:";
    EXPECT_TRUE(server->says(before));
    const std::string said = server->output();
    port = static_cast<unsigned short>(std::stoul(said.substr(said.find(before) + before.size())));
  }
  static std::string ran(unsigned int specific) {
    return "[-v][1][-c][fabric][udp:127.0.0.1:16200][tamrisvaneTraps.1][][6][" +
           std::to_string(specific) + "][][tamrisvaneInstance.1][i][1]";
  }
  static std::vector<std::string> allRan() {
    std::vector<std::string> lines;
    std::ifstream in("ran");
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  // Sends in pieces, until the server drops the connection.
  static void sendAll(int sock, const std::string& bytes, size_t piece) {
    for (size_t at = 0; at < bytes.size(); at += piece) {
      if (send(sock, bytes.data() + at, std::min(piece, bytes.size() - at), MSG_NOSIGNAL) < 0) {
        return;
      }
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
  Random random(8);
  const long idle = openDescriptors(server->id());
  const int device[] = {connectTo(port), connectTo(port)};
  std::vector<std::string> expected[2];
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
    std::string bytes;
    switch (round % 6) {
      case 0:
        bytes = command(5000).substr(0, 40);
        break;  // half, then gone
      case 1:
        bytes = std::string(4000000, 'x');
        break;  // never ends
      case 2:
        bytes = command(5001, "h;touch owned") + '\0';
        break;
      case 3:
        bytes = "touch owned" + std::string(1, '\0') + command(5002) + '\0';
        break;
      case 4:
        bytes = std::string(1, '\0') + std::string(200000, '\0');
        break;
      default:
        break;  // says nothing
    }
    sendAll(bad, bytes, 65536);
    EXPECT_TRUE(round % 6 == 0 || round % 6 == 5 || dropped(bad));
    if (round >= 6) {
      const linger hard = {1, 0};  // gone with a reset
      setsockopt(bad, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    close(bad);
  }
  const size_t all = expected[0].size() + expected[1].size();
  EXPECT_TRUE(comesTrue([&] { return allRan().size() >= all; }));
  const std::vector<std::string> lines = allRan();
  EXPECT_EQ(lines.size(), all);
  for (const std::vector<std::string>& of : expected) {  // in order among those of one connection
    auto at = lines.begin();
    for (const std::string& line : of) {
      at = std::find(at, lines.end(), line);
      ASSERT_NE(at, lines.end()) << line;
    }
  }
  EXPECT_FALSE(std::filesystem::exists("owned"));
  close(device[0]);
  close(device[1]);
  EXPECT_TRUE(comesTrue([&] { return openDescriptors(server->id()) == idle; }));
  EXPECT_TRUE(server->says("refused, half a command: snmptrap -v 1"));
  EXPECT_TRUE(server->says("refused, longer than any command: xxx"));
  EXPECT_TRUE(server->says("trap 1001 to 127.0.0.1:16200 sent\n"));
  EXPECT_EQ(server->end(), 0);
}

TEST_F(TrapServerTest, FailuresAreTheirOwnLineAndAtTheEndEverythingThatCameIsSent) {
  const int device = connectTo(port);
  std::string bytes;
  for (const unsigned int number : {666U, 777U}) {
    bytes += command(number) + '\0';
  }
  sendAll(device, bytes, 1000);
  EXPECT_TRUE(server->says("trap 666 to 127.0.0.1:16200 not sent, snmptrap took too long\n"));
  EXPECT_TRUE(server->says("trap 777 to 127.0.0.1:16200 not sent, snmptrap ended with 3\n"));
  bytes.clear();
  for (unsigned int number = 2000; number < 2050; ++number) {
    bytes += command(number) + '\0';
  }
  sendAll(device, bytes, 1000);
  EXPECT_TRUE(server->says("trap 2000 to"));
  kill(server->id(), SIGTERM);
  EXPECT_TRUE(dropped(device));
  EXPECT_EQ(connectTo(port), -1);
  sendAll(device, command(2050) + '\0' + "half", 1000);  // as a device that has not noticed yet
  EXPECT_EQ(server->wait(), 0);
  EXPECT_EQ(allRan().size(), 52U);
  EXPECT_EQ(allRan().back(), ran(2050));
  EXPECT_TRUE(server->says("refused, half a command: half\nended\n"));
  close(device);
}

}  // namespace
