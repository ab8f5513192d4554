// SPDX-License-Identifier: GPL-2.0-or-later
// STL reader: stlpath (or its "_ls_repair.stl" sibling) into rawvrt, ASCII or binary in any of
// four byte orders, with the bounding box in stlbbox and prerepairbbox.
#pragma once

#include "control/runstate.h"

namespace wf {

void readstl(RunState &rs, bool quiet);
// readstl, then rawvrt moves to stlvrt (nvrt = nrawvrt); no stltri is built.
void readstlraw(RunState &rs, bool quiet);

}  // namespace wf
