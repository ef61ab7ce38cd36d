// The presetdump program, run on files: it judges as the store does, and no bytes upset it.
#include <filesystem>
#include <sstream>
#include <vector>

#include "fatal.h"
#include "program.h"
#include "random.h"
#include "store_rig.h"
#include "tempdir.h"

namespace {

using testing::HasSubstr;

class PresetDump : public testing::Test {
 protected:
  static void save(const NorArray& image, const std::string& name = "presets.flash") {
    writeWhole(name, {reinterpret_cast<const char*>(image.bytes), sizeof image.bytes});
  }

  static ProgramResult run(const std::string& args) { return runProgram(PRESETDUMP " " + args); }

  const TempDir dir;
};

// A live block 1 with one preset of type 5 in entry 2 and a removed one behind it.
const std::string EXAMPLE = "@8192 7FFE 0 live:5,2,ABC dead:7,0,XY";

TEST_F(PresetDump, ShowsBlocksRecordsAndRoom) {
  save(Image(EXAMPLE));
  EXPECT_EQ(run("presets.flash").output, R"(presets.flash

Block 0 at 0x0000: erased

Block 1 at 0x2000: live, block word 0x7FFE, version 1
  0x2004    live        id 2    type 5     size 3
            41 42 43                                         |ABC|
  0x200E    deleted     id 0    type 7     size 2
            58 59                                            |XY|
  0x2016    end of the log, 8170 bytes erased behind it

The store comes up with 1 preset, 3 payload bytes; written compactly they fill 14 of 8192 bytes.
A new preset has room for 8172 bytes.
Sound. Checked: block words, record headers, what stands behind the logs. Not checked: payloads, which carry no check sum.
)");

  EXPECT_EQ(run("presets.flash > /dev/full").status, 2);
  EXPECT_THAT(run("--map presets.flash").output,
              HasSubstr("\n0x1800  " + std::string(64, '.') + "\n0x2000  #....."));
}

// What the program says of an image, and its exit status under --check.
TEST_F(PresetDump, SaysInPlainWordsWhatIsWrong) {
  const std::string records = "live:5,2,ABC dead:7,0,XY ", abc = "@8192 7FFE 0 live:5,2,ABC ";
  std::string all;
  for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
    all += " live:7," + std::to_string(id) + ",x";
  }
  const struct {
    std::string image;
    int status;
    const char* says;
  } CASES[] = {
      {abc + "open:7,0,XY", 0, "at 0x200E was started and never confirmed; block 1 counts"},
      {abc + "live:5,2,XY", 0, "superseded and not marked deleted: 1; the"},
      {"@8192 7FFE 1 " + records, 1, "block 1 has version word 0x0001"},
      {"@8192 6FFE 0 " + records, 0, "block 1 has been invalidated and not yet erased"},
      {"@8192 1234", 1, "block 1 starts with 0x1234, which is no block word"},
      {EXAMPLE + " @0 7FFE 0 0 0 1", 0, "block 0 is valid as well"},
      {"@8192 7FFE 0 4005 2 3", 1, "corrupt at 0x2004: its head word"},
      {"@8192 7FFE 0 live:5,300,ABC", 1, "corrupt at 0x2004: its id is 300 or more"},
      {abc + "7 0 2328", 1, "corrupt at 0x200E: its payload runs past the end"},
      {EXAMPLE + " @8272 0", 1, "behind the log of block 1 is not erased at 0x2050"},
      {EXAMPLE + " @16382 0", 1, "the last word of block 1 is not erased"},
      {"@8192 7FFE 0 live:5,2,*8182", 0, "A new preset has room for 0 bytes.\n"},
      {"@8192 7FFE 0" + all, 0, "A new preset has room for 0 bytes.\n"},
      {"@8192 7FFF live0:5,2,ABC", 0, "block 1 is of version 0; the store rewrites it"},
  };
  for (const auto& c : CASES) {
    save(Image(c.image));
    const ProgramResult dump = run("--check --map presets.flash");
    EXPECT_THAT(dump.output, HasSubstr(c.says));
    EXPECT_THAT(dump.output, HasSubstr(c.status == 0 ? "\nSound. Checked:" : "\nDamaged. Checked:"))
        << c.says;
    EXPECT_EQ(dump.status, c.status) << c.says;
  }
  for (const std::string args : {".", "none", "--no-such-option", ""}) {
    EXPECT_EQ(run(args).status, 2) << args;
  }
  writeWhole("odd", std::string(16385, '\xFF'));
  EXPECT_THAT(run("presets.flash odd").output, HasSubstr("a store file has 16384"));
}

// Stores cut off anywhere, some with bytes mutated, and plain noise: on each of them the program
// runs through in every mode and finds what the store then comes up with.
TEST_F(PresetDump, JudgesAsTheStoreDoesOnAnyBytes) {
  constexpr unsigned int FILES = 240;
  StoreRig rig;
  Random random(5);
  std::string args;
  std::vector<std::string> expected;
  NorArray image;
  for (unsigned int i = 0; i < FILES; ++i) {
    rig.restartOn(i % 8 == 0 ? NorArray() : image);
    rig.part.cutAt(1 + random.below(3000),
                   random.oneIn(2) ? PfSimMedium::CUT_AFTER : PfSimMedium::CUT_INSIDE, i);
    while (rig.part.powered()) {
      const char fill = static_cast<char>(random.word());
      rig.write(static_cast<unsigned short>(random.below(12)),
                std::string(1 + random.below(200), fill));
      rig.remove(static_cast<unsigned short>(random.below(36)));
      for (unsigned int passes = random.below(300); passes > 0 && rig.part.powered(); --passes) {
        rig.pass();
      }
    }
    image = rig.part.array();
    NorArray shown = image;
    for (unsigned int n = i % 4; n > 0; --n) {
      const unsigned int at = random.below(random.oneIn(2) ? 32 : FLASH_PARM_BLK_SIZE);
      shown.bytes[at + random.below(2) * FLASH_PARM_BLK_SIZE] =
          static_cast<unsigned char>(random.word());
    }
    for (unsigned int at = random.below(12); i % 24 == 23 && at < sizeof shown.bytes; ++at) {
      shown.bytes[at] = static_cast<unsigned char>(random.word() & (i % 48 == 23 ? 0xFF : 0x21));
    }
    rig.restartOn(shown);
    std::size_t payload = 0;
    for (const auto& [id, preset] : rig.content()) {
      payload += preset.bytes.size();
    }
    const std::size_t presets = rig.content().size();
    expected.push_back(std::to_string(presets) + (presets == 1 ? " preset, " : " presets, ") +
                       std::to_string(payload) + " payload bytes");
    save(shown, std::to_string(i));
    args += " " + std::to_string(i);
  }
  for (const std::string mode : {"", "--map", "--check"}) {
    const ProgramResult dump = run(mode + args);
    std::istringstream out(dump.output);
    ASSERT_EQ(dump.status, mode == "--check" ? 1 : 0);
    unsigned int i = 0;
    for (std::string line; std::getline(out, line);) {
      if (line.rfind("The store comes up with ", 0) == 0) {
        ASSERT_THAT(line, HasSubstr("with " + expected[i] + ";")) << "file " << i;
        ++i;
      }
    }
    EXPECT_EQ(i, FILES);
  }
}

}  // namespace
