// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "warp/warpstl.h"

namespace wf {
void warpstl(RunState &rs) { (void)rs; }
}  // namespace wf
