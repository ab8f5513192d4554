// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "outputs/textreport.h"

namespace wf {
void writetextreport(RunState &rs) { (void)rs; }
}  // namespace wf
