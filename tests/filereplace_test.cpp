// Replacing a file: complete at every moment, whichever operation fails.
#include "filereplace.h"

#include <persist.h>
#include <sys/stat.h>

#include "iofault.h"
#include "tempdir.h"

namespace {

namespace fs = std::filesystem;

unsigned int modeOf(const char* name) {
  struct stat status;
  return stat(name, &status) == 0 ? status.st_mode & 07777 : 0;
}

class FileReplaceTest : public testing::Test {
 protected:
  void replace(const char* name, const std::string& content) {
    FileReplacement file(name);
    writeWhole(file.temporary(), content);
    file.commit();
  }

  // What is in the working directory, beside its subdirectories.
  std::string files() {
    std::string list;
    for (const char* name : {"f", "f.tmp", "f.damaged-1", "link"}) {
      list += fs::exists(fs::symlink_status(name)) ? std::string(name) + " " : "";
    }
    return list;
  }

  TempDir dir;
};

TEST_F(FileReplaceTest, ReplacesOnlyWhatIsOnTheDiskAndKeepsTheMode) {
  mkfifo("f.tmp", 0600);  // what a killed replacement left, at its worst
  replace("f", "one");
  EXPECT_EQ(readWhole("f"), "one");
  chmod("f", 0640);
  std::string operations;
  {
    FileReplacement file("f");
    writeWhole(file.temporary(), "two");
    iofault::trace = &operations;
    file.commit();
    iofault::trace = nullptr;
  }
  EXPECT_EQ(operations, "open fchmod fsync rename open fsync ");
  EXPECT_EQ(readWhole("f"), "two");
  EXPECT_EQ(modeOf("f"), 0640U);
  EXPECT_EQ(files(), "f ");
}

TEST_F(FileReplaceTest, EveryFailingOperationLeavesTheOldOrTheNewFile) {
  std::string old = "old";
  writeWhole("f", old);
  for (const bool forEver : {false, true}) {
    bool complete = false;
    for (int n = 1; !complete; ++n) {
      ASSERT_LT(n, 20);
      const std::string content = "new " + std::to_string(n);
      try {
        FileReplacement file("f");
        writeWhole(file.temporary(), content);
        iofault::failFrom(n, forEver);
        file.commit();
        complete = iofault::faultsLeft();
        EXPECT_TRUE(complete) << "the failure of operation " << n << " was not reported";
        old = content;
      } catch (const eternity::exception&) {
        iofault::heal();
        // The directory is flushed behind the renaming: then the new file is there already.
        const std::string now = readWhole("f");
        EXPECT_TRUE(now == old || now == content) << now;
        old = now;
      }
      iofault::heal();
      EXPECT_EQ(readWhole("f"), old);
      EXPECT_EQ(files(), "f ") << "operation " << n;
    }
  }
}

// As a user for whom the modes count, which they do not for the superuser.
TEST_F(FileReplaceTest, ADirectoryMayBeWriteOnly) {
  constexpr uid_t NOBODY = 65534;
  chmod(".", 0755);
  mkdir("box", 0300);
  if (geteuid() == 0) {
    ASSERT_EQ(chown("box", NOBODY, NOBODY) + seteuid(NOBODY), 0);
  }
  replace("box/f", "old");
  replace("box/f", "new");
  ASSERT_EQ(seteuid(getuid()), 0);
  chmod("box", 0700);
  EXPECT_EQ(readWhole("box/f"), "new");
}

TEST_F(FileReplaceTest, ALinkStaysALinkToTheFileThatIsReplaced) {
  fs::create_directory("disk");
  writeWhole("disk/real", "old");
  fs::create_symlink("second", "disk/first");
  fs::create_symlink("real", "disk/second");
  fs::create_symlink("disk/first", "link");
  replace("link", "new");
  EXPECT_EQ(readWhole("disk/real"), "new");
  EXPECT_EQ(files(), "link ");
  EXPECT_TRUE(fs::is_symlink("link"));
  fs::remove("disk/real");
  replace("link", "first content");
  EXPECT_EQ(readWhole("disk/real"), "first content") << "also when the file is still to come";
  EXPECT_EQ(keepAside("link"), "disk/real.damaged-1");
  EXPECT_TRUE(fs::is_symlink("link"));
  fs::create_symlink("loop", "loop");
  EXPECT_THROW(replace("loop", ""), eternity::exception);
}

TEST_F(FileReplaceTest, OnlyARegularFileIsReplacedOrMoved) {
  fs::create_directory("directory");
  fs::create_symlink("/dev/null", "device");
  for (const char* name : {"directory", "device"}) {
    EXPECT_THROW(FileReplacement file(name), eternity::exception) << name;
    EXPECT_EQ(keepAside(name), "") << name;
  }
  EXPECT_EQ(keepAside("absent"), "");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  EXPECT_FALSE(fs::exists("/dev/null.tmp"));
  EXPECT_THROW(replace("absent/f", ""), eternity::exception);
}

TEST_F(FileReplaceTest, KeepsTheEarliestDamagedFiles) {
  for (int i = 1; i <= 11; ++i) {
    writeWhole("f", std::to_string(i));
    EXPECT_EQ(keepAside("f"), "f.damaged-" + std::to_string(i < 9 ? i : 9));
    EXPECT_FALSE(fs::exists("f"));
  }
  for (int i = 1; i <= 8; ++i) {
    EXPECT_EQ(readWhole("f.damaged-" + std::to_string(i)), std::to_string(i));
  }
  EXPECT_EQ(readWhole("f.damaged-9"), "11");
  writeWhole("f", "12");
  iofault::failFrom(1, true);
  EXPECT_THROW(keepAside("f"), eternity::exception);
  iofault::heal();
  EXPECT_EQ(readWhole("f"), "12");
}

}  // namespace
