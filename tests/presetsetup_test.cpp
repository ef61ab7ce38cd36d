// Setups in the store: what was saved comes back behind a restart, and nothing else does.
#include <algorithm>
#include <vector>

#include "fatal.h"
#include "presets.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"
#include "presetwrap.h"
#include "simplevarmgr.h"
#include "store_rig.h"

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};

// A device with a level and a name, and its store.
class Setup : public testing::Test {
 protected:
  Setup() { initPresets(list); }

  void set(int l, const char* n) {
    level = l;
    std::snprintf(name, sizeof name, "%s", n);
    group.setRefresh();
  }
  std::string now() const { return std::to_string(level) + " " + name; }
  void restart() {
    rig.drain();
    rig.restart();
    set(1, "factory");
  }

  int level = 1;
  char name[9] = "";
  char working[9];
  unsigned char scratch[9];
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt levelVar{level, group, 1, PERCENT, RANGE_CLIP};
  ReadWriteVarMgrSimpleStr nameVar{
      group, name, working, sizeof working, ReadWriteVarMgrStr::BOUNDS_PRINTABLE, "factory"};
  PresetFieldVarInt levelField{levelVar};
  PresetFieldVarStr nameField{nameVar, scratch, sizeof scratch, PresetFieldVarStr::MODE_AUTO};
  verPresetField_t list[3] = {
      {0, PRESET_FIELD_VALID, &levelField}, {2, PRESET_FIELD_VALID, &nameField}, {0, 0, nullptr}};
  StoreRig rig;
};

TEST_F(Setup, SurvivesARestartUntilItIsRemoved) {
  set(50, "one");
  EXPECT_EQ(saveSetup(), 0);
  set(60, "two");
  EXPECT_EQ(saveUserSetup(0), 0);
  set(70, "three");
  // A save while the record is open elsewhere leaves two records of one setup.
  {
    EXPECT_EQ(saveUserSetup(5), 0);
    PresetMgr reader;
    ASSERT_EQ(reader.openFirst(6, PM_READ), ERR_OK);
    EXPECT_EQ(recallUserSetup(5), RECALL_OK) << "readers do not exclude each other";
    set(9, "again");
    EXPECT_EQ(saveUserSetup(5), 0);
    EXPECT_EQ(removeUserSetup(5), ERR_CANNOT_OPEN);
    EXPECT_EQ(saveUserSetup(5), 0);
  }
  PresetMgr writer;
  ASSERT_EQ(writer.openFirst(6, PM_WRITE), ERR_OK);
  EXPECT_EQ(recallUserSetup(5), RECALL_BUSY);
  writer.close();
  EXPECT_TRUE(userSetupExists(5));
  EXPECT_EQ(removeUserSetup(5), ERR_OK);
  EXPECT_EQ(removeUserSetup(5), ERR_NOT_FOUND);
  restart();
  EXPECT_FALSE(userSetupExists(5));
  EXPECT_EQ(recallUserSetup(5), RECALL_NOT_FOUND);
  EXPECT_EQ(now(), "1 factory");
  EXPECT_EQ(recallUserSetup(0), RECALL_OK);
  EXPECT_EQ(now(), "60 two");
  EXPECT_EQ(recallSetup(), RECALL_OK);
  EXPECT_EQ(now(), "50 one");
}

TEST_F(Setup, NumbersBeyondTheStoresTypesLandOnTheSetup) {
  for (const unsigned int which : {0x1FFFU, 0xFFFFFFFFU}) {
    set(static_cast<int>(which % 100), "alias");
    EXPECT_EQ(saveUserSetup(which), 0);
    set(0, "");
    EXPECT_EQ(recallSetup(), RECALL_OK);
    EXPECT_EQ(now(), std::to_string(which % 100) + " alias");
    EXPECT_FALSE(userSetupExists(which));
    EXPECT_EQ(removeUserSetup(which), ERR_NOT_FOUND);
  }
  // The listing leaves it out, is cut to its room, and counts all others.
  for (const unsigned int which : {0U, 7U, 3U, 250U, 0x1FFEU, 7U}) {
    EXPECT_EQ(saveUserSetup(which), 0);
  }
  EXPECT_EQ(listUserSetups(nullptr, 0), 5U);
  for (const unsigned int room : {2U, 6U}) {
    std::vector<unsigned int> expected = {0, 3, 7, 250, 0x1FFE, 9}, found(6, 9);
    std::fill(expected.begin() + std::min(room, 5U), expected.end(), 9);
    EXPECT_EQ(listUserSetups(found.data(), room), 5U);
    EXPECT_EQ(found, expected);
  }
}

TEST_F(Setup, ARecordOfAnOlderListLeavesOrInitsWhatCameLater) {
  set(33, "present");
  EXPECT_EQ(saveBUFPreset(1, 2, "\x02\x33"), 0);
  EXPECT_EQ(recallUserSetup(0), RECALL_TOO_SHORT);
  EXPECT_EQ(saveBUFPreset(1, 2, "\x01\x3F"), 0);
  EXPECT_EQ(recallUserSetup(0), RECALL_OK);
  EXPECT_EQ(now(), "31 present");
  EXPECT_EQ(recallUserSetup(0, RECALL_INIT_NEWER), RECALL_OK);
  EXPECT_EQ(now(), "31 factory");
}

TEST_F(Setup, LoadVerbsReadNoRecord) {
  set(20, "saved");
  EXPECT_EQ(saveSetup(), 0);
  const unsigned char value = 44;
  levelVar.set(&value, 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(loadSetup() + loadUserSetup(3), 0);
  EXPECT_EQ(now(), "44 saved") << "what the variables held takes effect";
  initPresets(list);
  char said[100];
  std::snprintf(said, sizeof said,
                "Loading setup presets\ninitPresets, list: 0x%04x\nPower-up preset version is 2\n",
                static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(list)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), said);
}

TEST_F(Setup, StoreFailuresAreTold) {
  unsigned char buf[16];
  EXPECT_EQ(storePreset(3, buf, 8, 1, list, false), -1) << "8 bytes are one too few";
  EXPECT_EQ(rig.read(3), "") << "the record that was opened for it is free again";
  EXPECT_EQ(storePreset(3, buf, 9, 1, list, true), 0);
  EXPECT_FALSE(rig.pass()) << "the flush has begun to write";
  EXPECT_EQ(storePreset(3, buf, 8, 1, list, false), -1);
  EXPECT_EQ(rig.read(3).size(), 9U) << "a failed save must not harm the saved one";

  const std::string big(8152, 'x');
  EXPECT_EQ(saveBUFPreset(10, 8152, big.data()), 0);
  EXPECT_EQ(saveBUFPreset(12, 100, big.data()), 1);
  EXPECT_EQ(saveUserSetup(7), 2);
  PresetMgr::format();
  for (unsigned short type = 0; type < NUM_PRESETS; ++type) {
    ASSERT_EQ(saveBUFPreset(static_cast<unsigned short>(type + 50), 1, "x"), 0);
  }
  EXPECT_EQ(saveUserSetup(7), 1);
  EXPECT_EQ(saveBUFPreset(7, 1, "x"), 1);
  char one[3] = "??";
  EXPECT_EQ(loadBUFPreset(7, 2, one), 1);
  EXPECT_EQ(loadBUFPreset(50, 2, one), 0);
  EXPECT_STREQ(one, "x?");
  PresetMgr reader;
  ASSERT_EQ(reader.openFirst(50, PM_READ), ERR_OK);
  EXPECT_EQ(loadBUFPreset(50, 2, one), 1) << "it takes write access";
}

using SetupDeathTest = Setup;

TEST_F(SetupDeathTest, AnImageThatIsTooLargeOrNoList) {
  PresetFieldFill fits(true, 1023 * 8);
  verPresetField_t large[] = {{0, PRESET_FIELD_VALID, &fits}, {0, 0, nullptr}};
  initPresets(large);
  EXPECT_EQ(saveSetup(), 0);
  EXPECT_EQ(recallSetup(), RECALL_OK);
  PresetFieldFill over(true, 1023 * 8 + 1);
  large[0].field = &over;
  EXPECT_FATAL(saveSetup(), "result != -1");
  EXPECT_FATAL(saveUserSetup(1), "result != -1");
  EXPECT_FATAL(listUserSetups(nullptr, 1), "which != nullptr || room == 0");
  EXPECT_FATAL(initPresets(static_cast<verPresetField_t*>(nullptr)), "list != nullptr");
}

}  // namespace
