// The board's identity from stores with all, some and none of its keys. It is read once in a
// process, so each case runs in one of its own.
#include "id.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "env.h"
#include "tempdir.h"

namespace {

std::map<std::string, std::string> store;

char* getFromMap(const char* name, char* value, unsigned int len) {
  const auto found = store.find(name);
  return found == store.end() ? nullptr : std::strncpy(value, found->second.c_str(), len);
}

// Writes serial number, revision, build and result on one line to standard error.
void reportIdentity() {
  unsigned char number[8];
  unsigned int len = sizeof number;
  getSerNum(number, len);
  for (unsigned int i = 0; i < len; ++i) {
    std::fprintf(stderr, "%02X", number[i]);
  }
  char rev[16];
  unsigned int build = 0;
  const bool ret = getBoardRev(rev, sizeof rev, build);
  std::fprintf(stderr, " %s %u %s\n", rev, build, ret ? "found" : "default");
}

// The identity that a process with only these keys reports.
void expectIdentity(const std::map<std::string, std::string>& keys, const std::string& identity) {
  EXPECT_EXIT(
      {
        store = keys;
        env_set_store(getFromMap);
        reportIdentity();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^" + identity + "\n$");
}

TEST(IdentityDeathTest, IsWhatTheStoreHasAndDefaultsForTheRest) {
  expectIdentity({}, "0000000000 A 1 default");
  expectIdentity({{"SN", "0123456789"}, {"BRDREV", "C2"}, {"BRDBLD", "417"}},
                 "0123456789 C2 417 found");
  expectIdentity({{"BRDREV", "C2"}}, "0000000000 C2 1 default");
  expectIdentity({{"BRDBLD", "417"}}, "0000000000 A 417 default");
  expectIdentity({{"SN", "aBcDeF"}}, "ABCDEF0000 A 1 default");
  expectIdentity({{"SN", "zz1z-1 7 8"}}, "0001FF0708 A 1 default");
  // Longer than a value may be.
  expectIdentity({{"SN", "112233445566"}, {"BRDREV", "0123456789ABC"}, {"BRDBLD", "10000000009"}},
                 "1122334455 0123456789 1000000000 found");
  expectIdentity({{"BRDBLD", "9999999999"}}, "0000000000 A 4294967295 default");
  expectIdentity({{"BRDBLD", "-2"}}, "0000000000 A 4294967294 default");
  expectIdentity({{"BRDREV", ""}, {"BRDBLD", "x"}}, "0000000000  0 found");
}

TEST(IdentityDeathTest, IsDefaultWithoutAStore) {
  char value[4] = "abc";
  EXPECT_EQ(env_get("SN", value, sizeof value), nullptr);
  EXPECT_STREQ(value, "abc");
  EXPECT_EXIT(
      {
        reportIdentity();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^0000000000 A 1 default\n$");
}

TEST(Identity, IsReadOnceAndCutToTheBuffer) {
  store = {{"SN", "0123456789"}, {"BRDREV", "Rev-7"}, {"BRDBLD", "12"}};
  env_set_store(getFromMap);
  unsigned int build = 0;
  EXPECT_TRUE(getBoardRev(nullptr, 0, build));
  unsigned int len = 0;
  getSerNum(nullptr, len);
  EXPECT_EQ(len, 0U);

  store.clear();
  char rev[5] = "....";
  EXPECT_TRUE(getBoardRev(rev, 1, build));
  EXPECT_STREQ(rev, "");
  EXPECT_EQ(rev[1], '.');
  EXPECT_TRUE(getBoardRev(rev, 4, build));
  EXPECT_STREQ(rev, "Rev");
  EXPECT_EQ(build, 12U);
  unsigned char number[4] = {9, 9, 9, 9};
  len = 3;
  getSerNum(number, len);
  EXPECT_EQ(len, 3U);
  EXPECT_EQ(std::memcmp(number, "\x01\x23\x45\x09", 4), 0);
}

TEST(Env, AFileOfKeysAndValues) {
  const TempDir dir;
  char value[12];
  EXPECT_EQ(env_use_file("board.env"), -1);
  EXPECT_EQ(env_get("SN", value, sizeof value), nullptr);

  writeWhole("board.env",
             "# SN=1\n\n  #SN=2\nSN = first\n BRDREV\t=\tC 2 \r\nno equals sign\nSNX=3\nEMPTY=\n"
             "EQUALS=a=b\nLONG=" +
                 std::string(2000, 'x') + "SN=inside\nSN=0123456789AB");
  ASSERT_EQ(env_use_file("board.env"), 0);
  const struct {
    const char* key;
    const char* text;
  } cases[] = {{"SN", "0123456789A"}, {"BRDREV", "C 2"}, {"EMPTY", ""}, {"EQUALS", "a=b"}};
  for (const auto& each : cases) {
    std::memset(value, '.', sizeof value);
    EXPECT_EQ(env_get(each.key, value, 11), value) << each.key;
    EXPECT_EQ(value[11], '.') << "written behind the end";
    EXPECT_EQ(std::string(value, strnlen(value, 11)), each.text);
  }
  EXPECT_EQ(env_get("no equals sign", value, 11), nullptr);
  EXPECT_EQ(env_get("# SN", value, 11), nullptr);
  EXPECT_EQ(env_get("S", value, 11), nullptr);
  EXPECT_EQ(env_get("", value, 11), nullptr);

  std::remove("board.env");
  EXPECT_EQ(env_get("SN", value, 11), nullptr);
  env_set_store(nullptr);
}

}  // namespace
