// Any bytes as a preset image: recalled whole or without a trace, and never read behind its end.
//
// The first bytes choose the version's size, what newer rows do, which variable is in the way and
// how, and the random list; all others are the image.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "debug.h"
#include "presetlist.h"
#include "presetrecall.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t HEAD = 3;
  if (size < HEAD) {
    return 0;
  }
  const std::unique_ptr<std::uint8_t[]> image(new std::uint8_t[size - HEAD]);
  std::copy(data + HEAD, data + size, image.get());
  Random random(data[2]);
  PresetList list;
  list.addRandomRows(random);
  list.change(random);
  Watch none;
  Watch* watch = list.items.empty() ? nullptr : list.items[data[1] % list.items.size()]->watch();
  watch = watch == nullptr ? &none : watch;
  watch->refuse = (data[0] & 8) != 0;
  watch->judge = [&] { return (data[0] & 16) == 0; };

  std::vector<unsigned char> undo(presetUndoSize(list.table()) + 1);
  const std::string before = list.state();
  const recall_t result =
      recallPreset(image.get(), static_cast<unsigned int>(size - HEAD), 1 + data[0] % 4,
                   list.table(), (data[0] & 4) != 0 ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER,
                   undo.data(), (data[0] & 32) != 0 ? 3 : static_cast<unsigned int>(undo.size()));
  if (result != RECALL_OK) {
    CTRL_ASSERT(list.state() == before);
    return 0;
  }
  // What has taken effect packs into an image that changes nothing.
  *watch = {};
  const std::string after = list.state();
  unsigned char again[400];
  const int length = createPreset(again, sizeof again, 1, list.table());
  CTRL_ASSERT(length > 0);
  CTRL_ASSERT(recallPreset(again, static_cast<unsigned int>(length), 1, list.table(),
                           RECALL_KEEP_NEWER, undo.data(),
                           static_cast<unsigned int>(undo.size())) == RECALL_OK);
  CTRL_ASSERT(list.state() == after);
  return 0;
}
