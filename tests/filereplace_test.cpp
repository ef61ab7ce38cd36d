// Replacing a file: complete at every moment, whichever operation fails.
#include "filereplace.h"

#include <persist.h>
#include <sys/stat.h>

#include "fatal.h"
#include "iofault.h"
#include "tempdir.h"

namespace {

namespace fs = std::filesystem;

class FileReplaceTest : public testing::Test {
 protected:
  void replace(const char* name, const std::string& content) {
    FileReplacement file(name);
    writeWhole(file.temporary(), content);
    file.commit();
  }

  TempDir dir;
};

TEST_F(FileReplaceTest, ReplacesOnlyWhatIsOnTheDiskAndKeepsTheMode) {
  mkfifo("f.tmp", 0600);  // what a killed replacement left, at its worst
  replace("f", "one");
  chmod("f", 0640);
  FileReplacement file("f");
  EXPECT_EQ(fs::status("f.tmp").permissions(), fs::perms{0600});
  writeWhole(file.temporary(), "two");
  EXPECT_EQ(readWhole("f"), "one");
  std::string operations;
  iofault::trace = &operations;
  file.commit();
  iofault::trace = nullptr;
  EXPECT_EQ(operations, "open fchmod fsync rename open fsync ");
  EXPECT_EQ(readWhole("f"), "two");
  EXPECT_EQ(fs::status("f").permissions(), fs::perms{0640});
  EXPECT_FATAL(file.commit(), "!renamed");
  // In a directory that cannot be opened for reading, and on a file system that cannot flush one.
  for (const auto& [operation, error] : {std::pair(5, EACCES), std::pair(6, EINVAL)}) {
    FileReplacement again("f");
    writeWhole(again.temporary(), "three");
    iofault::error = error;
    iofault::failFrom(operation, false);
    again.commit();
    EXPECT_FALSE(iofault::faultsLeft());
    iofault::heal();
  }
}

TEST_F(FileReplaceTest, WithAClosedStreamHoldsNothingThatIsPrinted) {
  const auto replaceAndPrint = [] {
    close(STDOUT_FILENO);
    FileReplacement file("f");
    std::ofstream content(file.temporary());
    content << "content" << std::flush;
    std::puts("printed");
    std::fflush(stdout);
    file.commit();
    _exit(readWhole("f") == "content" ? 0 : 1);
  };
  EXPECT_EXIT(replaceAndPrint(), testing::ExitedWithCode(0), "");
}

TEST_F(FileReplaceTest, ALinkStaysALinkToTheFileThatIsReplaced) {
  fs::create_directory("disk");
  fs::create_symlink("second", "disk/first");
  fs::create_symlink("real", "disk/second");
  fs::create_symlink(fs::absolute("disk/first"), "link");
  for (const std::string content : {"a file still to come", "a new file"}) {
    replace("link", content);
    EXPECT_EQ(readWhole("disk/real"), content);
  }
  EXPECT_EQ(keepAside("link"), fs::absolute("disk/real.damaged-1"));
  EXPECT_TRUE(fs::is_symlink("link"));
  fs::create_symlink("loop", "loop");
  EXPECT_THROW(replace("loop", ""), eternity::exception);
}

TEST_F(FileReplaceTest, OnlyARegularFileIsReplacedOrMoved) {
  fs::create_symlink("/dev/null", "device");
  for (const char* name : {".", "device"}) {
    EXPECT_THROW(FileReplacement file(name), eternity::exception) << name;
    EXPECT_EQ(keepAside(name), "") << name;
  }
  EXPECT_EQ(keepAside("absent"), "");
  EXPECT_THROW(keepAside(std::string(300, 'x')), eternity::exception) << "no name to look at";
  EXPECT_THROW(replace("absent/f", ""), eternity::exception);
}

TEST_F(FileReplaceTest, KeepsTheEarliestDamagedFiles) {
  for (int i = 1; i <= 11; ++i) {
    writeWhole("f", std::to_string(i));
    const std::string kept = "f.damaged-" + std::to_string(std::min(i, 9));
    EXPECT_EQ(keepAside("f"), kept);
    EXPECT_EQ(readWhole(kept), std::to_string(i));
  }
  EXPECT_EQ(readWhole("f.damaged-8"), "8");
  EXPECT_FALSE(fs::exists("f"));
  writeWhole("f", "12");
  iofault::failFrom(1, true);
  EXPECT_THROW(keepAside("f"), eternity::exception);
  iofault::heal();
  EXPECT_EQ(readWhole("f"), "12");
}

}  // namespace
