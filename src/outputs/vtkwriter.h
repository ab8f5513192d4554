// SPDX-License-Identifier: GPL-2.0-or-later
// *OVTK: the warped surface as a legacy VTK unstructured grid with the displacement vectors.
#pragma once

#include <vector>

#include "control/runstate.h"

namespace wf {

void writevtkstep(RunState &rs);
void writevtk(RunState &rs, char form, bool indexed, const std::vector<float> &displacement);

}  // namespace wf
