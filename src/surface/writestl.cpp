// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "surface/writestl.h"

namespace wf {
void writestl(RunState &rs, char f, bool i) { (void)rs; (void)f; (void)i; }
}  // namespace wf
