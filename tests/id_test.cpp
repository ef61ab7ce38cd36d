// The board's identity from stores with all, some and none of its keys. It is read once in a
// process, so each case runs in one of its own.
#include "id.h"

#include <cstring>

#include "env.h"
#include "tempdir.h"

namespace {

// Writes the first bytes of the serial number, the revision cut to `room`, build and result.
void reportIdentity(unsigned int bytes, unsigned int room) {
  unsigned char number[8] = {};
  getSerNum(number, bytes);
  for (unsigned int i = 0; i < bytes; ++i) {
    std::fprintf(stderr, "%02X", number[i]);
  }
  char rev[16] = "untouched";
  unsigned int build;
  getBoardRev(nullptr, room, build);
  const bool found = getBoardRev(rev, room, build);
  std::fprintf(stderr, " %s %u %d\n", rev, build, found);
}

TEST(IdentityDeathTest, IsWhatTheStoreHasAndDefaultsForTheRest) {
  const TempDir dir;
  const std::pair<const char*, std::string> cases[] = {
      {"", "0000000000 A 1 0"},
      // Cut to the buffer: a part, and nothing.
      {"SN=0123456789\nBRDREV=C2\nBRDBLD=417",
       "0123456789 C2 417 1\n012345 C 417 1\n untouched 417 1"},
      {"BRDREV=C2", "0000000000 C2 1 0"},
      {"BRDBLD=417", "0000000000 A 417 0"},
      {"SN=zz1z-1 7 8", "0001FF0708 A 1 0"},
      // Longer than a value may be.
      {"SN=112233445566\nBRDREV=0123456789ABC\nBRDBLD=10000000009",
       "1122334455 0123456789 1000000000 1"},
      {"SN=aBcDeF\nBRDBLD=9999999999", "ABCDEF0000 A 4294967295 0"},
      {"BRDBLD=-2", "0000000000 A 4294967294 0"},
      {"BRDREV=\nBRDBLD=x", "0000000000  0 1"},
  };
  for (const auto& [keys, identity] : cases) {
    writeWhole("board.env", keys);
    EXPECT_EXIT(
        {
          env_use_file("board.env");
          reportIdentity(8, 16);
          env_set_store(nullptr);
          reportIdentity(3, 2);  // it was read once
          reportIdentity(0, 0);
          std::exit(0);
        },
        testing::ExitedWithCode(0), "^" + identity + "\n");
  }
}

TEST(Env, AFileOfKeysAndValues) {
  const TempDir dir;
  char value[11] = "abc";
  EXPECT_EQ(env_use_file("board.env"), -1);
  EXPECT_EQ(env_get("SN", value, 11), nullptr);
  EXPECT_STREQ(value, "abc") << "without a store";
  writeWhole("board.env",
             "# SN=1\n\n  #SN=2\nSN = first\n BRDREV\t=\tC 2 \r\nno equals sign\nSNX=3\nEMPTY=\n"
             "EQUALS=a=b\nLONG=" +
                 std::string(2000, 'x') + "SN=inside\nSN=0123456789AB");
  ASSERT_EQ(env_use_file("board.env"), 0);
  const std::pair<const char*, std::string> cases[] = {
      {"SN", "0123456789A"}, {"BRDREV", "C 2"}, {"EMPTY", ""}, {"EQUALS", "a=b"}};
  for (const auto& [key, text] : cases) {
    EXPECT_EQ(env_get(key, value, 11), value) << key;
    EXPECT_EQ(std::string(value, strnlen(value, 11)), text);
  }
  for (const char* const absent : {"no equals sign", "# SN", "S", ""}) {
    EXPECT_EQ(env_get(absent, value, 11), nullptr) << absent;
  }
  // A line that ends at 510 bytes, one beyond it, and one with a zero byte, which is no line's end.
  const std::string zero(1, '\0');
  writeWhole("board.env", std::string(500, ' ') + "SN=1234567\nBRDREV=" + zero + "x\nBRDBLD=7\n" +
                              std::string(500, ' ') + "LONG=12345" + "cut\n");
  EXPECT_STREQ(env_get("SN", value, 11), "1234567");
  EXPECT_STREQ(env_get("BRDREV", value, 11), "");
  EXPECT_STREQ(env_get("BRDBLD", value, 11), "7");
  EXPECT_STREQ(env_get("LONG", value, 11), "12345");
  std::filesystem::remove("board.env");
  std::filesystem::create_directory("board.env");
  EXPECT_EQ(env_use_file("board.env"), -1);
  EXPECT_EQ(env_get("SN", value, 11), nullptr);
}

}  // namespace
