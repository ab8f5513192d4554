// SPDX-License-Identifier: GPL-3.0-or-later
// Edges from merged vertices. One counting sort files the 3 ntri triangle sides under their
// lower vertex (within a vertex in triangle order); the few sides of a vertex are put in order
// of their higher vertex, and the runs of equal (lower, higher) are the edges, numbered in that
// order. A walk over the runs then fills the edge tables edge by edge, with the lengths, the
// triangle counts and the inversely oriented edges on the way; a last pass over the edges names
// their neighbour edges, once every side knows its edge. The whole mesh is one surface, so the
// surface number adds nothing to the key.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/fatal.h"
#include "base/memory.h"
#include "surface/edges.h"
#include "surface/sortkit.h"

namespace wf {

namespace {

// A side filed under its lower vertex: its higher vertex; its number h = 3t + k (0-based
// triangle t, side k) with the top bit set when it runs from the higher vertex to the lower;
// and the vertex of its triangle opposite it.
struct Side {
  int32_t hi;
  uint32_t h;
  int32_t opp;
};
constexpr uint32_t downward = 0x80000000u;

// The sides of one vertex in order of their higher vertex, ties in the order they came.
void orderbyhigher(Side *s, size_t n) {
  if (n > 32) {
    std::stable_sort(s, s + n, [](const Side &l, const Side &r) { return l.hi < r.hi; });
    return;
  }
  for (size_t m = 1; m < n; ++m) {  // insertion: a tie stays behind its elder
    const Side x = s[m];
    size_t q = m;
    while (q > 0 && x.hi < s[q - 1].hi) {
      s[q] = s[q - 1];
      --q;
    }
    s[q] = x;
  }
}

}  // namespace

EdgeCounts buildedges(const SurfaceMesh &mesh, const std::vector<double> &triedgesq, EdgeTable &edges,
                      Scratch *shared) {
  const size_t ntri = mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0;
  const size_t nside = 3 * ntri;
  const int32_t *tri = mesh.tri.data();

  // One bucket per vertex number from the lowest corner to the highest (1..nvrt when merged).
  int32_t vmin = 0, vmax = -1;
  if (nside > 0) vmin = vmax = tri[0];
  for (size_t h = 1; h < nside; ++h) {
    vmin = std::min(vmin, tri[h]);
    vmax = std::max(vmax, tri[h]);
  }
  const size_t nbucket = nside > 0 ? static_cast<size_t>(static_cast<int64_t>(vmax) - vmin + 1) : 0;
  auto bucketof = [vmin](int32_t v) {
    return static_cast<size_t>(static_cast<uint32_t>(v) - static_cast<uint32_t>(vmin));
  };

  // The side records and the bucket bounds stand for the key rows of a sort, and run out of
  // memory as those did. A side number must leave the top bit free.
  Scratch local;
  Scratch &scratch = shared ? *shared : local;
  char *mem = nullptr;
  if (nside < downward) mem = static_cast<char *>(scratch.get(nside * sizeof(Side) + (nbucket + 1) * sizeof(uint32_t)));
  if (!mem) checkalloc(1, "equiedges, keys, 1");
  Side *side = reinterpret_cast<Side *>(mem);
  uint32_t *bound = reinterpret_cast<uint32_t *>(mem + nside * sizeof(Side));

  // The counting sort: after the count, bound(b) is where bucket b begins; after the filing,
  // where it ends (bucket b runs from bound(b - 1), or 0, to bound(b)).
  std::memset(bound, 0, (nbucket + 1) * sizeof(uint32_t));
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t *c = tri + 3 * t;
    ++bound[bucketof(std::min(c[0], c[1])) + 1];
    ++bound[bucketof(std::min(c[1], c[2])) + 1];
    ++bound[bucketof(std::min(c[2], c[0])) + 1];
  }
  for (size_t b = 1; b <= nbucket; ++b) bound[b] += bound[b - 1];
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t *c = tri + 3 * t;
    for (int k = 0; k < 3; ++k) {
      const int32_t a = c[sidea[k]], b = c[sideb[k]];
      const uint32_t h = static_cast<uint32_t>(3 * t) + static_cast<uint32_t>(k);
      side[bound[bucketof(std::min(a, b))]++] = Side{std::max(a, b), a > b ? h | downward : h, c[sideopposite[k]]};
    }
  }

  // Each vertex's sides in order of the higher vertex; a run of equal ones is an edge.
  size_t nedge = 0;
  for (size_t b = 0, i0 = 0; b < nbucket; i0 = bound[b++]) {
    const size_t i1 = bound[b];
    if (i1 - i0 > 1) orderbyhigher(side + i0, i1 - i0);
    for (size_t i = i0; i < i1; ++i)
      if (i == i0 || side[i].hi != side[i - 1].hi) ++nedge;
  }

  edges.n = static_cast<int32_t>(nedge);
  edges.cap = edges.n;
  const size_t ne = nedge;
  allocate(edges.vrt, 2 * ne, "equiedges, edgevrt, 1");
  allocate(edges.tri, 2 * ne, "equiedges, edgetri, 1");
  allocate(edges.opp, 2 * ne, "equiedges, edgeopp, 1");
  allocate(edges.nbr, 4 * ne, "equiedges, edgenbr, 1");  // cleared: 0 on boundary edges
  allocate(edges.len, ne, "equiedges, edgelen, 1");
  allocate(edges.triedge, nside, "equiedges, triedge, 1");
  release(edges.level);

  // Edge by edge, its sides in triangle order, as a walk over the triangles would give them to
  // it. The last side gives the direction and the length; the first two triangles the
  // triangle and opposite vertex slots; the first two sides the neighbour slots (1-2 and 3-4),
  // which hold the side number + 1 until every side has its edge. The triangle count rises
  // once per triangle: a triangle with two sides on one edge adds 1, not 2, and both sides see
  // the raised count. A triangle runs along the edge when one of its sides on it has the
  // edge's direction; the edge is inverse when both triangles do, or neither (a missing second
  // triangle runs along nothing).
  int32_t *triedge = edges.triedge.data();
  int32_t *etri = edges.tri.data(), *eopp = edges.opp.data(), *enbr = edges.nbr.data();
  const double *sidesq = triedgesq.data();
  constexpr size_t ahead = 16;
  EdgeCounts counts;
  size_t e = 0;
  for (size_t b = 0, i0 = 0; b < nbucket; i0 = bound[b++]) {
    const size_t i1 = bound[b];
    const int32_t lo = static_cast<int32_t>(static_cast<uint32_t>(vmin) + static_cast<uint32_t>(b));
    for (size_t i = i0; i < i1; ++e) {
      const int32_t hi = side[i].hi;
      int32_t count = 0, slots = 0;
      size_t lastt = ntri;
      bool along[2][2] = {{false, false}, {false, false}};  // [triangle slot][runs downward]
      uint32_t last = 0;
      for (; i < i1 && side[i].hi == hi; ++i) {
        if (i + ahead < nside) {
          const size_t next = side[i + ahead].h & ~downward;
          __builtin_prefetch(triedge + next, 1);
          __builtin_prefetch(sidesq + next);
        }
        last = side[i].h;
        const size_t h = last & ~downward;
        const size_t t = h / 3;
        // Kept deliberately: a triangle counts once per edge, so a degenerate triangle with two
        // sides on one edge adds 1 to it, not 2 (the counts and warnings of such surfaces).
        // [pinned: PrepareSurface.MergedCorners, BuildEdges.AgainstThePlainTable]
        if (t != lastt) {
          ++count;
          lastt = t;
        }
        triedge[h] = static_cast<int32_t>(e + 1);
        if (count <= 2) {
          etri[2 * e + static_cast<size_t>(count - 1)] = static_cast<int32_t>(t + 1);
          eopp[2 * e + static_cast<size_t>(count - 1)] = side[i].opp;
          along[count - 1][last >> 31] = true;
        }
        if (slots < 4) {
          enbr[4 * e + static_cast<size_t>(slots)] = static_cast<int32_t>(h + 1);
          slots += 2;
        }
      }
      const bool down = (last & downward) != 0;
      edges.len[e] = std::sqrt(sidesq[last & ~downward]);
      edges.vrt[2 * e] = down ? hi : lo;
      edges.vrt[2 * e + 1] = down ? lo : hi;
      if (along[0][down] == along[1][down]) ++counts.inverted;
      // One triangle is an open edge, two a good one, more an overloaded one.
      if (count == 2)
        ++counts.good;
      else if (count == 1)
        ++counts.open;
      else
        ++counts.over;
    }
  }

  // The neighbour slots: the edges of the other two sides of the side held there.
  for (size_t f = 0; f < ne; ++f) {
    if (f + ahead < ne) {
      const size_t h = static_cast<size_t>(enbr[4 * (f + ahead)] - 1);
      __builtin_prefetch(triedge + h - h % 3);
    }
    for (size_t s = 0; s < 4; s += 2) {
      const int32_t held = enbr[4 * f + s];
      if (held == 0) continue;
      const size_t h = static_cast<size_t>(held - 1);
      const int32_t *te = triedge + (h - h % 3);
      const int k = static_cast<int>(h % 3);
      enbr[4 * f + s] = te[sideother1[k]];
      enbr[4 * f + s + 1] = te[sideother2[k]];
    }
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
