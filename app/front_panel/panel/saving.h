// Saving: how confirmed settings reach presets.xml, now, later and when the process ends.
//
// The preset thread reads every saved control at a time of its own, while the main thread serves
// requests. So its table holds a CtrlSaved for each entry, which reads the confirmed value under
// `settingsLock`: the file never holds a value that was set but not confirmed, and a save in the
// background cannot disturb a request. All functions here belong to the main thread. Nothing stops
// the process.
#pragma once

#include <mutex>
#include <string>

#include "ctrlwrap.h"

/// Guards the confirmed settings. The main thread holds it to write them; the preset thread holds
/// it to read them. The main thread needs no lock to read.
extern std::mutex settingsLock;

/// Validates a setting, puts it on the confirm queue and sets it: ctrlDoValidateSet, counted.
int setControl(unsigned int id, unsigned int index, const void* data, unsigned int size);

/// How many settings wait to be confirmed.
unsigned int waitingSets();

/// Confirms every setting that waits. Returns how many there were; the preset file is marked as out
/// of date unless there were none.
unsigned int confirmSettings();

/// Takes the working directory for this process, restores the controls of `table` from presets.xml
/// or writes it anew, and starts the saving in the background. False with the reason in `why` when
/// another panel keeps its files here, or when presets.xml cannot be written.
bool openSettings(CtrlReadWrite** table, std::string& why);

/// True when a confirmed setting is not in presets.xml yet.
bool unsavedSettings();

/// Saves now. False when presets.xml could not be written; it then still holds what it held.
bool saveSettings();

/// Ends the saving in the background, and saves what is not saved yet. False when that failed.
bool closeSettings();
