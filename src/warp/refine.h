// SPDX-License-Identifier: GPL-3.0-or-later
// Adaptive refinement of the warped surface. The edges are walked longest first (of equal
// lengths the higher number first), then the edges made by splits in the order they were made;
// an edge above the level limit or not longer than minedge is passed over; otherwise the
// midpoint of its two ends before the warp is displaced like a vertex, and the edge is split
// at it when it is longer than maxedge, or when the displaced midpoint lies farther than
// refinetol (strictly) from the midpoint of the two displaced ends.
//
// A split inserts the midpoint as vertex m and replaces each triangle of the edge by two: on an
// interior edge (a, b) with opposite vertices c and d four triangles (a c m), (c b m), (d a m),
// (b d m) and four edges (a m), (m b), (m c), (d m); on a boundary edge two triangles and three
// edges. The new edges are one level below the split one. Triangles die by flag and are
// compacted once, in order, at the end; lists grow by the program's growth rule (vertices and
// triangles from the capacity, edges from the count plus one).
//
// Index base as in surface/surfacemesh.h. Throws Fatal 32 with the labels of the lists
// ("pushvrt, tmp, 1" ... "pushedge, tmp1, 1"), also when a list would take the lists together
// past a tenth of the machine's memory.
#pragma once

#include <cstdint>
#include <functional>

#include "surface/surfacemesh.h"
#include "warp/warpfield.h"

namespace wf {

struct RefineParams {
  int32_t maxrefine = 10;
  double minedge = 0.5;
  double maxedge = 3.0;
  double refinetolsq = 1e-6;
  // Midpoints displaced ahead of the walk in waves on all threads (true), or each when the walk
  // reaches it (false: the plain serial walk, the reference the waves are tested against).
  bool ahead = true;
  // The edge table left as the walk leaves it (true), or only its counts, its arrays released
  // (false: nothing after the walk reads them, and a copy would cost their size again when the
  // mesh is at its largest).
  bool keepedges = false;
  // Overall percent of this surface's walk: base + share * 99 * visited / edges.
  int32_t progressbase = 0;
  double progressshare = 1.0;
};

// Told (edge number, edge count, percent) each time the whole-number percentage grows.
using ProgressFn = std::function<void(int32_t edge, int32_t nedges, int32_t percent)>;

struct RefineCounts {
  int32_t active = 0;  // live triangles after the walk
  int32_t total = 0;   // triangles made in all, live or dead
};

// The walk and the compaction of the live triangles. mesh.vrt and mesh.prewarp hold the warped
// and unwarped vertices; edges is the table of the mesh with its lengths (scaled as the warp
// has them), taken into the walk's own records (one cache line an edge) and left as
// params.keepedges says. The midpoints are displaced ahead of the walk, wave by wave, on all threads (each
// with the floating-point mode of the caller and its own work arrays); the walk's decisions,
// numbering and result are those of a walk that displaces each midpoint when it reaches it, on
// any number of threads. The ring searches read the grid's nodes packed (packnodes), made here
// when some edge is to be tested, unless the field has them.
RefineCounts refinesurface(const WarpField &field, const RefineParams &params, SurfaceMesh &mesh, EdgeTable &edges,
                           const ProgressFn &progress);

}  // namespace wf
