#include "trapserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr size_t MAX_CONNECTIONS = 64;
constexpr size_t READ_BLOCK = 4096;
constexpr size_t MAX_AT_STOP = 16 * READ_BLOCK;           // read from one connection at the end
constexpr std::chrono::milliseconds TIME_TO_NOTICE{200};  // for clients, that the server ends
constexpr std::chrono::seconds TIME_TO_STOP{5};           // for the traps that are still to be sent
constexpr std::chrono::milliseconds PAUSE{100};
constexpr std::chrono::seconds UNTIL_NEXT_LOOK{60};  // poll needs some limit

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGCHLD}) {
    sigaddset(&set, number);
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

}  // namespace

TrapServer::TrapServer(const TrapServerOptions& opts) : options(opts) {}

TrapServer::~TrapServer() {
  for (const Connection& connection : connections) {
    close(connection.sock);
  }
  for (const int descriptor : {listener, signals}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
}

bool TrapServer::start() {
  signal(SIGPIPE, SIG_IGN);
  const sigset_t handled = handledSignals();
  sigprocmask(SIG_BLOCK, &handled, nullptr);
  signals = signalfd(-1, &handled, SFD_NONBLOCK | SFD_CLOEXEC);
  listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(options.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  sockaddr* const generic = reinterpret_cast<sockaddr*>(&address);
  if (signals < 0 || listener < 0 || bind(listener, generic, size) != 0 ||
      listen(listener, SOMAXCONN) != 0 || getsockname(listener, generic, &size) != 0) {
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
  while (!stopping || !connections.empty()) {
    wait();
    takeSignals();
    if (Clock::now() >= readBy) {
      readRest();
    }
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
    if (listener >= 0) {
      takeClient();
    }
  }
  std::puts("ended");
  return 0;
}

// Sleeps until something is to be done, and reads what has come.
void TrapServer::wait() {
  std::vector<pollfd> events = {{signals, POLLIN, 0}, {listener, POLLIN, 0}};
  std::vector<Connection*> readers;
  Clock::time_point until = std::min({Clock::now() + UNTIL_NEXT_LOOK, readBy, stopBy});
  for (Connection& connection : connections) {
    if (connection.child != 0) {
      until = std::min(until, connection.due);
    } else if (!connection.ended) {
      events.push_back({connection.sock, POLLIN, 0});
      readers.push_back(&connection);
    }
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  if (poll(events.data(), events.size(), left < 0 ? 0 : static_cast<int>(left)) <= 0) {
    return;
  }
  for (size_t i = 0; i < readers.size(); ++i) {
    if (events[i + 2].revents != 0) {
      read(*readers[i]);
    }
  }
}

void TrapServer::takeSignals() {
  signalfd_siginfo info;
  while (::read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo != SIGCHLD && !stopping) {
      stop();
    }
  }
}

// Takes no more clients and tells those that are there. One that has sent at this very moment, not
// yet knowing, is still heard for a while, so that what it counts as delivered is sent.
void TrapServer::stop() {
  std::puts("stopping");
  stopping = true;
  readBy = Clock::now() + TIME_TO_NOTICE;
  stopBy = Clock::now() + TIME_TO_STOP;
  while (takeClient()) {
  }
  shutdown(listener, SHUT_RDWR);  // at once, also where a child that starts still has a copy
  close(listener);
  listener = -1;
  for (const Connection& connection : connections) {
    shutdown(connection.sock, SHUT_WR);
  }
}

// The last input of every connection: what has arrived by now.
void TrapServer::readRest() {
  readBy = Clock::time_point::max();
  for (Connection& connection : connections) {
    while (!connection.ended && connection.input.size() < MAX_AT_STOP) {
      const size_t before = connection.input.size();
      read(connection);
      if (connection.input.size() == before) {
        break;
      }
    }
    connection.ended = true;
  }
}

// False when nobody waits, or the system has no descriptor left.
bool TrapServer::takeClient() {
  const int sock = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (sock < 0) {
    if (errno == EMFILE || errno == ENFILE) {
      std::puts("no descriptor for a client");
      std::this_thread::sleep_for(PAUSE);  // the client waits, and poll would report it at once
    }
    return false;
  }
  const unsigned int number = ++clients;
  if (connections.size() >= MAX_CONNECTIONS) {
    std::printf("client %u: refused, there are %zu already\n", number, MAX_CONNECTIONS);
    close(sock);
  } else {
    connections.emplace_back(sock, number);
  }
  return true;
}

void TrapServer::read(Connection& from) {
  char block[READ_BLOCK];
  const ssize_t count = recv(from.sock, block, sizeof block, 0);
  if (count > 0) {
    from.input.append(block, static_cast<size_t>(count));
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
  if (Clock::now() >= stopBy && !with.input.empty()) {
    refuse(with, "no time left", with.input);
  }
  std::string text;
  const char* why = nullptr;
  while (with.child == 0 && takeTrapCommand(with.input, with.ended, with.command, text, why)) {
    if (why != nullptr) {
      refuse(with, why, text);
    } else {
      spawn(with);
    }
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
  // A child starts with no signal blocked or ignored, and with no input.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  sigset_t normal = handledSignals();
  sigaddset(&normal, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &normal);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  const int error = posix_spawnp(&with.child, options.snmptrap.c_str(), &files, &attributes,
                                 const_cast<char* const*>(words), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    with.child = 0;
    std::printf("client %u: trap %u to %s not sent, can not run %s: %s\n", with.number,
                with.command.specific, with.command.manager.c_str(), options.snmptrap.c_str(),
                std::strerror(error));
    return;
  }
  with.late = false;
  with.due = Clock::now() + std::chrono::seconds(options.seconds);
}

// Reports a child that has ended, and ends one that takes too long.
void TrapServer::reap(Connection& with) {
  if (with.child == 0) {
    return;
  }
  int status = 0;
  if (waitpid(with.child, &status, WNOHANG) == with.child) {
    with.child = 0;
    const bool sent = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    std::printf("client %u: trap %u to %s %s", with.number, with.command.specific,
                with.command.manager.c_str(), sent ? "sent\n" : "not sent, snmptrap ");
    if (!sent && WIFEXITED(status)) {
      std::printf("ended with %d\n", WEXITSTATUS(status));
    } else if (!sent) {
      std::puts(with.late ? "took too long" : "was killed");
    }
    return;
  }
  const Clock::time_point now = Clock::now();
  if (!with.late && (now >= with.due || now >= stopBy)) {
    kill(with.child, SIGKILL);
    with.late = true;
    with.due = now + UNTIL_NEXT_LOOK;
  }
}
