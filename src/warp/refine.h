// SPDX-License-Identifier: GPL-2.0-or-later
// Adaptive refinement of the warped surface: the edges are walked longest first, then the new
// ones in the order they were made, and an edge is split at its displaced midpoint when it is
// too long or the midpoint leaves the straight edge by more than refinetol. Triangles die by
// flag and are compacted once at the end. The lists grow by 1.2 (single precision, rounded up).
#pragma once

#include <cstdint>

#include "control/runstate.h"

namespace wf {

// The second half of warpstl: walk, split, count, compact, scale back. The three work arrays
// (navg entries each) are those of the first half, used on the main thread.
void refinesurface(RunState &rs, double *dist2, int32_t *nodes, double *weights, int navg);
// Splits edge e (1-based) at the new vertex (midbefore before warping, midafter after); the new
// edges get level + 1.
void splitedge(RunState &rs, int32_t e, const double *midbefore, const double *midafter,
               int32_t level);
// Appends one vertex: before into prewarpvertices, after into stlvrt.
void pushvrt(RunState &rs, const double *before, const double *after);
// Writes the three corners at triangle t (1-based), live, and counts it.
void pushtri(RunState &rs, const int32_t *corners, int32_t t);
// Writes the edge record at number e (1-based) and counts it; its length is taken between the
// warped ends in stlvrt.
void pushedge(RunState &rs, const int32_t *verts, const int32_t *opposites,
              const int32_t *triangles, int32_t e, int32_t level, const int32_t *neighbours);
// The capacity that follows cap in the 1.2 growth: ceil of the single-precision product.
int32_t growcap(int32_t cap);

}  // namespace wf
