// Setups: the settings as a whole, saved in the preset store and recalled as one change.
//
// A setup is an image of the field list in setups.cpp, packed to the bit; the list is what to copy
// for a device of your own. There is the setup without a number, and user setups with one. Images
// of older versions of the list are recalled too. A recall writes `settings` with `settingsLock`
// held. Main thread only; a fault in the list stops the process in setupStart.
#pragma once

#include "commands.h"

/// The command "setup", with its commands save, recall, list and remove.
extern const Command SETUP_COMMANDS[];

/// Prepares the field list. Call once, behind storeStart and deviceInit and before the settings
/// are restored, because it brings the variables to their initial values.
void setupStart();
