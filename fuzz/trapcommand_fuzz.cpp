// Any text as a trap command: what is accepted is, written anew from its parts, that text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "trapcommand.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  TrapCommand command;
  if (parseTrapCommand(text, command) == nullptr &&
      text != "snmptrap -v 1 -c fabric " + command.manager + " tamrisvaneTraps.1 \"\" 6 " +
                  std::to_string(command.specific) + " \"\" tamrisvaneInstance.1 i 1") {
    std::abort();
  }
  return 0;
}
