// Any bytes as a preset image: recalled whole or without a trace, and never read behind its end.
//
// The first bytes choose the version's size, what newer rows do, and which variable is in the way
// and how; all others are the image.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "debug.h"
#include "presetlist.h"
#include "presetrecall.h"

namespace {

// Every kind of field, with rows that came and went; its version takes two bytes.
struct List {
  List() {
    Random random(1);
    initPreset(table);
    for (Item* item : items) {
      item->change(random);
    }
  }
  std::string state() const {
    std::string all;
    for (Item* item : items) {
      all +=
          item->value() + "/" + item->working() + "/" + std::to_string(item->watch()->open) + "\n";
    }
    return all;
  }

  unsigned char scratch[16];
  FillItem fill{true, 5};
  IntItem gapped{{{-20, 10}, {20, 30}, BOUNDS_END}}, dropped{7, false}, newest{32, true};
  StrItem digits{ReadWriteVarMgrStr::BOUNDS_DIGIT, 8, PresetFieldVarStr::MODE_AUTO, scratch,
                 sizeof scratch};
  StrItem name{ReadWriteVarMgrStr::BOUNDS_PRINTABLE, 4, PresetFieldVarStr::MODE_MANUAL, scratch,
               sizeof scratch};
  Item* items[5] = {&gapped, &dropped, &name, &digits, &newest};
  verPresetField_t table[7] = {{0, PRESET_FIELD_VALID, &gapped.field()},
                               {0, 2, &dropped.field()},
                               {1, PRESET_FIELD_VALID, &fill.field()},
                               {2, 4, &name.field()},
                               {2, ~0UL, &digits.field()},
                               {300, PRESET_FIELD_VALID, &newest.field()},
                               {0, 0, nullptr}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t HEAD = 2;
  if (size < HEAD) {
    return 0;
  }
  const std::unique_ptr<std::uint8_t[]> image(new std::uint8_t[size - HEAD]);
  std::copy(data + HEAD, data + size, image.get());
  List list;
  Watch* const watch = list.items[data[1] % 5]->watch();
  watch->refuse = (data[0] & 8) != 0;
  watch->judge = [&] { return (data[0] & 16) == 0; };

  const unsigned int verSize = 1 + data[0] % 4;
  std::vector<unsigned char> undo(presetUndoSize(list.table));
  const unsigned int undoSize = static_cast<unsigned int>(undo.size());
  const std::string before = list.state();
  const recall_t result =
      recallPreset(image.get(), static_cast<unsigned int>(size - HEAD), verSize, list.table,
                   (data[0] & 4) != 0 ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER, undo.data(),
                   (data[0] & 32) != 0 ? 3 : undoSize);
  if (result != RECALL_OK) {
    CTRL_ASSERT(list.state() == before);
    return 0;
  }
  // What has taken effect packs into an image that changes nothing.
  *watch = {};
  const std::string after = list.state();
  unsigned char again[400];
  const int length = createPreset(again, sizeof again, verSize, list.table);
  CTRL_ASSERT(length > 0);
  CTRL_ASSERT(recallPreset(again, static_cast<unsigned int>(length), verSize, list.table,
                           RECALL_KEEP_NEWER, undo.data(), undoSize) == RECALL_OK);
  CTRL_ASSERT(list.state() == after);
  return 0;
}
