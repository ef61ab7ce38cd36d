// The other end of a socket, on 127.0.0.1, and what several tests need around it.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

/// Held by every test that uses the fixed port of the trap generation server, across all build
/// trees of this machine.
class TrapPortLock {
 public:
  TrapPortLock() { EXPECT_EQ(flock(directory, LOCK_EX), 0) << strerror(errno); }
  ~TrapPortLock() { close(directory); }

 private:
  const int directory = open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
};

/// The number of descriptors that a process has open, this one or another.
inline long openDescriptors(pid_t pid = getpid()) {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(pid) + "/fd");
  return std::distance(begin(all), end(all));
}

inline sockaddr_in loopbackAddress(unsigned short port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A socket of `type` bound to `port` of the loopback address, 0 for any free one; -1 if taken.
inline int boundOnLoopback(int type, unsigned short port) {
  const int sock = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = loopbackAddress(port);
  if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(sock);
    return -1;
  }
  return sock;
}

inline unsigned short portOf(int sock) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(sock, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// A port that was free a moment ago.
inline unsigned short freePort(int type) {
  const int sock = boundOnLoopback(type, 0);
  const unsigned short port = portOf(sock);
  close(sock);
  return port;
}

/// A stream connected to `port`, -1 when nobody listens there.
inline int connectTo(unsigned short port) {
  const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopbackAddress(port);
  if (connect(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(sock);
    return -1;
  }
  return sock;
}

/// What a device sends for the trap `specific` to `manager`.
inline std::string trapCommandText(unsigned int specific, const std::string& manager) {
  return "snmptrap -v 1 -c fabric " + manager + " tamrisvaneTraps.1 \"\" 6 " +
         std::to_string(specific) + " \"\" tamrisvaneInstance.1 i 1";
}

/// A server of zero-terminated texts that is started, read and stopped by the test.
class TextServer {
 public:
  explicit TextServer(unsigned short port) : listener(boundOnLoopback(SOCK_STREAM, port)) {
    EXPECT_GE(listener, 0) << "port " << port << " is taken";
    listen(listener, 8);
  }
  ~TextServer() {
    close(listener);
    close(client);
  }
  unsigned short port() const { return portOf(listener); }
  /// Waits up to `ms` milliseconds for the next client and reads from that one from now on.
  void accept(int ms = -1) {
    pollfd event = {listener, POLLIN, 0};
    if (poll(&event, 1, ms) > 0) {
      close(client);
      client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      rest.clear();
    }
  }
  /// Appends every whole text that has come to `texts`; what is left stays in `rest`.
  void read(std::vector<std::string>& texts) {
    char block[4096];
    for (ssize_t n; (n = recv(client, block, sizeof block, MSG_DONTWAIT)) > 0;) {
      rest.append(block, static_cast<size_t>(n));
    }
    for (size_t zero; (zero = rest.find('\0')) != std::string::npos; rest.erase(0, zero + 1)) {
      texts.push_back(rest.substr(0, zero));
    }
  }

  std::string rest;

 private:
  const int listener;
  int client = -1;
};
