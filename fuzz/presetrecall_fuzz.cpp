// Any bytes as a preset image: recalled whole or without a trace, and never read behind its end.
//
// The first bytes choose the version's size, what newer rows do, and which variable refuses.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "presetrecall.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"
#include "simplevarmgr.h"

namespace {

void require(bool cond) {
  if (!cond) {
    std::abort();
  }
}

// A simple variable whose transaction can be refused, and is counted.
class Refusable : public ReadWriteVarMgrSimpleInt {
 public:
  using ReadWriteVarMgrSimpleInt::ReadWriteVarMgrSimpleInt;
  bool startXaction() override {
    open += starts ? 1 : 0;
    return starts;
  }
  void endXaction() override { --open; }
  bool isConsistent() override { return consistent; }
  bool starts = true;
  bool consistent = true;
  int open = 0;
};

const bounds_t GAPPED[] = {{-20, 10}, {20, 30}, BOUNDS_END};

struct Globals {
  int gapped, free, flag;
  char digits[7], any[5];
};

struct List {
  List() { initPreset(rows); }

  Globals globals{};
  char digitsWork[7], anyWork[5], digitsScratch[7], anyScratch[5];
  RefreshMgr group;
  Refusable gapped{globals.gapped, group, 5, GAPPED, RANGE_CLIP};
  Refusable free{globals.free, group, -1, nullptr, RANGE_WRAP};
  ReadWriteVarMgrSimpleBool flag{globals.flag, group, ReadWriteVarMgrBool::ON, RANGE_CLIP};
  ReadWriteVarMgrSimpleStr digits{
      group, globals.digits, digitsWork, sizeof digitsWork, ReadWriteVarMgrStr::BOUNDS_DIGIT, "42"};
  ReadWriteVarMgrSimpleStr any{group, globals.any, anyWork, sizeof anyWork, nullptr, "ab"};
  PresetFieldVarInt gappedField{gapped};
  PresetFieldVarInt freeField{free, 12, nullptr, true};
  PresetFieldVarInt flagField{flag};
  PresetFieldVarStr digitsField{digits, digitsScratch, sizeof digitsScratch,
                                PresetFieldVarStr::MODE_AUTO};
  PresetFieldVarStr anyField{any, anyScratch, sizeof anyScratch, PresetFieldVarStr::MODE_MANUAL};
  PresetFieldFill fill{true, 35};
  verPresetField_t rows[7] = {{0, PRESET_FIELD_VALID, &gappedField},
                              {0, 2, &fill},
                              {1, PRESET_FIELD_VALID, &digitsField},
                              {1, 3, &anyField},
                              {3, PRESET_FIELD_VALID, &freeField},
                              {4, PRESET_FIELD_VALID, &flagField},
                              {0, 0, nullptr}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static List list;
  if (size < 1) {
    return 0;
  }
  const unsigned int verSize = 1 + data[0] % 4;
  const recallNewer_t newer = (data[0] & 4) != 0 ? RECALL_INIT_NEWER : RECALL_KEEP_NEWER;
  list.gapped.starts = (data[0] & 8) == 0;
  list.free.starts = (data[0] & 16) == 0;
  list.free.consistent = (data[0] & 32) == 0;
  const std::unique_ptr<std::uint8_t[]> image(new std::uint8_t[size - 1]);
  std::memcpy(image.get(), data + 1, size - 1);

  unsigned char undo[16];
  const Globals before = list.globals;
  const recall_t result =
      recallPreset(image.get(), static_cast<unsigned int>(size - 1), verSize, list.rows, newer,
                   undo, (data[0] & 64) != 0 ? 3 : sizeof undo);
  require(list.gapped.open == 0 && list.free.open == 0);
  if (result != RECALL_OK) {
    require(std::memcmp(&before, &list.globals, sizeof before) == 0);
    return 0;
  }
  const int gapped = list.globals.gapped;
  require((gapped >= -20 && gapped <= 10) || (gapped >= 20 && gapped <= 30));
  require(list.globals.flag == 0 || list.globals.flag == 1);
  require(std::memchr(list.globals.digits, 0, sizeof list.globals.digits) != nullptr);
  require(std::strspn(list.globals.digits, "0123456789") == std::strlen(list.globals.digits));

  // What has taken effect packs into an image that changes nothing.
  const Globals after = list.globals;
  unsigned char again[64];
  const int length = createPreset(again, sizeof again, 1, list.rows);
  require(length > 0);
  list.gapped.starts = list.free.starts = list.free.consistent = true;
  require(recallPreset(again, static_cast<unsigned int>(length), 1, list.rows, RECALL_KEEP_NEWER,
                       undo, sizeof undo) == RECALL_OK);
  require(std::memcmp(&after, &list.globals, sizeof after) == 0);
  return 0;
}
