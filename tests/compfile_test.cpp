// The compfile program, run on files: what it writes, what it reports, and what it refuses.
#include <gmock/gmock.h>

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
  // Runs the program and expects its exit status; what it writes, messages included.
  std::string run(int status, const std::string& args) {
    const ProgramResult result = runProgram(program + " " + args);
    EXPECT_EQ(result.status, status) << args;
    return result.output;
  }

  // A refusal that names the reason.
  void expectRefused(const std::string& args, const std::string& reason) {
    EXPECT_THAT(run(2, args), HasSubstr(reason)) << args;
  }

  void save(const std::string& name, const std::string& bytes) {
    fs::create_directories(fs::absolute(name).parent_path());
    writeWhole(name, bytes);
  }

  long countBelow(const std::string& name) {
    const fs::recursive_directory_iterator all(name);
    return std::count_if(begin(all), end(all), [](auto& e) { return e.is_regular_file(); });
  }

  std::string program = COMPFILE;
  const TempDir dir;
};

// The fields as the independent writer fills them.
const std::string CREATE =
    "create --product Mixer --component boot --location FP-2 --revision 3.200"
    " --revision-text '3.200 beta' --date '2004-02-29 12:00:00' --tag tag ";

TEST_F(CompFile, WritesTheBytesThatAnIndependentWriterWritesAndGivesThemBack) {
  const std::vector<File> files{{"app/main.bin", {"\r\n\0\xFF\x1A", 5}},
                                {"empty", ""},
                                {std::string(51, 'n'), "x"},
                                {"odd", "123"}};
  std::string names;
  for (const File& file : files) {
    save("in/" + file.name, file.data);
    names += " " + file.name;
  }
  // What one build writes, another reads: the host's, for the tests of a cross build, or this one.
  const std::string builds[] = {PEER_BIN "/compfile", COMPFILE};
  for (const unsigned int writer : {0U, 1U}) {
    program = builds[writer];
    run(0, CREATE + "--force dir.cmp in");
    EXPECT_EQ(readWhole("dir.cmp"), component::component(files));
    program = builds[1 - writer];
    run(0, "verify dir.cmp");
    fs::remove_all("out");
    run(0, "extract dir.cmp --to out");
    for (const File& file : files) {
      EXPECT_EQ(readWhole("out/" + file.name), file.data) << file.name;
    }
  }
  run(0, CREATE + "--base in list.cmp ./" + names.substr(1));
  EXPECT_EQ(readWhole("list.cmp"), component::component(files));
  EXPECT_EQ(run(0, "verify dir.cmp list.cmp"), "dir.cmp: valid\nlist.cmp: valid\n");
  run(0, "extract dir.cmp odd --to one");
  EXPECT_EQ(countBelow("one"), 1);
  const std::string listed = run(0, "list dir.cmp");
  EXPECT_THAT(listed, HasSubstr("product    Mixer\ncomponent  boot\nlocation   FP-2\n"
                                "revision   3.200 (3.200 beta)\ndate       2004-02-29 12:00:00\n"));
  EXPECT_THAT(listed, HasSubstr("         0  $ffff  ok       empty  [tag]\n"));
  // One that cannot be read does not keep the others from being checked.
  EXPECT_THAT(run(2, "verify absent in list.cmp"),
              AllOf(HasSubstr("absent: No such file"), HasSubstr("list.cmp: valid\n")));
}

TEST_F(CompFile, ADamagedFileIsListedAsFarAsItGoesAndNotExtracted) {
  const std::string good = component::component({{"a", "odd"}, {"b\n", "data"}});
  std::string bad = good;
  bad.back() ^= 1;
  const std::pair<std::string, const char*> cases[] = {
      {bad, "damaged  b\\x0A  [tag]\n"},
      {good.substr(0, 300), "Subcomponent header 1 is invalid.\n"},
      {good + "xy", "2 bytes stand behind the last file.\n"}};
  save("good", good);
  for (const auto& [bytes, listed] : cases) {
    save("file", bytes);
    EXPECT_THAT(run(1, "list file"), HasSubstr(listed));
    EXPECT_THAT(run(1, "verify file good"), HasSubstr("file: not valid\ngood: valid\n"));
    EXPECT_THAT(run(1, "extract file a --to out"), HasSubstr("not valid, nothing is extracted\n"));
    EXPECT_FALSE(fs::exists("out"));
  }
}

TEST_F(CompFile, CreateRefusesWhatDoesNotFitOrClimbs) {
  save("f", "data");
  save("in/" + std::string(26, 'd') + "/" + std::string(25, 'f'), "too long");
  fs::create_directories("none");
  fs::create_directories("linked");
  fs::create_symlink("../f", "linked/link");
  for (int i = 0; i < 256; ++i) {
    save("many/" + std::to_string(i), "");
  }
  const std::pair<const char*, const char*> cases[] = {{"in", "at most 51 characters"},
                                                       {"none", "there is no file"},
                                                       {"linked", "is no plain file"},
                                                       {"missing", "No such file"},
                                                       {"f in", "is a directory"},
                                                       {"f ./f", "is there twice"},
                                                       {"in/../f", "climbs"},
                                                       {"/tmp/f", "is absolute"},
                                                       {"many", "256 files, and 255 fit"}};
  for (const auto& [files, reason] : cases) {
    expectRefused(CREATE + "out.cmp " + files, reason);
  }
  fs::remove("many/0");
  run(0, CREATE + "out.cmp many");
  const std::pair<std::string, std::size_t> texts[] = {{"--product", 30}, {"--component", 30},
                                                       {"--location", 5}, {"--revision-text", 10},
                                                       {"--date", 25},    {"--tag", 51}};
  for (const auto& [option, most] : texts) {
    std::string args = "create --force f.cmp f --revision 1.2";
    for (const auto& other : texts) {
      args += other.first == option ? "" : " " + other.first + " x";
    }
    args += " " + option + " ";
    expectRefused(args + std::string(most + 1, 'x'), std::to_string(most) + " fit");
    expectRefused(args + "$(printf 'a\\033b')", "cannot be printed");
    run(0, args + std::string(most, 'x'));
  }
  // Names of any bytes are shown without what acts on a terminal.
  save("evil/\x1B\n\x9B", "x");
  expectRefused(CREATE + "new.cmp evil", "the name \"\\x1B\\x0A\\x9B\" has a character");
  EXPECT_THAT(run(1, "verify evil/*"), HasSubstr("evil/\\x1B\\x0A\\x9B: not valid\n"));
  expectRefused("create new.cmp f", "required");
  for (const std::string revision : {"1", "256.1", "1.256", "1.2.3", "-1.2", "a.b", "1.", "''"}) {
    expectRefused("create new.cmp f --product x --component x --revision " + revision,
                  "not MAJOR.MINOR");
  }
  EXPECT_FALSE(fs::exists("new.cmp"));
}

TEST_F(CompFile, NothingIsOverwrittenUnlessToldTo) {
  save("in/f", "data");
  save("in/own.cmp", "precious");
  expectRefused(CREATE + "in/own.cmp in", "is there already");
  EXPECT_EQ(readWhole("in/own.cmp"), "precious");
  run(0, CREATE + "--force in/own.cmp in");  // does not take itself in
  EXPECT_EQ(readWhole("in/own.cmp"), component::component({{"f", "data"}}));
  const std::vector<File> members{
      {"f.tmp-1", "1"}, {"f.new", "n"}, {"f", "data"}, {"f.tmp", "t"}, {"f.tmp-2", "2"}};
  save("two.cmp", component::component(members));
  save("to/real", "precious");
  fs::permissions("to/real", fs::perms{0640});
  fs::create_symlink("real", "to/f");
  expectRefused("extract two.cmp --to to", "is there already");
  EXPECT_EQ(readWhole("to/f"), "precious");
  EXPECT_EQ(countBelow("to"), 2);  // the file and the link to it: all or nothing
  for (const int round : {1, 2}) {
    run(0, "extract two.cmp --force --to to");
    for (const File& member : members) {
      EXPECT_EQ(readWhole("to/" + member.name), member.data) << round;
    }
    EXPECT_EQ(countBelow("to"), 6) << "the file behind the link is replaced";
  }
  EXPECT_EQ(fs::status("to/real").permissions(), fs::perms{0640});
  fs::create_directories("taken/f");
  expectRefused("extract two.cmp --force --to taken", "is no plain file");
}

TEST_F(CompFile, ExtractRefusesNamesThatClimbOrCollide) {
  fs::create_directories("to");
  fs::create_symlink("..", "to/link");
  const std::pair<std::vector<File>, const char*> cases[] = {
      {{{"a/../../evil", "x"}}, "climbs"},
      {{{"/tmp/evil", "x"}}, "is absolute"},
      {{{"good", "x"}, {"link/evil", "x"}}, "which is no directory"},
      {{{"a//evil", "x"}}, "is no plain path"},
      {{{"", "x"}}, "is empty"},
      {{{"e\x1B[2Jvil", "x"}}, "\\x1B"},
      {{{std::string(52, 'n'), "x"}}, "does not fit"},
      {{{"same", "x"}, {"same", "y"}}, "is there twice"},
      {{{"a/b", "x"}, {"a", "y"}}, "a file's and a directory's"}};
  for (const auto& [files, reason] : cases) {
    save("bad.cmp", component::component(files));
    expectRefused("extract bad.cmp --force --to to", reason);
    EXPECT_EQ(countBelow("."), 1) << reason;  // the component file alone
  }
  expectRefused("extract bad.cmp c --to to", "there is no file \"c\"");
  expectRefused("extract missing.cmp", "No such file");
}

TEST_F(CompFile, TheDateIsThatOfTheBuild) {
  save("f", "data");
  const std::string create = "create --product x --component x --revision 1.0 out.cmp f";
  for (const char* const bad : {"", "abc", "1e9", "12 ", "99999999999999999999"}) {
    setenv("SOURCE_DATE_EPOCH", bad, 1);
    expectRefused(create, "SOURCE_DATE_EPOCH");
  }
  setenv("SOURCE_DATE_EPOCH", "1000000000", 1);
  run(0, create);
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_THAT(run(0, "list out.cmp"), HasSubstr("date       2001-09-09 01:46:40 UTC\n"));
}

TEST_F(CompFile, OutputThatIsLostIsAFailureWhateverTheCommand) {
  save("f", "data");
  run(0, CREATE + "f.cmp f");
  for (const std::string args : {"list f.cmp", "verify f.cmp", "extract f.cmp --to out", "--help",
                                 "create --product x --component x --revision 1.0 out.cmp f"}) {
    expectRefused(args + " > /dev/full", "cannot write the output");
  }
}

}  // namespace
