// Controls as JSON, for programs that read the panel's output. Main thread only; nothing stops the
// process.
#pragma once

#include <string>
#include <vector>

#include "devicetext.h"

/// The families of `parts` as one array, a line for each family: all that was told of it, and the
/// members of the part with their values. A control that was set and not confirmed has the
/// confirmed value as well.
std::vector<std::string> toJson(const std::vector<device::Selection>& parts);
