// SPDX-License-Identifier: GPL-3.0-or-later
// The message catalogue simsolver.arb, loaded from the folder of the executable. A run works
// without it: texts are then empty and codes, variables and tags still reach the signal file.
#pragma once

#include <string>

namespace wf {

// The catalogue's path: simsolver.arb beside the executable.
std::string cataloguepath();
// Folder of the running executable, with its trailing "/" (empty when it cannot be told).
std::string exefolder();

}  // namespace wf
