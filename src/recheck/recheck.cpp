// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "recheck/recheck.h"

namespace wf {
void freesurface(RunState &rs) { (void)rs; }
void recheckstep(RunState &rs) { (void)rs; }
}  // namespace wf
