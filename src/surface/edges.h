// SPDX-License-Identifier: GPL-3.0-or-later
// Edges of a merged mesh: the 3 ntri triangle sides collapsed into unique edges, numbered in
// ascending order of (lower vertex, higher vertex), with the tables of EdgeTable filled in one
// pass; and the two checks of a surface: every edge on exactly two triangles, running along it
// in opposite senses. Index base as in surface/surfacemesh.h.
#pragma once

#include <cstdint>
#include <vector>

#include "surface/surfacemesh.h"

namespace wf {

struct EdgeCounts {
  int64_t open = 0;      // edges with one triangle
  int64_t good = 0;      // edges with two
  int64_t over = 0;      // edges with more
  bool watertight() const { return open == 0 && over == 0; }
};
// The unique edges of the mesh, numbered in ascending order of (lower vertex, higher vertex),
// with their tables filled in one pass (see EdgeTable). Throws Fatal 32.
EdgeCounts buildedges(const SurfaceMesh &mesh, const std::vector<double> &triedgesq,
                      EdgeTable &edges);
// Edges whose two triangles both run along it, or both do not. Meaningful when every edge has
// two triangles.
int64_t countinverted(const SurfaceMesh &mesh, const EdgeTable &edges);

}  // namespace wf
