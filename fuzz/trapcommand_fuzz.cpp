// Any bytes as what a device sends, cut anywhere: what is accepted is, written anew from its parts,
// the text that was sent, and the cuts make no difference.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "debug.h"
#include "trapcommand.h"

namespace {

// What a server makes of `stream` when it arrives in pieces of up to `piece` bytes; 0: as a whole.
std::string serve(const std::string& stream, std::size_t piece) {
  std::string input, text, log;
  const char* why = nullptr;
  std::size_t at = 0, length = piece;
  for (bool ended = false; !ended && why == nullptr; at += length) {
    length = piece == 0 ? stream.size() : 1 + (length * 5 + 1) % piece;
    ended = at >= stream.size();
    input += stream.substr(std::min(at, stream.size()), length);
    TrapCommand command;
    while (why == nullptr && takeTrapCommand(input, ended, command, text, why)) {
      log += why != nullptr ? why + text.substr(0, 60) : text + '\n';
      CTRL_ASSERT(why != nullptr || text == "snmptrap -v 1 -c fabric " + command.manager +
                                                " tamrisvaneTraps.1 \"\" 6 " +
                                                std::to_string(command.specific) +
                                                " \"\" tamrisvaneInstance.1 i 1");
    }
  }
  return log;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0) {
    const std::string stream(data + 1, data + size);
    CTRL_ASSERT(serve(stream, 1 + data[0]) == serve(stream, 0));
  }
  return 0;
}
