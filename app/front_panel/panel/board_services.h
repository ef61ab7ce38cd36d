// Board services: the identity of the device, and the check of component files.
//
// The identity comes from the text file board.env in the panel's directory, if it is there when the
// panel starts; it stands for the board's own key and value store. Main thread only; nothing stops
// the process.
#pragma once

#include "commands.h"

/// id, component.
extern const Command BOARD_COMMANDS[];

/// Looks for board.env. Call once, in the panel's directory.
void boardStart();
