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
  killed.type("preset remove 5\npreset write 8191 third\npreset flush\npreset write 6 lost\n");
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
    EXPECT_THAT(
        run("setup list\nsetup recall\nget name gain[3][2] gain[0][0] mute[1] input[2]\n"),
        AllOf(HasSubstr("the setup is saved; 3 user setups\n|   user setup 4\n|   user setup 6\n"),
              HasSubstr("| name = \"<Main> & \"rest\"\"\n| gain[3][2] = -60 dB\n"
                        "| gain[0][0] = -100 dB\n| mute[1] = on\n| input[2] = 8\n")));
    EXPECT_THAT(run("setup recall 6\nget gain[3][2] name\nsetup remove 6\nsetup list\n"),
                AllOf(HasSubstr("gain[3][2] = 12 dB\n| name = \"Left\"\n"),
                      HasSubstr("the setup is saved; 2 user setups\n")));
    // The same settings make the same file, whoever writes it.
    std::filesystem::remove("presets.xml");
    run(write);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readWhole("presets.xml"), xml);
  }
}

// A setup of the panel whose field list had a contrast and no name yet. In each channel the gains
// are -33 dB, packed as 28 in 7 bits, it is muted, 1, and has input 7, packed as 6 in 3 bits.
TEST_F(PanelStore, RecallsASetupOfTheListBefore) {
  const unsigned char image[] = {0x00, 0x38, 0x70, 0xE7, 0x1C, 0x38, 0x73,
                                 0x8E, 0x1C, 0x39, 0xC7, 0x0E, 0x1C, 0xE9};
  PfFileMedium file;
  ASSERT_TRUE(file.open("presets.flash", false)) << file.error();
  pfUseMedium(&file);
  saveBUFPreset(4, sizeof image, image);
  while (PresetMgr::flush() != 0) {
  }
  pfUseMedium(nullptr);
  file.close();

  const std::string all = "\nget gain[0] gain[3][2] mute[2] input[3] name\n";
  const std::string values =
      "gain[0][0] = -33 dB\n| gain[0][1] = -33 dB\n| gain[0][2] = -33 dB\n| gain[3][2] = -33 dB\n"
      "| mute[2] = on\n| input[3] = 7\n| name = ";
  const std::string named = "set name Hall\nconfirm\nsetup recall 3";
  EXPECT_THAT(run(named + all), HasSubstr(values + "\"Hall\"\n")) << "a younger setting stays";
  EXPECT_THAT(run(named + " init" + all), HasSubstr(values + "\"Unit 1\"\n"));
}

}  // namespace
