// Text of files and other people for a line that a tool prints.
#pragma once

#include <cstdio>
#include <string>

/// `text` as text that does not upset a terminal: all but printable ASCII, and the backslash, as
/// the byte's number, such as \x1B.
inline std::string printable(const std::string& text) {
  std::string shown;
  for (const char c : text) {
    const unsigned int byte = static_cast<unsigned char>(c);
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02X", byte);
    shown += byte >= 0x20 && byte < 0x7F && c != '\\' ? std::string(1, c) : escape;
  }
  return shown;
}
