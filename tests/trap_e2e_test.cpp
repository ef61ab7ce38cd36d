// From a confirmed setting to an SNMP manager: the panel, the trap generation server, and the
// snmptrap and snmptrapd of net-snmp, on loopback ports.
#include "loopback.h"
#include "process.h"

namespace {

class TrapEndToEnd : public testing::Test {
 protected:
  TrapEndToEnd() {
    // Nothing of this machine's SNMP configuration, and no file outside of this directory.
    setenv("SNMP_PERSISTENT_DIR", (std::filesystem::current_path() / "snmp").c_str(), 1);
    setenv("SNMPCONFPATH", std::filesystem::current_path().c_str(), 1);
    writeWhole("trapd.conf", "authCommunity log fabric\n");
    const std::string manager = "127.0.0.1:" + std::to_string(freePort(SOCK_DGRAM));
    setenv("TRAP_MANAGER", manager.c_str(), 1);
    // Each trap on one line, without names of hosts, which a resolver would be asked for.
    trapd = std::make_unique<Process>(
        std::vector<std::string>{"/usr/sbin/snmptrapd", "-f", "-n", "-C", "-c", "trapd.conf", "-M",
                                 MIBS, "-m", "TAMRISVANE-MIB", "-F", "%P %N %W (%q) %v\n", "-Lo",
                                 "udp:" + manager},
        "trapd.log");
    EXPECT_TRUE(trapd->says("NET-SNMP version"));
    unsetenv("SNMP_PERSISTENT_DIR");  // the server gives snmptrap one of its own
  }
  void startServer() {
    server = std::make_unique<Process>(std::vector<std::string>{TRAPSERVER, "--mibs", MIBS},
                                       "server.log" + std::to_string(++servers));
    ASSERT_TRUE(server->says("listening on 127.0.0.1:3859"));
  }
  // snmptrapd of net-snmp 5.9 writes a dot in front of the number where it formats it by itself.
  bool arrives(unsigned int specific) const {
    const std::string before = "tamrisvaneTraps.1 Enterprise Specific (";
    const std::string after = std::to_string(specific) + ")";
    return comesTrue([&] {
      const std::string log = trapd->output();
      return log.find(before + after) != log.npos || log.find(before + "." + after) != log.npos;
    });
  }
  size_t arrived() const {
    const std::string log = trapd->output();
    size_t count = 0;
    for (size_t at = 0; (at = log.find("Enterprise Specific", at) + 1) != 0;) {
      ++count;
    }
    return count;
  }

  TrapPortLock lock;
  TempDir dir;
  unsigned int servers = 0;
  std::unique_ptr<Process> trapd, server;
};

// Numbers: temperatures from 1000 on, mutes from 1008, gains from 1016, two for each of 4, 4 and
// 4 x 3 members; the second of two when the condition holds.
TEST_F(TrapEndToEnd, AConfirmedChangeArrivesAlsoWhenItsServerWasAway) {
  startServer();
  Process panel({PANEL, "--traps", "server"}, "panel.log");
  for (unsigned int even = 1000; even < 1040; even += 2) {
    ASSERT_TRUE(arrives(even)) << panel.output() << server->output() << trapd->output();
  }
  panel.type("set mute 2 on\n");
  EXPECT_TRUE(panel.says("waits for confirm"));
  panel.type("set limit 30\nwait 1\nconfirm\n");
  EXPECT_TRUE(arrives(1013));
  EXPECT_TRUE(arrives(1007)) << "the alarm of the last channel's temperature";
  EXPECT_TRUE(panel.says("2 settings confirmed"));
  EXPECT_EQ(arrived(), 20U + 1 + 4);
  EXPECT_TRUE(trapd->says("community fabric"));
  EXPECT_TRUE(trapd->says("tamrisvaneInstance.1 = INTEGER: 1"));

  for (const int signal : {SIGTERM, SIGKILL}) {
    server->end(signal);
    panel.type(signal == SIGTERM ? "set gain 2 1 -100\nconfirm\n" : "set gain 2 1 0\nconfirm\n");
    EXPECT_TRUE(panel.saysNext("Send---> can not connect to trap generation server\n"));
    startServer();
    EXPECT_TRUE(comesTrue([&] { return arrived() == (signal == SIGTERM ? 26U : 27U); }));
  }
  EXPECT_TRUE(arrives(1029));

  panel.type("set mute 0 on\nconfirm\nquit\n");  // told before the panel ends
  EXPECT_TRUE(arrives(1009));
  EXPECT_EQ(panel.wait(), 0);
  EXPECT_EQ(server->end(), 0);
  EXPECT_EQ(arrived(), 28U);
}

}  // namespace
