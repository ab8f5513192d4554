// SPDX-License-Identifier: GPL-2.0-or-later
// Reference and scanned geometries as prepared triangle query sets, loaded once per run before
// the surface loop; each does nothing without its card.
#pragma once

#include "control/runstate.h"

namespace wf {

void procref(RunState &rs);
void procscn(RunState &rs);

}  // namespace wf
