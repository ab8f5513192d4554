// SPDX-License-Identifier: GPL-2.0-or-later
// Per-node variable file of the chosen increment (dispfile) into nodedisp (3 components), in
// the form that readgeo found; an early end of the file is message 362.
#pragma once

#include "control/runstate.h"

namespace wf {

void readvariable(RunState &rs, int ncomp);

}  // namespace wf
