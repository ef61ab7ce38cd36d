// The panel program, in a fresh directory that holds all its files.
#pragma once

#include "fatal.h"
#include "process.h"
#include "program.h"

class PanelTest : public testing::Test {
 protected:
  /// Runs the panel on the lines of `input` to its end; what it printed. Sets `status`.
  std::string run(const std::string& input, const std::string& options = "") {
    writeWhole("input", input);
    const ProgramResult result = runProgram(program + options + " < input");
    status = result.status;
    return result.output;
  }

  const TempDir dir;
  std::string program = PANEL;
  int status = 0;
};
