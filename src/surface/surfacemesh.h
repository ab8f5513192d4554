// SPDX-License-Identifier: GPL-2.0-or-later
// From STL soup to a checked mesh: tolerance, snapping to a lattice centred on the box, vertex
// merging by sort, edge tables and the watertight and orientation checks.
#pragma once

#include "control/runstate.h"

namespace wf {

// status 0 for a clean surface, -1 for one with bad edges; result true when no edge is
// inversely oriented (only set when the edges were clean).
void preparesurface(RunState &rs, int &status, bool flag1, bool flag2, bool &result);
void snapvertices(RunState &rs);
void equivertices(RunState &rs);
void equiedges(RunState &rs, int &status);
void checkorientation(RunState &rs, bool flag, bool &result);

}  // namespace wf
