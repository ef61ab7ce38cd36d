// The panel's board services, through the panel program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "component_writer.h"
#include "program.h"
#include "tempdir.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class PanelBoard : public testing::Test {
 protected:
  std::string panel(const std::string& command) {
    writeWhole("input", command + "\n");
    const ProgramResult result = runProgram(PANEL " < input");
    status = result.status;
    return result.output;
  }

  const TempDir dir;
  int status = -1;
};

TEST_F(PanelBoard, TheIdentityIsThatOfTheFileBesideTheSettings) {
  std::string said = panel("id");
  EXPECT_THAT(said, HasSubstr("| serial number  0000000000\n"));
  EXPECT_THAT(said, HasSubstr("| board          revision A, build 1 (default)\n"));
  EXPECT_THAT(said, HasSubstr("| There was no board.env here at the start"));
  writeWhole("board.env", "SN=0123456789\nBRDREV=C2\nBRDBLD=417\n");
  said = panel("id");
  EXPECT_THAT(said,
              HasSubstr("| serial number  0123456789\n| board          revision C2, build 417\n"));
  EXPECT_THAT(said, Not(HasSubstr("There was no")));
  EXPECT_EQ(status, 0);
}

TEST_F(PanelBoard, AComponentFileIsCheckedWithTheLibrarysMessages) {
  const std::string good = component::component({{"a", "odd"}, {"b", "data"}});
  writeWhole("good file", good);
  EXPECT_THAT(
      panel("component good file"),
      HasSubstr("| good file is valid: Mixer, boot, revision 3.200 (3.200 beta), 2 files\n"));
  EXPECT_EQ(status, 0);

  std::string bad = good;
  bad.back() ^= 1;
  writeWhole("bad", bad);
  std::filesystem::create_directory("dir");
  const struct {
    const char* path;
    const char* answer;
  } cases[] = {{"bad", "\nSubcomponent data 1 is invalid.\n| error: bad is not valid\n"},
               {"input", "\nComponent header is invalid.\n| error: input is not valid\n"},
               {"dir", "| error: dir is no file\n"},
               {"/dev/zero", "| error: /dev/zero is no file\n"},
               {"missing", "| error: missing: No such file or directory\n"},
               {"", "| error: component takes the path of a component file\n"}};
  for (const auto& each : cases) {
    EXPECT_THAT(panel(std::string("component ") + each.path), HasSubstr(each.answer));
    EXPECT_EQ(status, 1);
  }
}

}  // namespace
