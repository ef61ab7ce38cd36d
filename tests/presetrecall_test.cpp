// Recall: images of every version come back whole, or nothing changes at all.
#include "presetrecall.h"

#include <functional>

#include "fatal.h"
#include "presetlist.h"

namespace {

// A random list in use, the image of some version of it, and what its rows held then.
class Story {
 public:
  explicit Story(Random& r) : random(r) {
    for (unsigned int rows = random.below(8); rows > 0; --rows) {
      list.addRandom(random);
    }
    initPreset(list.table());
  }
  // Makes an image as the firmware of version `v` did, and then uses the device.
  void saveAs(unsigned int v, unsigned int verSize) {
    ver = v;
    verBytes = verSize;
    list.change(random);
    image = naiveImage(v, verSize, list.bits(v));
    saved.clear();
    for (const auto& item : list.items) {
      saved.push_back(item->value());
    }
    list.change(random);
    for (const auto& item : list.items) {
      if (random.below(4) == 0) {
        item->disturb();
      }
    }
  }
  recall_t recall(recallNewer_t newer) { return recall(image.data(), image.size(), newer); }
  recall_t recall(const unsigned char* data, std::size_t size, recallNewer_t newer) {
    // Exactly as long as said, so that reading behind the end is found.
    const std::vector<unsigned char> exact(data, data + size);
    std::vector<unsigned char> undo(presetUndoSize(list.table()));
    return recallPreset(exact.data() == nullptr ? &nothing : exact.data(),
                        static_cast<unsigned int>(size), verBytes, list.table(), newer, undo.data(),
                        static_cast<unsigned int>(undo.size()));
  }
  bool takesPart(std::size_t i, recallNewer_t newer) const {
    return list.current(i) && (list.inImage(i, ver) || newer == RECALL_INIT_NEWER);
  }
  // Checks every variable behind a recall that succeeded; `before` are the values in front of it.
  void expectRecalled(recallNewer_t newer, const std::vector<std::string>& before) {
    for (std::size_t i = 0; i < list.items.size(); ++i) {
      Item& item = *list.items[i];
      if (!takesPart(i, newer)) {
        EXPECT_EQ(item.value(), before[2 * i]) << "row " << i << " is none of the image's business";
        EXPECT_EQ(item.working(), before[2 * i + 1]);
      } else {
        // Init leaves a text without an initial value as it works at present.
        const bool text = dynamic_cast<StrItem*>(&item) != nullptr;
        const std::string init = text ? before[2 * i + 1] : item.initial();
        EXPECT_EQ(item.value(), list.inImage(i, ver) ? saved[i] : init) << "row " << i;
        EXPECT_EQ(item.working(), item.value());
      }
      EXPECT_TRUE(item.watch() == nullptr || item.watch()->open == 0);
    }
  }
  std::vector<std::string> values() const {
    std::vector<std::string> all;
    for (const auto& item : list.items) {
      all.push_back(item->value());
      all.push_back(item->working());
    }
    return all;
  }

  PresetList list;
  std::vector<unsigned char> image;
  unsigned int ver = 0;
  unsigned int verBytes = 1;

 private:
  Random& random;
  std::vector<std::string> saved;
  const unsigned char nothing = 0;
};

// Runs `test` on many lists, each with the image of one of its versions.
void onManyStories(unsigned int seed, const std::function<void(Story&, Random&)>& test) {
  Random random(seed);
  for (unsigned int run = 0; run < 300 && !testing::Test::HasFailure(); ++run) {
    Story story(random);
    story.saveAs(random.below(story.list.version() + 1), 1 + run % 4);
    test(story, random);
  }
}

TEST(Recall, BringsBackImagesOfEveryVersion) {
  onManyStories(1, [](Story& story, Random& random) {
    const recallNewer_t newer = random.below(2) != 0 ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER;
    const auto before = story.values();
    story.image.resize(story.image.size() + random.below(3), 0);
    ASSERT_EQ(story.recall(newer), RECALL_OK);
    story.expectRecalled(newer, before);
  });
}

TEST(Recall, ShortOrNewerImagesChangeNothing) {
  onManyStories(2, [](Story& story, Random&) {
    const std::string state = story.list.state();
    for (std::size_t size = 0; size < story.image.size(); ++size) {
      ASSERT_EQ(story.recall(story.image.data(), size, RECALL_INIT_NEWER), RECALL_TOO_SHORT);
      ASSERT_EQ(story.list.state(), state) << size << " bytes of " << story.image.size();
    }
    story.image = naiveImage(story.list.version() + 1, story.verBytes, Bits(4000));
    ASSERT_EQ(story.recall(RECALL_INIT_NEWER), RECALL_NEWER_LIST);
    ASSERT_EQ(story.list.state(), state);
  });
}

// Each variable in turn stands in the way, first by refusing and then by contradicting.
TEST(Recall, OneUnwillingVariableStopsAllOfThem) {
  onManyStories(3, [](Story& story, Random& random) {
    const recallNewer_t newer = random.below(2) != 0 ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER;
    for (std::size_t i = 0; i < story.list.items.size(); ++i) {
      Watch* const watch = story.list.items[i]->watch();
      if (watch == nullptr || !story.takesPart(i, newer)) {
        continue;
      }
      const std::string state = story.list.state();
      watch->refuse = true;
      ASSERT_EQ(story.recall(newer), RECALL_REFUSED);
      watch->refuse = false;
      ASSERT_EQ(story.list.state(), state) << "row " << i << " refused";
      watch->inconsistent = true;
      ASSERT_EQ(story.recall(newer), RECALL_INCONSISTENT);
      watch->inconsistent = false;
      ASSERT_EQ(story.list.state(), state) << "row " << i << " contradicted";
    }
    // A variable that the image does not hold has no say.
    for (std::size_t i = 0; i < story.list.items.size(); ++i) {
      if (story.list.items[i]->watch() != nullptr && !story.takesPart(i, newer)) {
        *story.list.items[i]->watch() = {true, true, 0};
      }
    }
    ASSERT_EQ(story.recall(newer), RECALL_OK);
  });
}

TEST(Recall, RandomBytesAreTakenWholeOrNotAtAll) {
  onManyStories(4, [](Story& story, Random& random) {
    for (int i = 0; i < 20; ++i) {
      std::vector<unsigned char> noise(random.below(40));
      for (unsigned char& byte : noise) {
        byte = static_cast<unsigned char>(random.word());
      }
      for (unsigned int k = 0; k < story.verBytes && k < noise.size(); ++k) {
        noise[k] = static_cast<unsigned char>(k == 0 ? random.below(8) : 0);
      }
      story.list.change(random);
      const std::string state = story.list.state();
      if (story.recall(noise.data(), noise.size(), RECALL_INIT_NEWER) != RECALL_OK) {
        ASSERT_EQ(story.list.state(), state);
      }
      // Whatever came in, every variable holds a value that its field can save.
      unsigned char out[400];
      ASSERT_GE(createPreset(out, sizeof out, 4, story.list.table()), 4);
    }
  });
}

TEST(Recall, TooLittleUndoMemoryIsToldInAdvance) {
  onManyStories(5, [](Story& story, Random&) {
    unsigned char undo[100];
    const unsigned int need = presetUndoSize(story.list.table());
    const auto recall = [&](unsigned int undoSize) {
      return recallPreset(story.image.data(), static_cast<unsigned int>(story.image.size()),
                          story.verBytes, story.list.table(), RECALL_INIT_NEWER, undo, undoSize);
    };
    const std::string state = story.list.state();
    if (need > 0) {
      ASSERT_EQ(recall(need - 1), RECALL_NO_UNDO);
      ASSERT_EQ(story.list.state(), state);
    }
    ASSERT_EQ(recall(need), RECALL_OK);
  });
}

// A lower and an upper limit, each consistent only while they do not cross.
class Limit : public ReadWriteVarMgrSimpleInt {
 public:
  using ReadWriteVarMgrSimpleInt::ReadWriteVarMgrSimpleInt;
  bool isConsistent() override { return lower->get() <= upper->get(); }
  const Limit* lower = nullptr;
  const Limit* upper = nullptr;
};

TEST(Recall, JudgesTheValuesTogether) {
  int low = 10, high = 20;
  RefreshMgr group;
  const bounds_t percent[] = {{0, 100}, BOUNDS_END};
  Limit lower(low, group, 10, percent, RANGE_CLIP);
  Limit upper(high, group, 20, percent, RANGE_CLIP);
  lower.lower = upper.lower = &lower;
  lower.upper = upper.upper = &upper;
  PresetFieldVarInt lowField(lower), highField(upper);
  const verPresetField_t list[] = {
      {0, PRESET_FIELD_VALID, &lowField}, {0, PRESET_FIELD_VALID, &highField}, {0, 0, nullptr}};
  initPreset(list);
  const auto recall = [&](unsigned int l, unsigned int h) {
    Bits bits;
    putBits(bits, l, 7);
    putBits(bits, h, 7);
    const auto image = naiveImage(0, 1, bits);
    return recallPreset(image.data(), static_cast<unsigned int>(image.size()), 1, list,
                        RECALL_KEEP_NEWER, nullptr, 0);
  };
  // Staged one by one, the lower limit would pass the upper one that is still the old.
  EXPECT_EQ(recall(40, 60), RECALL_OK);
  EXPECT_TRUE(low == 40 && high == 60);
  EXPECT_EQ(recall(50, 45), RECALL_INCONSISTENT);
  EXPECT_TRUE(low == 40 && high == 60 && lower.get() == 40 && upper.get() == 60);
  // What a later commit of all variables publishes is not the image that failed.
  EXPECT_EQ(applyPreset(nullptr, 0, 1, list), 0);
  EXPECT_TRUE(low == 40 && high == 60);
}

TEST(Recall, TruncatedVersionsAreTheYoungestThatFit) {
  int kept = 0, late = 0;
  RefreshMgr group;
  const bounds_t byte[] = {{0, 255}, BOUNDS_END};
  ReadWriteVarMgrSimpleInt first(kept, group, 1, byte, RANGE_CLIP);
  ReadWriteVarMgrSimpleInt second(late, group, 2, byte, RANGE_CLIP);
  PresetFieldVarInt firstField(first), secondField(second);
  const verPresetField_t list[] = {{0, PRESET_FIELD_VALID, &firstField},
                                   {300, PRESET_FIELD_VALID, &secondField},
                                   {0, 0, nullptr}};
  const struct {
    unsigned char image[3];
    unsigned int size, verSize;
    recall_t result;
    int kept, late;
  } cases[] = {
      {{44, 7, 9}, 3, 1, RECALL_OK, 7, 9},  // version 300
      {{44, 7}, 2, 1, RECALL_TOO_SHORT, 1, 2},
      {{45, 7, 9}, 3, 1, RECALL_OK, 7, 2},  // version 45
      {{44, 0, 7}, 3, 2, RECALL_OK, 7, 2},  // version 44
      {{44, 1, 7}, 3, 2, RECALL_TOO_SHORT, 1, 2},
      {{45, 1, 7}, 3, 2, RECALL_NEWER_LIST, 1, 2},
  };
  for (const auto& c : cases) {
    initPreset(list);
    applyPreset(nullptr, 0, 1, list);
    EXPECT_EQ(recallPreset(c.image, c.size, c.verSize, list, RECALL_KEEP_NEWER, nullptr, 0),
              c.result);
    EXPECT_EQ(kept, c.kept);
    EXPECT_EQ(late, c.late);
  }
  EXPECT_FATAL(recallPreset(nullptr, 2, 1, list, RECALL_KEEP_NEWER, nullptr, 0), "buf != nullptr");
  EXPECT_FATAL(recallPreset(byte, 2, 5, list, RECALL_KEEP_NEWER, nullptr, 0), "verSize");
  EXPECT_FATAL(recallPreset(byte, 2, 1, list, RECALL_KEEP_NEWER, nullptr, 1), "undo != nullptr");
}

// A field class written before recalls existed.
class OldField : public PresetFieldVar {
 public:
  using PresetFieldVar::PresetFieldVar;
  int set(void**, unsigned int, unsigned int&) override { return 0; }
  int get(void**, unsigned int, unsigned int&) override { return setVar("\x07", 1); }
};

TEST(Recall, FieldsThatDoNotTellTheirWidthAreNotGuessed) {
  int glob = 3;
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt var(glob, group, 3, nullptr, RANGE_CLIP);
  OldField field(var);
  const verPresetField_t list[] = {{0, PRESET_FIELD_VALID, &field}, {0, 0, nullptr}};
  initPreset(list);
  const unsigned char image[2] = {0, 0xFF};
  EXPECT_EQ(recallPreset(image, 2, 1, list, RECALL_KEEP_NEWER, nullptr, 0), RECALL_NO_WIDTH);
  EXPECT_EQ(var.get(), 3);
}

}  // namespace
