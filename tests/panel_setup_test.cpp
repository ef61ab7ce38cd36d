// The panel's setups, through the panel program: they survive its end, and so does the setup of a
// panel whose field list was older.
#include <cstring>
#include <string>

#include "fatal.h"
#include "pfmedium_file.h"
#include "presetmgr.h"
#include "presets.h"
#include "presetvarmgr.h"
#include "program.h"
#include "simplevarmgr.h"
#include "tempdir.h"

namespace {

using testing::HasSubstr;

class PanelSetup : public testing::Test {
 protected:
  // Runs the panel on the lines of `input` to its end; what it printed. Sets `status`.
  std::string panel(const std::string& input) {
    writeWhole("input", input);
    const ProgramResult result = runProgram(PANEL " < input");
    status = result.status;
    return result.output;
  }

  TempDir dir;
  int status = 0;
};

TEST_F(PanelSetup, SurvivesTheEndOfThePanel) {
  panel(
      "set gain 2 1 -6\nset mute 3 on\nset input 0 8\nset name Hall\nconfirm\nsetup save\n"
      "set gain 2 1 -100\nset name Studio\nconfirm\nsetup save 4\nset gain 2 1 12\nconfirm\n");
  EXPECT_EQ(status, 0);
  std::string out =
      panel("setup list\nsetup recall\nget gain 2 1\nget mute 3\nget input 0\nget name\n");
  EXPECT_THAT(out, HasSubstr("the setup is saved; 1 user setup\n|   user setup 4\n"));
  EXPECT_THAT(out,
              HasSubstr("gain[2][1] = -6 dB\n| mute[3] = on\n| input[0] = 8\n| name = \"Hall\""));
  out = panel("setup recall 4\nget gain 2 1\nget name\nsetup remove 4\nsetup list\n");
  EXPECT_THAT(out, HasSubstr("gain[2][1] = -100 dB\n| name = \"Studio\"\n"));
  EXPECT_THAT(out, HasSubstr("the setup is saved; 0 user setups\n"));
  EXPECT_EQ(status, 0);
  EXPECT_THAT(panel("setup recall 4\n"), HasSubstr("user setup 4: nothing is saved there; no"));
  EXPECT_EQ(status, 1);
}

// What the panel's list was before the contrast left it and the name came in.
TEST_F(PanelSetup, RecallsASetupOfTheListBefore) {
  {
    const bounds_t decibel[] = {{-100, -100}, {-60, 12}, BOUNDS_END};
    const bounds_t inputs[] = {{1, 8}, BOUNDS_END};
    const bounds_t levels[] = {{0, 10}, BOUNDS_END};
    int gain = -33, mute = 1, input = 7, contrast = 9;
    RefreshMgr group;
    ReadWriteVarMgrSimpleInt gainVar(gain, group, 0, decibel, RANGE_CLIP);
    ReadWriteVarMgrSimpleBool muteVar(mute, group, ReadWriteVarMgrBool::OFF, RANGE_CLIP);
    ReadWriteVarMgrSimpleInt inputVar(input, group, 1, inputs, RANGE_CLIP);
    ReadWriteVarMgrSimpleInt contrastVar(contrast, group, 5, levels, RANGE_CLIP);
    PresetFieldVarInt g(gainVar), m(muteVar), i(inputVar), c(contrastVar);
    constexpr unsigned long now = PRESET_FIELD_VALID;
    // All four channels have the same values.
    verPresetField_t before[] = {
        {0, now, &g}, {0, now, &g}, {0, now, &g}, {0, now, &m},   {0, now, &i}, {0, now, &g},
        {0, now, &g}, {0, now, &g}, {0, now, &m}, {0, now, &i},   {0, now, &g}, {0, now, &g},
        {0, now, &g}, {0, now, &m}, {0, now, &i}, {0, now, &g},   {0, now, &g}, {0, now, &g},
        {0, now, &m}, {0, now, &i}, {0, now, &c}, {0, 0, nullptr}};
    PfFileMedium file;
    ASSERT_TRUE(file.open("presets.flash", false)) << file.error();
    pfUseMedium(&file);
    initPresets(before);
    ASSERT_EQ(saveUserSetup(3), 0);
    while (PresetMgr::flush() != 0) {
    }
    pfUseMedium(nullptr);
  }
  const std::string all = "\nget gain 0\nget gain 3 2\nget mute 2\nget input 3\nget name\n";
  const char* const values =
      "gain[0][0] = -33 dB\n| gain[0][1] = -33 dB\n| gain[0][2] = -33 dB\n| gain[3][2] = -33 dB\n"
      "| mute[2] = on\n| input[3] = 7\n| name = ";
  std::string out = panel("set name Hall\nconfirm\nsetup recall 3" + all);
  EXPECT_THAT(out, HasSubstr(values + std::string("\"Hall\"\n"))) << "a younger setting stays";
  out = panel("set name Hall\nconfirm\nsetup recall 3 init" + all + "setup save 3\n");
  EXPECT_THAT(out, HasSubstr(values + std::string("\"Unit 1\"\n")));
  out = panel("set name Hall\nconfirm\nsetup recall 3" + all);
  EXPECT_THAT(out, HasSubstr(values + std::string("\"Unit 1\"\n"))) << "saved by the list of now";
}

TEST_F(PanelSetup, RefusesWithAReason) {
  const struct {
    const char* input;
    const char* reason;
  } CASES[] = {
      {"setup save 8191", "a user setup has a number from 0 to 8190"},
      {"setup save 1x", "a user setup has a number from 0 to 8190"},
      {"setup save two", "what is two?"},
      {"setup recall 1 2", "what is 2?"},
      {"setup list 1", "what is 1?"},
      {"setup remove", "which user setup?"},
      {"setup remove 7", "user setup 7: nothing is saved there"},
      {"setup what", "no command \"setup what\""},
      {"set gain 0 0 -6\nsetup save", "confirm first: 1 set, not in effect"},
      {"set gain 0 0 -6\nsetup recall", "confirm first: 1 set, not in effect"},
      {"preset write 8 no image at all\nsetup recall 7",
       "user setup 7: the image is of a newer version; no"},
  };
  for (const auto& c : CASES) {
    EXPECT_THAT(panel(std::string(c.input) + "\n"), HasSubstr(c.reason));
    EXPECT_EQ(status, 1) << c.reason;
  }
}

}  // namespace
