// Runs a command line to its end.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

/// Runs `command` in the shell. Returns what it wrote, messages included; `status` becomes its exit
/// status, or -1 when a signal ended it.
inline std::string runShell(const std::string& command, int& status) {
  std::FILE* const pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "r");
  std::string out;
  char buf[4096];
  while (const std::size_t got = std::fread(buf, 1, sizeof buf, pipe)) {
    out.append(buf, got);
  }
  const int result = pclose(pipe);
  status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
  return out;
}
