// The trap generation server: turns the commands of devices into runs of net-snmp's snmptrap.
//
// It listens on the loopback host and takes zero-terminated commands. Each command is checked
// against the one form that a device sends; anything else is refused with a line, and the
// connection is dropped. The traps of one connection go out in the order of its commands, one at a
// time, and a connection is not read while its trap is under way, so a flood waits in the sender.
// No shell is involved. One thread; a signal descriptor and poll drive everything. Lines go to
// standard output, one per event.
//
// A device counts a trap as delivered when its command is sent. So what the server gives up has a
// line, and it closes on no device that could be sending:
// (1) A client for which there is no place waits in the listen queue, with all that it sends.
// (2) A client that has to leave is told so first, by the end of what the server sends, which is
//     what NetReconnectTrap looks at in front of each trap. It is heard until it is silent.
// (3) At the end connections that have begun are still taken and heard, and no new one begins.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <list>
#include <string>

#include "trapcommand.h"

/// What the command line decides.
struct TrapServerOptions {
  unsigned short port = 3859;         ///< TCP port on the loopback host; 0 for any free one
  std::string snmptrap = "snmptrap";  ///< the program to run, looked up in PATH
  unsigned int seconds = 10;          ///< how long one run may take before it is killed
  unsigned int silence = 30;          ///< how long a client may go without a whole command
  unsigned int atEnd = 5;             ///< how long traps are still sent once the server is to end
};

/// One server. It uses the process's signal mask, its children's exits and its environment: one per
/// process.
class TrapServer {
 public:
  explicit TrapServer(const TrapServerOptions& opts);
  TrapServer(const TrapServer&) = delete;
  TrapServer& operator=(const TrapServer&) = delete;
  ~TrapServer();

  /// Serves until SIGTERM, SIGINT or SIGHUP, of which those that the process ignores at its start
  /// stay ignored; what has arrived by then is still sent. Returns the exit status of the process:
  /// 0, or 1 with a line when the server cannot start.
  int run();

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point NEVER = Clock::time_point::max();

  struct Connection {
    Connection(int s, unsigned int n) : sock(s), number(n) {}

    int sock;
    unsigned int number;                           // as the lines call it
    std::string input;                             // arrived, not yet looked at
    bool ended = false;                            // nothing more will be read
    pid_t child = 0;                               // the snmptrap under way, 0 for none
    const char* killed = nullptr;                  // why the child has been killed
    TrapCommand command;                           // what the child delivers
    Clock::time_point due;                         // when the child is killed
    Clock::time_point silentSince = Clock::now();  // its last whole command was done, or it came
    Clock::time_point leaveBy = NEVER;  // it has been told: how long its silence is awaited
  };

  bool start();
  bool makeState();
  bool listenOnLoopback();
  void wait();
  void takeSignals();
  bool looksForClients(Clock::time_point now);
  void takeClients();
  bool takeClient();
  Connection* mostSilent(Clock::time_point now);
  Clock::time_point nextStep(const Connection& of, Clock::time_point now) const;
  static void read(Connection& from);
  static void tellToLeave(Connection& whom);
  static void refuse(Connection& from, const char* why, const std::string& text);
  void proceed(Connection& with);
  void spawn(Connection& with);
  static void reap(Connection& with);
  static void killChild(Connection& of, const char* why);
  void stop();
  void turnAway();
  void lookAtTheTime();

  const TrapServerOptions options;
  sigset_t handled;   // what the signal descriptor reports
  std::string state;  // the directory for snmptrap's files
  int listener = -1;
  int signals = -1;
  bool stopping = false;
  bool clientWaits = false;               // the listener has one
  bool starved = false;                   // the last client could not be taken
  Clock::time_point takeFrom;             // when the next client may be taken
  Clock::time_point listenUntil = NEVER;  // when the listener is closed
  Clock::time_point sendUntil = NEVER;    // when no more traps are sent
  Clock::time_point readUntil = NEVER;    // when nothing more is read
  unsigned int clients = 0;
  std::list<Connection> connections;
};
