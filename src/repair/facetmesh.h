// SPDX-License-Identifier: GPL-3.0-or-later
// Facets as corner numbers into a list of points: the form in which the repair and its checks
// work. Corners equal as floats (-0 and +0 alike) are one point; points are doubles made from
// those floats, so every coordinate is exact. Point, facet and edge numbers are 0-based.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "repair/crossings.h"

namespace wf {

struct FacetMesh {
  std::vector<double> points;  // 3 per point
  std::vector<Facet> facets;
  size_t npoints() const { return points.size() / 3; }
};

// The n facets of xyz (9 floats each) made one mesh, points numbered in order of first
// appearance. With dropdegenerate, facets with two equal corners are left out. Unlike the merge
// of a run's surface (surface/preparesurface.h), nothing is snapped: the repair judges and mends
// what was written, where only equal corners are one point.
FacetMesh weld(const float *xyz, int64_t n, bool dropdegenerate);
// The facets as 9 floats each.
std::vector<float> floatsof(const FacetMesh &m);

// The sides of the facets gathered by edge: side s = 3 * facet + k runs from corner k to corner
// k + 1 (mod 3). Sides of one edge, either way round, stand together in `sides`, in facet order;
// edge e holds sides[start[e]] to sides[start[e + 1] - 1].
struct SideTable {
  std::vector<int32_t> sides;
  std::vector<int64_t> start;
  std::vector<int32_t> edgeofside;  // per side, its edge
  size_t nedges() const { return start.empty() ? 0 : start.size() - 1; }
  int32_t count(int32_t e) const { return int32_t(start[size_t(e) + 1] - start[size_t(e)]); }
};
SideTable buildsidetable(const FacetMesh &m);

// Corner k of facet f at side s, and the far end of side s.
inline int32_t sidefrom(const FacetMesh &m, int32_t s) { return m.facets[size_t(s / 3)][size_t(s % 3)]; }
inline int32_t sideto(const FacetMesh &m, int32_t s) { return m.facets[size_t(s / 3)][size_t((s + 1) % 3)]; }

// Connected pieces: facets joined through shared edges (any number of facets on the edge). Returns
// the number of pieces; piece[f] numbers them in order of their first facet.
int32_t pieces(const FacetMesh &m, const SideTable &edges, std::vector<int32_t> &piece);

// Points whose facets do not form one fan round them (joined through edges on two facets). With
// piece given (per facet), only points with two fans in one piece. With fan given, it receives
// per corner (3 * facet + k) the number of its fan (fans of one point have different numbers).
std::vector<int32_t> pinchedpoints(const FacetMesh &m, const SideTable &edges,
                                   const std::vector<int32_t> *piece = nullptr, std::vector<int32_t> *fan = nullptr);

double facetarea(const FacetMesh &m, int32_t f);
// Signed volume enclosed by the facets (positive when a closed surface faces outwards), and the
// share of one facet (the tetrahedron it spans with the origin).
double signedvolume(const FacetMesh &m);
double facetvolume(const FacetMesh &m, int32_t f);

}  // namespace wf
