// The panel's presets and setups, through the panel program: what a person stores is there
// afterwards.
#include "panel.h"
#include "pfmedium_file.h"
#include "presetmgr.h"
#include "presets.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using PanelStore = PanelTest;

TEST_F(PanelStore, KeepsPresetsAcrossAnEndAndAKill) {
  EXPECT_THAT(run("preset write 5 changed\npreset write 0x6 second one\npreset map\n"),
              HasSubstr("| 0x0000  ......"));

  // Without a flush, ended by the end of its input, it has stored everything.
  Process killed({PANEL}, "log");
  killed.type("preset remove 5\npreset write 4095 third\npreset flush\npreset write 6 lost\n");
  EXPECT_TRUE(killed.says("preset 6 has 4 bytes"));
  EXPECT_THAT(run("preset list\n"), HasSubstr("another process has it open"));
  EXPECT_EQ(status, 2);
  killed.end(SIGKILL);
  EXPECT_THAT(run("preset list\npreset map\n"),
              AllOf(HasSubstr("|second one|"), HasSubstr("|third|"), Not(HasSubstr("changed")),
                    HasSubstr("| 2 presets; a new one has room for 8154 bytes"),
                    HasSubstr("| 0x0000  ##")));
  EXPECT_THAT(run("preset format\npreset list\n"), HasSubstr("| 0 presets"));
}

// The disk takes no more than the first block, so a block copy to the other one fails. A build that
// counts coverage writes its counts elsewhere, which the limit would cut off.
TEST_F(PanelStore, AFullDiskIsReportedAndLosesNothing) {
  run("preset write 5 " + std::string(5000, 'a') + "\n");
  writeWhole("input", "preset write 5 " + std::string(5000, 'b') + "\npreset flush\n");
  const ProgramResult full =
      runProgram("trap '' XFSZ; ulimit -f 16; GCOV_PREFIX=counts " PANEL " < input");
  EXPECT_THAT(full.output, HasSubstr("error: not everything is stored: presets.flash: writing"));
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(run("preset read 5\npreset list\n"),
              AllOf(HasSubstr("|aaaaaaaaaaaaaaaa|"), HasSubstr("| 1 preset; ")));
}

// What one build writes, another reads. The other one is the host's, for the tests of a cross
// build; otherwise it is this one.
TEST_F(PanelStore, SettingsSetupsAndPresetsTravelBetweenBuilds) {
  const std::string builds[] = {PANEL, PEER_BIN "/panel"};
  const std::string write =
      "set name <Main> & \"rest\"\nset gain 3 2 -60\nset gain 0 0 -100\nset mute 1 on\n"
      "set input 2 8\nset limit 31\nconfirm\nsetup save\n"
      "set name Left\nset gain 3 2 12\nset mute 1 off\nconfirm\nsetup save 6\n"
      "preset write 5 forty two\npreset write 250 last\n";
  for (const unsigned int writer : {0U, 1U}) {
    std::filesystem::remove("presets.flash");
    program = builds[writer];
    run(write);
    const std::string xml = readWhole("presets.xml");
    program = builds[1 - writer];
    EXPECT_THAT(run("get name gain[3][2] gain[0][0] limit\npreset read 5\npreset read 250\n"),
                AllOf(HasSubstr("| name = \"Left\"\n| gain[3][2] = 12 dB\n"
                                "| gain[0][0] = -100 dB\n| limit = 31 C\n"),
                      HasSubstr("|forty two|"), HasSubstr("|last|")));
    EXPECT_THAT(run("setup list\nsetup recall\nget name gain[3][2] gain[0][0] mute[1] input[2]\n"),
                AllOf(HasSubstr("the setup is saved; 1 user setup\n|   user setup 6\n"),
                      HasSubstr("| name = \"<Main> & \"rest\"\"\n| gain[3][2] = -60 dB\n"
                                "| gain[0][0] = -100 dB\n| mute[1] = on\n| input[2] = 8\n")));
    EXPECT_THAT(run("setup recall 6\nget gain[3][2] name\nsetup remove 6\nsetup list\n"),
                AllOf(HasSubstr("gain[3][2] = 12 dB\n| name = \"Left\"\n"),
                      HasSubstr("the setup is saved; 0 user setups\n")));
    // The same settings make the same file, whoever writes it.
    std::filesystem::remove("presets.xml");
    run(write);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readWhole("presets.xml"), xml);
  }
}

// What an older panel has stored, with one space of numbers: a preset 5, 0 and 3, and setups that
// are user setup 3 and 4999. Those are of a field list that had a contrast and no name yet: in each
// channel the gains are -33 dB, packed as 28 in 7 bits, it is muted, 1, and has input 7, packed as
// 6 in 3 bits.
TEST_F(PanelStore, TakesOverAnOlderPanelsStoreAndKeepsPresetsAndSetupsApart) {
  const unsigned char image[] = {0x00, 0x38, 0x70, 0xE7, 0x1C, 0x38, 0x73,
                                 0x8E, 0x1C, 0x39, 0xC7, 0x0E, 0x1C, 0xE9};
  PfFileMedium file;
  ASSERT_TRUE(file.open("presets.flash", false)) << file.error();
  pfUseMedium(&file);
  for (const unsigned short type : std::initializer_list<unsigned short>{4, 5000}) {
    saveBUFPreset(type, sizeof image, image);
  }
  for (const unsigned short type : std::initializer_list<unsigned short>{5, 0, 3}) {
    saveBUFPreset(type, 5, "hello");
  }
  while (PresetMgr::flush() != 0) {
  }
  pfUseMedium(nullptr);
  file.close();

  EXPECT_THAT(run("preset list\nsetup list\n"),
              AllOf(HasSubstr("| preset 5 of an older panel has been moved in the store; it is "
                              "preset 5\n"),
                    HasSubstr("| user setup 4999 of an older panel has been moved in the store; it "
                              "is user setup 4094\n"),
                    HasSubstr("|hello|\n| preset 5 "), HasSubstr("| 3 presets; "),
                    HasSubstr("the setup is not saved; 2 user setups\n|   user setup 3\n"
                              "|   user setup 4094\n")));
  const std::string changes =
      "setup save 2\nsetup save 4\nsetup remove 4\nsetup save\n"
      "preset write 4 x\npreset remove 4\npreset list\nsetup list\n";
  EXPECT_THAT(run(changes), AllOf(HasSubstr("| 3 presets; "), Not(HasSubstr("older panel")),
                                  HasSubstr("the setup is saved; 3 user setups\n|   user setup 2\n"
                                            "|   user setup 3\n|   user setup 4094\n")));
  const std::string all = "\nget gain[0] gain[3][2] mute[2] input[3] name\n";
  const std::string values =
      "gain[0][0] = -33 dB\n| gain[0][1] = -33 dB\n| gain[0][2] = -33 dB\n| gain[3][2] = -33 dB\n"
      "| mute[2] = on\n| input[3] = 7\n| name = ";
  const std::string named = "set name Hall\nconfirm\nsetup recall 3";
  EXPECT_THAT(run(named + all), HasSubstr(values + "\"Hall\"\n")) << "a younger setting stays";
  EXPECT_THAT(run(named + " init" + all), HasSubstr(values + "\"Unit 1\"\n"));
  EXPECT_THAT(run("setup recall 4094" + all), HasSubstr(values));
}

// One record is broken, so the store gives up all of them. The file as it was can be looked at.
TEST_F(PanelStore, KeepsADamagedFileAsideAndSaysSo) {
  run("preset write 5 hello\n");
  std::string damaged = readWhole("presets.flash");
  damaged[4] = '\x40';
  writeWhole("presets.flash", damaged);
  EXPECT_THAT(run("preset list\n"),
              AllOf(HasSubstr("presets.flash is damaged; it is kept as "),
                    HasSubstr("the log of block 0 is corrupt at 0x0004: its head word"),
                    HasSubstr("| 0 presets")));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(readWhole("presets.flash.damaged-1"), damaged);
  EXPECT_THAT(run("preset write 5 again\n"), Not(HasSubstr("damaged")));
  std::filesystem::create_directory("full");
  writeWhole("full/store", damaged);
  const ProgramResult full = runProgram("trap '' XFSZ; ulimit -f 8; " PANEL " --store full/store");
  EXPECT_THAT(full.output, HasSubstr("full/store is damaged and cannot be kept aside: "));
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(readWhole("full/store"), damaged);
}

}  // namespace
