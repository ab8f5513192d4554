// SPDX-License-Identifier: GPL-2.0-or-later
// The warp: every vertex moves by the inverse-distance-weighted displacement of the nearest
// active nodes (or towards the scanned surface), in parallel; then edges are split where the
// straight surface no longer follows the field. On return stlvrt is final, in output units.
#pragma once

#include <cstdint>

#include "control/runstate.h"

namespace wf {

void warpstl(RunState &rs);
// Displaces point (3 doubles) in place; dist2, nodes, weights are the caller's work arrays of
// navg entries.
void warpvertex(const RunState &rs, double *point, double *dist2, int32_t *nodes, double *weights,
                int navg);
void nodalwarp(const RunState &rs, double *point, double *dist2, int32_t *nodes, double *weights,
               int navg);
// Closest point on the triangles of a query set; the first of equal distances wins.
void closestpoint(const double *query, double *out, int32_t ntri, const TriData &set);

}  // namespace wf
