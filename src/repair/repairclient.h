// SPDX-License-Identifier: GPL-2.0-or-later
// Repair client: each surface of stlfiles that failed the check is sent through the mesh-repair
// component and its entry replaced by "<stem>_ls_repair.stl"; a failure is message 1011.
#pragma once

#include <string>

#include "control/runstate.h"

namespace wf {

void repairsurfaces(RunState &rs, bool tolerate, bool checkorient);
// 0 success, -1 an error of the repair component, -3 the mesh stays unsound.
int repairsurface(RunState &rs, const std::string &infile, const std::string &outfile,
                  const double &tolerance, const int &extended);

}  // namespace wf
