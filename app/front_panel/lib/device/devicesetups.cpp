#include "devicesetups.h"

#include <cstdio>

#include "debug.h"
#include "presets.h"

namespace device {

namespace {

bool wrongGap(bool bad, const char* what) {
  if (bad) {
    std::printf("device: a Dropped in the setups: %s\n", what);
  }
  return bad;
}

bool wrongVersion(bool bad, unsigned int version, unsigned int is, unsigned int isTold,
                  const char* what) {
  if (bad) {
    std::printf(
        "device: the setups' images of list version %u have %u bits, and not %u as told: %s\n",
        version, is, isTold, what);
  }
  return bad;
}

constexpr char VERSIONS[] = "it comes in with a version in front of the one that drops it";

}  // namespace

// What can be told without the fields.
void SetupList::checkItem(const SetupItem& item) const {
  if (item.family == nullptr) {
    CTRL_ASSERT(!wrongGap(item.since >= item.dropped, VERSIONS));
    return;
  }
  const Family& f = *item.family;
  CTRL_ASSERT(!f.wrong(item.since >= item.dropped, VERSIONS));
  CTRL_ASSERT(!f.wrong(item.isBeside && &item == memory.items,
                       "it stands beside the family in front, and there is none"));
  CTRL_ASSERT(!f.wrong(!f.isTaken(), "it is in the setups and not in the device: name it there"));
  const Facts& facts = f.facts();
  CTRL_ASSERT(!f.wrong(facts.type == DATA_TYPE_STRING && facts.bounds == nullptr,
                       "a text in a setup needs a character class: take BOUNDS_PRINTABLE"));
  const bounds_t* const bounds = facts.bounds;
  const unsigned int rows = calcNumBounds(bounds);
  for (unsigned int i = 1; bounds != nullptr && i < rows; ++i) {
    CTRL_ASSERT(!f.wrong(bounds[i].min == bounds[i - 1].max,
                         "it is in the setups, and two of its bounds rows touch: join them"));
  }
}

void SetupList::addMembers(const SetupItem& item, unsigned int from, unsigned int to,
                           Cursor& at) const {
  const Family& f = *item.family;
  for (unsigned int k = from; k < to; ++k) {
    ReadWriteVarMgr& var = *f.variable(k);
    PresetField* field;
    if (f.text(k) != nullptr) {
      field =
          new (at.text++) PresetFieldVarStr(static_cast<ReadWriteVarMgrStr&>(var), memory.scratch,
                                            memory.scratchSize, PresetFieldVarStr::MODE_AUTO);
    } else {
      field = new (at.number++) PresetFieldVarInt(static_cast<ReadWriteVarMgrInt&>(var));
    }
    *at.row++ = {item.since, item.dropped, field};
  }
}

// Adds `item` and those beside it; returns the item behind them.
const SetupItem* SetupList::addItems(const SetupItem* item, Cursor& at) const {
  const SetupItem* const end = memory.items + memory.numItems;
  const SetupItem* behind = item + 1;
  while (behind != end && behind->isBeside) {
    const Family& f = *behind->family;
    CTRL_ASSERT(
        !f.wrong(item->family == nullptr || item->family->facts().dim[0] != f.facts().dim[0],
                 "it stands beside a family with another first dimension"));
    ++behind;
  }
  if (item->family == nullptr) {
    *at.row++ = {item->since, item->dropped, new (at.gap++) PresetFieldFill(false, item->gapBits)};
    return behind;
  }
  const unsigned int first = behind == item + 1 ? 1 : item->family->facts().dim[0];
  for (unsigned int i = 0; i < first; ++i) {
    for (const SetupItem* p = item; p != behind; ++p) {
      const unsigned int part = p->family->size() / first;
      addMembers(*p, i * part, (i + 1) * part, at);
    }
  }
  return behind;
}

// Compares each version's width with the one told.
void SetupList::checkWidths() const {
  const unsigned long newest = presetListVersion(memory.rows);
  bool allGood = true;
  for (unsigned int v = 0; v <= newest; ++v) {
    unsigned int bits = 0;
    for (const verPresetField_t* row = memory.rows; row->field != nullptr; ++row) {
      const bool inImage = row->ver <= v && (isPresetCurrent(*row) || row->remove > v);
      bits += inImage ? row->field->preset_recall_field_()->recallWidth() : 0;
    }
    const unsigned int isTold = v < memory.numBits ? memory.bits[v] : 0;
    const bool bad = wrongVersion(
        v >= memory.numBits || bits != isTold, v, bits, isTold,
        v == newest ? "tell the new number, if the version is new; else undo the change"
                    : "what is new comes last with a version of its own; bounds stay");
    allGood = allGood && !bad;
  }
  for (unsigned int v = static_cast<unsigned int>(newest) + 1; v < memory.numBits; ++v) {
    allGood = !wrongVersion(true, v, 0, memory.bits[v], "nothing came in or left with it");
  }
  CTRL_ASSERT(allGood);
}

void SetupList::start() {
  Cursor at = {memory.rows, memory.numbers, memory.texts, memory.gaps};
  const SetupItem* const end = memory.items + memory.numItems;
  for (const SetupItem* item = memory.items; item != end; ++item) {
    checkItem(*item);
  }
  for (const SetupItem* item = memory.items; item != end;) {
    item = addItems(item, at);
  }
  *at.row = {0, 0, nullptr};
  initPresets(memory.rows);
  controls.follow();
  checkWidths();
  constexpr unsigned int LARGEST = 1024;  // what the setup verbs build an image in
  if (imageSize() > LARGEST) {
    std::printf(
        "device: an image of the setups takes %u bytes: leave out what makes it more than %u\n",
        imageSize(), LARGEST);
  }
  CTRL_ASSERT(imageSize() <= LARGEST);
}

unsigned int SetupList::imageSize() const {
  return 1 + (memory.bits[presetListVersion(memory.rows)] + 7) / 8;
}

recall_t SetupList::recall(recallNewer_t newer) {
  controls.lock();
  const recall_t result = recallSetup(newer);
  controls.unlock();
  controls.settled(result == RECALL_OK);
  return result;
}

recall_t SetupList::recallUser(unsigned int which, recallNewer_t newer) {
  controls.lock();
  const recall_t result = recallUserSetup(which, newer);
  controls.unlock();
  controls.settled(result == RECALL_OK);
  return result;
}

}  // namespace device
