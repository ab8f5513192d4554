// SPDX-License-Identifier: GPL-3.0-or-later
// Edges of a merged mesh: the 3 ntri triangle sides collapsed into unique edges, numbered in
// ascending order of (lower vertex, higher vertex), with the tables of EdgeTable filled in one
// pass; and the two checks of a surface: every edge on exactly two triangles, running along it
// in opposite senses. Index base as in surface/surfacemesh.h.
#pragma once

#include <cstdint>
#include <vector>

#include "surface/sortkit.h"
#include "surface/surfacemesh.h"

namespace wf {

struct EdgeCounts {
  int64_t open = 0;      // edges with one triangle
  int64_t good = 0;      // edges with two
  int64_t over = 0;      // edges with more
  int64_t inverted = 0;  // edges inversely oriented, as countinverted counts them
  bool watertight() const { return open == 0 && over == 0; }
};
// The unique edges of the mesh, numbered in ascending order of (lower vertex, higher vertex),
// with their tables filled (see EdgeTable), the edges counted by their triangles, and the
// inversely oriented ones counted as countinverted does. The sides are filed by their lower
// vertex in one counting sort, whose buckets (one per vertex number from the lowest to the
// highest corner) and side records (12 bytes a side) take the scratch, a local one when none
// is given. Throws Fatal 32.
EdgeCounts buildedges(const SurfaceMesh &mesh, const std::vector<double> &triedgesq, EdgeTable &edges,
                      Scratch *scratch = nullptr);
// Edges whose two triangles both run along it, or both do not (a missing triangle runs along
// no edge). Meaningful when every edge has two triangles.
int64_t countinverted(const SurfaceMesh &mesh, const EdgeTable &edges);

}  // namespace wf
