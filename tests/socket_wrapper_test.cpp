// The socket helpers: what they connect, what they say, and what they leave open.
#include "socket_wrapper.h"

#include <sys/resource.h>

#include <thread>

#include "loopback.h"

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
    const int sock = any ? hear("", [&] { return setup_any_server(port); })
                         : hear("successfully bound, now listen.\n",
                                [&] { return setup_server(loopback, port); });
    other.join();
    char got = 0;
    EXPECT_EQ(send(client, "x", 1, 0), 1);
    EXPECT_EQ(recv(sock, &got, 1, 0), 1);
    EXPECT_EQ(got, 'x');
    EXPECT_EQ(connectTo(port), -1) << "the listener is gone";
    close(client);
    close(sock);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(StreamSockets, AClientConnectsOrClosesItsSocket) {
  TextServer server(0);
  const unsigned short port = server.port(), nobody = freePort(SOCK_STREAM);
  const long before = openDescriptors();
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(hear(serverLine(nobody) + "can not connect.\n",
                   [&] { return setup_client(loopback, nobody); }),
              -1);
  }
  EXPECT_EQ(openDescriptors(), before);
  const int sock =
      hear(serverLine(port) + "connected\n", [&] { return setup_client(loopback, port); });
  server.acceptClient();
  EXPECT_EQ(send(sock, "hello", 6, 0), 6);
  EXPECT_EQ(server.texts(), std::vector<std::string>{"hello"});
  close(sock);
}

TEST(DatagramSockets, ExchangeThroughAnAddress) {
  const unsigned short port = freePort(SOCK_DGRAM);
  const int server = hear("successfully bound.\n", [&] { return setup_dg_server(loopback, port); });
  const int client = hear(serverLine(port), [&] { return setup_dg_client(loopback, port); });
  sockaddr_in to;
  ASSERT_EQ(init_socket_addr(&to, AF_INET, port, loopback), 0);
  EXPECT_EQ(sendto(client, "abc", 3, 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 3);
  char got[8];
  EXPECT_EQ(recv(server, got, sizeof got, 0), 3);
  close(server);
  close(client);
}

TEST(SocketFailures, AreReportedInTheirWordsAndLeaveNothingOpen) {
  const TextServer taken(0);
  const int takenDg = boundOnLoopback(SOCK_DGRAM, 0);
  const unsigned short port = taken.port();
  const long before = openDescriptors();
  const char bad[] = "bad hostname!\n", bind[] = "can not bind\n";
  EXPECT_EQ(hear(bad, [&] { return setup_server(unknown, port); }), -1);
  EXPECT_EQ(hear(bad, [&] { return setup_client(unknown, port); }), -1);
  EXPECT_EQ(hear(bad, [&] { return setup_dg_server(unknown, port); }), -1);
  EXPECT_EQ(hear(bad, [&] { return setup_dg_client(unknown, port); }), -1);
  EXPECT_EQ(hear(bind, [&] { return setup_any_server(port); }), -1);
  EXPECT_EQ(hear(bind, [&] { return setup_server(loopback, port); }), -1);
  EXPECT_EQ(hear(bind, [&] { return setup_dg_server(loopback, portOf(takenDg)); }), -1);
  EXPECT_EQ(openDescriptors(), before);
  const auto withoutDescriptors = [] {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = setup_any_server(1);
    setrlimit(RLIMIT_NOFILE, &limit);
    return result;
  };
  EXPECT_EQ(hear("socket allocation failed.\n", withoutDescriptors), -1);
  close(takenDg);
}

TEST(InitSocketAddr, FillsTheFamilyAsGivenFromManyThreadsOrTouchesNothing) {
  sockaddr_in so;
  memset(&so, 0x5A, sizeof so);
  const sockaddr_in untouched = so;
  EXPECT_EQ(hear("", [&] { return init_socket_addr(&so, AF_INET, 1, nullptr); }), -1);
  EXPECT_EQ(hear("", [&] { return init_socket_addr(nullptr, AF_INET, 1, loopback); }), -1);
  EXPECT_EQ(hear("bad hostname!\n", [&] { return init_socket_addr(&so, AF_INET, 1, unknown); }),
            -1);
  EXPECT_EQ(memcmp(&so, &untouched, sizeof so), 0);
  std::vector<std::thread> threads;
  for (unsigned int t = 1; t <= 4; ++t) {
    threads.emplace_back([t, untouched] {
      const std::string name = "10.0.0." + std::to_string(t);
      sockaddr_in expected = {};
      expected.sin_family = 77;
      expected.sin_port = htons(0x1234);
      expected.sin_addr.s_addr = htonl(0x0A000000 + t);
      for (int i = 0; i < 200; ++i) {
        sockaddr_in filled = untouched;
        EXPECT_EQ(init_socket_addr(&filled, 77, 0x1234, name.c_str()), 0);
        EXPECT_EQ(memcmp(&filled, &expected, sizeof filled), 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
