// The panel, through the panel program: its console, and that a confirmed setting is never lost.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "fatal.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr unsigned int CHANNELS = 4;
constexpr unsigned int BANDS = 3;

// A panel in a process of its own, with a pipe or a terminal.
class Panel {
 public:
  enum Way { PIPE, TERMINAL };
  explicit Panel(const std::string& dir, Way way = PIPE) {
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if (way == TERMINAL) {
      const winsize size = {40, 100, 0, 0};
      child = forkpty(&in[1], nullptr, nullptr, &size);
      out[0] = in[1];
    } else {
      EXPECT_EQ(pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC), 0);
      child = fork();
    }
    if (child == 0) {
      if (way == TERMINAL) {
        setenv("TERM", "xterm", 1);
        setenv("LSAN_OPTIONS", "detect_leaks=0", 1);  // libedit keeps the names of its functions
      } else {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
      }
      execl(PANEL, PANEL, "--dir", dir.c_str(), nullptr);
      _exit(127);
    }
    input = in[1];
    output = out[0];
    if (way == PIPE) {
      close(in[0]);
      close(out[1]);
    }
  }
  ~Panel() {
    if (child > 0) {
      end(SIGKILL);
    }
  }

  Panel& type(const std::string& text) {
    EXPECT_EQ(write(input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return *this;
  }

  // Reads until the panel has printed `text`; false when it ends or takes 60 s without that.
  bool printed(const std::string& text) {
    while (text.empty() || all.find(text, seen) == std::string::npos) {
      pollfd ready = {output, POLLIN, 0};
      char buf[4096];
      const ssize_t got = poll(&ready, 1, 60000) == 1 ? read(output, buf, sizeof buf) : 0;
      if (got <= 0) {
        return false;
      }
      all.append(buf, static_cast<std::size_t>(got));
    }
    seen = all.find(text, seen) + text.size();
    return true;
  }

  // No more input; `signal` other than 0 is sent first. Returns everything that the panel printed.
  const std::string& end(int signal = 0) {
    if (signal != 0) {
      kill(child, signal);
    }
    if (input != output) {
      close(input);
    }
    printed("");
    close(output);
    int result = 0;
    waitpid(child, &result, 0);
    child = 0;
    status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
    return all;
  }

  void closeOutput() { output = dup2(open("/dev/null", O_RDONLY), output); }

  int status = 0;  // how it ended: its exit status, or the negated signal
  std::string all;

 private:
  pid_t child = 0;
  int input = -1;
  int output = -1;
  std::size_t seen = 0;
};

class PanelTest : public testing::Test {
 protected:
  PanelTest() { std::filesystem::create_directory(dir); }
  ~PanelTest() override { std::filesystem::remove_all(dir); }

  // Runs the panel on `commands` to their end; what it printed.
  std::string run(const std::string& commands) {
    Panel panel(dir);
    panel.type(commands).end();
    status = panel.status;
    return panel.all;
  }

  std::string presets() {
    std::ostringstream text;
    text << std::ifstream(dir + "/presets.xml").rdbuf();
    return text.str();
  }

  const std::string dir = testing::TempDir() + "panel_test." + std::to_string(getpid());
  int status = 0;
};

TEST_F(PanelTest, AConfirmedSettingIsThereInTheNextRunHoweverTheFirstEnds) {
  const struct {
    const char* commands;
    const char* answer;
    int signal;
    int status;
  } ENDS[] = {
      {"quit\n", "Stopping the Timer thread", 0, 0},
      {"", "confirmed", 0, 0},
      {"", "confirmed", SIGINT, 0},
      {"", "confirmed", SIGTERM, 0},
      {"", "confirmed", SIGHUP, 0},
      {"save\n", "| saved", SIGKILL, -SIGKILL},
  };
  for (const auto& e : ENDS) {
    const std::string name = "run " + std::to_string(&e - ENDS);
    Panel panel(dir);
    panel.type("set name " + name + "\nset gain 2 1 -6\nconfirm\nset mute 0 on\n" + e.commands);
    EXPECT_TRUE(panel.printed(e.answer)) << panel.all;
    panel.end(e.signal);
    EXPECT_EQ(panel.status, e.status) << panel.all;
    const std::string next = run("get name gain[2][1] mute[0]\n");
    EXPECT_THAT(next, HasSubstr("| name = \"" + name + "\"\n| gain[2][1] = -6 dB\n"));
    EXPECT_THAT(next, HasSubstr("| mute[0] = off\n")) << "was not confirmed";
  }
  // Nobody reads what it prints any more.
  Panel panel(dir);
  panel.closeOutput();
  panel.type("list\nset name unread\nconfirm\n").end();
  EXPECT_EQ(panel.status, 0);
  EXPECT_THAT(run("get name\n"), HasSubstr("| name = \"unread\""));
}

// The settings of generation n, which differ from those of n - 1 in every control.
int gainOf(int n, unsigned int channel, unsigned int band) {
  return -60 + static_cast<int>((static_cast<unsigned int>(n) + channel * BANDS + band) % 73);
}
int inputOf(int n, unsigned int channel) {
  return 1 + static_cast<int>((static_cast<unsigned int>(n) + channel) % 8);
}

std::string commandsOf(int n) {
  std::ostringstream text;
  text << "set name generation " << n << "\n";
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    text << "set input " << channel << " " << inputOf(n, channel) << "\n";
    for (unsigned int band = 0; band < BANDS; ++band) {
      // The confirm queue has room for 16 settings.
      text << (channel == 3 && band == 0 ? "confirm\n" : "") << "set gain " << channel << " "
           << band << " " << gainOf(n, channel, band) << "\n";
    }
  }
  text << "confirm\nsave\n";
  return text.str();
}

std::string fileOf(int n) {
  std::ostringstream text;
  text << "<CV-10-I-0>generation " << n << "</CV-10-I-0>\n";
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    for (unsigned int band = 0; band < BANDS; ++band) {
      const std::string key = "CV-20-I-" + std::to_string(channel + 256 * band);
      text << "<" << key << ">" << gainOf(n, channel, band) << "</" << key << ">\n";
    }
  }
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    text << "<CV-30-I-" << channel << ">0</CV-30-I-" << channel << ">\n";
  }
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    text << "<CV-40-I-" << channel << ">" << inputOf(n, channel) << "</CV-40-I-" << channel
         << ">\n";
  }
  return text.str() + "<CV-70-I-0>60</CV-70-I-0>\n</archive>\n";
}

// A panel that saves all the time is killed at one moment after another. The file holds what the
// last finished save wrote, or the one that was running, complete either way.
TEST_F(PanelTest, KilledInTheMiddleOfASaveLeavesTheFileOldOrNew) {
  constexpr int KILLS = 25;
  constexpr int BATCH = 50;
  std::mt19937 random(1);
  int saved = 0;  // the generation of the last save that is known to have finished
  run(commandsOf(saved));
  int hit = 0;  // kills that fell into a save
  for (int round = 0; hit < KILLS && round < 20 * KILLS; ++round) {
    std::string commands;
    for (int n = saved + 1; n <= saved + BATCH; ++n) {
      commands += commandsOf(n);
    }
    Panel panel(dir);
    panel.type(commands);
    ASSERT_TRUE(panel.printed("| saved"));
    usleep(static_cast<unsigned int>(random() % 3000));
    const std::string output = panel.end(SIGKILL);
    for (std::size_t at = 0; (at = output.find("| saved", at)) != std::string::npos; ++at) {
      ++saved;
    }
    hit += std::filesystem::exists(dir + "/presets.xml.tmp") ? 1 : 0;
    const std::string now = presets();
    if (now.find(fileOf(saved)) == std::string::npos) {
      ++saved;  // it was killed between the save and its answer
    }
    ASSERT_THAT(now, EndsWith("<archive>\n" + fileOf(saved))) << "round " << round;
  }
  EXPECT_EQ(hit, KILLS);
  EXPECT_THAT(run("get name\n"), HasSubstr("generation " + std::to_string(saved) + "\""));
}

// The preset thread saves while the main thread goes on. The gain is 12 only while unconfirmed,
// which is nearly all the time.
TEST_F(PanelTest, TheBackgroundSaveHoldsWhatIsConfirmedAndNothingElse) {
  Panel panel(dir);
  panel.type("set name kept\nconfirm\n");
  for (int i = 0; i < 60 && panel.all.find("Save presets to:") == std::string::npos; ++i) {
    panel.type("set gain 0 1 12\nwait\nget gain 0 1\n");
    EXPECT_TRUE(panel.printed("| gain[0][1] = 12 dB, not confirmed; in effect is "));
    panel.type("set gain 0 1 " + std::to_string(i % 12) + "\nconfirm\n");
    EXPECT_TRUE(panel.printed("confirmed"));
  }
  panel.type("wait\nget name\n");  // the thread prints first and writes then
  EXPECT_TRUE(panel.printed("| name"));
  panel.end(SIGKILL);
  EXPECT_THAT(presets(), HasSubstr(">kept<"));
  EXPECT_THAT(presets(), Not(HasSubstr(">12<")));
  EXPECT_THAT(presets(), EndsWith("</archive>\n"));
}

TEST_F(PanelTest, RefusesBadLinesWithAReasonAndChangesNothing) {
  const struct {
    const char* line;
    const char* reason;
  } CASES[] = {
      {"frobnicate", "no command \"frobnicate\""},
      {"get", "which control? there are name, gain,"},
      {"get gian[0]", "no control \"gian[0]\"; there are name, gain,"},
      {"get gain[4][0]", "no control \"gain[4][0]\"; there is gain[0..3][0..2]"},
      {"get gain[0][3]", "there is gain[0..3][0..2]"},
      {"get gain[0", "there is gain[0..3][0..2]"},
      {"get gain[0][0][0]", "there is gain[0..3][0..2]"},
      {"get mute 4294967296", "there is mute[0..3]"},
      {"get 20", "no control \"20\""},
      {"get 20:3 20:4", "no control 20:4"},
      {"get 20:65794", "no control 20:65794"},
      {"get 9:0", "no control 9:0"},
      {"set gain[2] -6", "which one? gain[0..3][0..2], as in gain[2][0]"},
      {"set gain[2][1]", "gain[2][1] takes a value: -100 or -60..12 dB"},
      {"set gain[2][1]3", "gain[2][1] takes a value"},
      {"set gain[2][1] -61", "gain[2][1] cannot be -61; it takes -100 or -60..12 dB"},
      {"set gain[2][1] 13", "it takes -100 or -60..12 dB"},
      {"set gain[2][1] 1e1", "it takes -100 or -60..12 dB"},
      {"set gain[2][1] 4294967296", "it takes -100 or -60..12 dB"},
      {"set mute[1] maybe", "mute[1] cannot be maybe; it takes off or on"},
      {"set mute[1] 2", "it takes off or on"},
      {"set input[3] 0", "it takes 1..8"},
      {"set name 1234567890123456789012345", "it takes at most 24 printable characters"},
      {"set name \xC3\xA4", "it takes at most 24 printable characters"},
      {"set temperature[0] 5", "temperature[0] is read only"},
      {"set restore 2", "restore cannot be 2; it takes 1"},
      {"set 9:0 1", "9:0 is not set: the registry refuses it"},
      {"inc name", "name is no number"},
      {"inc restore", "restore is no number"},
      {"inc mute 0 x", "a step is a whole number, not x"},
      {"confirm", "nothing waits for confirm"},
      {"wait x", "a number of seconds, not x"},
      {"help frobnicate", "no command \"frobnicate\""},
  };
  std::string lines = "list\n";
  for (const auto& c : CASES) {
    lines += std::string(c.line) + "\n";
  }
  Panel panel(dir);
  panel.type(lines + "# a comment, and an empty line\n\n  \t\nlist\n");
  std::istringstream output(panel.end());
  EXPECT_EQ(panel.status, 1);
  std::string line, tables;
  for (const auto& c : CASES) {
    while (std::getline(output, line) && line.compare(0, 9, "| error: ") != 0) {
      tables += line.compare(0, 2, "| ") == 0 ? line + "\n" : "";
    }
    EXPECT_THAT(line, HasSubstr(c.reason)) << c.line;
  }
  const std::string before = tables.substr(tables.find("| name"), tables.find("| temp") - 10);
  EXPECT_THAT(panel.all.substr(panel.all.rfind("| name")), StartsWith(before));
  EXPECT_THAT(panel.all, Not(HasSubstr("confirmed")));
}

// Every notation of every control leads to the same one, and the file holds it under the numbers.
TEST_F(PanelTest, NamesSubscriptsAndNumbersMeanTheSameControl) {
  std::string expected;
  std::string commands;
  for (unsigned int channel = 0; channel < CHANNELS; ++channel) {
    for (unsigned int band = 0; band < BANDS; ++band) {
      const std::string c = std::to_string(channel), b = std::to_string(band);
      const std::string number = std::to_string(channel + 256 * band);
      const std::string names[] = {"gain[" + c + "][" + b + "]", "gain " + c + " " + b,
                                   "gain [ " + c + " ] " + b, "20:" + number};
      const std::string value = std::to_string(static_cast<int>(channel * 10 + band) - 40);
      commands += "set " + names[(channel + band) % 4] + " " + value + "\nconfirm\nget";
      for (const std::string& name : names) {
        commands += " " + name;
        expected += "| " + names[0] + " = " + value + " dB\n";
      }
      commands += "\n";
    }
  }
  const std::string all = run(commands + "set name \" a \"\"\nconfirm\nget 10:0\n");
  EXPECT_EQ(status, 0);
  std::istringstream output(all);
  std::string line, values;
  while (std::getline(output, line)) {
    if (line.compare(0, 6, "| gain") == 0 && line.find("waits") == std::string::npos) {
      values += line + "\n";
    }
  }
  EXPECT_EQ(values, expected);
  EXPECT_THAT(all, HasSubstr("| name = \" a \"\"\n"));
  EXPECT_THAT(presets(), HasSubstr("<CV-20-I-258>-19</CV-20-I-258>"));
}

TEST_F(PanelTest, StepsJumpGapsAndWrapAndAFullQueueIsRefused) {
  EXPECT_THAT(run("set gain 0 0 -60\ninc gain 0 0 -1\ninc gain 0 0\ninc gain 0 0 2147483647\n"
                  "inc input 3 5\ninc input 0 -1\ninc mute 1\ninc mute 1\n"),
              HasSubstr("| gain[0][0] = -60 dB, waits for confirm\n"
                        "| gain[0][0] = -100 dB, waits for confirm\n"
                        "| gain[0][0] = -60 dB, waits for confirm\n"
                        "| gain[0][0] = 12 dB, waits for confirm\n"
                        "| input[3] = 1, waits for confirm\n| input[0] = 8, waits for confirm\n"
                        "| mute[1] = on, waits for confirm\n| mute[1] = off, waits for confirm\n"
                        "| not confirmed and so not kept: 8\n"));
  // A command acts in its place in the order of the sets.
  std::string commands = "set gain 1 1 5\nset restore 1\nset input 2 7\n";
  for (int i = 3; i < 16; ++i) {
    commands += "inc mute 3\n";
  }
  const std::string out = run(commands +
                              "set mute 0 on\nget mute 0\nconfirm\nset mute 0 on\nconfirm\n"
                              "get mute 0 gain 1 1 input 2 mute 3\n");
  EXPECT_THAT(out, HasSubstr("16 settings wait for confirm and no more fit; mute[0] is not set\n"
                             "| mute[0] = off\n| 16 settings confirmed"));
  EXPECT_THAT(out,
              HasSubstr("| mute[0] = on\n| gain[1][1] = 0 dB\n| input[2] = 7\n| mute[3] = on"));
  EXPECT_EQ(status, 1);
}

TEST_F(PanelTest, SaysWhenItCannotSaveAndSavesAsSoonAsItCan) {
  const std::string file = dir + "/presets.xml";
  Panel panel(dir);
  EXPECT_TRUE(panel.type("list\n").printed("| restore"));
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  panel.type("set name late\nconfirm\nsave\nquit\n");
  EXPECT_TRUE(panel.printed("| error: the confirmed settings are not saved"));
  EXPECT_TRUE(panel.printed("| error: the confirmed settings are not saved; \"quit now\" ends"));
  std::filesystem::remove(file);
  panel.type("quit\n").end();
  EXPECT_EQ(panel.status, 1) << "commands were refused";
  EXPECT_THAT(presets(), HasSubstr(">late<"));

  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  EXPECT_THAT(run("list\n"), HasSubstr("| error: cannot keep settings here: "));
  EXPECT_EQ(status, 2);
}

TEST_F(PanelTest, StartsWithADamagedFileAndKeepsItAside) {
  run("set name precious\nconfirm\n");
  std::filesystem::resize_file(dir + "/presets.xml", presets().size() - 5);
  EXPECT_THAT(run("get name\n"), HasSubstr("| name = \"Unit 1\""));
  std::ostringstream kept;
  kept << std::ifstream(dir + "/presets.xml.damaged-1").rdbuf();
  EXPECT_THAT(kept.str(), HasSubstr("precious"));
}

#ifdef PANEL_LIBEDIT
TEST_F(PanelTest, OnATerminalEditsCompletesAndShowsWhatToTry) {
  Panel panel(dir, Panel::TERMINAL);
  EXPECT_TRUE(panel.printed("| temperature[0..3]")) << panel.all;
  EXPECT_TRUE(panel.printed("panel (try: set gain 2 1 -6)> "));
  // Keys that edit count only once the prompt is there: before it the terminal takes them itself.
  panel.type(
      "get nothing\x15"
      "conf\t\n");  // Ctrl-U clears the line
  EXPECT_TRUE(panel.printed("| error: nothing waits for confirm"));
  EXPECT_TRUE(panel.printed("panel> "));
  panel.type("set inp\t\t");
  EXPECT_TRUE(panel.printed("| input[0]  input[1]  input[2]  input[3]"));
  panel.type("1] 5\n");
  EXPECT_TRUE(panel.printed("| input[1] = 5, waits for confirm"));
  EXPECT_TRUE(panel.printed("panel (1 to confirm)> "));
  panel.type("watch 60 temperature\n");
  EXPECT_TRUE(panel.printed("| temperature[3]"));
  panel.type("\x03");  // ends the wait and not the panel
  EXPECT_TRUE(panel.printed("panel (1 to confirm)> "));
  panel.type("confirm\n");
  EXPECT_TRUE(panel.printed("| 1 setting confirmed"));
  EXPECT_TRUE(panel.printed("panel> "));
  panel.type("\x1b[A\x1b[A\x1b[A\n");  // three lines back: the set
  EXPECT_TRUE(panel.printed("| input[1] = 5, waits for confirm"));
  EXPECT_TRUE(panel.printed("panel (1 to confirm)> "));
  panel.type("\x04");
  EXPECT_TRUE(panel.printed("Stopping the Timer thread"));
  panel.end();
  EXPECT_EQ(panel.status, 0) << panel.all;
  EXPECT_THAT(run("get input 1\n"), HasSubstr("| input[1] = 5\n"));
}
#endif

}  // namespace
