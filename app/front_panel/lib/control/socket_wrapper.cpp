#include "socket_wrapper.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "debug.h"

namespace {

constexpr size_t MOST_NAMES = 1 << 20;  // bytes

// The first address of `hostname`; false, with the words for it, when there is none.
bool resolve(const char* hostname, in_addr& address) {
  const StreamGuard streams;
  hostent entry;
  hostent* found = nullptr;
  // For aliases and addresses of one host: a line of the hosts file or an answer may have many, and
  // a line that does not fit hides every one behind it.
  std::vector<char> names(1024);
  int error = 0;
  int result = ERANGE;
  while (hostname != nullptr && result == ERANGE && names.size() < MOST_NAMES) {
    names.resize(2 * names.size());  // what is found are IPv4 addresses, whatever else the name has
    result = gethostbyname_r(hostname, &entry, names.data(), names.size(), &found, &error);
  }
  if (found == nullptr) {
    std::fputs("bad hostname!\n", stderr);
    return false;
  }
  std::memcpy(&address, found->h_addr_list[0], sizeof address);
  return true;
}

sockaddr_in addressOf(unsigned short family, unsigned short port, in_addr host) {
  sockaddr_in so;
  std::memset(&so, 0, sizeof so);
  so.sin_family = family;
  so.sin_port = htons(port);
  so.sin_addr = host;
  return so;
}

// sockaddr is the common start of every address structure; the system's calls take it by pointer.
const sockaddr* generic(const sockaddr_in& so) {
  return reinterpret_cast<const sockaddr*>(&so);
}

int newSocket(int type) {
  const StreamGuard streams;
  const int sock = socket(AF_INET, type, 0);
  if (sock < 0) {
    std::fputs("socket allocation failed.\n", stderr);
    return -1;
  }
  return sock;
}

int boundSocket(int type, const sockaddr_in& so) {
  const int sock = newSocket(type);
  if (sock >= 0 && bind(sock, generic(so), sizeof so) != 0) {
    std::fputs("can not bind\n", stderr);
    close(sock);
    return -1;
  }
  return sock;
}

// Takes the first client of a bound socket and gives up the listener.
int acceptOne(int listener) {
  const StreamGuard streams;
  listen(listener, 1);
  const int client = accept(listener, nullptr, nullptr);
  close(listener);
  return client;
}

void reportServer(const sockaddr_in& so) {
  unsigned char bytes[4];
  static_assert(sizeof bytes == sizeof so.sin_addr, "an IPv4 address is four bytes");
  std::memcpy(bytes, &so.sin_addr, sizeof bytes);
  std::printf("server IP: %u.%u.%u.%u, [0x%04x], port: %u\n", bytes[0], bytes[1], bytes[2],
              bytes[3], so.sin_addr.s_addr, ntohs(so.sin_port));
}

}  // namespace

int setup_any_server(unsigned short port) {
  in_addr any;
  any.s_addr = htonl(INADDR_ANY);
  const int listener = boundSocket(SOCK_STREAM, addressOf(AF_INET, port, any));
  return listener < 0 ? -1 : acceptOne(listener);
}

int setup_server(const char* hostname, unsigned short port) {
  in_addr host;
  if (!resolve(hostname, host)) {
    return -1;
  }
  const int listener = boundSocket(SOCK_STREAM, addressOf(AF_INET, port, host));
  if (listener < 0) {
    return -1;
  }
  std::fputs("successfully bound, now listen.\n", stderr);
  return acceptOne(listener);
}

int setup_client(const char* hostname, unsigned short port) {
  in_addr host;
  if (!resolve(hostname, host)) {
    return -1;
  }
  const sockaddr_in so = addressOf(AF_INET, port, host);
  reportServer(so);
  const int sock = newSocket(SOCK_STREAM);
  if (sock < 0) {
    return -1;
  }
  if (connect(sock, generic(so), sizeof so) != 0) {
    std::fputs("can not connect.\n", stderr);
    close(sock);
    return -1;
  }
  std::fputs("connected\n", stderr);
  return sock;
}

int setup_dg_server(char* hostname, unsigned short port) {
  in_addr host;
  if (!resolve(hostname, host)) {
    return -1;
  }
  const int sock = boundSocket(SOCK_DGRAM, addressOf(AF_INET, port, host));
  if (sock >= 0) {
    std::fputs("successfully bound.\n", stderr);
  }
  return sock;
}

int setup_dg_client(char* hostname, unsigned short port) {
  in_addr host;
  if (!resolve(hostname, host)) {
    return -1;
  }
  reportServer(addressOf(AF_INET, port, host));
  return newSocket(SOCK_DGRAM);
}

int init_socket_addr(sockaddr_in* so, unsigned short family, unsigned short port,
                     const char* hostname) {
  in_addr host;
  if (so == nullptr || hostname == nullptr || !resolve(hostname, host)) {
    return -1;
  }
  *so = addressOf(family, port, host);
  return 0;
}
