// Store: the preset store of the panel, kept in a file, and the commands that show and change it.
//
// The file stands in for the flash of a device. It is served from the periodic loop, a few words
// at a time, and what still waits is written when the process ends. The medium is durable: a
// preset that has been flushed survives a power cut of the whole machine. Main thread only;
// nothing stops the process.
//
// Presets and setups share the store. Each has types of its own, so no command of one touches a
// record of the other; only "preset format" empties the store as a whole:
//
//   type 0              the setup without a number
//   types 1 to 4095     user setups 0 to 4094
//   types 4096 to 8191  presets 0 to 4095
//
// Older panels gave preset N the type N and user setups every type but 0. What one of them has left
// in the other half is moved at the start, and told: a preset keeps its number, a user setup from
// 4095 on gets the highest free one. A preset that had the number 4096 + N is preset N from now on.
#pragma once

#include "commands.h"
#include "presetformat.h"

/// The type of preset 0.
constexpr unsigned int PRESET_TYPES = 4096;
/// The highest number of a preset.
constexpr unsigned int LAST_PRESET = PRESET_TYPE_MASK - PRESET_TYPES;
/// The highest number of a user setup, which has the type behind its number.
constexpr unsigned int LAST_USER_SETUP = PRESET_TYPES - 2;

/// The command "preset", with its commands list, write, read, remove, flush, format and map.
extern const Command STORE_COMMANDS[];

/// Puts the store on the file `path`, which is made if it is missing. Call once, before anything
/// uses a preset. A damaged file that may have held presets is kept aside as `path`.damaged-1 or
/// the next number, with a message, and the store works on a copy. False, with a message, when the
/// file cannot be used or not be kept.
bool storeStart(const char* path);

/// Moves what an older panel has left in the wrong half of the types. Call once, behind storeStart
/// and consoleStart, before a setup is used.
void storeSeparate();

/// True when a preset of an older panel stands at `type`, one of the setups': there was no room to
/// move it. It can be used as before, and the setups' commands leave it alone.
bool storeHoldsText(unsigned int type);

/// Periodic work: passes of the write-behind service.
void storeService();

/// Brings everything to the file before the process ends. False, with a message, when it cannot.
bool storeEnd();
