// SPDX-License-Identifier: GPL-3.0-or-later
// A repair pass run on a copy of the facets in a child process, under a time and a memory limit,
// so that a pass that loops, crashes or swells fails with a text instead of taking the run along.
#pragma once

#include <admesh/stl.h>

#include <string>
#include <vector>

namespace wf {

using RepairPass = void (*)(stl_file &stl, float tolerance);

// On success (0) xyz holds the facets the pass left, 9 floats each. Otherwise a non-zero
// meshrepair status and the reason in error; xyz is then unchanged. seconds <= 0 picks the
// limit from the facet count (one minute plus 50 microseconds per facet).
int runisolated(std::vector<float> &xyz, RepairPass pass, float tolerance, std::string &error, double seconds = 0);

}  // namespace wf
