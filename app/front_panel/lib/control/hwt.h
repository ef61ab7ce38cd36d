// The hardware watchdog.
//
// Long work calls hwt_service often enough that the board is not reset in the middle of it. On
// this platform there is no such watchdog. No state; any thread; nothing here stops the process.
#pragma once

/// Serves the watchdog. Does nothing on this platform.
void hwt_service();
