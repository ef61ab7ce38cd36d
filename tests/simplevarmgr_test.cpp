// Refresh groups, and variables mirrored on the application's globals.
#include "simplevarmgr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "random.h"

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};

void set(ReadWriteVarMgr& var, int value) {
  unsigned char buf[4];
  ReadVarMgr::setBufInt(buf, sizeof buf, value);
  var.set(buf, sizeof buf);
}

// One group with more variables than tokens, against a model that remembers for each variable
// whether it has a token and is marked.
TEST(RefreshGroup, EachVariableLooksOnceAfterEachMark) {
  constexpr unsigned int VARS = 36;
  struct Model {
    bool token = false;
    bool marked = false;
    int val = ReadWriteVarMgrInt::DEFAULT;
  };
  RefreshMgr group;
  std::vector<int> globals(VARS, 0);
  std::vector<std::unique_ptr<ReadWriteVarMgrSimpleInt>> vars(VARS);
  std::vector<Model> model(VARS);
  auto make = [&](unsigned int i) {
    vars[i] = std::make_unique<ReadWriteVarMgrSimpleInt>(globals[i], group, 7, nullptr, RANGE_CLIP);
    model[i] = Model{};
  };
  auto markAll = [&] {
    for (Model& m : model) {
      m.marked = m.token;
    }
  };
  for (unsigned int i = 0; i < VARS; ++i) {
    make(i);
  }
  Random random(6);
  for (int step = 0; step < 40000; ++step) {
    const unsigned int i = random.below(VARS);
    Model& m = model[i];
    switch (random.below(8)) {
      case 0:
        vars[i].reset();
        m = Model{};
        make(i);
        break;
      case 1:
        globals[i] = random.between(0, 4);
        break;
      case 2:
        group.setRefresh();
        markAll();
        break;
      case 3:
        m.val = random.between(0, 4);
        set(*vars[i], m.val);
        break;
      case 4:
        vars[i]->commit();
        ASSERT_EQ(globals[i], m.val);
        markAll();
        break;
      default: {
        unsigned int holders = 0;
        for (const Model& other : model) {
          holders += other.token ? 1 : 0;
        }
        if (!m.token && holders < 32) {
          m.token = m.marked = true;
        }
        const bool changed = m.marked && m.val != globals[i];
        m.val = m.marked ? globals[i] : m.val;
        m.marked = false;
        ASSERT_EQ(vars[i]->refresh(), changed) << "step " << step;
        break;
      }
    }
    ASSERT_EQ(vars[i]->get(), model[i].val) << "step " << step;
  }
}

TEST(RefreshGroup, TokensAreTheLowestFreeBits) {
  RefreshMgr group;
  RefreshId ids[33];
  for (RefreshId& id : ids) {
    group.allocId(id);
  }
  EXPECT_TRUE(ids[31].isValid());
  EXPECT_FALSE(ids[32].isValid());
  EXPECT_FALSE(group.needRefresh(ids[32]));
  EXPECT_TRUE(group.needRefresh(ids[5]));
  EXPECT_FALSE(group.needRefresh(ids[5]));
  group.freeId(ids[5]);
  group.allocId(ids[32]);
  EXPECT_TRUE(group.needRefresh(ids[32])) << "a freed token is handed out again, marked";
  group.setRefresh();
  group.freeId(ids[32]);
  EXPECT_FALSE(ids[32].isValid());
}

TEST(SimpleInt, DefaultIsForcedAndTheGlobalWinsUnlessItIsCommitted) {
  RefreshMgr group;
  int global = 55;
  ReadWriteVarMgrSimpleInt clip(global, group, 140, PERCENT, RANGE_CLIP);
  ReadWriteVarMgrSimpleInt wrap(global, group, 140, PERCENT, RANGE_WRAP);
  clip.init();
  wrap.init();
  EXPECT_EQ(clip.get(), 100);
  EXPECT_EQ(wrap.get(), 39);
  EXPECT_EQ(global, 55);
  EXPECT_TRUE(clip.refresh());
  EXPECT_EQ(clip.get(), 55);
  clip.init();
  clip.commit();
  EXPECT_EQ(global, 100);
  EXPECT_FALSE(clip.refresh());
  global = 9999;
  group.setRefresh();
  EXPECT_TRUE(clip.refresh());
  EXPECT_EQ(clip.get(), 9999) << "the bounds do not apply to the global";
}

TEST(SimpleBool, InitSetsTheDefaultOnAnyHost) {
  RefreshMgr group;
  int global = 0;
  ReadWriteVarMgrSimpleBool var(global, group, ReadWriteVarMgrBool::TRUE, RANGE_CLIP);
  var.init();
  EXPECT_EQ(var.get(), 1);
  var.commit();
  EXPECT_EQ(global, 1);
  global = 0;
  group.setRefresh();
  EXPECT_TRUE(var.refresh());
  EXPECT_EQ(var.get(), 0);
}

// Buffers of exact size on the heap, so that the address sanitizer sees every byte too far.
struct Text {
  Text(unsigned int size, const char* init)
      : global(new char[size]()),
        work(new char[size]),
        var(group, global.get(), work.get(), size, nullptr, init) {}
  RefreshMgr group;
  std::unique_ptr<char[]> global;
  std::unique_ptr<char[]> work;
  ReadWriteVarMgrSimpleStr var;
};

TEST(SimpleStr, FollowsItsGlobalAndCutsWhatDoesNotFit) {
  Text text(6, "start");
  text.var.init();
  EXPECT_STREQ(text.var.get(), "start");
  text.var.commit();
  EXPECT_STREQ(text.global.get(), "start");
  struct {
    const char* global;
    bool changes;
    const char* expected;
  } const steps[] = {
      {"sta", true, "sta"},     {"sta", false, "sta"},      {"", true, ""},
      {"12345", true, "12345"}, {"123456", false, "12345"}, {"abcdef", true, "abcde"},
      {"ab", true, "ab"}};
  for (const auto& s : steps) {
    std::memcpy(text.global.get(), s.global, std::min<std::size_t>(6, std::strlen(s.global) + 1));
    text.group.setRefresh();
    EXPECT_EQ(text.var.refresh(), s.changes) << s.global;
    EXPECT_STREQ(text.var.get(), s.expected);
  }
}

TEST(SimpleStr, BuffersWithoutRoomAndMissingGlobalsAreLeftAlone) {
  for (unsigned int size : {0U, 1U}) {
    Text text(size, "long initial text");
    text.var.init();
    EXPECT_FALSE(text.var.refresh());
    text.var.commit();
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
