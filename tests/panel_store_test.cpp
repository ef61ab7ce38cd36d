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

TEST_F(PanelStore, SetupsSurviveTheEndOfThePanel) {
  run("set gain 2 1 -6\nset mute 3 on\nset input 0 8\nset name Hall\nconfirm\nsetup save\n"
      "set gain 2 1 -100\nset name Studio\nconfirm\nsetup save 4\nset gain 2 1 12\nconfirm\n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(run("setup list\nsetup recall\nget gain[2][1] mute[3] input[0] name\n"),
              AllOf(HasSubstr("the setup is saved; 1 user setup\n|   user setup 4\n"),
                    HasSubstr("| gain[2][1] = -6 dB\n| mute[3] = on\n| input[0] = 8\n"
                              "| name = \"Hall\"\n")));
  EXPECT_THAT(run("setup recall 4\nget gain[2][1] name\nsetup remove 4\nsetup list\n"),
              AllOf(HasSubstr("gain[2][1] = -100 dB\n| name = \"Studio\"\n"),
                    HasSubstr("the setup is saved; 0 user setups\n")));
  EXPECT_EQ(status, 0);
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
