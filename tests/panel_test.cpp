// The panel, through the panel program: its console, and that a confirmed setting is never lost.
#include "panel.h"

#include "component_writer.h"
#include "random.h"

namespace {

using testing::HasSubstr;

constexpr char FILE_NAME[] = "presets.xml";

std::string number(int n) {
  return std::to_string(n);
}

TEST_F(PanelTest, AConfirmedSettingIsThereInTheNextRunHoweverTheFirstEnds) {
  const struct {
    const char* command;
    const char* answer;
    int signal;
    int status;
  } ENDS[] = {{"quit", "Stopping", 0, 0},   {"", "confirmed", 0, 0},
              {"", "confirmed", SIGINT, 0}, {"", "confirmed", SIGTERM, 0},
              {"", "confirmed", SIGHUP, 0}, {"save", "| saved", SIGKILL, -1}};
  for (const auto& e : ENDS) {
    const std::string name = "run " + number(static_cast<int>(&e - ENDS));
    Process panel({PANEL}, name);
    panel.type("set name " + name + "\nconfirm\nset mute 0 on\n" + e.command + "\n");
    EXPECT_TRUE(panel.says(e.answer));
    EXPECT_EQ(panel.end(e.signal), e.status) << panel.output();
    runProgram("touch -d 2040-01-01 presets.xml presets.flash");  // more than 32 bits of seconds
    EXPECT_THAT(run("get name mute[0]\n"),
                HasSubstr("| name = \"" + name + "\"\n| mute[0] = off\n"));
  }
  writeWhole("input", "list\nset name unread\nconfirm\n");
  runProgram("{ sleep 0.3; " PANEL " < input; echo $? > ended; } | true");  // nobody reads it
  EXPECT_EQ(readWhole("ended"), "1\n") << "what it printed is lost";
  EXPECT_THAT(run("get name\n"), HasSubstr("| name = \"unread\""));
}

// Without standard streams its files get their numbers, and what it prints would go into them.
TEST_F(PanelTest, PrintsIntoNoneOfItsFilesAndOutlivesALimitOnTheirSize) {
  run("preset write 5 hello\n");
  const std::string store = readWhole("presets.flash");
  runProgram(PANEL " <&- >&- 2>&-");
  EXPECT_EQ(readWhole("presets.flash"), store);
  writeWhole("input", "set limit 61\nconfirm\nsave\n");
  // The thread sanitizer would write a file of its own to TMPDIR before the panel starts.
  runProgram("{ ulimit -f 0; TMPDIR=/absent " PANEL " < input; } | cat > said");
  EXPECT_THAT(readWhole("said"), HasSubstr("| error: the confirmed settings are not saved"));
  EXPECT_THAT(run("get limit\n"), HasSubstr("| limit = 60 C"));
}

// A panel that saves all the time is killed at one moment after another. Its settings are those of
// the last finished save, or of the one that was running, all of them.
TEST_F(PanelTest, KilledInTheMiddleOfASaveKeepsTheSettingsBeforeOrBehindIt) {
  constexpr int SAVES = 50;
  constexpr int KILLS = 10;
  const auto settings = [](int n) {
    return "name = \"run " + number(n) + "\"\n| limit = " + number(30 + n % 61) + " C\n";
  };
  Random random(1);
  int saved = 0;
  int hit = 0;  // kills that fell into a save
  for (int round = 0; hit < KILLS && round < 20 * KILLS; ++round) {
    std::string commands;
    for (int n = saved + 1; n <= saved + SAVES; ++n) {
      commands +=
          "set name run " + number(n) + "\nset limit " + number(30 + n % 61) + "\nconfirm\nsave\n";
    }
    Process panel({PANEL}, "log " + number(round));
    panel.type(commands);
    ASSERT_TRUE(panel.says("| saved"));
    usleep(random.below(3000));
    panel.end(SIGKILL);
    hit += std::filesystem::remove("presets.xml.tmp") ? 1 : 0;
    const std::string log = panel.output();
    for (std::size_t at = 0; (at = log.find("| saved", at)) != std::string::npos; ++at) {
      ++saved;
    }
    const std::string now = run("get name limit\n");
    if (now.find(settings(saved)) == std::string::npos) {
      ++saved;  // it was killed between the save and its answer
    }
    ASSERT_THAT(now, HasSubstr(settings(saved))) << "round " << round;
  }
  EXPECT_EQ(hit, KILLS);
}

TEST_F(PanelTest, RefusesBadLinesWithAReasonAndChangesNothing) {
  const std::string most(8182, 'x');
  const struct {
    std::string line;
    const char* reason;
  } CASES[] = {
      {"frobnicate", "no command \"frobnicate\""},
      {"get", "which control? there are name, gain,"},
      {"get gian[0]", "no control \"gian[0]\"; there are name, gain,"},
      {"get gain[4][0]", "no control \"gain[4][0]\"; there is gain[0..3][0..2]"},
      {"get gain 2 3", "no control \"gain 2 3\"; there is gain[0..3][0..2]"},
      {"inc limit 5x", "a step is a whole number, not 5x"},
      {std::string("set limit 70\0x", 14), "a line with a zero byte"},
      {"set gain[2] -6", "which one? gain[0..3][0..2], as in gain[2][0]"},
      {"set gain[2][1] -61", "gain[2][1] cannot be -61; it takes -100 or -60..12 dB"},
      {"set gain[2][1] 4294967296", "it takes -100 or -60..12 dB"},
      {"set mute[1] maybe", "mute[1] cannot be maybe; it takes off or on"},
      {"set name 1234567890123456789012345", "it takes at most 24 printable characters"},
      {"set temperature[0] 5", "temperature[0] is read only"},
      {"set 9:0 1", "no control 9:0"},
      {"gain 2 5", "no control \"gain 2 5\"; there is gain[0..3][0..2]"},
      {"gain[2][1]-6", "what is -6?"},
      {"filter 1 = loud", "filter[1] cannot be loud; it takes flat, low-cut or speech"},
      {"inc name", "name is no number"},
      {"confirm", "nothing waits for confirm"},
      {"cancel", "nothing waits for confirm"},
      {"confirm gain", "what is gain?"},
      {"watch 86401 gain", "86401 s is too long, 86400 at most"},
      {"\x1b[2J", "no command \"?[2J\""},
      {"setup save 4095", "a user setup has a number from 0 to 4094"},
      {"setup remove 7", "user setup 7: nothing is saved there"},
      {"preset write 4096 x", "a preset has a number from 0 to 4095"},
      {"preset write 5 " + most + "y", "no room for 8183 bytes, 8182 at most"},
      {"preset format\npreset write 6 12345\npreset write 5 " + most, "8170 at most"},
      {"preset read 7", "no preset 7"},
      {"preset format 7", "what is 7?"},
      {"component /dev/zero", "/dev/zero is no file"},
  };
  std::string lines = "get name gain mute input limit\n# a comment, and an empty line\n\n  \t\n";
  for (const auto& c : CASES) {
    lines += c.line + "\n";
  }
  const std::string all = run(lines + "get name gain mute input limit\n");
  EXPECT_EQ(status, 1);
  size_t at = 0;
  for (const auto& c : CASES) {
    at = all.find("| error: ", at);
    ASSERT_NE(at, all.npos);
    const size_t end = all.find('\n', at);
    EXPECT_THAT(all.substr(at, end - at), HasSubstr(c.reason)) << c.line;
    at = end;
  }
  const size_t begin = all.find("| name = "), size = all.find("| limit = ") - begin;
  EXPECT_EQ(all.substr(all.rfind("| name = "), size), all.substr(begin, size));
}

// Every notation of every gain leads to the same one, with "set" and "get" in front and without,
// and the file holds it under the numbers.
TEST_F(PanelTest, NamesSubscriptsAndNumbersMeanTheSameControl) {
  std::string sets, gets = "confirm\nset name \" a \"\"\nconfirm\nget 10:0", expected;
  for (int i = 0; i < 12; ++i) {
    const std::string c = number(i / 3), b = number(i % 3), value = number(i - 40);
    const std::string names[] = {"gain[" + c + "][" + b + "]", "gain " + c + " " + b,
                                 "gain [ " + c + " ] " + b, "20:" + number(i / 3 + 256 * (i % 3))};
    const char* const between[] = {" ", "=", " = "};
    sets +=
        (i < 6 ? "set " : "") + names[i % 4] + between[i % 3] + value + (i < 3 ? " dB\n" : "\n");
    for (const std::string& name : names) {
      gets += (i < 6 ? " " : "\n") + name;
      expected += "| " + names[0] + " = " + value + " dB\n";
    }
  }
  EXPECT_THAT(run(sets + gets + "\n"), HasSubstr("| name = \" a \"\"\n" + expected));
  EXPECT_EQ(status, 0);
  EXPECT_THAT(readWhole(FILE_NAME), HasSubstr("<CV-20-I-258>-33</CV-20-I-258>"));
}

TEST_F(PanelTest, StepsJumpGapsAndWrapAndWhatWaitsIsConfirmedInOrderOrTakenBack) {
  EXPECT_THAT(run("set gain 0 0 -60\ninc gain 0 0 -1\ninc gain 0 0 2147483647\ninc input 0 -1\n"
                  "inc mute 1\ninc mute 1\nfilter 0 speech\ninc filter 0\nsetup save\n"
                  "setup recall\ncancel\ninput 0\ninc input 0 0x2\n"),
              HasSubstr("| gain[0][0] = -100 dB, waits for confirm\n"
                        "| gain[0][0] = 12 dB, waits for confirm\n"
                        "| input[0] = 8, waits for confirm\n"
                        "| mute[1] = on, waits for confirm\n| mute[1] = off, waits for confirm\n"
                        "| filter[0] = speech, waits for confirm\n"
                        "| filter[0] = flat, waits for confirm\n"
                        "| error: confirm or cancel first: 4 set, not in effect\n"
                        "| error: confirm or cancel first: 4 set, not in effect\n"
                        "| 4 settings taken back; what is in effect stays\n| input[0] = 1\n"
                        "| input[0] = 3, waits for confirm\n| not confirmed and so not kept: 1\n"));
  // A command acts in its place in the order of the sets.
  EXPECT_THAT(run("set gain 1 1 5\nset restore 1\nset input 2 7\nconfirm\nget gain 1 1 input 2\n"),
              HasSubstr("| 3 settings confirmed; saved within about 10 seconds, or now with "
                        "\"save\"\n| gain[1][1] = 0 dB\n| input[2] = 7\n"));
  // What a program reads: the lines behind the mark, here with the values that differ.
  EXPECT_THAT(
      run("mute 1 on\nlist --json mute\nlist gain 2\n"),
      HasSubstr("| [\n| {\"name\":\"mute\",\"id\":30,\"kind\":\"boolean\",\"help\":\"silences a "
                "channel\",\"dimensions\":[4],\"controls\":[{\"name\":\"mute[0]\",\"index\":0,"
                "\"value\":false},{\"name\":\"mute[1]\",\"index\":1,\"value\":true,"
                "\"confirmed\":false},{\"name\":\"mute[2]\",\"index\":2,\"value\":false},"
                "{\"name\":\"mute[3]\",\"index\":3,\"value\":false}]}\n| ]\n"
                "| gain[0..3][0..2]: gain of a channel in a band, -100 is off; -100 or "
                "-60..12 dB\n|   gain[2][0]       20:2     0 dB\n"));
}

TEST_F(PanelTest, SaysWhenItCannotSaveAndSavesAsSoonAsItCan) {
  Process panel({PANEL}, "log");
  panel.type("list\n");
  EXPECT_TRUE(panel.saysNext("| restore"));
  std::filesystem::remove(FILE_NAME);
  std::filesystem::create_directory(FILE_NAME);
  panel.type("set name late\nconfirm\nsave\nquit\n");
  EXPECT_TRUE(panel.saysNext("| error: the confirmed settings are not saved"));
  EXPECT_TRUE(panel.saysNext("| error: the confirmed settings are not saved; \"quit now\" ends"));
  std::filesystem::remove(FILE_NAME);
  panel.type("quit\n");
  EXPECT_EQ(panel.wait(), 1) << "commands were refused";
  EXPECT_THAT(readWhole(FILE_NAME), HasSubstr(">late<"));

  std::filesystem::resize_file(FILE_NAME, 100);
  EXPECT_THAT(run("get name\n"), HasSubstr("| name = \"Unit 1\""));
  EXPECT_THAT(readWhole("presets.xml.damaged-1"), HasSubstr("late"));
  std::filesystem::remove(FILE_NAME);
  std::filesystem::create_directory(FILE_NAME);
  EXPECT_THAT(run("list\n"), HasSubstr("| error: cannot keep settings here: "));
  EXPECT_EQ(status, 2);
}

TEST_F(PanelTest, ShowsTheBoardAndChecksComponentFiles) {
  writeWhole("board.env", "SN=0123456789\nBRDREV=C2\nBRDBLD=417\n");
  writeWhole("good file", component::component({{"b", "data"}}));
  EXPECT_THAT(
      run("id\ncomponent good file\n"),
      HasSubstr("| serial number  0123456789\n| board          revision C2, build 417\n"
                "| good file is valid: Mixer, boot, revision 3.200 (3.200 beta), 1 file\n"));
  EXPECT_THAT(run("component board.env\n"), HasSubstr("| error: board.env is not valid\n"));
}

// Switched off they watch nothing; switched on again, what differs from the last report is told.
TEST_F(PanelTest, PrintsTrapsAndSwitchesThemOffAndOn) {
  const std::string all =
      run("set mute 1 on\nconfirm\nwait 1\ntraps off\nset mute 1 off\nconfirm\n"
          "wait 1\ntraps\ntraps on\nwait 1\n",
          " --traps print");
  size_t at = 0;
  for (const char* const line :
       {"| Trap 1011: mute[1] on: yes\n", "| traps are off; they are printed\n",
        "| mute[1] on               1010/1011  no   yes, pending\n", "| traps are on\n",
        "| Trap 1010: mute[1] on: no\n"}) {
    at = all.find(line, at);
    ASSERT_NE(at, all.npos) << line << all;
    at += 1;
  }
}

#ifdef PANEL_LIBEDIT
TEST_F(PanelTest, OnATerminalEditsCompletesAndShowsWhatToTry) {
  const struct {
    const char* keys;
    const char* answer;
    const char* prompt;
  } STEPS[] = {{"", "\x1b[2mStarting the Preset thread\x1b[0m", ""},
               {"", "\n| temperature[0..3]", "panel (try: gain 2 1 -6)> "},
               {"conf\t\n", "| error: nothing waits for confirm", "panel> "},
               {"mute 2 \t", "o", ""},  // both begin with it
               {"n\n", "| mute[2] = on, waits for confirm", "panel (1 to confirm)> "},
               {"set filter[3]=sp\t\n", "| filter[3] = speech", "panel (2 to confirm)> "},
               {"set inp\t\t", "| input[0]  input[1]  input[2]  input[3]", ""},
               {"1] 5\n", "| input[1] = 5, waits for confirm", "panel (3 to confirm)> "},
               {"watch 60 temperature\n", "| temperature[3]", ""},
               {"\x03", "", "panel (3 to confirm)> "},  // ends the watch and not the panel
               {"quit", "quit", ""},
               {"\x03", "^C", "panel (3 to confirm)> "},  // and here the line
               {"confirm\n", "| 3 settings confirmed", "panel> "},
               // What comes by itself takes the prompt's place.
               {"", "\r\x1b[K| Trap 1013: mute[2] on: yes\r\n", "\r\x1b[Kpanel> "},
               // Three lines back stands the set.
               {"\x1b[A\x1b[A\x1b[A\n", "| input[1] = 5, waits for confirm", "(1 to confirm)> "},
               {"\x03", "| Ctrl-C again ends the panel", "(1 to confirm)> "},
               {"\x03", "Stopping the Timer thread", ""}};
  // libedit keeps the names of its functions. The panel takes the place of the shell that script
  // starts, which would otherwise get the interrupt key too and, as sh, end with its status.
  const std::vector<std::string> terminal = {"env",
                                             "-u",
                                             "LINES",
                                             "-u",
                                             "COLUMNS",
                                             "-u",
                                             "NO_COLOR",
                                             "TERM=xterm",
                                             "SHELL=/bin/sh",
                                             "LSAN_OPTIONS=detect_leaks=0",
                                             "script",
                                             "-qec",
                                             std::string("exec ") + PANEL + " --traps print",
                                             "/dev/null"};
  Process panel(terminal, "log");
  for (const auto& step : STEPS) {
    panel.type(step.keys);
    ASSERT_TRUE(panel.saysNext(step.answer) && panel.saysNext(step.prompt)) << panel.output();
  }
  EXPECT_EQ(panel.wait(), 0);
  EXPECT_THAT(run("get input 1\n"), HasSubstr("| input[1] = 5\n"));
  Process next(terminal, "next log");
  next.type("\x1b[A\n");
  EXPECT_TRUE(next.saysNext("| input[1] = 5, waits for confirm")) << "the line of the run before";
  // It has ended before the test removes where it writes.
  for (const char* const answer : {"(1 to confirm)> ", "Ctrl-C again", "(1 to confirm)> "}) {
    EXPECT_TRUE(next.saysNext(answer));
    next.type(answer[0] == 'C' ? "" : "\x03");
  }
  EXPECT_EQ(next.wait(), 0);
}
#endif

}  // namespace
