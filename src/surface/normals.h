// SPDX-License-Identifier: GPL-2.0-or-later
// Per-triangle facet normals (un-normalised, twice the area) and, in full mode, the terms of a
// closest-point query. indexed: corners through stltri; otherwise three columns per triangle.
#pragma once

#include "control/runstate.h"

namespace wf {

void normals(RunState &rs, bool quiet, bool full, bool indexed);
// Releases the facet normals and the eight full-mode arrays.
void releasenormals(RunState &rs);

}  // namespace wf
