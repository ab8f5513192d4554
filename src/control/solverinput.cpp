// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "control/solverinput.h"

namespace wf {
void readsolverinput(RunState &rs) { (void)rs; }
void selectincrement(RunState &rs) { (void)rs; }
void selectsurfaces(RunState &rs) { rs.nsurfaces = 0; }
bool surfaceselected(const RunState &rs, int j) { return rs.stltype[j - 1] == 1; }
}  // namespace wf
