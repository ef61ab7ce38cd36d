// The compfile program, run on files: what it writes, what it reports, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "component_writer.h"
#include "program.h"
#include "random.h"
#include "tempdir.h"

namespace {

namespace fs = std::filesystem;
using component::File;
using testing::HasSubstr;

class CompFile : public testing::Test {
 protected:
  // Runs the program; what it writes, messages included. `status` becomes its exit status.
  std::string run(const std::string& args) {
    const ProgramResult result = runProgram(COMPFILE " " + args);
    status = result.status;
    return result.output;
  }

  // A refusal that names the reason.
  void expectRefused(const std::string& args, const std::string& reason) {
    EXPECT_THAT(run(args), HasSubstr(reason)) << args;
    EXPECT_EQ(status, 2) << args;
  }

  void save(const std::string& name, const std::string& bytes) {
    if (fs::path(name).has_parent_path()) {
      fs::create_directories(fs::path(name).parent_path());
    }
    writeWhole(name, bytes);
  }

  unsigned int countBelow(const std::string& name) {
    unsigned int count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(name)) {
      count += entry.is_regular_file() ? 1 : 0;
    }
    return count;
  }

  const TempDir dir;
  int status = -1;
};

// The fields as the independent writer fills them.
const char FIELDS[] =
    " --product Mixer --component boot --location FP-2 --revision 3.200"
    " --revision-text '3.200 beta' --date '2004-02-29 12:00:00' --tag tag ";

const std::string LONGEST(51, 'n');

std::vector<File> someFiles() {
  Random random(1);
  std::vector<File> files{
      {"app/b.bin", ""}, {"app/main.bin", ""}, {"empty", ""}, {LONGEST, "x"}, {"odd", "123"}};
  for (int i = 0; i < 70; ++i) {
    files[0].data += static_cast<char>(random.word());
    files[1].data += static_cast<char>(random.word());
  }
  return files;
}

TEST_F(CompFile, WritesTheBytesThatAnIndependentWriterWritesAndGivesThemBack) {
  const std::vector<File> files = someFiles();
  std::string names;
  for (const File& file : files) {
    save("in/" + file.name, file.data);
    names += " " + file.name;
  }
  run(std::string("create") + FIELDS + "dir.cmp in");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(readWhole("dir.cmp"), component::component(files));
  run(std::string("create") + FIELDS + "--base in list.cmp ./" + names.substr(1));
  EXPECT_EQ(readWhole("list.cmp"), component::component(files));
  EXPECT_EQ(run("verify dir.cmp list.cmp"), "dir.cmp: valid\nlist.cmp: valid\n");

  run("extract dir.cmp --to out");
  EXPECT_EQ(status, 0);
  for (const File& file : files) {
    EXPECT_EQ(readWhole("out/" + file.name), file.data) << file.name;
  }
  run("extract dir.cmp odd --to one");
  EXPECT_EQ(readWhole("one/odd"), "123");
  EXPECT_EQ(countBelow("one"), 1U);

  const std::string listed = run("list dir.cmp");
  EXPECT_THAT(listed, HasSubstr("product    Mixer\ncomponent  boot\nlocation   FP-2\n"));
  EXPECT_THAT(listed, HasSubstr("revision   3.200 (3.200 beta)\ndate       2004-02-29 12:00:00\n"));
  EXPECT_THAT(listed, HasSubstr("         0  $ffff  ok       empty  [tag]\n"));
}

TEST_F(CompFile, ReportsEveryChangeOfOneByte) {
  const std::string good = component::component({{"a", "odd"}, {"b", "data"}});
  Random random(2);
  std::string names;
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ (1 + random.below(255)));
    save(std::to_string(at), bad);
    names += " " + std::to_string(at);
  }
  const std::string said = run("verify" + names);
  EXPECT_EQ(status, 1);
  for (std::size_t at = 0; at < good.size(); ++at) {
    EXPECT_THAT(said, HasSubstr("\n" + std::to_string(at) + ": not valid\n"));
  }
  EXPECT_THAT(said, HasSubstr("Component header is invalid.\n"));
  EXPECT_THAT(said, HasSubstr("Subcomponent header 1 is invalid.\n"));
  EXPECT_THAT(said, HasSubstr("Subcomponent data 1 is invalid.\n"));
}

TEST_F(CompFile, ADamagedFileIsListedAsFarAsItGoesAndNotExtracted) {
  const std::string good = component::component({{"a", "odd"}, {"b\n", "data"}});
  std::string bad = good;
  bad.back() ^= 1;
  const struct {
    std::string bytes;
    const char* listed;
  } cases[] = {{bad, "damaged  b\\x0A  [tag]\n"},
               {good.substr(0, good.size() - 1), "damaged  b\\x0A  [tag]\n"},
               {good.substr(0, 300), "Subcomponent header 1 is invalid.\n"},
               {good.substr(0, 100), "Component header is invalid.\n"},
               {good + "xy", "2 bytes stand behind the last file.\n"},
               {"", "Component header is invalid.\n"}};
  for (const auto& each : cases) {
    save("file", each.bytes);
    EXPECT_THAT(run("list file"), HasSubstr(each.listed));
    EXPECT_EQ(status, 1);
    run("verify file");
    EXPECT_EQ(status, 1);
    EXPECT_THAT(run("extract file a --to out"), HasSubstr("not valid, nothing is extracted\n"));
    EXPECT_EQ(status, 1);
    EXPECT_FALSE(fs::exists("out"));
  }
}

TEST_F(CompFile, CreateRefusesWhatDoesNotFitOrClimbs) {
  save("f", "data");
  save("in/" + LONGEST + "n", "too long");
  save(std::string("deep/") + std::string(26, 'd') + "/" + std::string(25, 'f'), "too long");
  fs::create_directories("none");
  save("linked/f", "data");
  fs::create_symlink("../f", "linked/link");
  const std::string create = std::string("create") + FIELDS + "out.cmp ";
  expectRefused(create + "in", "at most 51 characters");
  expectRefused(create + "deep", "at most 51 characters");
  expectRefused(create + "none", "there is no file");
  expectRefused(create + "linked", "is no plain file");
  expectRefused(create + "missing", "No such file");
  expectRefused(create + "f in", "is a directory");
  expectRefused(create + "f ./f", "is there twice");
  expectRefused(create + "../f", "climbs");
  expectRefused(create + "in/../f", "climbs");
  expectRefused(create + "/tmp/f", "is absolute");
  expectRefused("create out.cmp f", "required");
  const struct {
    const char* option;
    std::size_t most;
  } texts[] = {{"--product", 30},       {"--component", 30}, {"--location", 5},
               {"--revision-text", 10}, {"--date", 25},      {"--tag", 51}};
  for (const auto& each : texts) {
    std::string args = "create f.cmp f --revision 1.2";
    for (const char* const needed : {"--product", "--component"}) {
      args += needed != std::string(each.option) ? std::string(" ") + needed + " x" : "";
    }
    args += std::string(" ") + each.option + " ";
    expectRefused(args + std::string(each.most + 1, 'x'), std::to_string(each.most) + " fit");
    expectRefused(args + "$(printf 'a\\033b')", "cannot be printed");
    run(args + std::string(each.most, 'x'));
    EXPECT_EQ(status, 0) << args;
    EXPECT_EQ(std::remove("f.cmp"), 0);
  }
  for (const char* const revision : {"1", "256.1", "1.256", "1.2.3", "-1.2", "a.b", "1.", "''"}) {
    expectRefused(std::string("create f.cmp f --product x --component x --revision ") + revision,
                  "not MAJOR.MINOR");
  }
  for (int i = 0; i < 256; ++i) {
    save("many/" + std::to_string(i), "");
  }
  expectRefused(create + "many", "256 files, and 255 fit");
  fs::remove("many/0");
  run(create + "many");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(countBelow("none"), 0U);
}

TEST_F(CompFile, NothingIsOverwrittenUnlessToldTo) {
  save("in/f", "data");
  save("out.cmp", "precious");
  const std::string create = std::string("create") + FIELDS;
  expectRefused(create + "out.cmp in", "is there already");
  EXPECT_EQ(readWhole("out.cmp"), "precious");
  run(create + "--force out.cmp in");
  EXPECT_EQ(readWhole("out.cmp"), component::component({{"f", "data"}}));
  run(create + "in/own.cmp in");
  run(create + "--force in/own.cmp in");  // does not take itself in
  EXPECT_EQ(readWhole("in/own.cmp"), component::component({{"f", "data"}}));

  save("two.cmp", component::component({{"new", "n"}, {"f", "data"}}));
  save("to/f", "precious");
  expectRefused("extract two.cmp --to to", "is there already");
  EXPECT_EQ(readWhole("to/f"), "precious");
  EXPECT_FALSE(fs::exists("to/new"));  // all or nothing
  run("extract two.cmp --force --to to");
  EXPECT_EQ(readWhole("to/f"), "data");
  EXPECT_EQ(countBelow("to"), 2U);
  fs::create_directories("taken/f");
  expectRefused("extract two.cmp --force --to taken", "is no plain file");
}

TEST_F(CompFile, ExtractRefusesNamesThatClimbOrCollide) {
  fs::create_directories("to");
  fs::create_symlink("..", "to/link");
  const struct {
    std::vector<File> files;
    const char* reason;
  } cases[] = {{{{"../evil", "x"}}, "climbs"},
               {{{"a/../../evil", "x"}}, "climbs"},
               {{{"..", "x"}}, "climbs"},
               {{{"/tmp/evil", "x"}}, "is absolute"},
               {{{"good", "x"}, {"link/evil", "x"}}, "which is no directory"},
               {{{"a//evil", "x"}}, "is no plain path"},
               {{{"./evil", "x"}}, "is no plain path"},
               {{{"evil/", "x"}}, "is no plain path"},
               {{{"", "x"}}, "is empty"},
               {{{"e\x1B[2Jvil", "x"}}, "\\x1B"},
               {{{std::string(52, 'n'), "x"}}, "does not fit"},
               {{{"same", "x"}, {"same", "y"}}, "is there twice"},
               {{{"a/b", "x"}, {"a", "y"}}, "a file's and a directory's"}};
  for (const auto& each : cases) {
    save("bad.cmp", component::component(each.files));
    run("verify bad.cmp");
    EXPECT_EQ(status, 0);
    expectRefused("extract bad.cmp --force --to to", each.reason);
    EXPECT_EQ(countBelow("to"), 0U) << each.reason;
  }
  EXPECT_EQ(countBelow("."), 1U);  // the component file alone
  save("good.cmp", component::component({{"a", "x"}}));
  expectRefused("extract good.cmp b", "there is no file \"b\"");
  expectRefused("extract missing.cmp", "No such file");
}

TEST_F(CompFile, TheDateIsThatOfTheBuild) {
  save("in/f", "data");
  const std::string args = "create --product x --component x --revision 1.0 ";
  setenv("SOURCE_DATE_EPOCH", "1000000000", 1);
  run(args + "out.cmp in");
  EXPECT_THAT(run("list out.cmp"), HasSubstr("date       2001-09-09 01:46:40 UTC\n"));
  unsetenv("SOURCE_DATE_EPOCH");
  run(args + "now.cmp in");
  EXPECT_THAT(run("list now.cmp"), HasSubstr("date       20"));
}

}  // namespace
