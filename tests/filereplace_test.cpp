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
  void replace(const char* name, const std::string& content, bool alone = false) {
    FileReplacement file(name, alone);
    writeWhole(file.temporary(), content);
    file.commit();
  }

  TempDir dir;
};

TEST_F(FileReplaceTest, ReplacesOnlyWhatIsOnTheDiskAndKeepsTheMode) {
  mkfifo("f.tmp", 0600);  // what a killed replacement left, at its worst
  replace("f", "one", true);
  chmod("f", 0606);
  FileReplacement file("f", true);
  EXPECT_EQ(fs::status("f.tmp").permissions(), fs::perms{0604}) << "the umask has taken its part";
  writeWhole(file.temporary(), "two");
  EXPECT_EQ(readWhole("f"), "one");
  std::string operations;
  iofault::trace = &operations;
  file.commit();
  iofault::trace = nullptr;
  EXPECT_EQ(operations, "fchmod fsync rename open fsync ");
  EXPECT_EQ(readWhole("f"), "two");
  EXPECT_EQ(fs::status("f").permissions(), fs::perms{0606});
  EXPECT_FATAL(file.commit(), "!renamed");
  // Where the system refuses modes; in a directory that cannot be opened for reading; and on a file
  // system that cannot flush one.
  for (const auto& [operation, error] : {std::pair(1, EPERM), {4, EACCES}, {5, EINVAL}}) {
    chmod("f", 0606);
    FileReplacement again("f");
    writeWhole(again.temporary(), "three");
    iofault::error = error;
    iofault::failFrom(operation, false);
    again.commit();
    EXPECT_FALSE(iofault::faultsLeft());
    iofault::heal();
  }
}

// Two that replace one file at the same time do not meet, nor do they meet files of others.
TEST_F(FileReplaceTest, EachReplacementIsWholeBesideOthers) {
  writeWhole("f.tmp", "a neighbour");
  writeWhole("f.tmp-1", "another");
  {
    FileReplacement first("f"), second("f");
    for (FileReplacement* each : {&first, &second}) {
      EXPECT_EQ(write(each->descriptor(), each == &first ? "first" : "2nd", 3), 3);
    }
    second.commit();
    EXPECT_EQ(readWhole("f"), "2nd");
    first.commit();
    EXPECT_EQ(readWhole("f"), "fir");
    const FileReplacement given("f");
  }
  EXPECT_EQ(readWhole("f.tmp") + readWhole("f.tmp-1"), "a neighbouranother");
  const fs::directory_iterator all(".");
  EXPECT_EQ(std::distance(begin(all), end(all)), 3);
}

TEST_F(FileReplaceTest, OneProcessKeepsAFileUntilItEnds) {
  FileLock lock;
  EXPECT_TRUE(lock.take("f"));
  EXPECT_TRUE(lock.take("f")) << "it has it already";
  const auto takeAsAnother = [&lock] {
    try {
      lock.take("f");
    } catch (const eternity::exception& e) {
      _exit(e.what() == std::string("another process keeps f") ? 0 : 1);
    }
    _exit(2);
  };
  EXPECT_EXIT(takeAsAnother(), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(lock.take("g")) << "another file: the first is given back";
  EXPECT_EXIT(takeAsAnother(), testing::ExitedWithCode(2), "");
  EXPECT_FALSE(lock.take("absent/f")) << "no lock can be made";
}

// The old file stays in its place until the new one is on the disk, whichever operation fails.
TEST_F(FileReplaceTest, KeepsTheOldFileAsideOnlyForACompleteOne) {
  for (const bool forEver : {false, true}) {
    bool faultsLeft = false;
    for (int n = 1; !faultsLeft; ++n) {
      fs::remove_all("f.old-1");
      writeWhole("f", "old");
      bool done = false;
      try {
        FileReplacement file("f", true);
        writeWhole(file.temporary(), "new");
        iofault::failFrom(n, forEver);
        EXPECT_EQ(file.commit("old"), "f.old-1");
        done = true;
      } catch (const eternity::exception&) {
      }
      faultsLeft = iofault::faultsLeft();
      iofault::heal();
      EXPECT_TRUE(done || !faultsLeft);
      EXPECT_EQ(readWhole(readWhole("f") == "old" ? "f" : "f.old-1"), "old") << n;
      EXPECT_TRUE(readWhole("f") == "new" || (!done && readWhole("f") == "old"));
    }
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

TEST_F(FileReplaceTest, KeepsTheFirstAndTheLatestFiles) {
  const auto kept = [](int number) { return "f.damaged-" + std::to_string(number); };
  for (int i = 1; i <= 13; ++i) {
    if (i == 12) {
      fs::remove(kept(4));  // as when the power fails between two that move down
    }
    writeWhole("f", std::to_string(i));
    EXPECT_EQ(keepAside("f"), kept(std::min(i, 9)));
  }
  std::string all;
  for (int number = 1; number <= 9; ++number) {
    all += readWhole(kept(number)) + " ";
  }
  EXPECT_EQ(all, "1 5 7 8 9 10 11 12 13 ");
  EXPECT_FALSE(fs::exists("f"));
  writeWhole("f", "14");
  iofault::failFrom(1, true);
  EXPECT_THROW(keepAside("f"), eternity::exception);
  iofault::heal();
  EXPECT_EQ(readWhole("f"), "14");
}

}  // namespace
