// The panel application: start-up, the periodic loop, and the end.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "board_services.h"
#include "commands.h"
#include "console.h"
#include "debug.h"
#include "device.h"
#include "saving.h"
#include "setups.h"
#include "sio.h"
#include "store.h"
#include "tessel_timer.h"
#include "traps.h"

// What a feature adds to the panel, each in a file of its own: a table of commands, and work for
// the periodic loop.

const Command* const COMMAND_TABLES[] = {CONTROL_COMMANDS, STORE_COMMANDS, SETUP_COMMANDS,
                                         TRAP_COMMANDS,    BOARD_COMMANDS, nullptr};

namespace {

void (*const PERIODIC[])() = {driftTemperatures, storeService, trapsService};

void runPeriodic() {
  for (void (*const work)() : PERIODIC) {
    work();
  }
}

constexpr int EXIT_REFUSED = 1;
constexpr int EXIT_START = 2;

const char USAGE[] =
    "Usage: panel [--dir DIR] [--store FILE] [--traps print|server]\n"
    "The front panel of a four-channel signal processor. Type commands at its prompt, or pipe\n"
    "them in, one per line: printf 'set gain 2 1 -6\\nconfirm\\n' | panel\n"
    "  --dir DIR     keep the files of the panel in DIR instead of the working directory\n"
    "  --store FILE  keep the preset store in FILE instead of presets.flash\n"
    "  --traps print|server\n"
    "                switch the traps on at the start, and print them, or send them to the trap\n"
    "                server for the manager TRAP_MANAGER (ADDRESS or ADDRESS:PORT)\n"
    "  --help        this text\n"
    "Ends with 0; with 1 when a piped command was refused, a confirmed setting could not be "
    "saved,\n"
    "or the output could not be written; with 2 when it cannot start.\n";

struct Options {
  const char* dir = nullptr;
  const char* store = "presets.flash";
  TrapOutput traps = TrapOutput::NONE;
};

// Reads the options; a result of 0 or more ends the process.
int parseOptions(int argc, char** argv, Options& options) {
  enum { DIR = 1, STORE, TRAPS, HELP };
  static const option LONG[] = {{"dir", required_argument, nullptr, DIR},
                                {"store", required_argument, nullptr, STORE},
                                {"traps", required_argument, nullptr, TRAPS},
                                {"help", no_argument, nullptr, HELP},
                                {}};
  for (;;) {
    switch (getopt_long(argc, argv, "", LONG, nullptr)) {
      case DIR:
        options.dir = optarg;
        break;
      case STORE:
        options.store = optarg;
        break;
      case TRAPS:
        if (!parseTrapOutput(optarg, options.traps)) {
          std::fprintf(stderr, "panel: traps go to print or to server, not to %s\n", optarg);
          return EXIT_START;
        }
        break;
      case HELP:
        std::fputs(USAGE, stdout);
        return sio_flush(0) ? 0 : EXIT_START;
      case -1:
        if (optind == argc) {
          return -1;
        }
        std::fprintf(stderr, "panel: what is %s?\n", argv[optind]);
        [[fallthrough]];
      default:
        std::fputs(USAGE, stderr);
        return EXIT_START;
    }
  }
}

std::string prompt() {
  static bool first = true;
  const unsigned int waiting = waitingSets();
  const std::string hint = waiting > 0 ? " (" + std::to_string(waiting) + " to confirm)"
                           : first     ? " (try: set gain 2 1 -6)"
                                       : "";
  first = false;
  return "panel" + hint + "> ";
}

void banner() {
  say("Front panel of a four-channel signal processor. Lines with this mark are the panel's,");
  say("all others the library's.");
  say(" ");
  listFamilies();
  say(" ");
  say("Try: set gain 2 1 -6, then confirm. \"help\" shows all commands, Tab completes, \"quit\" "
      "ends.");
}

// Serves commands until the input ends. False when one of them was refused.
bool serve() {
  bool good = true;
  std::string line;
  while (consoleReadLine(line)) {
    good = runCommand(line) && good;
  }
  return good;
}

// Saves what is unsaved; tells what is lost. `good`: no command was refused.
bool finish(bool good) {
  if (waitingSets() > 0) {
    say("not confirmed and so not kept: %u", waitingSets());
  }
  if (!closeSettings()) {
    return complain("the confirmed settings are not saved");
  }
  if (!sio_flush(0)) {
    std::fputs("panel: cannot write all of the output\n", stderr);
    return false;
  }
  return good || consoleInteractive();
}

}  // namespace

int main(int argc, char** argv) {
  const StreamGuard streams;
  if (fcntl(STDIN_FILENO, F_GETFD) < 0) {
    open("/dev/null", O_RDONLY);  // commands come from there: none of our files may
  }
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit on file sizes fails, and we say so
  Options options;
  const int end = parseOptions(argc, argv, options);
  if (end >= 0) {
    return end;
  }
  if (options.dir != nullptr && chdir(options.dir) != 0) {
    std::fprintf(stderr, "panel: cannot enter %s: %s\n", options.dir, std::strerror(errno));
    return EXIT_START;
  }
  // Each step relies on the ones before it: the store's medium, the ticks, the controls, the fields
  // of a setup, the preset file. What watches the controls comes behind them.
  if (!storeStart(options.store)) {
    return EXIT_START;
  }
  consoleStart({runPeriodic, completeCommand, prompt});
  Timer_thread::Instance()->Init();
  boardStart();
  deviceInit();
  setupStart();
  std::string why;
  if (!openSettings(savedControls(), why)) {
    complain("cannot keep settings here: %s", why.c_str());
    consoleEnd();
    return EXIT_START;
  }
  trapsStart(options.traps);
  if (consoleInteractive()) {
    banner();
  }
  bool good = serve();
  trapsPass();
  good = storeEnd() && good;
  consoleEnd();
  return finish(good) ? 0 : EXIT_REFUSED;
}
