// The command line of the trap generation server.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "debug.h"
#include "sio.h"
#include "trapserver.h"

namespace {

int serve(int argc, char** argv) {
  TrapServerOptions options;
  std::string mibs;
  CLI::App app{
      "Trap generation server: listens on 127.0.0.1 for the trap commands of devices and runs\n"
      "net-snmp's snmptrap for each. SIGTERM and Ctrl-C end it after what has arrived is sent.",
      "trapserver"};
  app.set_version_flag("--version", TOOL_VERSION);
  app.add_option("--port", options.port, "TCP port to listen on; 0 for any free one")
      ->capture_default_str();
  app.add_option("--snmptrap", options.snmptrap, "the snmptrap program")->capture_default_str();
  app.add_option("--mibs", mibs, "directory of TAMRISVANE-MIB.txt, handed to snmptrap")
      ->check(CLI::ExistingDirectory);
  app.add_option("--seconds", options.seconds, "time that one run of snmptrap may take")
      ->check(CLI::Range(1U, 3600U))
      ->capture_default_str();
  app.add_option("--silence", options.silence,
                 "seconds without a whole command, after which a client makes way for another")
      ->check(CLI::Range(1U, 3600U))
      ->capture_default_str();
  app.add_option("--at-end", options.atEnd, "seconds for which traps are still sent at the end")
      ->check(CLI::Range(1U, 3600U))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (!mibs.empty()) {
    setenv("MIBDIRS", mibs.c_str(), 1);
    setenv("MIBS", "TAMRISVANE-MIB", 1);
  }
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  if (std::getenv("MIBS") == nullptr) {
    std::puts("without --mibs, snmptrap has to know the names of TAMRISVANE-MIB by itself");
  }
  return TrapServer(options).run();
}

}  // namespace

int main(int argc, char** argv) {
  const StreamGuard streams;
  try {
    const int status = serve(argc, argv);
    if (!sio_flush(0)) {
      throw std::runtime_error("cannot write all of the log");
    }
    return status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "trapserver: %s\n", e.what());
    return 1;
  }
}
