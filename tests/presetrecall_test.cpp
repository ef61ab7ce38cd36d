// Recall: images of every version come back whole, or nothing changes at all.
#include "presetrecall.h"

#include <algorithm>
#include <memory>
#include <set>

#include "fatal.h"
#include "presetlist.h"

namespace {

using Values = std::pair<std::string, std::string>;

// A random list in use, the image of some version of it, and what its rows held then.
class Story {
 public:
  Story(Random& random, unsigned int verSize) : verBytes(verSize) {
    list.addRandomRows(random, PresetList::FIRST[random.below(4)]);
    const unsigned int age = random.oneIn(4) ? random.word() : random.below(PresetList::LAST);
    ver = list.version() - std::min(list.version(), age & 0xFFFFFFFF >> (32 - 8 * verBytes));
    newer = random.oneIn(2) ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER;
    list.change(random);
    image = naiveImage(ver, verBytes, list.bits(ver));
    for (const auto& item : list.items) {
      saved.push_back(item->value());
    }
    list.change(random);
    for (const auto& item : list.items) {
      random.oneIn(4) ? item->disturb() : void();
    }
  }
  recall_t recall(std::size_t size, unsigned int undoSize) const {
    // Exactly as long as said, so that reading behind the end is found.
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[size]),
        undo(new unsigned char[undoSize]);
    std::copy_n(image.data(), size, exact.get());
    return recallPreset(exact.get(), static_cast<unsigned int>(size), verBytes, list.table(), newer,
                        undo.get(), undoSize);
  }
  recall_t recall() const { return recall(image.size(), presetUndoSize(list.table())); }
  bool takesPart(std::size_t i) const {
    return list.current(i) && (list.inImage(i, ver) || newer == RECALL_INIT_NEWER);
  }
  // What a recall has to leave of a row: its value, and what it works with.
  Values expected(std::size_t i) const {
    const Item& item = *list.items[i];
    const std::string value = list.inImage(i, ver) ? saved[i] : item.initial();
    return takesPart(i) ? Values(value, value) : Values(item.value(), item.working());
  }

  // The number in the image's header.
  unsigned int header() const {
    unsigned int number = 0;
    for (unsigned int i = verBytes; i > 0; --i) {
      number = number * 256 + image[i - 1];
    }
    return number;
  }

  PresetList list;
  std::vector<unsigned char> image;
  unsigned int ver = 0;

 private:
  const unsigned int verBytes;
  recallNewer_t newer;
  std::vector<std::string> saved;
};

unsigned int recallUndoSize(Item& item) {
  return item.field().preset_recall_field_()->recallUndoSize();
}

// Images of every version of many lists come back whole; and before that, whatever stands in the
// way leaves no trace: an image that is too short or too new, too little undo memory, and each
// variable in turn, first by refusing and then by contradicting. A variable that the image does not
// hold has no say.
TEST(Recall, TakesEffectAsAWholeOrNotAtAll) {
  Random random(1);
  for (unsigned int run = 0; run < 600 && !testing::Test::HasFailure(); ++run) {
    Story story(random, 1 + run % 4);
    std::vector<Values> expected;
    std::vector<Watch*> inTheWay;
    unsigned int undo = 0;
    for (std::size_t i = 0; i < story.list.items.size(); ++i) {
      expected.push_back(story.expected(i));
      undo += story.takesPart(i) ? recallUndoSize(*story.list.items[i]) : 0;
      Watch* const watch = story.list.items[i]->watch();
      if (watch != nullptr && story.takesPart(i)) {
        inTheWay.push_back(watch);
      } else if (watch != nullptr) {
        watch->refuse = true;
        watch->judge = inconsistent;
      }
    }
    const std::string state = story.list.state();
    const std::size_t size = story.image.size();
    for (std::size_t cut = 0; cut < size; ++cut) {
      ASSERT_EQ(story.recall(cut, undo), RECALL_TOO_SHORT) << cut << " of " << size << " bytes";
    }
    ASSERT_TRUE(undo == 0 || story.recall(size, undo - 1) == RECALL_NO_UNDO);
    for (Watch* const watch : inTheWay) {
      watch->refuse = true;
      ASSERT_EQ(story.recall(), RECALL_REFUSED);
      *watch = {};
      watch->judge = inconsistent;
      ASSERT_EQ(story.recall(), RECALL_INCONSISTENT);
      *watch = {};
    }
    ++story.image[0];
    ASSERT_TRUE(story.header() <= story.list.version() || story.recall() == RECALL_NEWER_LIST);
    --story.image[0];
    ASSERT_EQ(story.list.state(), state);

    // A variable is asked only when all others hold the values of the image.
    const auto staged = [&] {
      std::size_t i = 0;
      return std::all_of(expected.begin(), expected.end(), [&](const Values& values) {
        return story.list.items[i++]->working() == values.second;
      });
    };
    for (Watch* const watch : inTheWay) {
      watch->judge = staged;
    }
    story.image.resize(size + random.below(3), 0);
    ASSERT_EQ(story.recall(), RECALL_OK);
    for (std::size_t i = 0; i < story.list.items.size(); ++i) {
      const Item& item = *story.list.items[i];
      EXPECT_EQ(Values(item.value(), item.working()), expected[i]) << "row " << i;
    }
    for (const Watch* const watch : inTheWay) {
      EXPECT_EQ(watch->open, 0);
    }
  }
}

// A field class written before recalls existed, with names of its own, and one made for them that
// reads more than it tells.
class OldField : public PresetFieldVar {
 public:
  using PresetFieldVar::PresetFieldVar;
  int set(void**, unsigned int, unsigned int&) override { return 0; }
  int get(void**, unsigned int, unsigned int&) override { return setVar("\x07", 1); }
  void check(int) const {}
  bool publish = false;
  int keep, width = 0;
};
class WideField : public PresetFieldVarInt {
 public:
  using PresetFieldVarInt::PresetFieldVarInt;
  int get(void** buf, unsigned int room, unsigned int& bit) override {
    return PresetFieldVarInt::get(buf, room, bit) + 1;
  }
};

TEST(Recall, FieldsThatCannotBeTakenBackAreRefusedAndFaultsAreFatal) {
  int glob = 3;
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt var(glob, group, 3, nullptr, RANGE_CLIP),
      first(glob, group, 3, nullptr, RANGE_CLIP);
  PresetFieldVarInt packed(first, 4, nullptr, false);
  OldField old(var);
  WideField wide(var, 4, nullptr, false);
  const unsigned char image[2] = {0, 0xFF};
  verPresetField_t list[] = {{0, PRESET_FIELD_VALID, &packed}, {}, {}};
  const struct {
    verPresetField_t row;
    recallNewer_t newer;
    recall_t result;
  } cases[] = {{{0, PRESET_FIELD_VALID, &old}, RECALL_KEEP_NEWER, RECALL_UNABLE},
               {{0, PRESET_FIELD_VALID, &wide}, RECALL_KEEP_NEWER, RECALL_UNABLE},
               {{0, 1, &old}, RECALL_KEEP_NEWER, RECALL_UNABLE},
               {{1, PRESET_FIELD_VALID, &old}, RECALL_INIT_NEWER, RECALL_UNABLE},
               {{1, PRESET_FIELD_VALID, &old}, RECALL_KEEP_NEWER, RECALL_OK}};
  for (const auto& each : cases) {
    list[1] = each.row;
    initPreset(list);
    EXPECT_EQ(recallPreset(image, 2, 1, list, each.newer, nullptr, 0), each.result);
    EXPECT_EQ(first.get(), each.result == RECALL_OK ? 15 : 3);
    EXPECT_EQ(var.get(), 3);
  }
  EXPECT_FATAL(recallPreset(nullptr, 2, 1, list, RECALL_KEEP_NEWER, nullptr, 0), "buf != nullptr");
  EXPECT_FATAL(recallPreset(image, 2, 0, list, RECALL_KEEP_NEWER, nullptr, 0), "verSize");
  EXPECT_FATAL(recallPreset(image, 2, 5, list, RECALL_KEEP_NEWER, nullptr, 0), "verSize");
  EXPECT_FATAL(recallPreset(image, 2, 1, nullptr, RECALL_KEEP_NEWER, nullptr, 0),
               "list != nullptr");
  EXPECT_FATAL(presetUndoSize(nullptr), "list != nullptr");
  EXPECT_FATAL(recallPreset(image, 2, 1, list, RECALL_KEEP_NEWER, nullptr, 1), "undo != nullptr");
}

TEST(Recall, EveryResultHasATextOfItsOwn) {
  std::set<std::string> texts;
  for (int result = RECALL_OK; result <= RECALL_UNREADABLE + 1; ++result) {
    texts.insert(recallText(static_cast<recall_t>(result)));
  }
  EXPECT_EQ(texts.size(), RECALL_UNREADABLE + 2U);
}

}  // namespace
