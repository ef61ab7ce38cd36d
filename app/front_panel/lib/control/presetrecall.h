// Recall: turns a preset image of any version back into the values of its variables, as one change.
//
// Either every row takes effect or none does, and the result says which. The application owns the
// list (presetmake.h), the image and the undo memory. Nothing allocates, prints or locks: one list
// is walked by one thread at a time. Null pointers, a `verSize` that is not 1 to 4 and faults of
// the list are fatal assertions; nothing in an image is.
#pragma once

#include "presetmake.h"

/// What becomes of a variable whose row came in later than the image.
enum recallNewer_t {
  RECALL_KEEP_NEWER = 0,  ///< it keeps its present value
  RECALL_INIT_NEWER = 1,  ///< it goes to its initial value
};

/// Result of a recall. On every one but RECALL_OK no variable has changed.
enum recall_t {
  RECALL_OK = 0,            ///< all rows have taken effect
  RECALL_TOO_SHORT = 1,     ///< the image ends before its last field
  RECALL_NEWER_LIST = 2,    ///< the image is of a version above the list's
  RECALL_REFUSED = 3,       ///< a variable refused its transaction
  RECALL_INCONSISTENT = 4,  ///< a variable may not be published with the values of the image
  RECALL_NO_UNDO = 5,       ///< the undo memory is too small
  RECALL_UNABLE = 6,        ///< a field class is not made for recalls, see below
  RECALL_NOT_FOUND = 7,     ///< the store holds no record of that type
  RECALL_BUSY = 8,          ///< the record is open elsewhere
  RECALL_UNREADABLE = 9,    ///< the store could not deliver the record
};

/// The bytes of undo memory that any recall into `list` needs: maxlen() for each current text
/// field, nothing for integers and for field classes that are not made for recalls. REQUIRES:
/// `list` not null.
unsigned int presetUndoSize(const verPresetField_t* list);

/// Brings back an image of any version up to the list's own, as one change.
///
/// `buf`, `size`: the image and its length in bytes; bytes behind its last field are ignored.
/// `newer`: see recallNewer_t. `undo`, `undoSize`: memory in which the present texts are kept
/// until nothing can fail any more; `undo` may be null when `undoSize` is 0.
///
/// The rows that were current in the image's version are read in list order. A row that was
/// dropped since is read over, and its variable is not touched: no transaction, no value. Rows
/// that came in since are treated as `newer` says; a kept one is not touched either.
///
/// A field class of the application that has no PresetRecallField (presetvar.h) cannot be read over
/// or taken back. A recall that meets one, other than in a row that it does not touch, is refused
/// before anything is changed, and one whose get takes another number of bits than it tells is
/// refused and taken back: both RECALL_UNABLE.
///
/// First the version and the length are judged, then the transactions are opened and the values
/// staged, then every variable is asked whether it is consistent, and only then are all values
/// published, without a further chance to fail. On any failure the variables work with exactly
/// the values that they had before, and in every case each transaction that was opened is ended. A
/// value that its variable no longer allows is forced into the bounds.
///
/// When `verSize` bytes are too few for the list's version, they no longer tell the version of an
/// image. It is then the greatest one, not above the list's own, that ends in the stored bytes:
/// with list version 300 and 1 byte, 44 is version 300 and 200 is version 200. So images of the
/// list's own version always come back, and so do those of the 256^verSize - 1 versions before it.
/// An older image is taken for a younger one and comes back wrong, without an error, and so does
/// one of a newer list whose version was cut to a number that this list has had. From list version
/// 256^verSize - 1 on, no image is refused as newer. A `verSize` that holds every list version, as
/// 4 always does, avoids all this.
///
/// The values reach the application's globals as by a confirmed set request: an application that
/// also keeps the preset file calls Set_need_save behind it.
/// REQUIRES: `buf` not null.
recall_t recallPreset(const void* buf, unsigned int size, unsigned int verSize,
                      const verPresetField_t* list, recallNewer_t newer, void* undo,
                      unsigned int undoSize);

/// A short text for a result, for the user of a panel.
const char* recallText(recall_t result);
