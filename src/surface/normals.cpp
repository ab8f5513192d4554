// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "surface/normals.h"

namespace wf {
void normals(RunState &rs, bool q, bool f, bool i) { (void)rs; (void)q; (void)f; (void)i; }
}  // namespace wf
