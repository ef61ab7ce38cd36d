// Refresh groups, and variables mirrored on the application's globals.
#include "simplevarmgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "random.h"

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};

// One group with more variables than tokens, against a model that remembers for each variable
// whether it has a token and is marked. The bounds apply to what is set, not to the globals.
TEST(RefreshGroup, EachVariableLooksOnceAfterEachMark) {
  constexpr unsigned int VARS = 36;
  RefreshMgr group;
  struct Variable {
    Variable(RefreshMgr& group, range_t p) : policy(p), real(global, group, 140, PERCENT, p) {}
    int forced(int v) const { return policy == RANGE_WRAP ? v % 101 : std::min(v, 100); }
    const range_t policy;
    int global = 0;
    ReadWriteVarMgrSimpleInt real;
    bool token = false;
    bool marked = false;
    int val = ReadWriteVarMgrInt::DEFAULT;
  };
  std::vector<std::unique_ptr<Variable>> all(VARS);
  for (auto& each : all) {
    each = std::make_unique<Variable>(group, RANGE_CLIP);
  }
  Random random(6);
  for (int step = 0; step < 40000; ++step) {
    std::unique_ptr<Variable>& var = all[random.below(VARS)];
    const int value = static_cast<int>(random.below(5)) * 31;
    const unsigned int action = random.below(9);
    if (action == 0) {
      var.reset();
      var = std::make_unique<Variable>(group, random.oneIn(2) ? RANGE_WRAP : RANGE_CLIP);
    } else if (action == 1) {
      var->global = value;
    } else if (action == 2) {
      const unsigned char byte = static_cast<unsigned char>(value);
      var->real.set(&byte, 1);
      var->val = var->forced(value);
    } else if (action <= 4) {
      action == 3 ? group.setRefresh() : var->real.commit();
      ASSERT_TRUE(action == 3 || var->global == var->val);
      for (auto& each : all) {
        each->marked = each->token;
      }
    } else if (action == 5) {
      var->real.init();
      var->val = var->forced(140);
    } else {
      const auto holders = std::count_if(all.begin(), all.end(), [](auto& v) { return v->token; });
      if (!var->token && holders < 32) {
        var->token = var->marked = true;
      }
      const bool changed = var->marked && var->val != var->global;
      var->val = changed ? var->global : var->val;
      var->marked = false;
      ASSERT_EQ(var->real.refresh(), changed) << "step " << step;
    }
    ASSERT_EQ(var->real.get(), var->val) << "step " << step;
  }
}

// Buffers of exact size on the heap, so that the address sanitizer sees every byte too far.
struct Text {
  Text(unsigned int size, const char* init)
      : global(size), work(size), var(group, global.data(), work.data(), size, nullptr, init) {
    var.init();
    var.commit();
  }
  RefreshMgr group;
  std::vector<char> global;
  std::vector<char> work;
  ReadWriteVarMgrSimpleStr var;
};

TEST(SimpleStr, FollowsItsGlobalAndCutsWhatDoesNotFit) {
  Text text(6, "start");
  EXPECT_STREQ(text.global.data(), "start");
  std::string before = "start";
  for (const char* const global : {"sta", "sta", "", "12345", "123456", "abcdef", "ab"}) {
    std::strncpy(text.global.data(), global, 6);
    text.group.setRefresh();
    const std::string expected = std::string(global).substr(0, 5);
    EXPECT_EQ(text.var.refresh(), before != expected);
    EXPECT_EQ(text.var.get(), expected);
    before = expected;
  }
}

TEST(SimpleStr, BuffersWithoutRoomAndMissingGlobalsAreLeftAlone) {
  for (unsigned int size : {0U, 1U}) {
    Text text(size, "long initial text");
    EXPECT_FALSE(text.var.refresh());
    char out = '\x5A';
    static_cast<ReadVarMgr&>(text.var).get(&out, 1);
    EXPECT_EQ(out, 0);
  }
  RefreshMgr group;
  char work[6];
  ReadWriteVarMgrSimpleStr held(group, nullptr, work, sizeof work, nullptr, nullptr);
  held.set("text", 4);
  held.init();
  EXPECT_FALSE(held.refresh());
  held.commit();
  EXPECT_STREQ(held.get(), "text") << "an empty initial text keeps the present one";
}

}  // namespace
