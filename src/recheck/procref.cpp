// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "recheck/procref.h"

namespace wf {
void procref(RunState &rs) { (void)rs; }
void procscn(RunState &rs) { (void)rs; }
}  // namespace wf
