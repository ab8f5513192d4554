// SPDX-License-Identifier: GPL-2.0-or-later
// The message catalogue simsolver.arb, loaded from the folder of the executable. A run works
// without it: texts are then empty and codes, variables and tags still reach the signal file.
#pragma once

#include <string>

#include "control/runstate.h"

namespace wf {

void loadsettings(RunState &rs);
// Folder of the running executable, with its trailing "/".
std::string exefolder(const std::string &modulename);

}  // namespace wf
