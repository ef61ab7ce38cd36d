// Preset images in the store: saves a list of variables as a record, and recalls it.
//
// The application owns the list (presetmake.h) and the buffer in which an image is built or read.
// A record is found by its type, of which the store keeps the low 13 bits. Nothing prints,
// allocates or locks: these run on the thread of the store (presetmgr.h). Faults of the list are
// fatal assertions. presets.h has the short verbs over these.
#pragma once

#include "presetrecall.h"

/// Makes what the variables of `list` hold take effect: applyPreset with these arguments. It reads
/// no record, and `type` does not matter: see recallStored.
int loadPreset(unsigned short type, void* buf, unsigned int size, unsigned int verSize,
               const verPresetField_t* list);

/// Saves the image of `list`, built in the `size` bytes at `buf`, as the record of `type`; a record
/// that is absent or open elsewhere leads to a new one. With `flush` the store begins to write at
/// once. 0; 1: no record could be opened; 2: the store has no room; negative: the result of
/// createPreset, and what the store held before stays.
int storePreset(unsigned short type, void* buf, unsigned int size, unsigned int verSize,
                const verPresetField_t* list, bool flush);

/// Recalls the first record of `type`: reads it into the `size` bytes at `buf`, and then
/// recallPreset. RECALL_NOT_FOUND, RECALL_BUSY and RECALL_UNREADABLE tell what the store refused.
recall_t recallStored(unsigned short type, void* buf, unsigned int size, unsigned int verSize,
                      const verPresetField_t* list, recallNewer_t newer, void* undo,
                      unsigned int undoSize);

/// Removes every record of `type`. ERR_OK; ERR_NOT_FOUND; ERR_CANNOT_OPEN: one is open elsewhere
/// and stays.
int removeStored(unsigned short type);
