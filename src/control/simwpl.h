// SPDX-License-Identifier: GPL-2.0-or-later
// Telemetry way points. There is no network: the way point is recorded in RunState, and
// appended to the file named by WARPFORGE_WAYPOINT_LOG when that variable is set.
#pragma once

#include "control/runstate.h"

namespace wf {

int simwplsendsinglewaypoint(RunState &rs, const char *name, int namelength, const char *value,
                             int valuelength);

}  // namespace wf
