// SPDX-License-Identifier: GPL-2.0-or-later
// The solver input file (<inputfile>.in) and the choices made from it inside initrun:
// readsolverinput takes the five cards that concern a warp, selectincrement picks the result
// increment and the latest mesh not later than it, selectsurfaces decides which surfaces the
// surface loop processes (nsurfaces, stlids).
#pragma once

#include "control/runstate.h"

namespace wf {

void readsolverinput(RunState &rs);
void selectincrement(RunState &rs);
void selectsurfaces(RunState &rs);
// Whether entry j (1-based) of stlfiles is selected under the current sstlflag.
bool surfaceselected(const RunState &rs, int j);

}  // namespace wf
