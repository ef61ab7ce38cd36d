// The trap generation server: turns the commands of devices into runs of net-snmp's snmptrap.
//
// It listens on the loopback host and takes zero-terminated commands from any number of
// connections. Each command is checked against the one form that a device sends; anything else is
// refused with a line, and the connection is dropped. The traps of one connection go out in the
// order of its commands, one at a time, and a connection is not read while its trap is under way,
// so a flood waits in the sender. No shell is involved. One thread; a signal descriptor and poll
// drive everything. Lines go to standard output, one per event.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <list>
#include <string>

#include "trapcommand.h"

/// What the command line decides.
struct TrapServerOptions {
  unsigned short port = 3859;         ///< TCP port on the loopback host; 0 for any free one
  std::string snmptrap = "snmptrap";  ///< the program to run, looked up in PATH
  unsigned int seconds = 10;          ///< how long one run may take before it is killed
};

/// One server. It uses the process's signal mask and its children's exits: one per process.
class TrapServer {
 public:
  explicit TrapServer(const TrapServerOptions& opts);
  TrapServer(const TrapServer&) = delete;
  TrapServer& operator=(const TrapServer&) = delete;
  ~TrapServer();

  /// Serves until SIGTERM or SIGINT; what has arrived by then is still sent. Returns the exit
  /// status of the process: 0, or 1 with a line when the server cannot start.
  int run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Connection {
    Connection(int s, unsigned int n) : sock(s), number(n) {}

    int sock;
    unsigned int number;    // as the lines call it
    std::string input;      // arrived, not yet looked at
    bool ended = false;     // nothing more will be read
    pid_t child = 0;        // the snmptrap under way, 0 for none
    bool late = false;      // the child has been killed for its time
    TrapCommand command;    // what the child delivers
    Clock::time_point due;  // when the child is killed
  };

  bool start();
  void wait();
  void takeSignals();
  bool takeClient();
  void read(Connection& from);
  void refuse(Connection& from, const char* why, const std::string& text);
  void proceed(Connection& with);
  void spawn(Connection& with);
  void reap(Connection& with);
  void stop();
  void readRest();

  const TrapServerOptions options;
  int listener = -1;
  int signals = -1;
  bool stopping = false;
  Clock::time_point readBy = Clock::time_point::max();  // when no more input is taken
  Clock::time_point stopBy = Clock::time_point::max();  // when no more traps are sent
  unsigned int clients = 0;
  std::list<Connection> connections;
};
