// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/solidcheck.h"

#include "repair/crossings.h"
#include "repair/facetmesh.h"

namespace wf {

SolidCheck checksolid(const float *xyz, int64_t n) {
  SolidCheck c;
  if (n <= 0) return c;
  const FacetMesh m = weld(xyz, n, false);
  const SideTable edges = buildsidetable(m);
  c.told = true;
  c.closed = c.oriented = true;
  for (size_t e = 0; e < edges.nedges(); ++e) {
    if (edges.count(int32_t(e)) != 2) {
      c.closed = false;
      continue;
    }
    const int32_t s1 = edges.sides[size_t(edges.start[e])], s2 = edges.sides[size_t(edges.start[e]) + 1];
    if (sidefrom(m, s1) != sideto(m, s2)) c.oriented = false;
  }
  c.onefan = pinchedpoints(m, edges).empty();
  for (const Facet &f : m.facets) c.zeroarea += collinearfacet(m.points, f);
  std::vector<int32_t> piece;
  c.shells = pieces(m, edges, piece);
  c.volume = signedvolume(m);
  // Crossings are looked for only where everything else holds (they cost the most).
  if (c.closed && c.oriented && c.onefan && c.zeroarea == 0)
    c.crossing = !crossingpairs(m.points, m.facets, nullptr, 1).empty();
  return c;
}

}  // namespace wf
