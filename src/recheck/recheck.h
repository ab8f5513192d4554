// SPDX-License-Identifier: GPL-2.0-or-later
// Post-warp check: freesurface releases the arrays of a pass; recheckstep (with *TSRD) reads the
// written surface back, checks it like an input surface and sends a failed one to repair, after
// which outstlpath is the 8192-character blank-padded entry of stlfiles.
#pragma once

#include "control/runstate.h"

namespace wf {

void freesurface(RunState &rs);
void recheckstep(RunState &rs);
void recheck(RunState &rs, bool tolerate, bool checkorient);
void freecombined(RunState &rs);

}  // namespace wf
