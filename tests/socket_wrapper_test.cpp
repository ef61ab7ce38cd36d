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

// Runs `call` and returns its result with all that it wrote.
struct Said {
  int result;
  std::string out, err;
};
template <class Call>
Said hear(Call call) {
  CaptureStdout();
  CaptureStderr();
  const int result = call();
  const std::string out = GetCapturedStdout();
  return {result, out, GetCapturedStderr()};
}

std::string serverLine(unsigned short port) {
  const in_addr_t one = htonl(INADDR_LOOPBACK);
  char hex[16];
  snprintf(hex, sizeof hex, "0x%04x", one);
  return std::string("server IP: 127.0.0.1, [") + hex + "], port: " + std::to_string(port) + "\n";
}

int connectPatiently(unsigned short port) {
  for (;;) {
    const int sock = connectTo(port);
    if (sock >= 0) {
      return sock;
    }
    usleep(1000);
  }
}

TEST(SetupServer, ServesOneClientAndGivesUpItsListener) {
  const unsigned int before = openDescriptors();
  for (const bool any : {true, false}) {
    const unsigned short port = freePort(SOCK_STREAM);
    int client = -1;
    std::thread other([&] { client = connectPatiently(port); });
    const Said said =
        hear([&] { return any ? setup_any_server(port) : setup_server(loopback, port); });
    other.join();
    EXPECT_EQ(said.out + said.err, any ? "" : "successfully bound, now listen.\n");
    ASSERT_GE(said.result, 0);
    EXPECT_EQ(send(client, "x", 1, 0), 1);
    char got = 0;
    EXPECT_EQ(recv(said.result, &got, 1, 0), 1);
    EXPECT_EQ(got, 'x');
    EXPECT_EQ(connectTo(port), -1);
    close(client);
    close(said.result);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(SetupClient, ConnectsOrReportsAndClosesItsSocket) {
  TextServer server(0);
  const unsigned int before = openDescriptors();
  const unsigned short nobody = freePort(SOCK_STREAM);
  for (int i = 0; i < 50; ++i) {
    const Said said = hear([&] { return setup_client(loopback, nobody); });
    ASSERT_EQ(said.result, -1);
    ASSERT_EQ(said.out, serverLine(nobody));
    ASSERT_EQ(said.err, "can not connect.\n");
  }
  EXPECT_EQ(openDescriptors(), before);
  const unsigned short port = server.port();
  const Said said = hear([&] { return setup_client(loopback, port); });
  ASSERT_GE(said.result, 0);
  EXPECT_EQ(said.out, serverLine(port));
  EXPECT_EQ(said.err, "connected\n");
  server.acceptClient();
  EXPECT_EQ(send(said.result, "hello", 6, 0), 6);
  EXPECT_EQ(server.texts(), std::vector<std::string>{"hello"});
  close(said.result);
}

TEST(SetupDatagram, ServerAndClientExchangeThroughAnAddress) {
  const unsigned int before = openDescriptors();
  const unsigned short port = freePort(SOCK_DGRAM);
  const Said server = hear([&] { return setup_dg_server(loopback, port); });
  ASSERT_GE(server.result, 0);
  EXPECT_EQ(server.out + server.err, "successfully bound.\n");
  const Said client = hear([&] { return setup_dg_client(loopback, port); });
  ASSERT_GE(client.result, 0);
  EXPECT_EQ(client.out + client.err, serverLine(port));
  sockaddr_in to;
  ASSERT_EQ(init_socket_addr(&to, AF_INET, port, loopback), 0);
  EXPECT_EQ(sendto(client.result, "abc", 3, 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 3);
  char got[8];
  EXPECT_EQ(recv(server.result, got, sizeof got, 0), 3);
  close(server.result);
  close(client.result);
  EXPECT_EQ(openDescriptors(), before);
}

TEST(SocketFailures, AreReportedInTheirWordsAndLeaveNothingOpen) {
  const int taken = boundOnLoopback(SOCK_STREAM, 0);
  const int takenDg = boundOnLoopback(SOCK_DGRAM, 0);
  listen(taken, 1);
  const unsigned short port = portOf(taken);
  const unsigned int before = openDescriptors();
  const auto expect = [](const char* words, auto call) {
    const Said said = hear(call);
    EXPECT_EQ(said.result, -1);
    EXPECT_EQ(said.out + said.err, words);
  };
  expect("bad hostname!\n", [&] { return setup_server(unknown, port); });
  expect("bad hostname!\n", [&] { return setup_client(unknown, port); });
  expect("bad hostname!\n", [&] { return setup_dg_server(unknown, port); });
  expect("bad hostname!\n", [&] { return setup_dg_client(unknown, port); });
  expect("can not bind\n", [&] { return setup_any_server(port); });
  expect("can not bind\n", [&] { return setup_server(loopback, port); });
  expect("can not bind\n", [&] { return setup_dg_server(loopback, portOf(takenDg)); });
  EXPECT_EQ(openDescriptors(), before);
  const auto withoutDescriptors = [](auto call) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = call();
    setrlimit(RLIMIT_NOFILE, &limit);
    return result;
  };
  expect("socket allocation failed.\n",
         [&] { return withoutDescriptors([] { return setup_any_server(1); }); });

  sockaddr_in so;
  memset(&so, 0x5A, sizeof so);
  const sockaddr_in untouched = so;
  expect("", [&] { return init_socket_addr(&so, AF_INET, 1, nullptr); });
  expect("", [&] { return init_socket_addr(nullptr, AF_INET, 1, loopback); });
  expect("bad hostname!\n", [&] { return init_socket_addr(&so, AF_INET, 1, unknown); });
  EXPECT_EQ(memcmp(&so, &untouched, sizeof so), 0);
  close(taken);
  close(takenDg);
}

TEST(InitSocketAddr, FillsTheFamilyAsGivenFromManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (unsigned int t = 1; t <= 4; ++t) {
    threads.emplace_back([t] {
      const std::string name = "10.0.0." + std::to_string(t);
      for (int i = 0; i < 200; ++i) {
        sockaddr_in so;
        memset(&so, 0x5A, sizeof so);
        sockaddr_in expected = {};
        expected.sin_family = 77;
        expected.sin_port = htons(0x1234);
        expected.sin_addr.s_addr = htonl(0x0A000000 + t);
        EXPECT_EQ(init_socket_addr(&so, 77, 0x1234, name.c_str()), 0);
        EXPECT_EQ(memcmp(&so, &expected, sizeof so), 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
