// The panel application: start-up, the periodic loop, and the end.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

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

struct Options {
  std::string dir = ".";
  std::string store = "presets.flash";
  TrapOutput traps = TrapOutput::NONE;
};

// Reads the options; a result of 0 or more ends the process.
int parseOptions(int argc, char** argv, Options& options) {
  CLI::App app(
      "The front panel of a four-channel signal processor. Type commands at its prompt, or pipe\n"
      "them in, one per line: printf 'gain 2 1 -6\\nconfirm\\n' | panel\n",
      "panel");
  app.add_option("--dir", options.dir, "keep the files of the panel in DIR")
      ->type_name("DIR")
      ->capture_default_str();
  app.add_option("--store", options.store, "keep the preset store in FILE")
      ->type_name("FILE")
      ->capture_default_str();
  std::string traps;
  app.add_option("--traps", traps,
                 "switch the traps on at the start, and print them, or send them to the trap\n"
                 "server for the manager TRAP_MANAGER (ADDRESS or ADDRESS:PORT)")
      ->check(CLI::IsMember({"print", "server"}))
      ->option_text("print|server");
  app.footer(
      "Ends with 0; with 1 when a piped command was refused, a confirmed setting could not be\n"
      "saved, or the output could not be written; with 2 when it cannot start.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 && sio_flush(0) ? 0 : EXIT_START;
  }
  options.traps = traps.empty()      ? TrapOutput::NONE
                  : traps == "print" ? TrapOutput::PRINT
                                     : TrapOutput::SERVER;
  return -1;
}

std::string prompt() {
  static bool first = true;
  const unsigned int waiting = controls.waiting();
  const std::string hint = waiting > 0 ? " (" + std::to_string(waiting) + " to confirm)"
                           : first     ? " (try: gain 2 1 -6)"
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
  say("Try: gain 2 1 -6, then confirm. \"help\" shows all commands, Tab completes, \"quit\" "
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
  if (controls.waiting() > 0) {
    say("not confirmed and so not kept: %u", controls.waiting());
  }
  if (!xmlFile.close()) {
    return complain("the confirmed settings are not saved");
  }
  if (!sio_flush(0)) {
    std::fputs("panel: cannot write all of the output\n", stderr);
    return false;
  }
  return good || consoleInteractive();
}

int run(int argc, char** argv) {
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
  if (chdir(options.dir.c_str()) != 0) {
    std::fprintf(stderr, "panel: cannot enter %s: %s\n", options.dir.c_str(), std::strerror(errno));
    return EXIT_START;
  }
  // Each step relies on the ones before it: the store's medium, the ticks, the controls, the fields
  // of a setup, the preset file. What watches the controls comes behind them.
  if (!storeStart(options.store.c_str())) {
    return EXIT_START;
  }
  consoleStart({runPeriodic, completeCommand, prompt});
  Timer_thread::Instance()->Init();
  boardStart();
  controls.start();
  storeSeparate();
  setupList.start();
  std::string why;
  if (!openSettings(why)) {
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

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {  // of the file system, or out of memory
    std::fprintf(stderr, "panel: %s\n", e.what());
    return EXIT_START;
  }
}
