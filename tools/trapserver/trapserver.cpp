#include "trapserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

namespace {

constexpr size_t MAX_CONNECTIONS = 64;
constexpr size_t READ_BLOCK = 4096;
constexpr std::chrono::milliseconds TIME_TO_NOTICE{200};  // for a client, that it is to leave
constexpr std::chrono::seconds TIME_TO_TELL{1};           // at the end, what is not sent any more
constexpr std::chrono::milliseconds PAUSE{100};
constexpr std::chrono::seconds UNTIL_NEXT_LOOK{60};  // poll needs some limit

// What ends the server, but for what the process ignores, as under nohup or in the background of a
// script; and the end of a child.
sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction action;
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
      sigaddset(&set, number);
    }
  }
  return set;
}

// The start of a text from outside, fit for a line of the log.
std::string printable(const std::string& text) {
  std::string line = text.substr(0, 60);
  for (char& c : line) {
    if (c < ' ' || c > '~') {
      c = '.';
    }
  }
  return line;
}

void reportNotSent(unsigned int client, const TrapCommand& command, const std::string& why) {
  std::printf("client %u: trap %u to %s not sent, %s\n", client, command.specific,
              command.manager.c_str(), why.c_str());
}

}  // namespace

TrapServer::TrapServer(const TrapServerOptions& opts) : options(opts), handled(handledSignals()) {}

TrapServer::~TrapServer() {
  for (const Connection& connection : connections) {
    close(connection.sock);
  }
  for (const int descriptor : {listener, signals}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
  if (!state.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(state, ignored);
  }
}

bool TrapServer::start() {
  signal(SIGPIPE, SIG_IGN);
  sigprocmask(SIG_BLOCK, &handled, nullptr);
  signals = signalfd(-1, &handled, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signals < 0) {
    std::printf("can not wait for signals: %s\n", std::strerror(errno));
    return false;
  }
  return makeState() && listenOnLoopback();
}

// snmptrap keeps a file of its own, in a directory that all programs of net-snmp share, and each
// run reads and writes it. A version 1 trap needs nothing of it.
bool TrapServer::makeState() {
  if (std::getenv("SNMP_PERSISTENT_DIR") != nullptr) {
    return true;
  }
  std::string name = std::filesystem::temp_directory_path() / "trapserver-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    std::printf("can not make a directory for snmptrap, %s: %s\n", name.c_str(),
                std::strerror(errno));
    return false;
  }
  state = name;
  std::ofstream(state + "/snmp.conf") << "noPersistentLoad yes\nnoPersistentSave yes\n";
  setenv("SNMP_PERSISTENT_DIR", state.c_str(), 1);
  return true;
}

bool TrapServer::listenOnLoopback() {
  listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(options.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  sockaddr* const generic = reinterpret_cast<sockaddr*>(&address);
  if (listener < 0 || bind(listener, generic, size) != 0 || listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, generic, &size) != 0) {
    std::printf("can not listen on port %u: %s\n", options.port, std::strerror(errno));
    return false;
  }
  std::printf("listening on 127.0.0.1:%u\n", ntohs(address.sin_port));
  return true;
}

int TrapServer::run() {
  if (!start()) {
    return 1;
  }
  while (!stopping || listener >= 0 || !connections.empty()) {
    wait();
    takeSignals();
    if (listener >= 0) {
      takeClients();
    }
    lookAtTheTime();
    for (auto next = connections.begin(); next != connections.end();) {
      Connection& connection = *next;
      reap(connection);
      proceed(connection);
      if (connection.ended && connection.child == 0) {
        close(connection.sock);
        next = connections.erase(next);
      } else {
        ++next;
      }
    }
  }
  std::puts("ended");
  return 0;
}

// Sleeps until something is to be done, and reads what has come.
void TrapServer::wait() {
  const Clock::time_point now = Clock::now();
  std::vector<pollfd> events = {{signals, POLLIN, 0},
                                {looksForClients(now) ? listener : -1, POLLIN, 0}};
  std::vector<Connection*> readers;
  Clock::time_point until = now + UNTIL_NEXT_LOOK;
  for (const Clock::time_point step : {takeFrom, listenUntil, sendUntil, readUntil}) {
    until = step > now ? std::min(until, step) : until;
  }
  for (Connection& connection : connections) {
    until = std::min(until, nextStep(connection, now));
    if (connection.child == 0 && !connection.ended) {
      events.push_back({connection.sock, POLLIN, 0});
      readers.push_back(&connection);
    }
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
  const int ready = poll(events.data(), events.size(), left < 0 ? 0 : static_cast<int>(left));
  clientWaits = ready > 0 && events[1].revents != 0;
  for (size_t i = 0; i < readers.size() && ready >= 0; ++i) {
    if (events[i + 2].revents != 0) {
      read(*readers[i]);
    } else if (now >= readers[i]->leaveBy) {
      readers[i]->ended = true;
    }
  }
}

// When something is to be done about a connection, whatever else happens.
TrapServer::Clock::time_point TrapServer::nextStep(const Connection& of,
                                                   Clock::time_point now) const {
  if (of.child != 0) {
    return of.due;
  }
  if (of.leaveBy != NEVER) {
    return of.leaveBy;
  }
  const Clock::time_point limit = of.silentSince + std::chrono::seconds(options.silence);
  return limit > now ? limit : NEVER;
}

void TrapServer::takeSignals() {
  signalfd_siginfo info;
  while (::read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo != SIGCHLD && !stopping) {
      stop();
    }
  }
}

// The client that has been silent for the longest time, if that is beyond the limit.
TrapServer::Connection* TrapServer::mostSilent(Clock::time_point now) {
  Connection* most = nullptr;
  for (Connection& connection : connections) {
    if (connection.child == 0 && !connection.ended &&
        connection.silentSince + std::chrono::seconds(options.silence) <= now &&
        (most == nullptr || connection.silentSince < most->silentSince)) {
      most = &connection;
    }
  }
  return most;
}

// Is it worth knowing that a client waits? Without a place for it, it is while one could be made,
// unless one is being made already.
bool TrapServer::looksForClients(Clock::time_point now) {
  if (now < takeFrom) {
    return false;
  }
  if (stopping || connections.size() < MAX_CONNECTIONS) {
    return true;
  }
  const bool placeToCome =
      std::any_of(connections.begin(), connections.end(),
                  [](const Connection& connection) { return connection.leaveBy != NEVER; });
  return !placeToCome && mostSilent(now) != nullptr;
}

void TrapServer::takeClients() {
  const Clock::time_point now = Clock::now();
  if (!stopping && connections.size() >= MAX_CONNECTIONS) {
    Connection* const silent = clientWaits ? mostSilent(now) : nullptr;
    if (silent != nullptr) {
      std::printf("client %u: silent for %u s or more, its place goes to another\n", silent->number,
                  options.silence);
      tellToLeave(*silent);
    }
    return;
  }
  while (now >= takeFrom && (stopping || connections.size() < MAX_CONNECTIONS) && takeClient()) {
  }
  if (now >= listenUntil && (now >= takeFrom || now >= sendUntil)) {
    shutdown(listener, SHUT_RDWR);  // at once, also where a child that starts still has a copy
    close(listener);
    listener = -1;
  }
}

// False when nobody waits, or the system has no descriptor or memory left: then the client waits
// on in the queue.
bool TrapServer::takeClient() {
  const int sock = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (sock < 0) {
    if (errno == ECONNABORTED || errno == EINTR) {
      return true;
    }
    if (errno != EAGAIN) {
      if (!starved) {
        std::printf("can not take a client: %s; it waits\n", std::strerror(errno));
      }
      starved = true;
      takeFrom = Clock::now() + PAUSE;
    }
    return false;
  }
  starved = false;
  connections.emplace_back(sock, ++clients);
  if (stopping) {
    tellToLeave(connections.back());
  }
  return true;
}

// A client that has sent at this very moment, not yet knowing, is still heard.
void TrapServer::tellToLeave(Connection& whom) {
  shutdown(whom.sock, SHUT_WR);
  whom.leaveBy = Clock::now() + TIME_TO_NOTICE;
}

// Takes no more clients but those that have connected already, and tells everyone.
void TrapServer::stop() {
  std::puts("stopping");
  stopping = true;
  turnAway();
  listenUntil = Clock::now() + TIME_TO_NOTICE;
  sendUntil = Clock::now() + std::chrono::seconds(options.atEnd);
  readUntil = sendUntil + TIME_TO_TELL;
  for (Connection& connection : connections) {
    tellToLeave(connection);
  }
}

// Lets no connection begin: what opens one is dropped in front of the listener, and the client asks
// again in a second, when nobody listens any more. Those that have begun still come through; their
// clients may have sent something.
void TrapServer::turnAway() {
  constexpr unsigned int FLAGS = 13;  // in the header of TCP
  constexpr unsigned int SYN = 2;
  sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_B | BPF_ABS, FLAGS),
                         BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, SYN, 0, 1),
                         BPF_STMT(BPF_RET | BPF_K, 0), BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF)};
  const sock_fprog filter = {sizeof steps / sizeof *steps, steps};
  setsockopt(listener, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

// At the end: no more traps, and then no more commands.
void TrapServer::lookAtTheTime() {
  const Clock::time_point now = Clock::now();
  for (Connection& connection : connections) {
    if (now >= sendUntil && connection.child != 0) {
      killChild(connection, "no time left");
    }
    connection.ended = connection.ended || now >= readUntil;
  }
}

void TrapServer::read(Connection& from) {
  char block[READ_BLOCK];
  const ssize_t count = recv(from.sock, block, sizeof block, 0);
  if (count > 0) {
    from.input.append(block, static_cast<size_t>(count));
    if (from.leaveBy != NEVER) {
      from.leaveBy = Clock::now() + TIME_TO_NOTICE;
    }
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    from.ended = true;
  }
}

void TrapServer::refuse(Connection& from, const char* why, const std::string& text) {
  std::printf("client %u: refused, %s: %s\n", from.number, why, printable(text).c_str());
  from.input.clear();
  from.ended = true;
}

// Looks at what has come until a trap is under way or nothing whole is left.
void TrapServer::proceed(Connection& with) {
  const Clock::time_point now = Clock::now();
  std::string text;
  const char* why = nullptr;
  while (with.child == 0 && takeTrapCommand(with.input, with.ended, with.command, text, why)) {
    with.silentSince = now;
    if (why != nullptr) {
      refuse(with, why, text);
    } else if (now >= sendUntil) {
      reportNotSent(with.number, with.command, "no time left");
    } else {
      spawn(with);
    }
  }
  if (with.child == 0 && !with.input.empty() && with.leaveBy == NEVER &&
      now >= with.silentSince + std::chrono::seconds(options.silence)) {
    tellToLeave(with);  // the rest of the command may yet come
  }
}

void TrapServer::spawn(Connection& with) {
  // Named as UDP, so that a host whose name is that of a transport can not choose another one.
  const std::string manager = "udp:" + with.command.manager;
  const std::string specific = std::to_string(with.command.specific);
  const char* const words[] = {"snmptrap",
                               "-v",
                               "1",
                               "-c",
                               "fabric",
                               manager.c_str(),
                               "tamrisvaneTraps.1",
                               "",
                               "6",
                               specific.c_str(),
                               "",
                               "tamrisvaneInstance.1",
                               "i",
                               "1",
                               nullptr};
  // A child starts with no signal blocked or ignored, and with no input. In a process group of its
  // own it does not get the Ctrl-C that ends the server.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  sigset_t normal = handled;
  sigaddset(&normal, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &normal);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  const int error = posix_spawnp(&with.child, options.snmptrap.c_str(), &files, &attributes,
                                 const_cast<char* const*>(words), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    with.child = 0;
    reportNotSent(with.number, with.command,
                  "can not run " + options.snmptrap + ": " + std::strerror(error));
    return;
  }
  with.killed = nullptr;
  with.due = Clock::now() + std::chrono::seconds(options.seconds);
}

void TrapServer::killChild(Connection& of, const char* why) {
  if (of.killed == nullptr) {
    kill(-of.child, SIGKILL);  // and what it has started
    of.killed = why;
    of.due = NEVER;
  }
}

// Reports a child that has ended, and ends one that takes too long.
void TrapServer::reap(Connection& with) {
  if (with.child == 0) {
    return;
  }
  int status = 0;
  if (waitpid(with.child, &status, WNOHANG) != with.child) {
    if (Clock::now() >= with.due) {
      killChild(with, "snmptrap took too long");
    }
    return;
  }
  with.child = 0;
  with.silentSince = Clock::now();
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    std::printf("client %u: trap %u to %s sent\n", with.number, with.command.specific,
                with.command.manager.c_str());
  } else if (WIFEXITED(status)) {
    reportNotSent(with.number, with.command,
                  "snmptrap ended with " + std::to_string(WEXITSTATUS(status)));
  } else {
    reportNotSent(with.number, with.command,
                  with.killed != nullptr ? with.killed : "snmptrap was killed");
  }
}
