// Refresh groups, and variables mirrored on the application's globals.
#include "simplevarmgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "random.h"

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};

// One group with more variables than tokens, against a model that remembers for each variable
// whether it has a token and is marked.
TEST(RefreshGroup, EachVariableLooksOnceAfterEachMark) {
  constexpr unsigned int VARS = 36;
  RefreshMgr group;
  struct Variable {
    explicit Variable(RefreshMgr& group) : real(global, group, 7, nullptr, RANGE_CLIP) {}
    int global = 0;
    ReadWriteVarMgrSimpleInt real;
    bool token = false;
    bool marked = false;
    int val = ReadWriteVarMgrInt::DEFAULT;
  };
  std::vector<std::unique_ptr<Variable>> all(VARS);
  for (auto& each : all) {
    each = std::make_unique<Variable>(group);
  }
  Random random(6);
  for (int step = 0; step < 40000; ++step) {
    std::unique_ptr<Variable>& var = all[random.below(VARS)];
    const unsigned char value = static_cast<unsigned char>(random.below(5));
    const unsigned int action = random.below(8);
    if (action == 0) {
      var.reset();
      var = std::make_unique<Variable>(group);
    } else if (action == 1) {
      var->global = value;
    } else if (action == 2) {
      var->real.set(&value, 1);
      var->val = value;
    } else if (action <= 4) {
      action == 3 ? group.setRefresh() : var->real.commit();
      ASSERT_TRUE(action == 3 || var->global == var->val);
      for (auto& each : all) {
        each->marked = each->token;
      }
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

TEST(SimpleIntAndBool, DefaultIsForcedAndTheGlobalWinsUnlessItIsCommitted) {
  RefreshMgr group;
  int global = 55;
  ReadWriteVarMgrSimpleInt clip(global, group, 140, PERCENT, RANGE_CLIP);
  ReadWriteVarMgrSimpleInt wrap(global, group, 140, PERCENT, RANGE_WRAP);
  ReadWriteVarMgrSimpleBool on(global, group, ReadWriteVarMgrBool::TRUE, RANGE_CLIP);
  wrap.init();
  EXPECT_EQ(wrap.get(), 39);
  EXPECT_TRUE(clip.refresh());
  EXPECT_EQ(clip.get(), 55);
  clip.init();
  EXPECT_EQ(global, 55);
  clip.commit();
  EXPECT_EQ(global, 100);
  EXPECT_FALSE(clip.refresh());
  on.init();
  on.commit();
  EXPECT_EQ(global, 1);
  global = 9999;
  group.setRefresh();
  EXPECT_TRUE(clip.refresh());
  EXPECT_EQ(clip.get(), 9999) << "the bounds do not apply to the global";
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
