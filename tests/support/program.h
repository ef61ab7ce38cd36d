// Runs a program of this project as its users do.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct ProgramResult {
  std::string output;  ///< standard output and standard error
  int status;          ///< exit status; -1 when a signal ended it
};

/// Runs a command line of the shell to its end.
inline ProgramResult runProgram(const std::string& commandLine) {
  std::FILE* const pipe = popen(("{ " + commandLine + "; } 2>&1").c_str(), "r");
  ProgramResult result = {"", -1};
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
    result.output += static_cast<char>(c);
  }
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}
