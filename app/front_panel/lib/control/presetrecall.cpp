#include "presetrecall.h"

#include "bitmanip.h"
#include "debug.h"

namespace {

// What a recall does with a row.
enum role_t {
  ROLE_NONE,   // not in the image, and not touched
  ROLE_READ,   // in the image: its variable gets the value
  ROLE_SKIP,   // in the image, dropped since: read over
  ROLE_RESET,  // not in the image: its variable goes to the initial value
};

// The recall's side of a row's field, or null.
PresetRecallField* recallField(const verPresetField_t& row) {
  return row.field->preset_recall_field_();
}

// One recall on its way. The undo memory is filled in list order and emptied from its end, so a
// variable that has two fields gets back its first value.
class Recall {
 public:
  Recall(const void* buf, unsigned int size, unsigned int verSize, const verPresetField_t* l,
         recallNewer_t n, void* u, unsigned int us)
      : list(l),
        newer(n),
        image(static_cast<const unsigned char*>(buf)),
        imageSize(size),
        verBytes(verSize),
        undo(static_cast<unsigned char*>(u)),
        undoSize(us) {}

  recall_t run();

 private:
  recall_t readVersion();
  recall_t survey() const;
  recall_t stage();
  recall_t stageRow(const verPresetField_t& row, role_t r, void** pre, unsigned int& room,
                    unsigned int& bit);
  recall_t check();
  void publish() const;
  void backOut(const verPresetField_t* end);
  role_t role(const verPresetField_t& row) const;
  static bool isStaged(role_t r) { return r == ROLE_READ || r == ROLE_RESET; }
  bool staged(const verPresetField_t& row) const { return isStaged(role(row)); }

  const verPresetField_t* const list;
  const recallNewer_t newer;
  const unsigned char* const image;
  const unsigned int imageSize;
  const unsigned int verBytes;
  unsigned char* const undo;
  const unsigned int undoSize;
  unsigned int ver = 0;       // of the image
  unsigned int undoUsed = 0;  // bytes
};

// A row was in the stream of every version from `ver` up to the one that dropped it.
role_t Recall::role(const verPresetField_t& row) const {
  const bool inStream = presetVersion(row.ver) <= ver;
  if (isPresetCurrent(row)) {
    if (inStream) {
      return ROLE_READ;
    }
    return newer == RECALL_INIT_NEWER ? ROLE_RESET : ROLE_NONE;
  }
  return inStream && presetVersion(row.remove) > ver ? ROLE_SKIP : ROLE_NONE;
}

// Finds the greatest version up to the list's own that is stored as the image's header.
recall_t Recall::readVersion() {
  if (imageSize < verBytes) {
    return RECALL_TOO_SHORT;
  }
  unsigned int stored = 0;
  for (unsigned int i = verBytes; i > 0; --i) {
    stored = (stored << BYTE_BITS) | image[i - 1];
  }
  const unsigned int listVer = presetVersion(presetListVersion(list));
  if (stored > listVer) {
    return RECALL_NEWER_LIST;
  }
  const unsigned int distance = (listVer - stored) & calcBitMask(verBytes * BYTE_BITS);
  ver = listVer - distance;
  return RECALL_OK;
}

// Judges the length of the image and of the undo memory, without touching any variable.
recall_t Recall::survey() const {
  unsigned int room = presetBits(imageSize - verBytes);
  unsigned int undoRoom = undoSize;
  for (const verPresetField_t* row = list; row->field != nullptr; ++row) {
    const role_t r = role(*row);
    if (r == ROLE_NONE) {
      continue;
    }
    const PresetRecallField* const field = recallField(*row);
    if (field == nullptr) {
      return RECALL_UNABLE;
    }
    if (r == ROLE_READ || r == ROLE_SKIP) {
      if (field->recallWidth() > room) {
        return RECALL_TOO_SHORT;
      }
      room -= field->recallWidth();
    }
    if (isStaged(r)) {
      if (field->recallUndoSize() > undoRoom) {
        return RECALL_NO_UNDO;
      }
      undoRoom -= field->recallUndoSize();
    }
  }
  return RECALL_OK;
}

recall_t Recall::stageRow(const verPresetField_t& row, role_t r, void** pre, unsigned int& room,
                          unsigned int& bit) {
  if (r == ROLE_RESET) {
    return row.field->reset() == 0 ? RECALL_OK : RECALL_REFUSED;
  }
  const int bits = row.field->get(pre, room, bit);
  if (bits < 0) {
    return RECALL_REFUSED;  // the survey has found the image long enough
  }
  room -= static_cast<unsigned int>(bits);
  return static_cast<unsigned int>(bits) == recallField(row)->recallWidth() ? RECALL_OK
                                                                            : RECALL_UNABLE;
}

// Opens the transactions and stages the values. Behind a failure all of it is backed out.
recall_t Recall::stage() {
  // The cursor of the fields is not const, but get only reads.
  void* pre = const_cast<unsigned char*>(image + verBytes);
  unsigned int bit = BYTE_MSBIT;
  unsigned int room = presetBits(imageSize - verBytes);
  AssertSubject about(AssertSubject::PRESET_ROW);
  for (const verPresetField_t* row = list; row->field != nullptr; ++row, about.next()) {
    const role_t r = role(*row);
    if (r == ROLE_SKIP) {
      const unsigned int bits = recallField(*row)->recallWidth();
      const unsigned int ahead = BYTE_MSBIT - bit + bits;
      pre = static_cast<unsigned char*>(pre) + ahead / BYTE_BITS;
      bit = BYTE_MSBIT - ahead % BYTE_BITS;
      room -= bits;
    }
    if (!isStaged(r)) {
      continue;
    }
    recallField(*row)->recallKeep(undo + undoUsed);
    const recall_t result = stageRow(*row, r, &pre, room, bit);
    if (result == RECALL_REFUSED) {  // its variable has taken nothing
      backOut(row);
      return result;
    }
    undoUsed += recallField(*row)->recallUndoSize();
    if (result != RECALL_OK) {
      backOut(row + 1);
      return result;
    }
  }
  return RECALL_OK;
}

// Puts back the values of the staged rows in front of `end` and ends their transactions.
void Recall::backOut(const verPresetField_t* end) {
  while (end != list) {
    --end;
    if (staged(*end)) {
      undoUsed -= recallField(*end)->recallUndoSize();
      recallField(*end)->recallPutBack(undo + undoUsed);
      end->field->endCommit();
    }
  }
}

recall_t Recall::check() {
  const verPresetField_t* end = list;
  bool consistent = true;
  for (; end->field != nullptr; ++end) {
    consistent = consistent && (!staged(*end) || recallField(*end)->recallIsConsistent());
  }
  if (!consistent) {
    backOut(end);
    return RECALL_INCONSISTENT;
  }
  return RECALL_OK;
}

void Recall::publish() const {
  for (const verPresetField_t* row = list; row->field != nullptr; ++row) {
    if (staged(*row)) {
      recallField(*row)->recallPublish();
    }
  }
  for (const verPresetField_t* row = list; row->field != nullptr; ++row) {
    if (staged(*row)) {
      row->field->endCommit();
    }
  }
}

recall_t Recall::run() {
  recall_t result = readVersion();
  if (result == RECALL_OK) {
    result = survey();
  }
  if (result == RECALL_OK) {
    result = stage();
  }
  if (result == RECALL_OK) {
    result = check();
  }
  if (result == RECALL_OK) {
    publish();
  }
  return result;
}

}  // namespace

unsigned int presetUndoSize(const verPresetField_t* list) {
  CTRL_ASSERT(list != nullptr);
  unsigned int bytes = 0;
  for (const verPresetField_t* row = list; row->field != nullptr; ++row) {
    const PresetRecallField* const field = recallField(*row);
    bytes += isPresetCurrent(*row) && field != nullptr ? field->recallUndoSize() : 0;
  }
  return bytes;
}

recall_t recallPreset(const void* buf, unsigned int size, unsigned int verSize,
                      const verPresetField_t* list, recallNewer_t newer, void* undo,
                      unsigned int undoSize) {
  CTRL_ASSERT(list != nullptr);
  CTRL_ASSERT(buf != nullptr);
  CTRL_ASSERT(verSize >= 1 && verSize <= PRESET_VER_SIZE_MAX);
  CTRL_ASSERT(undo != nullptr || undoSize == 0);
  return Recall(buf, size, verSize, list, newer, undo, undoSize).run();
}

const char* recallText(recall_t result) {
  switch (result) {
    case RECALL_OK:
      return "recalled";
    case RECALL_TOO_SHORT:
      return "the image is too short";
    case RECALL_NEWER_LIST:
      return "the image is of a newer version";
    case RECALL_REFUSED:
      return "a variable is busy";
    case RECALL_INCONSISTENT:
      return "a variable does not accept the values";
    case RECALL_NO_UNDO:
      return "the undo memory is too small";
    case RECALL_UNABLE:
      return "a field is not made for recalls";
    case RECALL_NOT_FOUND:
      return "nothing is saved there";
    case RECALL_BUSY:
      return "the record is in use";
    case RECALL_UNREADABLE:
      return "the record cannot be read";
  }
  return "unknown result";
}
