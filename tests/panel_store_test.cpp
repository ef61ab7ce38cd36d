// The panel's preset store, through the panel program: what a person stores is there afterwards.
#include <signal.h>
#include <unistd.h>

#include "fatal.h"
#include "program.h"
#include "tempdir.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class PanelStore : public testing::Test {
 protected:
  // Runs the panel on the lines of `input` to its end; what it printed. Sets `status`.
  std::string panel(const std::string& input, const std::string& options = "") {
    writeWhole("input", input);
    const ProgramResult result = runProgram(PANEL + options + " < input");
    status = result.status;
    return result.output;
  }

  // Starts a panel, hands it `input`, waits for `answer` and kills it.
  void panelKilledAfter(const std::string& input, const std::string& answer) {
    int in[2], out[2];
    ASSERT_EQ(pipe(in) + pipe(out), 0);
    const pid_t child = fork();
    if (child == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      for (const int fd : {in[0], in[1], out[0], out[1]}) {
        close(fd);
      }
      execl(PANEL, PANEL, nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    std::string text;
    char c;
    while (text.find(answer) == text.npos && read(out[0], &c, 1) == 1) {
      text += c;
    }
    EXPECT_THAT(text, HasSubstr(answer));
    EXPECT_THAT(panel("preset list\n"), HasSubstr("another process has it open"));
    EXPECT_EQ(status, 2);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(in[1]);
    close(out[0]);
  }

  const TempDir dir;
  int status = 0;
};

TEST_F(PanelStore, KeepsPresetsAcrossAnEndAndAKill) {
  std::string out = panel(
      "preset write 5 first\npreset write 0x6 second one\npreset write 5 changed\n"
      "preset read 5\npreset map\n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(out, HasSubstr("|changed|"));
  EXPECT_THAT(out, HasSubstr("| 0x0000  ......"));

  // Without a flush, ended by the end of its input, it has stored everything.
  panelKilledAfter("preset remove 5\npreset write 8191 third\npreset flush\npreset write 6 lost\n",
                   "preset 6 has 4 bytes");
  out = panel("preset list\npreset map\n");
  EXPECT_THAT(out, HasSubstr("|second one|"));
  EXPECT_THAT(out, HasSubstr("|third|"));
  EXPECT_THAT(out, Not(HasSubstr("changed")));
  EXPECT_THAT(out, HasSubstr("| 2 presets; a new one has room for 8154 bytes"));
  EXPECT_THAT(out, HasSubstr("| 0x0000  ##"));

  EXPECT_THAT(panel("preset format\npreset list\n"), HasSubstr("| 0 presets"));
  EXPECT_THAT(panel("preset list\n"), HasSubstr("| 0 presets"));
}

// The disk takes no more than the first block, so a block copy to the other one fails.
TEST_F(PanelStore, AFullDiskIsReportedAndLosesNothing) {
  panel("preset write 5 " + std::string(5000, 'a') + "\n");
  writeWhole("input", "preset write 5 " + std::string(5000, 'b') + "\npreset flush\n");
  const ProgramResult full = runProgram("trap '' XFSZ; ulimit -f 16; " PANEL " < input");
  EXPECT_THAT(full.output, HasSubstr("error: not everything is stored: presets.flash: writing"));
  EXPECT_EQ(full.status, 1);
  const std::string out = panel("preset read 5\npreset list\n");
  EXPECT_THAT(out, HasSubstr("|aaaaaaaaaaaaaaaa|"));
  EXPECT_THAT(out, HasSubstr("| 1 preset; "));
}

TEST_F(PanelStore, RefusesWithAReason) {
  const std::string most = std::string(8182, 'x');
  const struct {
    std::string input;
    const char* reason;
  } CASES[] = {
      {"preset write 8192 x", "a preset has a type from 0 to 8191"},
      {"preset write -1 x", "a preset has a type from 0 to 8191"},
      {"preset write 5", "a text of at least one character"},
      {"preset write 5 " + most + "y", "no room for 8183 bytes, 8182 at most"},
      {"preset write 5 " + most + "\npreset write 5 " + most + "y", "8182 at most"},
      {"preset write 6 12345\npreset write 5 " + most, "8170 at most"},
      {"preset read 7", "no preset of type 7"},
      {"preset remove 7", "no preset of type 7"},
      {"preset what", "no command \"preset what\""},
  };
  for (const auto& c : CASES) {
    EXPECT_THAT(panel("preset format\n" + c.input + "\n"), HasSubstr(c.reason));
    EXPECT_EQ(status, 1) << c.reason;
  }
  writeWhole("short", "no store");
  EXPECT_THAT(panel("preset list\n", " --store short"),
              HasSubstr("panel: short cannot hold the preset store: it has 8 bytes"));
  EXPECT_EQ(status, 2);
}

}  // namespace
