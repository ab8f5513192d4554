// SPDX-License-Identifier: GPL-3.0-or-later
// Shells that overlap or touch united into one solid by exact corefinement (CGAL, exact
// constructions). The facets (9 floats each) must form closed shells, each free of crossings of
// its own; the shells are turned outwards, united one by one, and the union's corners rounded to
// single precision (which can leave slivers where the shells met: the caller cleans up). When a
// shell is open or crosses itself, or the union fails, xyz stays as it was and false is returned.
#pragma once

#include <vector>

namespace wf {

// Throws std::bad_alloc when memory runs out (xyz then unchanged).
bool uniteshells(std::vector<float> &xyz);

}  // namespace wf
