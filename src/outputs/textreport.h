// SPDX-License-Identifier: GPL-2.0-or-later
// *WRTU: one 84-character line per vertex: position before the warp and the displacement.
#pragma once

#include "control/runstate.h"

namespace wf {

void writetextreport(RunState &rs);

}  // namespace wf
