// The socket helpers: what they connect, what they say, and what they leave open.
#include "socket_wrapper.h"

#include <netdb.h>
#include <sys/resource.h>

#include <functional>
#include <thread>

#include "loopback.h"

// In place of the C library's: the host "crowded" is at 127.0.0.1 and has 40,000 bytes of aliases.
extern "C" int gethostbyname_r(const char* name, hostent* entry, char* buf, size_t size,
                               hostent** found, int* error) {
  const bool crowded = std::strcmp(name, "crowded") == 0;
  *found = nullptr;
  return crowded && size < 40000 ? ERANGE
                                 : gethostbyname2_r(crowded ? "127.0.0.1" : name, AF_INET, entry,
                                                    buf, size, found, error);
}

namespace {

using namespace testing::internal;

char loopback[] = "127.0.0.1";
// A label of a name has at most 63 characters, so no resolver asks anybody about this one.
std::string unknownName(300, 'x');
char* const unknown = unknownName.data();

// Runs `call`, which has to write `words`: the server line to standard output, the rest to standard
// error. Returns its result.
template <class Call>
int hear(const std::string& words, Call call) {
  CaptureStdout();
  CaptureStderr();
  const int result = call();
  const size_t end = words.rfind("server IP", 0) == 0 ? words.find('\n') + 1 : 0;
  EXPECT_EQ(GetCapturedStdout(), words.substr(0, end));
  EXPECT_EQ(GetCapturedStderr(), words.substr(end));
  return result;
}

std::string serverLine(unsigned short port) {
  char line[80];
  snprintf(line, sizeof line, "server IP: 127.0.0.1, [0x%04x], port: %u\n", htonl(INADDR_LOOPBACK),
           unsigned{port});
  return line;
}

TEST(StreamSockets, AServerServesOneClientOnly) {
  const long before = openDescriptors();
  for (const bool any : {true, false}) {
    const unsigned short port = freePort(SOCK_STREAM);
    int client = -1;
    std::thread other([&] {
      while ((client = connectTo(port)) < 0) {
        usleep(1000);
      }
    });
    const int sock = hear(any ? "" : "successfully bound, now listen.\n", [&] {
      return any ? setup_any_server(port) : setup_server(loopback, port);
    });
    other.join();
    char got = 0;
    EXPECT_EQ(send(client, "x", 1, 0), 1);
    EXPECT_EQ(recv(sock, &got, 1, 0), 1);
    EXPECT_EQ(connectTo(port), -1) << "the listener is gone";
    close(client);
    close(sock);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Clients, ReachTheirServers) {
  TextServer server(0);
  const int stream = hear(serverLine(server.port()) + "connected\n",
                          [&] { return setup_client("crowded", server.port()); });
  ASSERT_GE(stream, 0);
  server.accept();
  std::vector<std::string> texts;
  EXPECT_EQ(send(stream, "hello", 6, 0), 6);
  server.read(texts);
  EXPECT_EQ(texts, std::vector<std::string>{"hello"});
  const unsigned short port = freePort(SOCK_DGRAM);
  const int dgServer =
      hear("successfully bound.\n", [&] { return setup_dg_server(loopback, port); });
  const int dgClient = hear(serverLine(port), [&] { return setup_dg_client(loopback, port); });
  sockaddr_in to;
  ASSERT_EQ(init_socket_addr(&to, AF_INET, port, loopback), 0);
  EXPECT_EQ(sendto(dgClient, "abc", 3, 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 3);
  char got[8];
  EXPECT_EQ(recv(dgServer, got, sizeof got, 0), 3);
}

TEST(SocketFailures, AreReportedInTheirWordsAndLeaveNothingOpen) {
  const TextServer taken(0);
  const int takenDg = boundOnLoopback(SOCK_DGRAM, 0);
  const unsigned short port = taken.port(), nobody = freePort(SOCK_STREAM);
  const long before = openDescriptors();
  const auto fails = [](const std::string& words, const std::function<int()>& call) {
    EXPECT_EQ(hear(words, call), -1);
  };
  const std::string bad = "bad hostname!\n", bind = "can not bind\n";
  const std::string none = "socket allocation failed.\n";
  fails(bad, [&] { return setup_server(unknown, port); });
  fails(bad, [&] { return setup_client(nullptr, port); });
  fails(bad, [&] { return setup_dg_server(unknown, port); });
  fails(bad, [&] { return setup_dg_client(unknown, port); });
  fails(bind, [&] { return setup_any_server(port); });
  fails(bind, [&] { return setup_server(loopback, port); });
  fails(bind, [&] { return setup_dg_server(loopback, portOf(takenDg)); });
  fails(serverLine(nobody) + "can not connect.\n", [&] { return setup_client(loopback, nobody); });
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto starved = [&](auto call) {
    const rlimit nothing = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &nothing);
    const int result = call();
    setrlimit(RLIMIT_NOFILE, &limit);
    return result;
  };
  fails(none, [&] { return starved([] { return setup_any_server(1); }); });
  fails(serverLine(1) + none, [&] { return starved([] { return setup_client(loopback, 1); }); });
  EXPECT_EQ(openDescriptors(), before);
}

// A process without standard streams: nothing it prints goes into a socket, and nothing is left of
// what keeps the sockets off those numbers.
TEST(SocketsDeathTest, TakeNoPlaceOfAStandardOutputStream) {
  const TextServer server(0);
  const auto connectTwice = [&] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      close(stream);
    }
    const int first = setup_client(loopback, server.port());
    const int second = setup_client(loopback, server.port());
    const bool leftOpen = close(STDOUT_FILENO) == 0 || close(STDERR_FILENO) == 0;
    _exit(first == STDIN_FILENO && second > STDERR_FILENO && !leftOpen ? 0 : 1);
  };
  EXPECT_EXIT(connectTwice(), testing::ExitedWithCode(0), "");
}

TEST(InitSocketAddr, FillsTheFamilyAsGivenFromManyThreadsOrTouchesNothing) {
  sockaddr_in so = {};
  so.sin_port = 5;
  EXPECT_EQ(init_socket_addr(&so, AF_INET, 1, nullptr), -1);
  EXPECT_EQ(init_socket_addr(nullptr, AF_INET, 1, loopback), -1);
  EXPECT_EQ(init_socket_addr(&so, AF_INET, 1, unknown), -1);
  EXPECT_EQ(so.sin_port, 5);
  std::vector<std::thread> threads;
  for (unsigned int t = 1; t <= 4; ++t) {
    threads.emplace_back([t] {
      const std::string name = "10.0.0." + std::to_string(t);
      for (int i = 0; i < 200; ++i) {
        sockaddr_in filled;
        std::memset(&filled, 0x5A, sizeof filled);
        EXPECT_EQ(init_socket_addr(&filled, 77, 0x1234, name.c_str()), 0);
        EXPECT_TRUE(filled.sin_family == 77 && ntohs(filled.sin_port) == 0x1234 &&
                    ntohl(filled.sin_addr.s_addr) == 0x0A000000 + t && filled.sin_zero[7] == 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
