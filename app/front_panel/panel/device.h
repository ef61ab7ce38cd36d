// The device, as the rest of the panel sees it. What it is made of stands in device.cpp, which is
// the page to copy for a device of your own. Everything lives as long as the process; the main
// thread uses it.
#pragma once

#include "devicefile.h"
#include "devicesetups.h"
#include "devicetraps.h"

extern device::Controls& controls;     ///< all controls
extern device::SettingsFile& xmlFile;  ///< their values in presets.xml
extern device::SetupList& setupList;   ///< what a setup holds
extern device::TrapTable& trapTable;   ///< what is watched

/// Periodic: lets the temperatures drift, once a second.
void driftTemperatures();
