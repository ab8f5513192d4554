// SPDX-License-Identifier: GPL-3.0-or-later
// The outer layer of a piece: the facets met first from outside, walked edge by edge.
//
// A surface laid twice over itself (a reversed copy of every facet, refined differently on each
// layer) bounds no solid by any count of crossings, but it still has an outside. From the facet
// that faces outwards at the piece's corner farthest along +x, the walk crosses each edge to the
// facet met first when turning about the edge through the outside, and turns it to run against
// its neighbour. Facets that the walk does not reach lie inside or under the outer layer.
//
// Where the layers cross inside facets (no shared edge), the walk stays on the layer it is on, so
// the facets kept may still cross each other; the repair settles those afterwards.
//
// Facet, side and piece numbers are 0-based, as in repair/facetmesh.h. Throws std::bad_alloc.
#pragma once

#include <cstdint>
#include <vector>

#include "repair/facetmesh.h"

namespace wf {

struct OuterLayer {
  std::vector<char> kept;     // per facet: reached by the walk
  std::vector<char> turned;   // per facet: to be turned round so that it faces outwards
  int64_t disagreements = 0;  // facets reached from two edges that wanted them turned both ways
};

// piece: per facet, its piece (0 .. npieces-1); each piece is walked from its own corner.
OuterLayer outerlayer(const FacetMesh &m, const SideTable &edges, const std::vector<int32_t> &piece, int32_t npieces);

// The area of the facets of `given` that lie outside the closed, outward-facing facets of
// `solid`: a facet counts when its centroid is farther than `slack` from every facet of the solid
// and not inside it (no shell of the solid winds round it). What the outer layer lost.
double areaoutside(const FacetMesh &given, const FacetMesh &solid, double slack);

}  // namespace wf
