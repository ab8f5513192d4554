// SPDX-License-Identifier: GPL-2.0-or-later
// The first half of the warp in two steps: beginwarp (node-count check, STL scaling of the
// vertices and initial edge lengths, the copy before warping, the build plane) and
// warpvertices, the one parallel loop that displaces every vertex of stlvrt in place.
#pragma once

#include "control/runstate.h"

namespace wf {

void beginwarp(RunState &rs);
void warpvertices(RunState &rs);

}  // namespace wf
