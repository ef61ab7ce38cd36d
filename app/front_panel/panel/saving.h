// Saving: where the panel keeps presets.xml, and its backup. Main thread only; nothing stops the
// process.
#pragma once

#include <string>

/// Takes the working directory for this process, restores the settings from presets.xml or writes
/// it anew, and starts the saving in the background. False with the reason in `why` when another
/// panel keeps its files here, or when presets.xml cannot be written.
bool openSettings(std::string& why);
