// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "warp/initgrid.h"

namespace wf {
void initgrid(RunState &rs) { (void)rs; }
}  // namespace wf
