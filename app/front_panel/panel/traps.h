// Traps: what the panel tells a management side, and the commands that show and switch it.
//
// What is watched stands in device.cpp. Each watched control has two trap numbers, for no and for
// yes. Twice a second a pass of the library polls them all; what could not be delivered stays
// pending. The traps are printed here, or sent to the trap generation server (tools/trapserver).
// Main thread only; nothing stops the process.
#pragma once

#include "commands.h"

/// The command "traps".
extern const Command TRAP_COMMANDS[];

/// Where traps go. NONE: they are off until they are switched on, and then printed.
enum class TrapOutput { NONE, PRINT, SERVER };

/// Sets the traps up. Call once, after the settings are restored.
void trapsStart(TrapOutput output);

/// One pass over all traps, now; also before the process ends, so that no change stays untold.
/// False when one could not be delivered.
bool trapsPass();

/// Periodic: a pass when its time has come.
void trapsService();
