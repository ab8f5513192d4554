// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/outerhull.h"

#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "repair/cgalkernel.h"

namespace wf {

namespace {

struct Vec {
  double x = 0, y = 0, z = 0;
};
Vec at(const FacetMesh &m, int32_t p) {
  return {m.points[3 * size_t(p)], m.points[3 * size_t(p) + 1], m.points[3 * size_t(p) + 2]};
}
Vec minus(Vec a, Vec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec cross(Vec a, Vec b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The corner of facet f that is not on side s's edge.
int32_t thirdcorner(const FacetMesh &m, int32_t s) { return m.facets[size_t(s / 3)][size_t((s % 3 + 2) % 3)]; }

// The angle, in (0, 2 pi], by which the half-plane of the edge a -> b through r turns into the
// half-plane through q, turning first towards the normal (b - a) x (r - a). A half-plane lying
// on the first one counts as a whole turn: it lies under it. Negative when q is on the edge's line.
double turnangle(const FacetMesh &m, int32_t a, int32_t b, int32_t r, int32_t q) {
  const Vec pa = at(m, a), d = minus(at(m, b), pa);
  const double dd = dot(d, d);
  auto across = [&](int32_t p) {  // the part of p - a square to the edge
    const Vec u = minus(at(m, p), pa);
    const double t = dot(u, d) / dd;
    return Vec{u.x - t * d.x, u.y - t * d.y, u.z - t * d.z};
  };
  const Vec u = across(r), w = across(q), n = cross(d, u);
  const double wu = dot(w, u) / std::sqrt(dot(u, u)), wn = dot(w, n) / std::sqrt(dot(n, n));
  if (wu == 0 && wn == 0) return -1;
  double angle = std::atan2(wn, wu);
  if (angle <= 0) angle += 2 * M_PI;
  return angle;
}

struct Box {
  double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
  void take(Vec p) {
    const double c[3] = {p.x, p.y, p.z};
    for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], c[a]), hi[a] = std::max(hi[a], c[a]);
  }
  double diagonal() const {
    double d = 0;
    for (int a = 0; a < 3; ++a) d += hi[a] > lo[a] ? (hi[a] - lo[a]) * (hi[a] - lo[a]) : 0;
    return std::sqrt(d);
  }
  // Whether every side of this box lies within slack of that side of b.
  bool reaches(const Box &b, double slack) const {
    for (int a = 0; a < 3; ++a)
      if (lo[a] > b.lo[a] + slack || hi[a] < b.hi[a] - slack) return false;
    return true;
  }
  // Whether b lies within this box widened by slack.
  bool holds(const Box &b, double slack) const {
    for (int a = 0; a < 3; ++a)
      if (b.lo[a] < lo[a] - slack || b.hi[a] > hi[a] + slack) return false;
    return true;
  }
};

bool flat(const FacetMesh &m, int32_t f) {
  const Facet &c = m.facets[size_t(f)];
  const Vec n = cross(minus(at(m, c[1]), at(m, c[0])), minus(at(m, c[2]), at(m, c[0])));
  return dot(n, n) == 0;
}

// One walk from a seed: the facets reached in order, their turns in `turned` (valid where
// visit[f] == stamp), the sides from which no facet was met, the disagreements and the area.
struct Walk {
  std::vector<int32_t> facets;
  int64_t open = 0, disagreements = 0;
  double area = 0;
};
void walk(const FacetMesh &m, const SideTable &edges, int32_t seed, char seedturn, int32_t stamp,
          std::vector<int32_t> &visit, std::vector<char> &turned, Walk &w) {
  w.facets.assign(1, seed);
  w.open = w.disagreements = 0;
  w.area = 0;
  visit[size_t(seed)] = stamp;
  turned[size_t(seed)] = seedturn;
  for (size_t q = 0; q < w.facets.size(); ++q) {
    const int32_t f = w.facets[q];
    w.area += facetarea(m, f);
    for (int k = 0; k < 3; ++k) {
      const int32_t s = 3 * f + k;
      // The edge as the facet runs along it, once turned.
      int32_t a = sidefrom(m, s), b = sideto(m, s);
      if (turned[size_t(f)]) std::swap(a, b);
      const int32_t r = thirdcorner(m, s), e = edges.edgeofside[size_t(s)];
      int32_t next = -1;
      double best = 0;
      for (int64_t i = edges.start[size_t(e)]; i < edges.start[size_t(e) + 1]; ++i) {
        const int32_t t = edges.sides[size_t(i)], g = t / 3;
        if (g == f || flat(m, g)) continue;
        const double angle = turnangle(m, a, b, r, thirdcorner(m, t));
        if (angle > 0 && (next < 0 || angle < best)) next = t, best = angle;
      }
      if (next < 0) {
        ++w.open;
        continue;
      }
      // The next facet runs from b to a.
      const int32_t g = next / 3;
      const char turn = sidefrom(m, next) != b;
      if (visit[size_t(g)] != stamp) {
        visit[size_t(g)] = stamp;
        turned[size_t(g)] = turn;
        w.facets.push_back(g);
      } else if (turned[size_t(g)] != turn) {
        ++w.disagreements;
      }
    }
  }
}

}  // namespace

OuterLayer outerlayer(const FacetMesh &m, const SideTable &edges, const std::vector<int32_t> &piece, int32_t npieces) {
  const size_t n = m.facets.size();
  OuterLayer out;
  out.kept.assign(n, 0);
  out.turned.assign(n, 0);
  // The seeds of each piece: at its corner farthest along +x (then +y, +z), the facets whose
  // normals point most nearly along +x (a layer lying on another has its facets there too),
  // turned to point that way.
  std::vector<int32_t> corner(size_t(npieces), -1);
  std::vector<double> along(size_t(npieces), -1);
  auto beyond = [&](int32_t p, int32_t q) {
    const Vec a = at(m, p), b = at(m, q);
    return a.x != b.x ? a.x > b.x : a.y != b.y ? a.y > b.y : a.z > b.z;
  };
  for (size_t f = 0; f < n; ++f) {
    if (flat(m, int32_t(f))) continue;
    int32_t &c = corner[size_t(piece[f])];
    for (const int32_t p : m.facets[f])
      if (c < 0 || beyond(p, c)) c = p;
  }
  std::vector<std::tuple<int32_t, double, int32_t>> seeds;  // piece, along +x, facet
  for (size_t f = 0; f < n; ++f) {
    const size_t k = size_t(piece[f]);
    const Facet &c = m.facets[f];
    if (corner[k] < 0 || (c[0] != corner[k] && c[1] != corner[k] && c[2] != corner[k]) || flat(m, int32_t(f))) continue;
    const Vec nf = cross(minus(at(m, c[1]), at(m, c[0])), minus(at(m, c[2]), at(m, c[0])));
    const double x = nf.x / std::sqrt(dot(nf, nf));
    seeds.emplace_back(int32_t(k), std::abs(x), x < 0 ? -int32_t(f) - 1 : int32_t(f));
    along[k] = std::max(along[k], std::abs(x));
  }
  std::sort(seeds.begin(), seeds.end(), [](const auto &a, const auto &b) {
    return std::get<0>(a) != std::get<0>(b) ? std::get<0>(a) < std::get<0>(b) : std::get<1>(a) > std::get<1>(b);
  });
  // Boxes of the pieces; a walk that does not reach every side of its piece's box (within
  // `boxslack` of the diagonal) ran round a pocket, not the piece.
  constexpr double boxslack = 1e-3;
  std::vector<Box> piecebox(static_cast<size_t>(npieces));
  for (size_t f = 0; f < n; ++f)
    if (!flat(m, int32_t(f)))
      for (const int32_t p : m.facets[f]) piecebox[size_t(piece[f])].take(at(m, p));
  // Of the walks from the seeds that point along +x within `seedslack` of the best, the one
  // that reaches the piece's box, then closes best (fewest sides left open, then fewest
  // disagreements), then has most area.
  constexpr double seedslack = 1e-3;
  constexpr size_t seedlimit = 8;
  std::vector<int32_t> visit(n, -1);
  std::vector<char> turned(n, 0);
  std::vector<std::vector<std::pair<int32_t, char>>> chosen(static_cast<size_t>(npieces));
  std::vector<char> closed(static_cast<size_t>(npieces), 0);
  std::vector<int64_t> disagree(static_cast<size_t>(npieces), 0);
  std::vector<Box> walkbox(static_cast<size_t>(npieces));
  Walk w;
  int32_t stamp = 0;
  for (size_t i = 0; i < seeds.size();) {
    const int32_t k = std::get<0>(seeds[i]);
    const double slack = boxslack * piecebox[size_t(k)].diagonal();
    bool any = false, bestspans = false;
    int64_t bestopen = 0, bestdisagree = 0;
    double bestarea = 0;
    size_t tried = 0;
    for (; i < seeds.size() && std::get<0>(seeds[i]) == k; ++i) {
      if (tried == seedlimit || std::get<1>(seeds[i]) < along[size_t(k)] - seedslack) continue;
      ++tried;
      const int32_t code = std::get<2>(seeds[i]);
      walk(m, edges, code < 0 ? -code - 1 : code, code < 0, stamp++, visit, turned, w);
      Box box;
      for (const int32_t f : w.facets)
        for (const int32_t p : m.facets[size_t(f)]) box.take(at(m, p));
      const bool spans = box.reaches(piecebox[size_t(k)], slack);
      const auto rank = std::make_tuple(!spans, w.open, w.disagreements, -w.area);
      if (any && rank >= std::make_tuple(!bestspans, bestopen, bestdisagree, -bestarea)) continue;
      any = true;
      bestspans = spans, bestopen = w.open, bestdisagree = w.disagreements, bestarea = w.area;
      chosen[size_t(k)].clear();
      for (const int32_t f : w.facets) chosen[size_t(k)].emplace_back(f, turned[size_t(f)]);
      closed[size_t(k)] = w.open == 0 && w.disagreements == 0;
      walkbox[size_t(k)] = box;
      disagree[size_t(k)] = w.disagreements;
    }
  }
  // A piece whose walk does not close and that lies within the box of a piece whose walk does
  // is a layer of debris on that piece: nothing of it is kept. Among very many pieces of both
  // kinds (scattered debris) the pairs are not looked at, and every walk is kept.
  constexpr size_t pairlimit = 50'000'000;
  std::vector<size_t> closedpieces;
  for (size_t j = 0; j < size_t(npieces); ++j)
    if (closed[j]) closedpieces.push_back(j);
  const bool lookunder = closedpieces.size() * (size_t(npieces) - closedpieces.size()) <= pairlimit;
  for (size_t k = 0; k < size_t(npieces); ++k) {
    bool under = false;
    for (size_t i = 0; lookunder && !closed[k] && !under && i < closedpieces.size(); ++i) {
      const size_t j = closedpieces[i];
      under = walkbox[j].holds(walkbox[k], boxslack * walkbox[j].diagonal());
    }
    if (under) continue;
    out.disagreements += disagree[k];
    for (const auto &[f, t] : chosen[k]) {
      out.kept[size_t(f)] = 1;
      out.turned[size_t(f)] = t;
    }
  }
  return out;
}

double areaoutside(const FacetMesh &given, const FacetMesh &solid, double slack) {
  using cgal::Kernel;
  using cgal::Triangle;
  using Tree = CGAL::AABB_tree<
      CGAL::AABB_traits<Kernel, CGAL::AABB_triangle_primitive<Kernel, std::vector<Triangle>::const_iterator>>>;
  auto point = [](const FacetMesh &m, int32_t p) {
    return Kernel::Point_3(m.points[3 * size_t(p)], m.points[3 * size_t(p) + 1], m.points[3 * size_t(p) + 2]);
  };
  std::vector<Triangle> triangles;
  triangles.reserve(solid.facets.size());
  for (const Facet &f : solid.facets) {
    const Triangle t(point(solid, f[0]), point(solid, f[1]), point(solid, f[2]));
    if (!t.is_degenerate()) triangles.push_back(t);
  }
  double area = 0;
  if (triangles.empty()) {
    for (size_t f = 0; f < given.facets.size(); ++f) area += facetarea(given, int32_t(f));
    return area;
  }
  Tree tree(triangles.begin(), triangles.end());
  tree.accelerate_distance_queries();
  // A direction along no axis or diagonal, so that rays seldom meet an edge.
  const Kernel::Vector_3 direction(1.0, 0.0012345678, 0.0023456789);
  std::vector<Tree::Primitive_id> hits;
  for (size_t f = 0; f < given.facets.size(); ++f) {
    const Facet &c = given.facets[f];
    const Kernel::Point_3 centre = CGAL::centroid(point(given, c[0]), point(given, c[1]), point(given, c[2]));
    if (tree.squared_distance(centre) <= slack * slack) continue;
    // Winding: each facet the ray leaves through counts one, each it enters through minus one.
    hits.clear();
    tree.all_intersected_primitives(Kernel::Ray_3(centre, direction), std::back_inserter(hits));
    int winding = 0;
    for (const auto &h : hits) winding += h->supporting_plane().orthogonal_vector() * direction > 0 ? 1 : -1;
    if (winding <= 0) area += facetarea(given, int32_t(f));
  }
  return area;
}

}  // namespace wf
