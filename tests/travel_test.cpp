// Files travel: what the programs of one build write, those of another build read. The other build
// is the host's, for the tests of a cross build; otherwise this one.
#include <gmock/gmock.h>

#include "program.h"
#include "random.h"
#include "tempdir.h"

namespace {

using testing::HasSubstr;

struct Programs {
  std::string panel, compfile;
};

const Programs HERE{PANEL, COMPFILE};
const Programs THERE{PEER_BIN "/panel", PEER_BIN "/compfile"};

class Travel : public testing::TestWithParam<bool> {
 protected:
  static std::string run(const std::string& command) {
    const ProgramResult result = runProgram(command);
    EXPECT_EQ(result.status, 0) << command << '\n' << result.output;
    return result.output;
  }

  const Programs& writer = GetParam() ? HERE : THERE;
  const Programs& reader = GetParam() ? THERE : HERE;
  const TempDir dir;
};

TEST_P(Travel, SettingsSetupAndPresetsInADeviceDirectory) {
  writeWhole("write",
             "set name <Main> & \"rest\"\nset gain 3 2 -60\nset gain 0 0 -100\nset mute 1 on\n"
             "set input 2 8\nset limit 31\nconfirm\nsetup save\n"
             "set name Left\nset gain 3 2 12\nset mute 1 off\nconfirm\n"
             "preset write 5 forty two\npreset write 250 last\npreset flush\n");
  writeWhole("read",
             "get name\nget gain\nget limit\npreset read 5\npreset read 250\nsetup recall\n"
             "get name\nget gain\nget mute\nget input\n");
  run(writer.panel + " < write");
  const std::string xml = readWhole("presets.xml");
  const std::string there = run(reader.panel + " < read");
  const std::string settings = there.substr(0, there.find("the setup"));
  const std::string setup = there.substr(settings.size());
  for (const char* line : {"name = \"Left\"", "gain[3][2] = 12 dB", "gain[0][0] = -100 dB",
                           "limit = 31 C", "forty two", "last"}) {
    EXPECT_THAT(settings, HasSubstr(line));
  }
  for (const char* line : {"name = \"<Main> & \"rest\"\"", "gain[3][2] = -60 dB", "mute[1] = on",
                           "gain[0][0] = -100 dB", "input[2] = 8"}) {
    EXPECT_THAT(setup, HasSubstr(line));
  }

  // The same settings make the same file, whoever writes it.
  std::filesystem::remove("presets.xml");
  run(reader.panel + " < write");
  EXPECT_EQ(readWhole("presets.xml"), xml);
}

TEST_P(Travel, ComponentFiles) {
  Random random(1);
  std::string data(5001, '\0');  // an odd size
  for (char& c : data) {
    c = static_cast<char>(random.word());
  }
  writeWhole("main.bin", data);
  const std::string create =
      " create --product Mixer --component app --revision 3.200 --date today out.comp main.bin";
  run(writer.compfile + create);
  const std::string file = readWhole("out.comp");
  run(reader.compfile + " verify out.comp");
  run(reader.compfile + " extract out.comp --to copy");
  EXPECT_EQ(readWhole("copy/main.bin"), data);
  std::filesystem::remove("out.comp");
  run(reader.compfile + create);
  EXPECT_EQ(readWhole("out.comp"), file);
}

INSTANTIATE_TEST_SUITE_P(Files, Travel, testing::Bool(),
                         [](const auto& of) { return of.param ? "OfThisBuild" : "OfTheOther"; });

}  // namespace
