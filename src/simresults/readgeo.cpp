// SPDX-License-Identifier: GPL-2.0-or-later
// Placeholder bodies, replaced as the subsystem lands.
#include "simresults/readgeo.h"

namespace wf {
void readgeo(RunState &rs, const std::string &s) { (void)rs; (void)s; }
std::string findresultfile(RunState &rs, const std::string &p, int n, const std::string &s) { (void)rs; return p + std::to_string(n) + s; }
}  // namespace wf
