// SPDX-License-Identifier: GPL-2.0-or-later
// Node grid: all mesh nodes filed into a uniform grid of about one node per cell, as a
// compressed bucket list (jcellnodes, j0cellnodes), nodes ascending within a cell.
#pragma once

#include "control/runstate.h"

namespace wf {

void initgrid(RunState &rs);
// Cell index (1..n) of coordinate c on an axis of origin o, size s and count n.
int32_t gridcell(double c, double o, double s, int32_t n);

}  // namespace wf
