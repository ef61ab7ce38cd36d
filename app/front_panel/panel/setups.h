// Setups: the settings as a whole, saved in the preset store and recalled as one change. What a
// setup holds stands in device.cpp. There is the setup without a number, and user setups with one.
// Main thread only; nothing stops the process.
#pragma once

#include "commands.h"

/// The command "setup", with its commands save, recall, list and remove.
extern const Command SETUP_COMMANDS[];
