// Store: the preset store of the panel, kept in a file, and the commands that show and change it.
//
// The file stands in for the flash of a device. It is served from the periodic loop, a few words
// at a time, and what still waits is written when the process ends. The medium is durable: a
// preset that has been flushed survives a power cut of the whole machine. Main thread only;
// nothing stops the process.
#pragma once

#include "commands.h"

/// The command "preset", with its commands list, write, read, remove, flush, format and map.
extern const Command STORE_COMMANDS[];

/// Puts the store on the file `path`, which is made if it is missing. Call once, before anything
/// uses a preset. False, with a message, when the file cannot be used.
bool storeStart(const char* path);

/// Periodic work: passes of the write-behind service.
void storeService();

/// Brings everything to the file before the process ends. False, with a message, when it cannot.
bool storeEnd();
