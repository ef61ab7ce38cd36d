#include "trapcommand.h"

namespace {

constexpr std::string_view BEFORE_MANAGER = "snmptrap -v 1 -c fabric ";
constexpr std::string_view BEFORE_NUMBER = " tamrisvaneTraps.1 \"\" 6 ";
constexpr std::string_view AFTER_NUMBER = " \"\" tamrisvaneInstance.1 i 1";

constexpr unsigned int MAX_SPECIFIC = 2147483647;  // an INTEGER of the SNMP message
constexpr unsigned int MAX_PORT = 65535;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isHostStart(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Takes `word` from the front of `text`.
bool take(std::string_view& text, std::string_view word) {
  if (text.substr(0, word.size()) != word) {
    return false;
  }
  text.remove_prefix(word.size());
  return true;
}

// Takes a number of 1 to `max`, written as printf writes it.
bool takeNumber(std::string_view& text, unsigned int max, unsigned int& number) {
  unsigned long long value = 0;
  size_t digits = 0;
  while (digits < text.size() && digits < 10 && isDigit(text[digits])) {
    value = value * 10 + static_cast<unsigned int>(text[digits] - '0');
    ++digits;
  }
  if (digits == 0 || text[0] == '0' || value > max) {
    return false;
  }
  number = static_cast<unsigned int>(value);
  text.remove_prefix(digits);
  return true;
}

// Takes a host name or address and a port. The first character keeps options out.
bool takeManager(std::string_view& text, std::string& manager) {
  const std::string_view all = text;
  if (text.empty() || !isHostStart(text[0])) {
    return false;
  }
  while (!text.empty() &&
         (isHostStart(text[0]) || text[0] == '.' || text[0] == '-' || text[0] == '_')) {
    text.remove_prefix(1);
  }
  unsigned int port = 0;
  if (take(text, ":") && !takeNumber(text, MAX_PORT, port)) {
    return false;
  }
  manager = all.substr(0, all.size() - text.size());
  return true;
}

}  // namespace

const char* parseTrapCommand(std::string_view text, TrapCommand& command) {
  if (text.size() > MAX_TRAP_COMMAND) {
    return "longer than any command";
  }
  if (!take(text, BEFORE_MANAGER)) {
    return "not the device's command";
  }
  if (!takeManager(text, command.manager)) {
    return "bad address of the trap manager";
  }
  if (!take(text, BEFORE_NUMBER)) {
    return "not the device's enterprise";
  }
  if (!takeNumber(text, MAX_SPECIFIC, command.specific)) {
    return "bad number of the trap";
  }
  return text == AFTER_NUMBER ? nullptr : "not the device's variable";
}

bool takeTrapCommand(std::string& input, bool ended, TrapCommand& command, std::string& text,
                     const char*& why) {
  const size_t zero = input.find('\0');
  if (zero != std::string::npos) {
    text = input.substr(0, zero);
    input.erase(0, zero + 1);
    why = parseTrapCommand(text, command);
    return true;
  }
  if (input.size() <= MAX_TRAP_COMMAND && (!ended || input.empty())) {
    return false;
  }
  why = input.size() > MAX_TRAP_COMMAND ? "longer than any command" : "half a command";
  text = input;
  input.clear();
  return true;
}
