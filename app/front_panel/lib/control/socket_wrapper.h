// IPv4 sockets that are ready to use after one call.
//
// Each setup_ function returns a blocking descriptor that the caller owns and closes, or -1 after
// one line on standard error; no socket option is set. Ports are in host byte order. The functions
// hold no state and may be called from any thread; resolving a name, waiting for a client and
// connecting block the caller for as long as the system takes. A SIGPIPE at a send is the caller's
// affair. Nothing stops the process.
#pragma once

#include <netinet/in.h>

/// Waits on `port` of every local address for one client and returns its stream socket. The
/// listener is closed by then, so no second client is ever served. -1 also when accept fails.
int setup_any_server(unsigned short port);

/// As setup_any_server, on the address of `hostname` only.
int setup_server(const char* hostname, unsigned short port);

/// Returns a stream socket that is connected to `port` of `hostname`.
int setup_client(const char* hostname, unsigned short port);

/// Returns a datagram socket that is bound to `port` on the address of `hostname`.
int setup_dg_server(char* hostname, unsigned short port);

/// Returns a datagram socket that is neither bound nor connected; a sender names the peer at each
/// send, for instance with an address from init_socket_addr. `hostname` and `port` are only
/// reported.
int setup_dg_client(char* hostname, unsigned short port);

/// Fills `so` with `family` as given, `port`, and the address of `hostname`. Returns 0. Returns -1
/// and leaves `so` alone when a pointer is null, without a word, or when the name is unknown.
int init_socket_addr(sockaddr_in* so, unsigned short family, unsigned short port,
                     const char* hostname);
