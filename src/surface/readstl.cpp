// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "surface/readstl.h"

namespace wf {
void readstl(RunState &rs, bool q) { (void)rs; (void)q; }
void readstlraw(RunState &rs, bool q) { (void)rs; (void)q; }
}  // namespace wf
