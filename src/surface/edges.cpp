// SPDX-License-Identifier: GPL-3.0-or-later
// Edges from merged vertices: the 3 * ntri triangle sides are keyed by their two vertices
// (lower first), sorted and numbered, and one pass over the sorted sides then fills every edge
// table. The whole mesh is one surface, so the surface number adds nothing to the key.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "base/memory.h"
#include "surface/edges.h"
#include "surface/sortkit.h"

namespace wf {

EdgeCounts buildedges(const SurfaceMesh &mesh, const std::vector<double> &triedgesq,
                      EdgeTable &edges) {
  const size_t ntri = mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0;
  const size_t nside = 3 * ntri;
  const int32_t *tri = mesh.tri.data();

  // Key rows: lower vertex, higher vertex.
  std::vector<int32_t> keys;
  allocate(keys, 2 * nside, "equiedges, keys, 1");
  for (size_t t = 0; t < ntri; ++t) {
    for (int k = 0; k < 3; ++k) {
      const int32_t a = tri[3 * t + sidea[k]], b = tri[3 * t + sideb[k]];
      int32_t *row = keys.data() + 2 * (3 * t + k);
      row[0] = std::min(a, b);
      row[1] = std::max(a, b);
    }
  }
  std::vector<int32_t> p;
  allocate(p, nside, "equiedges, p, 1");
  imatsort(keys.data(), p.data(), 2, static_cast<int32_t>(nside));
  std::vector<int32_t> longrun, iuniq;
  int32_t nedge = 0;
  uniq_include_int(keys.data(), p.data(), longrun, 2, static_cast<int32_t>(nside), nedge, iuniq,
                   false);
  release(iuniq);
  release(keys);

  edges.n = nedge;
  edges.cap = nedge;
  const size_t ne = nedge > 0 ? static_cast<size_t>(nedge) : 0;
  allocate(edges.vrt, 2 * ne, "equiedges, edgevrt, 1");
  allocate(edges.tri, 2 * ne, "equiedges, edgetri, 1");
  allocate(edges.opp, 2 * ne, "equiedges, edgeopp, 1");
  allocate(edges.nbr, 4 * ne, "equiedges, edgenbr, 1");  // cleared: 0 on boundary edges
  allocate(edges.len, ne, "equiedges, edgelen, 1");
  allocate(edges.triedge, nside, "equiedges, triedge, 1");
  release(edges.level);

  // Side h of the sorted position i gets the run number: the edge of that side.
  for (size_t i = 0; i < nside; ++i) edges.triedge[static_cast<size_t>(p[i] - 1)] = longrun[i];

  // One walk over the sides in sorted order fills the tables edge by edge. The sides of an
  // edge stand together there, in triangle order (the sort is stable), so each edge sees the
  // same sequence of sides as a walk over the triangles would give it, while its tables are
  // written in ascending order. The triangle count of an edge rises once per triangle: a
  // triangle with two sides on one edge adds 1, not 2, and both sides see the raised count.
  const int32_t *triedge = edges.triedge.data();
  const double *sidesq = triedgesq.data();
  EdgeCounts counts;
  for (size_t i = 0; i < nside;) {
    const size_t e = static_cast<size_t>(longrun[i] - 1);
    int32_t count = 0, slots = 0;
    size_t lastt = ntri;
    for (; i < nside && static_cast<size_t>(longrun[i] - 1) == e; ++i) {
      if (i + 8 < nside) {
        const size_t ahead = static_cast<size_t>(p[i + 8] - 1);
        __builtin_prefetch(tri + ahead - ahead % 3);
        __builtin_prefetch(triedge + ahead - ahead % 3);
        __builtin_prefetch(sidesq + ahead);
      }
      const size_t h = static_cast<size_t>(p[i] - 1);
      const size_t t = h / 3;
      const int k = static_cast<int>(h % 3);
      const int32_t *c = tri + 3 * t;
      const int32_t *te = triedge + 3 * t;
      if (t != lastt) {
        ++count;
        lastt = t;
      }
      edges.len[e] = std::sqrt(sidesq[h]);
      edges.vrt[2 * e] = c[sidea[k]];
      edges.vrt[2 * e + 1] = c[sideb[k]];
      if (count <= 2) {
        edges.tri[2 * e + static_cast<size_t>(count - 1)] = static_cast<int32_t>(t + 1);
        edges.opp[2 * e + static_cast<size_t>(count - 1)] = c[sideopposite[k]];
      }
      if (slots + 1 <= 4) edges.nbr[4 * e + static_cast<size_t>(slots)] = te[sideother1[k]];
      if (slots + 2 <= 4) edges.nbr[4 * e + static_cast<size_t>(slots) + 1] = te[sideother2[k]];
      if (slots <= 4) slots += 2;
    }
    // One triangle is an open edge, two a good one, more an overloaded one.
    if (count == 2)
      ++counts.good;
    else if (count == 1)
      ++counts.open;
    else
      ++counts.over;
  }
  return counts;
}

int64_t countinverted(const SurfaceMesh &mesh, const EdgeTable &edges) {
  const size_t ne = edges.n > 0 ? static_cast<size_t>(edges.n) : 0;
  const size_t ntri = mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0;
  const int32_t *tri = mesh.tri.data();
  // Whether triangle t runs from a to b: a directly followed by b in its cyclic corner order.
  auto along = [&](int32_t t, int32_t a, int32_t b) {
    if (t < 1 || static_cast<size_t>(t) > ntri) return false;
    const int32_t *c = tri + 3 * static_cast<size_t>(t - 1);
    return (c[0] == a && c[1] == b) || (c[1] == a && c[2] == b) || (c[2] == a && c[0] == b);
  };
  int64_t count = 0;
  for (size_t e = 0; e < ne; ++e) {
    const int32_t a = edges.vrt[2 * e], b = edges.vrt[2 * e + 1];
    if (along(edges.tri[2 * e], a, b) == along(edges.tri[2 * e + 1], a, b)) ++count;
  }
  return count;
}

}  // namespace wf
