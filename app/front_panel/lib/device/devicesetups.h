// The setups of a device: settings that are saved in the preset store and recalled as one change.
//
//   const unsigned int BITS[] = {111, 282};      // of an image of version 0, of version 1
//   device::Setups setups(panel, BITS,           // static, behind the device
//                         device::In(gains, 0), device::Dropped(4, 0, 1), device::In(name, 1));
//   panel.start();
//   setups.start();                              // behind the start of the store
//   saveUserSetup(3);                            // presets.h
//   setups.recallUser(3);                        // also one of an older list
//
// The list keeps its history: what is new is told behind what was there, with the next version, and
// what a setup does not hold any more is told the version that dropped it. So every image that was
// ever saved comes back. BITS holds the width of each version's image, and start() compares: a
// change that would make an older image unreadable stops the process there, behind a line that says
// so. A setup is about values in effect: confirm or cancel what waits first, for a save takes it
// and a recall replaces it. The thread of the requests calls everything here; see presetmake.h.
#pragma once

#include "devicetable.h"
#include "presetrecall.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"

namespace device {

/// An item of a list of setups: a family or a gap.
struct SetupItem {
  Family* family;         ///< null for a gap
  unsigned int since;     ///< list version that brought it in
  unsigned long dropped;  ///< list version that took it out, or PRESET_FIELD_VALID
  unsigned int gapBits;   ///< width of a gap
  bool isBeside;          ///< see In::beside
};

/// The settings of a family, in the setups of the list versions from `sinceVersion` on and, if
/// told, in front of `untilVersion`.
template <class F>
struct In {
  static constexpr unsigned int NUMBERS = F::KIND == Kind::TEXT ? 0 : F::SIZE;
  static constexpr unsigned int TEXTS = F::KIND == Kind::TEXT ? F::SIZE : 0;
  static constexpr unsigned int GAPS = 0;
  static_assert(inner::isSaved(F::KIND), "a setup holds settings");

  In(F& ofFamily, unsigned int sinceVersion, unsigned long untilVersion = PRESET_FIELD_VALID)
      : item{&ofFamily, sinceVersion, untilVersion, 0, false} {}
  /// Its values stand beside those of the family in front, first subscript by first subscript.
  In& beside() {
    item.isBeside = true;
    return *this;
  }
  SetupItem item;
};

/// `bits` that a setting took whose family is gone: they are passed over in older images.
struct Dropped {
  static constexpr unsigned int NUMBERS = 0, TEXTS = 0, GAPS = 1;
  Dropped(unsigned int bits, unsigned int since, unsigned long until)
      : item{nullptr, since, until, bits, false} {}
  SetupItem item;
};

/// The list without its memory; see Setups.
class SetupList {
 public:
  SetupList(const SetupList&) = delete;  ///< the setup verbs hold its address
  SetupList& operator=(const SetupList&) = delete;

  /// Checks what was told and hands the list to the setup verbs. Changes no value. Call once,
  /// behind Controls::start and the start of the store.
  void start();
  /// Bytes of an image. REQUIRES: start has run.
  unsigned int imageSize() const;
  /// recallSetup (presets.h), with the file marked and the changes told.
  recall_t recall(recallNewer_t newer = RECALL_KEEP_NEWER);
  /// recallUserSetup, likewise.
  recall_t recallUser(unsigned int which, recallNewer_t newer = RECALL_KEEP_NEWER);
  /// The rows, for the operations of presetmake.h. REQUIRES: start has run.
  const verPresetField_t* list() const { return memory.rows; }

 protected:
  struct Memory {
    const SetupItem* items;
    unsigned int numItems;
    const unsigned int* bits;
    unsigned int numBits;
    verPresetField_t* rows;
    PresetFieldVarInt* numbers;
    PresetFieldVarStr* texts;
    PresetFieldFill* gaps;
    unsigned char* scratch;
    unsigned int scratchSize;
  };
  SetupList(Controls& c, const Memory& m) : controls(c), memory(m) {}
  ~SetupList() = default;

 private:
  struct Cursor {
    verPresetField_t* row;
    PresetFieldVarInt* number;
    PresetFieldVarStr* text;
    PresetFieldFill* gap;
  };
  void checkItem(const SetupItem& item) const;
  void addMembers(const SetupItem& item, unsigned int from, unsigned int to, Cursor& at) const;
  const SetupItem* addItems(const SetupItem* item, Cursor& at) const;
  void checkWidths() const;

  Controls& controls;
  const Memory memory;
};

/// Setups setups(panel, BITS, In(...), ...). The arguments of the template follow from those of the
/// constructor: items, number fields, text fields and gaps.
template <unsigned int ITEMS, unsigned int NUMBERS, unsigned int TEXTS, unsigned int GAPS>
class Setups : public SetupList {
 public:
  /// `bitsOfVersion`: the bits that an image of each list version takes, from version 0 on; a wrong
  /// one is told at the start with the right one. `told`: in the order in which images hold them.
  /// The array stays.
  template <class U, unsigned int VERSIONS, class... I>
  Setups(Controls& ofDevice, U (&bitsOfVersion)[VERSIONS], const I&... told)
      : SetupList(ofDevice, {items, ITEMS, bitsOfVersion, VERSIONS, rows, inner::at(numbers),
                             inner::at(texts), inner::at(gaps), scratch, sizeof scratch}),
        items{told.item...} {}

 private:
  template <class T, unsigned int N>
  using Some = inner::Raw<T, N == 0 ? 1 : N>;
  SetupItem items[ITEMS];
  verPresetField_t rows[NUMBERS + TEXTS + GAPS + 1];
  Some<PresetFieldVarInt, NUMBERS> numbers;
  Some<PresetFieldVarStr, TEXTS> texts;
  Some<PresetFieldFill, GAPS> gaps;
  unsigned char scratch[TEXTS == 0 ? 1 : 1024];  // the longest text
};
template <class U, unsigned int V, class... I>
Setups(Controls&, U (&)[V], const I&...)
    -> Setups<sizeof...(I), (0U + ... + I::NUMBERS), (0U + ... + I::TEXTS), (0U + ... + I::GAPS)>;

}  // namespace device
