// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/solidrepair.h"

#include <CGAL/Polygon_mesh_processing/triangulate_hole.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <iterator>
#include <new>
#include <numeric>
#include <queue>
#include <thread>
#include <tuple>

#include "repair/cgalkernel.h"
#include "repair/crossings.h"
#include "repair/facetmesh.h"
#include "repair/outerhull.h"
#include "repair/unite.h"

namespace wf {

namespace {

using cgal::Kernel;
using cgal::Point;
namespace PMP = CGAL::Polygon_mesh_processing;

// Rounds of filling; a round after the first refills only where a patch crossed the surface.
constexpr int fillrounds = 5;
// Two facets on an edge that open by less than this angle are folded back onto each other.
const double foldcos = std::cos(5.0 * M_PI / 180.0);
// Rounds of peeling facets that hang on by one side or a corner.
constexpr int peelrounds = 2;
// An open piece with less than this share of the surface's area is a scrap of debris.
constexpr double scrapshare = 0.02;
// A rim whose corners lie within this share of its box's diagonal from its plane is near-planar.
constexpr double planarshare = 0.02;
// Longer rims never go to the exhaustive search.
constexpr size_t cubiclimit = 40;
// Rims of up to this many corners that are not near-planar are looked at for chords that split
// them into near-planar parts, to this depth.
constexpr size_t splitlimit = 120;
// The parts of a split lie in a plane more closely than a rim filled in its plane need: a
// curved surface is not cut into flat parts.
constexpr double splitplanarshare = 0.002;
constexpr int splitdepth = 6;
// Near-planar rims of up to this many corners are looked at for sides that cross.
constexpr size_t foldlimit = 4000;
// A rim over planes (a hole round a corner of the part): steps beside facets whose planes differ
// by more than this angle (degrees) lie on different planes; at most this many planes.
constexpr double planeangle = 20.0;
constexpr size_t maxplanes = 6;
// Three planes meet at a new corner only when they are this far from sharing a line (the
// determinant of their unit normals), and the corner lies within this share of the rim's
// diagonal from the rim's box.
constexpr double mindet = 0.2;
constexpr double apexslack = 0.25;
// A facet given whose centre lies within this share of the box's diagonal from the outer layer
// lies on it.
constexpr double outerslack = 1e-3;

double diagonal(const FacetMesh &m) {
  double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
  for (size_t p = 0; p < m.npoints(); ++p)
    for (int a = 0; a < 3; ++a)
      lo[a] = std::min(lo[a], m.points[3 * p + size_t(a)]), hi[a] = std::max(hi[a], m.points[3 * p + size_t(a)]);
  double d = 0;
  for (int a = 0; a < 3; ++a) d += hi[a] > lo[a] ? (hi[a] - lo[a]) * (hi[a] - lo[a]) : 0;
  return std::sqrt(d);
}

double since(std::chrono::steady_clock::time_point &t) {
  const auto now = std::chrono::steady_clock::now();
  const double s = std::chrono::duration<double>(now - t).count();
  t = now;
  return s;
}

// The mesh being repaired, with what is known of each facet.
struct Work {
  FacetMesh m;
  std::vector<char> added;      // made by the repair
  std::vector<char> flipped;    // turned from the way it was given
  std::vector<int32_t> piece;   // piece of the surface as given (an added facet: that of its rim)
  std::vector<int32_t> origin;  // number among the facets as given (-1: added)

  void keepwhere(const std::vector<char> &drop) {
    size_t k = 0;
    for (size_t f = 0; f < m.facets.size(); ++f) {
      if (drop[f]) continue;
      m.facets[k] = m.facets[f];
      added[k] = added[f];
      flipped[k] = flipped[f];
      piece[k] = piece[f];
      origin[k] = origin[f];
      ++k;
    }
    m.facets.resize(k);
    added.resize(k);
    flipped.resize(k);
    piece.resize(k);
    origin.resize(k);
  }
  void add(const Facet &f, int32_t ofpiece) {
    m.facets.push_back(f);
    added.push_back(1);
    flipped.push_back(0);
    piece.push_back(ofpiece);
    origin.push_back(-1);
  }
  void flip(size_t f) {
    std::swap(m.facets[f][1], m.facets[f][2]);
    flipped[f] ^= 1;
  }
  double area(size_t f) const { return facetarea(m, int32_t(f)); }
};

// Facets repeated: the same way round, one copy stays. Either way round (twins), both go where
// every edge of the twins' region that the rest of the surface reaches has two other facets (two
// parts touching along a face), else one copy stays (a surface doubled on itself).
void repeats(Work &w) {
  const size_t n = w.m.facets.size();
  std::vector<std::array<int32_t, 4>> key(n);  // sorted corners and the facet
  std::vector<char> parity(n);
  for (size_t f = 0; f < n; ++f) {
    std::array<int32_t, 3> c = w.m.facets[f];
    // The corners in order, and whether that order is an odd turn of the facet's own.
    int swaps = 0;
    if (c[0] > c[1]) std::swap(c[0], c[1]), ++swaps;
    if (c[1] > c[2]) std::swap(c[1], c[2]), ++swaps;
    if (c[0] > c[1]) std::swap(c[0], c[1]), ++swaps;
    key[f] = {c[0], c[1], c[2], int32_t(f)};
    parity[f] = char(swaps & 1);
  }
  std::sort(key.begin(), key.end());
  std::vector<char> drop(n, 0);
  std::vector<std::pair<int32_t, int32_t>> twins;
  for (size_t i = 0; i < n;) {
    size_t j = i;
    while (j < n && key[j][0] == key[i][0] && key[j][1] == key[i][1] && key[j][2] == key[i][2]) ++j;
    int32_t first[2] = {-1, -1};
    for (size_t k = i; k < j; ++k) {
      const int32_t f = key[k][3];
      char &p = parity[size_t(f)];
      if (first[int(p)] < 0)
        first[int(p)] = f;
      else
        drop[size_t(f)] = 1;
    }
    if (first[0] >= 0 && first[1] >= 0) twins.emplace_back(std::min(first[0], first[1]), std::max(first[0], first[1]));
    i = j;
  }
  if (twins.empty()) {
    w.keepwhere(drop);
    return;
  }
  // Regions of twins: joined across edges that only twins reach.
  std::vector<int32_t> twinof(n, -1);
  for (size_t t = 0; t < twins.size(); ++t)
    twinof[size_t(twins[t].first)] = twinof[size_t(twins[t].second)] = int32_t(t);
  std::vector<int32_t> up(twins.size());
  std::iota(up.begin(), up.end(), 0);
  auto find = [&](int32_t x) {
    while (up[size_t(x)] != x) x = up[size_t(x)] = up[size_t(up[size_t(x)])];
    return x;
  };
  const SideTable edges = buildsidetable(w.m);
  for (size_t e = 0; e < edges.nedges(); ++e) {
    int32_t others = 0, firsttwin = -1;
    for (int64_t i = edges.start[e]; i < edges.start[e + 1]; ++i) {
      const int32_t f = edges.sides[size_t(i)] / 3;
      if (drop[size_t(f)]) continue;
      if (twinof[size_t(f)] < 0) {
        ++others;
      } else if (firsttwin < 0) {
        firsttwin = twinof[size_t(f)];
      }
    }
    if (firsttwin < 0 || others > 0) continue;
    for (int64_t i = edges.start[e]; i < edges.start[e + 1]; ++i) {
      const int32_t f = edges.sides[size_t(i)] / 3;
      if (drop[size_t(f)] || twinof[size_t(f)] < 0) continue;
      const int32_t a = find(firsttwin), b = find(twinof[size_t(f)]);
      if (a != b) up[size_t(std::max(a, b))] = std::min(a, b);
    }
  }
  // A region goes whole when the rest reaches it, and always with two facets an edge.
  std::vector<char> rim(twins.size(), 0), closes(twins.size(), 1);
  for (size_t e = 0; e < edges.nedges(); ++e) {
    int32_t others = 0;
    std::vector<int32_t> regions;
    for (int64_t i = edges.start[e]; i < edges.start[e + 1]; ++i) {
      const int32_t f = edges.sides[size_t(i)] / 3;
      if (drop[size_t(f)]) continue;
      if (twinof[size_t(f)] < 0)
        ++others;
      else
        regions.push_back(find(twinof[size_t(f)]));
    }
    if (regions.empty() || others == 0) continue;
    for (const int32_t r : regions) {
      rim[size_t(r)] = 1;
      if (others != 2) closes[size_t(r)] = 0;
    }
  }
  for (size_t t = 0; t < twins.size(); ++t) {
    const int32_t r = find(int32_t(t));
    drop[size_t(twins[t].second)] = 1;
    if (rim[size_t(r)] && closes[size_t(r)]) drop[size_t(twins[t].first)] = 1;
  }
  w.keepwhere(drop);
}

// Whether the facets on a two-facet edge lie folded back onto each other.
bool foldedback(const FacetMesh &m, int32_t s1, int32_t s2) {
  const int32_t a = sidefrom(m, s1), b = sideto(m, s1);
  const int32_t r = m.facets[size_t(s1 / 3)][size_t((s1 % 3 + 2) % 3)];
  const int32_t s = m.facets[size_t(s2 / 3)][size_t((s2 % 3 + 2) % 3)];
  const double *pa = &m.points[3 * size_t(a)], *pb = &m.points[3 * size_t(b)];
  double d[3], u[3], v[3];
  for (int k = 0; k < 3; ++k) d[k] = pb[k] - pa[k];
  const double dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
  if (!(dd > 0)) return false;
  for (int k = 0; k < 3; ++k) {
    u[k] = m.points[3 * size_t(r) + size_t(k)] - pa[k];
    v[k] = m.points[3 * size_t(s) + size_t(k)] - pa[k];
  }
  const double ud = (u[0] * d[0] + u[1] * d[1] + u[2] * d[2]) / dd, vd = (v[0] * d[0] + v[1] * d[1] + v[2] * d[2]) / dd;
  for (int k = 0; k < 3; ++k) u[k] -= ud * d[k], v[k] -= vd * d[k];
  const double uu = u[0] * u[0] + u[1] * u[1] + u[2] * u[2], vv = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
  if (!(uu > 0) || !(vv > 0)) return false;
  return (u[0] * v[0] + u[1] * v[1] + u[2] * v[2]) > foldcos * std::sqrt(uu * vv);
}

// Marks every facet that has a corner among the corners of the marked facets.
void addring(const FacetMesh &m, std::vector<char> &mark) {
  std::vector<char> point(m.npoints(), 0);
  for (size_t f = 0; f < m.facets.size(); ++f)
    if (mark[f])
      for (const int32_t p : m.facets[f]) point[size_t(p)] = 1;
  for (size_t f = 0; f < m.facets.size(); ++f)
    for (const int32_t p : m.facets[f])
      if (point[size_t(p)]) mark[f] = 1;
}

// How the conflicts are settled: the facet in the most conflicts first (a stale facet that a
// split left behind lies across all its children), or the smaller facet of each conflict first
// (a surface doubled by finer debris keeps its coarse facets).
enum class Settle { mostconflicts, smallerfirst };

// Marks facets until every pair has one marked: in the order of `settle`, the larger among equals
// (most conflicts) and the lower number among those.
void coverpairs(const Work &w, const std::vector<FacetPair> &pairs, Settle settle, std::vector<char> &mark) {
  if (pairs.empty()) return;
  const size_t n = w.m.facets.size();
  std::vector<int32_t> degree(n, 0);
  std::vector<std::vector<int32_t>> partners;
  std::vector<int32_t> slot(n, -1);
  for (const auto &[f, g] : pairs)
    for (const auto &[a, b] : {std::make_pair(f, g), std::make_pair(g, f)}) {
      if (slot[size_t(a)] < 0) {
        slot[size_t(a)] = int32_t(partners.size());
        partners.emplace_back();
      }
      partners[size_t(slot[size_t(a)])].push_back(b);
      ++degree[size_t(a)];
    }
  // Most conflicts: (degree, area, -facet), the degree brought up to date as pairs are settled.
  // Smaller first: (1, -area, -facet), each facet once.
  const bool most = settle == Settle::mostconflicts;
  using Entry = std::tuple<int32_t, double, int32_t>;
  std::priority_queue<Entry> queue;
  for (size_t f = 0; f < n; ++f)
    if (degree[f] > 0) queue.emplace(most ? degree[f] : 1, most ? w.area(f) : -w.area(f), -int32_t(f));
  std::vector<char> gone(n, 0);
  while (!queue.empty()) {
    const auto [d, a, nf] = queue.top();
    queue.pop();
    const int32_t f = -nf;
    if (gone[size_t(f)] || degree[size_t(f)] == 0 || (most && d != degree[size_t(f)])) continue;
    gone[size_t(f)] = 1;
    mark[size_t(f)] = 1;
    for (const int32_t g : partners[size_t(slot[size_t(f)])]) {
      if (gone[size_t(g)]) continue;
      if (--degree[size_t(g)] > 0 && most) queue.emplace(degree[size_t(g)], w.area(size_t(g)), -g);
    }
  }
}

// Conflicts: facets of one piece that cross, and facets on one edge that lie folded back onto
// each other. Pieces crossing each other are left to the union.
// `between` receives the crossings of different pieces.
std::vector<FacetPair> conflicts(const Work &w, std::vector<FacetPair> &between) {
  const FacetMesh &m = w.m;
  std::vector<FacetPair> pairs;
  for (const FacetPair &p : crossingpairs(m.points, m.facets))
    (w.piece[size_t(p.first)] == w.piece[size_t(p.second)] ? pairs : between).push_back(p);
  const SideTable edges = buildsidetable(m);
  for (size_t e = 0; e < edges.nedges(); ++e) {
    const int64_t from = edges.start[e], to = std::min(edges.start[e + 1], from + 8);
    for (int64_t i = from; i < to; ++i)
      for (int64_t j = i + 1; j < to; ++j) {
        const int32_t s1 = edges.sides[size_t(i)], s2 = edges.sides[size_t(j)];
        if (s1 / 3 != s2 / 3 && foldedback(m, s1, s2)) pairs.emplace_back(std::min(s1, s2) / 3, std::max(s1, s2) / 3);
      }
  }
  std::sort(pairs.begin(), pairs.end());
  pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
  return pairs;
}

// The debris marked: facets of zero area, the facets that settle the conflicts, then every facet
// on an edge that still has more than two.
void markdebris(const Work &w, const std::vector<FacetPair> &pairs, Settle settle, std::vector<char> &debris) {
  const FacetMesh &m = w.m;
  debris.assign(m.facets.size(), 0);
  for (size_t f = 0; f < m.facets.size(); ++f)
    if (collinearfacet(m.points, m.facets[f])) debris[f] = 1;
  coverpairs(w, pairs, settle, debris);
  const SideTable edges = buildsidetable(m);
  std::vector<int32_t> live;
  for (size_t e = 0; e < edges.nedges(); ++e) {
    live.clear();
    for (int64_t i = edges.start[e]; i < edges.start[e + 1]; ++i)
      if (!debris[size_t(edges.sides[size_t(i)] / 3)]) live.push_back(edges.sides[size_t(i)]);
    if (live.size() <= 2) continue;
    // Settling the smaller first, the two largest stay where they run opposite ways along the
    // edge (a surface doubled by finer debris keeps its coarse facets); otherwise all go.
    int32_t keep[2] = {-1, -1};
    if (settle == Settle::smallerfirst) {
      std::sort(live.begin(), live.end(), [&](int32_t a, int32_t b) {
        const double x = w.area(size_t(a / 3)), y = w.area(size_t(b / 3));
        return x > y || (x == y && a < b);
      });
      if (sidefrom(m, live[0]) == sideto(m, live[1])) keep[0] = live[0], keep[1] = live[1];
    }
    for (const int32_t sd : live)
      if (sd != keep[0] && sd != keep[1]) debris[size_t(sd / 3)] = 1;
  }
}

// Pieces that count as parts: those with at least this share of the whole area (what is smaller
// is a scrap of debris, given or left).
constexpr double partshare = 0.01;
int32_t countparts(const Work &w, std::vector<int32_t> &piece) {
  const SideTable edges = buildsidetable(w.m);
  const int32_t np = pieces(w.m, edges, piece);
  std::vector<double> area(size_t(np), 0);
  double total = 0;
  for (size_t f = 0; f < w.m.facets.size(); ++f) {
    area[size_t(piece[f])] += w.area(f);
    total += w.area(f);
  }
  return int32_t(std::count_if(area.begin(), area.end(), [&](double a) { return a >= partshare * total; }));
}

// Removes the facets round corners that have more than one fan, and open scraps; a few rounds,
// since each removal can pinch a corner anew.
int64_t clearfans(Work &w) {
  int64_t removed = 0;
  for (int round = 0; round < 8; ++round) {
    const SideTable edges = buildsidetable(w.m);
    // Separate pieces that meet at a corner are left to the union.
    std::vector<int32_t> piece;
    const int32_t np = pieces(w.m, edges, piece);
    std::vector<int32_t> fan;
    const std::vector<int32_t> pinched = pinchedpoints(w.m, edges, &piece, &fan);
    std::vector<char> drop(w.m.facets.size(), 0);
    if (!pinched.empty()) {
      // At a pinched corner the fan of most area stays and the others go: a scrap of debris
      // hanging on a corner of the surface goes, the surface stays.
      std::vector<char> point(w.m.npoints(), 0);
      for (const int32_t p : pinched) point[size_t(p)] = 1;
      std::vector<std::tuple<int32_t, int32_t, int32_t>> corners;  // point, fan, facet
      for (size_t f = 0; f < w.m.facets.size(); ++f)
        for (int k = 0; k < 3; ++k)
          if (point[size_t(w.m.facets[f][size_t(k)])])
            corners.emplace_back(w.m.facets[f][size_t(k)], fan[3 * f + size_t(k)], int32_t(f));
      std::sort(corners.begin(), corners.end());
      for (size_t i = 0; i < corners.size();) {
        size_t j = i;
        int32_t bestfan = -1;
        double bestarea = -1, area = 0;
        for (; j < corners.size() && std::get<0>(corners[j]) == std::get<0>(corners[i]); ++j) {
          area += w.area(size_t(std::get<2>(corners[j])));
          if (j + 1 == corners.size() || std::get<0>(corners[j + 1]) != std::get<0>(corners[j]) ||
              std::get<1>(corners[j + 1]) != std::get<1>(corners[j])) {
            if (area > bestarea) bestarea = area, bestfan = std::get<1>(corners[j]);
            area = 0;
          }
        }
        for (size_t k = i; k < j; ++k)
          if (std::get<1>(corners[k]) != bestfan) drop[size_t(std::get<2>(corners[k]))] = 1;
        i = j;
      }
    }
    // Open pieces of little area, and pieces made only of patches.
    std::vector<double> area(size_t(np), 0);
    std::vector<char> open(size_t(np), 0), patchonly(size_t(np), 1);
    double total = 0;
    for (size_t f = 0; f < w.m.facets.size(); ++f) {
      const double a = w.area(f);
      area[size_t(piece[f])] += a;
      total += a;
      if (!w.added[f]) patchonly[size_t(piece[f])] = 0;
    }
    for (size_t e = 0; e < edges.nedges(); ++e)
      if (edges.count(int32_t(e)) == 1) open[size_t(piece[size_t(edges.sides[size_t(edges.start[e])] / 3)])] = 1;
    for (size_t f = 0; f < w.m.facets.size(); ++f) {
      const size_t p = size_t(piece[f]);
      if (patchonly[p] || (open[p] && area[p] < scrapshare * total)) drop[f] = 1;
    }
    const int64_t k = std::count(drop.begin(), drop.end(), char(1));
    if (k == 0) break;
    removed += k;
    w.keepwhere(drop);
  }
  return removed;
}

// Peels facets that hang on by one edge or a corner (two or three open sides): what is left of
// a fold once the fold is gone. A few rounds, so that a strip of them goes but a sound rim does
// not unravel.
int64_t peel(Work &w, int rounds) {
  int64_t removed = 0;
  for (int round = 0; round < rounds; ++round) {
    const SideTable edges = buildsidetable(w.m);
    std::vector<char> drop(w.m.facets.size(), 0);
    for (size_t f = 0; f < w.m.facets.size(); ++f) {
      int open = 0;
      for (int k = 0; k < 3; ++k) open += edges.count(edges.edgeofside[3 * f + size_t(k)]) == 1;
      drop[f] = open >= 2;
    }
    const int64_t k = std::count(drop.begin(), drop.end(), char(1));
    if (k == 0) break;
    removed += k;
    w.keepwhere(drop);
  }
  return removed;
}

// Turns the facets of each piece one way by walking across its two-facet edges; the way most of
// the piece's given area faced wins. Facets whose edge cannot agree either way are marked.
void orient(Work &w, std::vector<char> &conflict) {
  const size_t n = w.m.facets.size();
  const SideTable edges = buildsidetable(w.m);
  conflict.assign(n, 0);
  // Turns are decided first and made at the end, so that the sides keep their edges meanwhile.
  std::vector<char> seen(n, 0), turn(n, 0);
  auto from = [&](int32_t s) { return turn[size_t(s / 3)] ? sideto(w.m, s) : sidefrom(w.m, s); };
  auto to = [&](int32_t s) { return turn[size_t(s / 3)] ? sidefrom(w.m, s) : sideto(w.m, s); };
  std::vector<int32_t> queue, members;
  for (size_t seed = 0; seed < n; ++seed) {
    if (seen[seed]) continue;
    queue.assign(1, int32_t(seed));
    members.clear();
    seen[seed] = 1;
    for (size_t q = 0; q < queue.size(); ++q) {
      const int32_t f = queue[q];
      members.push_back(f);
      for (int k = 0; k < 3; ++k) {
        const int32_t s = 3 * f + k, e = edges.edgeofside[size_t(s)];
        if (edges.count(e) != 2) continue;
        const int32_t s1 = edges.sides[size_t(edges.start[size_t(e)])];
        const int32_t o = s1 == s ? edges.sides[size_t(edges.start[size_t(e)]) + 1] : s1;
        const int32_t g = o / 3;
        if (!seen[size_t(g)]) {
          seen[size_t(g)] = 1;
          if (from(s) != to(o)) turn[size_t(g)] = 1;
          queue.push_back(g);
        } else if (from(s) != to(o)) {
          // The smaller of the two goes: the larger is more likely the surface.
          const double af = w.area(size_t(f)), ag = w.area(size_t(g));
          conflict[size_t(af < ag || (af == ag && f > g) ? f : g)] = 1;
        }
      }
    }
    // The way most of the piece's given area faced wins.
    double facing = 0;
    for (const int32_t f : members)
      if (!w.added[size_t(f)])
        facing += ((w.flipped[size_t(f)] != 0) != (turn[size_t(f)] != 0) ? -1 : 1) * w.area(size_t(f));
    if (facing < 0)
      for (const int32_t f : members) turn[size_t(f)] ^= 1;
  }
  for (size_t f = 0; f < n; ++f)
    if (turn[f]) w.flip(f);
}

// The rims of the holes: each as its corners in the order a patch must run along them (against
// the facets beside it), with the corner of the facet beside each step.
struct Rim {
  std::vector<int32_t> corners, beside;
  int32_t piece = 0;
};
std::vector<Rim> rims(const Work &w) {
  const SideTable edges = buildsidetable(w.m);
  // Open sides, by the corner at which the patch's step starts (the side's far end).
  std::vector<std::pair<int32_t, int32_t>> steps;
  for (size_t e = 0; e < edges.nedges(); ++e)
    if (edges.count(int32_t(e)) == 1) {
      const int32_t s = edges.sides[size_t(edges.start[e])];
      steps.emplace_back(sideto(w.m, s), s);
    }
  std::sort(steps.begin(), steps.end());
  std::vector<char> used(steps.size(), 0);
  std::vector<Rim> out;
  for (size_t i = 0; i < steps.size(); ++i) {
    if (used[i]) continue;
    Rim r;
    r.piece = w.piece[size_t(steps[i].second / 3)];
    size_t at = i;
    bool closed = false;
    for (size_t guard = 0; guard <= steps.size(); ++guard) {
      used[at] = 1;
      const int32_t s = steps[at].second;
      r.corners.push_back(steps[at].first);
      r.beside.push_back(w.m.facets[size_t(s / 3)][size_t((s % 3 + 2) % 3)]);
      const int32_t next = sidefrom(w.m, s);
      auto it = std::lower_bound(steps.begin(), steps.end(), std::make_pair(next, INT32_MIN));
      if (it == steps.end() || it->first != next) break;
      at = size_t(it - steps.begin());
      if (at == i) {
        closed = true;
        break;
      }
      if (used[at]) break;
    }
    if (closed && r.corners.size() >= 3) out.push_back(std::move(r));
  }
  return out;
}

// The Newell normal of the corners (a closed polygon), unnormalised.
void newell(const FacetMesh &m, const std::vector<int32_t> &corners, double nrm[3]) {
  const size_t k = corners.size();
  nrm[0] = nrm[1] = nrm[2] = 0;
  for (size_t i = 0; i < k; ++i) {
    const double *p = &m.points[3 * size_t(corners[i])], *q = &m.points[3 * size_t(corners[(i + 1) % k])];
    nrm[0] += (p[1] - q[1]) * (p[2] + q[2]);
    nrm[1] += (p[2] - q[2]) * (p[0] + q[0]);
    nrm[2] += (p[0] - q[0]) * (p[1] + q[1]);
  }
}

// Whether the corners (a closed polygon) lie near one plane, by their distances from the plane
// of its Newell normal; threshold receives the distance allowed.
bool nearplanar(const FacetMesh &m, const std::vector<int32_t> &corners, double &threshold,
                double share = planarshare) {
  double nrm[3], c[3] = {0, 0, 0}, lo[3], hi[3];
  const size_t k = corners.size();
  newell(m, corners, nrm);
  for (int a = 0; a < 3; ++a) lo[a] = HUGE_VAL, hi[a] = -HUGE_VAL;
  for (size_t i = 0; i < k; ++i) {
    const double *p = &m.points[3 * size_t(corners[i])];
    for (int a = 0; a < 3; ++a) c[a] += p[a] / double(k), lo[a] = std::min(lo[a], p[a]), hi[a] = std::max(hi[a], p[a]);
  }
  const double len = std::sqrt(nrm[0] * nrm[0] + nrm[1] * nrm[1] + nrm[2] * nrm[2]);
  const double diag = std::sqrt((hi[0] - lo[0]) * (hi[0] - lo[0]) + (hi[1] - lo[1]) * (hi[1] - lo[1]) +
                                (hi[2] - lo[2]) * (hi[2] - lo[2]));
  threshold = share * diag;
  if (!(len > 0)) return false;
  for (size_t i = 0; i < k; ++i) {
    const double *p = &m.points[3 * size_t(corners[i])];
    const double d = ((p[0] - c[0]) * nrm[0] + (p[1] - c[1]) * nrm[1] + (p[2] - c[2]) * nrm[2]) / len;
    if (std::abs(d) > threshold) return false;
  }
  return true;
}

// A closed polygon seen along the axis nearest its Newell normal: per corner, the other two
// coordinates.
std::vector<Kernel::Point_2> flatten(const FacetMesh &m, const std::vector<int32_t> &corners) {
  const size_t k = corners.size();
  double nrm[3];
  newell(m, corners, nrm);
  const int axis = std::abs(nrm[0]) >= std::abs(nrm[1]) && std::abs(nrm[0]) >= std::abs(nrm[2]) ? 0
                   : std::abs(nrm[1]) >= std::abs(nrm[2])                                       ? 1
                                                                                                : 2;
  const int a = (axis + 1) % 3, b = (axis + 2) % 3;
  std::vector<Kernel::Point_2> flat(k);
  for (size_t i = 0; i < k; ++i) {
    const double *p = &m.points[3 * size_t(corners[i])];
    flat[i] = Kernel::Point_2(p[a], p[b]);
  }
  return flat;
}

// Whether sides i and j of a flattened polygon cross at a point inside both.
bool sidescross(const std::vector<Kernel::Point_2> &flat, size_t i, size_t j) {
  const size_t k = flat.size();
  const auto &p = flat[i], &q = flat[(i + 1) % k], &r = flat[j], &s = flat[(j + 1) % k];
  const auto o1 = CGAL::orientation(p, q, r), o2 = CGAL::orientation(p, q, s);
  const auto o3 = CGAL::orientation(r, s, p), o4 = CGAL::orientation(r, s, q);
  return o1 != CGAL::COLLINEAR && o2 != CGAL::COLLINEAR && o1 != o2 && o3 != CGAL::COLLINEAR && o4 != CGAL::COLLINEAR &&
         o3 != o4;
}

// Whether the closing side of a polygon (its last corner back to its first: the chord of a split)
// crosses another of its sides, seen along its normal.
bool chordcrosses(const FacetMesh &m, const std::vector<int32_t> &part) {
  const size_t k = part.size();
  if (k < 4) return false;
  const std::vector<Kernel::Point_2> flat = flatten(m, part);
  for (size_t j = 1; j + 2 < k; ++j)
    if (sidescross(flat, k - 1, j)) return true;
  return false;
}

// Sides of a rim, each as its two corners, that cross another side seen along the rim's normal:
// the rim winds over itself, so every patch in its plane would lie twice over part of the
// surface. That is what a fold left at the rim looks like. Only sides that are edges of the
// surface count (`joined`), not the chords of a split. Rims longer than `foldlimit` are not
// looked at.
template <class Joined>
std::vector<std::pair<int32_t, int32_t>> crossedsides(const FacetMesh &m, const std::vector<int32_t> &corners,
                                                      const Joined &joined) {
  const size_t k = corners.size();
  std::vector<std::pair<int32_t, int32_t>> out;
  if (k < 4 || k > foldlimit) return out;
  const std::vector<Kernel::Point_2> flat = flatten(m, corners);
  std::vector<char> real(k), crossed(k, 0);
  for (size_t i = 0; i < k; ++i) real[i] = joined(corners[i], corners[(i + 1) % k]);
  for (size_t i = 0; i < k; ++i)
    for (size_t j = i + 2; j < k; ++j)
      if (real[i] && real[j] && !(i == 0 && j == k - 1) && sidescross(flat, i, j)) crossed[i] = crossed[j] = 1;
  for (size_t i = 0; i < k; ++i)
    if (crossed[i]) out.emplace_back(corners[i], corners[(i + 1) % k]);
  return out;
}

// Triangles (as positions in `corners`, running with it) spanning a closed polygon, with the
// corner of the facet beside each of its sides; empty when no triangulation was found. planar and
// threshold are what nearplanar (at its default share) told of the corners.
std::vector<std::array<int32_t, 3>> span(const FacetMesh &m, const std::vector<int32_t> &corners,
                                         const std::vector<int32_t> &beside, bool planar, double threshold) {
  const size_t k = corners.size();
  std::vector<std::array<int32_t, 3>> tris;
  if (k == 3) {
    tris.push_back({0, 1, 2});
    return tris;
  }
  std::vector<Point> line, third;
  for (size_t i = 0; i < k; ++i) {
    const double *p = &m.points[3 * size_t(corners[i])], *q = &m.points[3 * size_t(beside[i])];
    line.emplace_back(p[0], p[1], p[2]);
    third.emplace_back(q[0], q[1], q[2]);
  }
  std::vector<CGAL::Triple<int, int, int>> out;
  PMP::triangulate_hole_polyline(line, third, std::back_inserter(out),
                                 CGAL::parameters::use_2d_constrained_delaunay_triangulation(planar)
                                     .threshold_distance(threshold)
                                     .use_delaunay_triangulation(true)
                                     .do_not_use_cubic_algorithm(k > cubiclimit));
  if (out.size() != k - 2) return {};
  for (const auto &t : out) {
    std::array<int32_t, 3> c{t.first, t.second, t.third};
    std::sort(c.begin(), c.end());  // in polygon order, so the triangle runs with it
    tris.push_back(c);
  }
  return tris;
}

// What one round of filling hands back: the crossing sides of rims that wind over themselves,
// and whether a later round can still take away a patch that crosses the surface.
struct FillRound {
  std::vector<std::pair<int32_t, int32_t>> folded;
  bool last = false;
};

template <class Joined>
bool fillrim(Work &w, const std::vector<int32_t> &corners, const std::vector<int32_t> &beside, int32_t piece,
             const Joined &joined, int depth, FillRound &round);

// Fills a rim that runs over three to six planes (a hole round a corner of the part, or round an
// edge and both its ends) as the faces of those planes would: the rim falls into runs by the
// plane of the facets beside it, and where three planes meet a new corner is made, so that each
// plane gets a flat part (its run and the new corners on it). The planes are joined as a fan from
// one of them, the first fan whose corners lie near the rim and whose parts are flat, simple and
// cross nothing. False (and nothing added) when there is no such fan.
template <class Joined>
bool fillbyplanes(Work &w, const std::vector<int32_t> &corners, const std::vector<int32_t> &beside, int32_t piece,
                  const Joined &joined, int depth, FillRound &round) {
  const size_t k = corners.size();
  if (k < 6) return false;
  auto at = [&](int32_t p) { return &w.m.points[3 * size_t(p)]; };
  // The plane of the facet beside each step: it holds the step the other way round and the
  // corner `beside`.
  std::vector<std::array<double, 3>> normal(k);
  std::vector<double> weight(k);
  for (size_t i = 0; i < k; ++i) {
    const double *a = at(corners[(i + 1) % k]), *b = at(corners[i]), *c = at(beside[i]);
    const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    weight[i] = len;
    normal[i] = len > 0 ? std::array<double, 3>{n[0] / len, n[1] / len, n[2] / len} : std::array<double, 3>{0, 0, 0};
  }
  auto dot = [](const std::array<double, 3> &a, const std::array<double, 3> &b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  };
  // The planes: the facets beside the rim gathered by the way they face, each plane through the
  // corners of its steps.
  const double samecos = std::cos(planeangle * M_PI / 180.0);
  std::vector<std::array<double, 3>> pn;
  std::vector<double> pd, pw;
  std::vector<size_t> planeof(k, SIZE_MAX);
  for (size_t i = 0; i < k; ++i) {
    if (!(weight[i] > 0)) continue;
    size_t j = 0;
    while (j < pn.size() && dot(normal[i], pn[j]) < samecos) ++j;
    if (j == pn.size()) {
      if (pn.size() == 2 * maxplanes) return false;
      pn.push_back(normal[i]), pd.push_back(0), pw.push_back(0);
    }
    planeof[i] = j;
  }
  double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
  {
    std::vector<std::array<double, 3>> sum(pn.size(), {0, 0, 0});
    for (size_t i = 0; i < k; ++i)
      if (planeof[i] != SIZE_MAX)
        for (int c = 0; c < 3; ++c) sum[planeof[i]][size_t(c)] += weight[i] * normal[i][size_t(c)];
    for (size_t j = 0; j < pn.size(); ++j) {
      const double len = std::sqrt(dot(sum[j], sum[j]));
      for (int c = 0; c < 3; ++c) pn[j][size_t(c)] = sum[j][size_t(c)] / len;
    }
    for (size_t i = 0; i < k; ++i) {
      const double *q = at(corners[i]);
      for (int c = 0; c < 3; ++c) lo[c] = std::min(lo[c], q[c]), hi[c] = std::max(hi[c], q[c]);
      if (planeof[i] == SIZE_MAX) continue;
      for (const int32_t p : {corners[i], corners[(i + 1) % k]}) {
        const double *x = at(p);
        pd[planeof[i]] += pn[planeof[i]][0] * x[0] + pn[planeof[i]][1] * x[1] + pn[planeof[i]][2] * x[2];
        pw[planeof[i]] += 1;
      }
    }
    for (size_t j = 0; j < pn.size(); ++j) pd[j] /= pw[j];
  }
  const double diag = std::sqrt((hi[0] - lo[0]) * (hi[0] - lo[0]) + (hi[1] - lo[1]) * (hi[1] - lo[1]) +
                                (hi[2] - lo[2]) * (hi[2] - lo[2]));
  // A step lies on every plane that holds both its corners. A step on two (along an edge of the
  // part) has the facet beside it on one of them: the patch lies on the other. The rim is cut into
  // as few runs as it can be, each on one plane.
  const double onplane = splitplanarshare * diag;
  auto onj = [&](size_t j, size_t i) {
    for (const int32_t p : {corners[i % k], corners[(i + 1) % k]}) {
      const double *x = at(p);
      if (std::abs(pn[j][0] * x[0] + pn[j][1] * x[1] + pn[j][2] * x[2] - pd[j]) > onplane) return false;
    }
    return true;
  };
  std::vector<char> held(pn.size() * k, 0);
  for (size_t i = 0; i < k; ++i) {
    size_t n = 0;
    for (size_t j = 0; j < pn.size(); ++j) n += held[j * k + i] = onj(j, i);
    if (n > 1 && planeof[i] != SIZE_MAX) held[planeof[i] * k + i] = 0;
  }
  auto holds = [&](size_t j, size_t i) { return held[j * k + i % k] != 0; };
  // Steps from each step on, round the rim (at most all k), that each plane holds.
  const size_t np = pn.size(), k2 = 2 * k;
  std::vector<size_t> reach(np * k2, 0);
  for (size_t j = 0; j < np; ++j)
    for (size_t i = k2; i-- > 0;)
      reach[j * k2 + i] = holds(j, i % k) ? std::min(k, 1 + (i + 1 < k2 ? reach[j * k2 + i + 1] : 0)) : 0;
  // From a start, runs made greedily (each the plane that holds most steps onwards) are as few
  // as runs from that start can be; of all starts, the one that gives fewest.
  auto cut = [&](size_t start, std::vector<std::pair<size_t, size_t>> *runs) {  // (plane, steps)
    size_t count = 0, firstplane = SIZE_MAX, lastplane = SIZE_MAX;
    for (size_t i = 0; i < k;) {
      size_t best = SIZE_MAX, longest = 0;
      for (size_t j = 0; j < np; ++j) {
        const size_t n = std::min(reach[j * k2 + start + i], k - i);
        if (n > longest) longest = n, best = j;
      }
      if (best == SIZE_MAX) return SIZE_MAX;  // a step on none of the planes
      if (runs) runs->emplace_back(best, longest);
      if (count++ == 0) firstplane = best;
      lastplane = best;
      i += longest;
    }
    return count > 1 && firstplane == lastplane ? count - 1 : count;
  };
  size_t fewest = SIZE_MAX, first = 0;
  for (size_t start = 0; start < k; ++start) {
    const size_t n = cut(start, nullptr);
    if (n == SIZE_MAX) return false;
    if (n < fewest) fewest = n, first = start;
  }
  std::vector<std::pair<size_t, size_t>> cuts;
  cut(first, &cuts);
  std::vector<std::vector<int32_t>> run;
  std::vector<size_t> runplane;
  for (size_t c = 0, i = 0; c < cuts.size(); i += cuts[c].second, ++c) {
    runplane.push_back(cuts[c].first);
    run.emplace_back();
    for (size_t n = 0; n <= cuts[c].second; ++n) run.back().push_back(corners[(first + i + n) % k]);
  }
  if (run.size() > 1 && runplane.back() == runplane.front()) {
    run.back().pop_back();
    run.front().insert(run.front().begin(), run.back().begin(), run.back().end());
    run.pop_back(), runplane.pop_back();
  }
  const size_t m = run.size();
  if (m < 3 || m > maxplanes) return false;
  {
    std::vector<size_t> seen = runplane;
    std::sort(seen.begin(), seen.end());
    if (std::adjacent_find(seen.begin(), seen.end()) != seen.end()) return false;  // a plane met twice
  }
  std::vector<std::array<double, 3>> rn(m);
  std::vector<double> rd(m);
  for (size_t r = 0; r < m; ++r) rn[r] = pn[runplane[r]], rd[r] = pd[runplane[r]];
  pn = rn, pd = rd;
  // Where planes a, b and c meet (as floats, like every point of the surface); false when two of
  // them are near parallel or the point lies away from the rim.
  auto meet = [&](size_t a, size_t b, size_t c, std::array<double, 3> &x) {
    const auto &na = pn[a], &nb = pn[b], &nc = pn[c];
    const std::array<double, 3> bc = {nb[1] * nc[2] - nb[2] * nc[1], nb[2] * nc[0] - nb[0] * nc[2],
                                      nb[0] * nc[1] - nb[1] * nc[0]},
                                ca = {nc[1] * na[2] - nc[2] * na[1], nc[2] * na[0] - nc[0] * na[2],
                                      nc[0] * na[1] - nc[1] * na[0]},
                                ab = {na[1] * nb[2] - na[2] * nb[1], na[2] * nb[0] - na[0] * nb[2],
                                      na[0] * nb[1] - na[1] * nb[0]};
    const double det = dot(na, bc);
    if (std::abs(det) < mindet) return false;
    for (int i = 0; i < 3; ++i) {
      x[size_t(i)] = double(float((pd[a] * bc[size_t(i)] + pd[b] * ca[size_t(i)] + pd[c] * ab[size_t(i)]) / det));
      const double slack = apexslack * diag;
      if (x[size_t(i)] < lo[i] - slack || x[size_t(i)] > hi[i] + slack) return false;
    }
    return true;
  };
  const size_t before = w.m.facets.size(), npoints = w.m.npoints(), foldedbefore = round.folded.size();
  std::vector<std::pair<int32_t, int32_t>> rimsides(k);
  for (size_t i = 0; i < k; ++i)
    rimsides[i] = {std::min(corners[i], corners[(i + 1) % k]), std::max(corners[i], corners[(i + 1) % k])};
  std::sort(rimsides.begin(), rimsides.end());
  // First a fan whose patch crosses nothing; else, unless this is the last round, the first whose
  // parts could be filled (what its patch crosses goes in the next round, and the hole is filled
  // again, wider).
  for (size_t pass = 0; pass < 2 * m; ++pass) {
    const size_t hub = pass % m;
    // The fan from the hub: triangle t joins planes hub, hub + 1 + t and hub + 2 + t.
    std::vector<int32_t> apex(m - 2);
    bool ok = true;
    for (size_t t = 0; t + 2 < m && ok; ++t) {
      std::array<double, 3> x{};
      const size_t pa = hub, pb = (hub + 1 + t) % m, pc = (hub + 2 + t) % m;
      ok = meet(pa, pb, pc, x);
      // A corner of the rim on all three planes is where they meet already.
      int32_t onall = -1;
      double nearest = HUGE_VAL;
      for (size_t i = 0; i < k && ok; ++i) {
        const double *q = at(corners[i]);
        bool on = true;
        for (const size_t r : {pa, pb, pc})
          on = on && std::abs(pn[r][0] * q[0] + pn[r][1] * q[1] + pn[r][2] * q[2] - pd[r]) <= onplane;
        const double d = (q[0] - x[0]) * (q[0] - x[0]) + (q[1] - x[1]) * (q[1] - x[1]) + (q[2] - x[2]) * (q[2] - x[2]);
        if (on && d < nearest) nearest = d, onall = corners[i];
      }
      if (onall >= 0) {
        apex[t] = onall;
        continue;
      }
      apex[t] = int32_t(w.m.npoints());
      w.m.points.insert(w.m.points.end(), x.begin(), x.end());
    }
    // Plane r's part: its run, then the new corners on it from the side of plane r + 1 round to
    // the side of plane r - 1.
    for (size_t r = 0; r < m && ok; ++r) {
      std::vector<int32_t> part = run[r];
      const size_t rel = (r + m - hub) % m;  // place of r in the fan
      auto append = [&](int32_t p) {         // a corner met already (the run's ends) is not met again
        if (p != part.back() && p != part.front()) part.push_back(p);
      };
      if (rel == 0) {
        for (size_t t = 0; t + 2 < m; ++t) append(apex[t]);
      } else {
        if (rel + 1 < m) append(apex[rel - 1]);
        if (rel >= 2) append(apex[rel - 2]);
      }
      ok = part.size() >= 3;
      // The part must be flat and simple seen along its normal (its new sides cross nothing).
      double t = 0;
      ok = ok && nearplanar(w.m, part, t, splitplanarshare);
      if (ok) {
        const std::vector<Kernel::Point_2> flat = flatten(w.m, part);
        for (size_t i = 0; i < part.size() && ok; ++i)
          for (size_t j = i + 2; j < part.size() && ok; ++j)
            if (!(i == 0 && j == part.size() - 1) && sidescross(flat, i, j)) ok = false;
      }
      if (ok) {
        // A flat part is spanned in its plane, where the corner beside a side only has to lie off it.
        std::vector<int32_t> bs(part.size());
        for (size_t i = 0; i < part.size(); ++i) bs[i] = part[(i + 2) % part.size()];
        ok = fillrim(w, part, bs, piece, joined, depth + 1, round);
      }
    }
    // No facet of the patch may join two corners that the surface joins already, but along the rim.
    for (size_t f = before; f < w.m.facets.size() && ok; ++f)
      for (int c = 0; c < 3 && ok; ++c) {
        const int32_t p = w.m.facets[f][size_t(c)], q = w.m.facets[f][size_t((c + 1) % 3)];
        if (std::max(p, q) < int32_t(npoints) && joined(p, q) &&
            !std::binary_search(rimsides.begin(), rimsides.end(), std::make_pair(std::min(p, q), std::max(p, q))))
          ok = false;
      }
    if (ok) {
      std::vector<char> fresh(w.m.facets.size(), 0);
      std::fill(fresh.begin() + std::ptrdiff_t(before), fresh.end(), 1);
      // What the patch crosses lies on the planes (a face of the part that was to be made
      // whole): it gives way in the next round. That asks for every pair the patch makes (the
      // first found depends on the threads); the first half of the passes asks only for none.
      const bool givesway = pass >= m && !round.last;
      const std::vector<FacetPair> hits = crossingpairs(w.m.points, w.m.facets, &fresh, givesway ? 0 : 1);
      const bool onplanes = std::all_of(hits.begin(), hits.end(), [&](const FacetPair &h) {
        for (const int32_t f : {h.first, h.second}) {
          if (size_t(f) >= before) continue;
          bool on = false;
          for (size_t r = 0; r < m && !on; ++r) {
            on = true;
            for (const int32_t q : w.m.facets[size_t(f)])
              on = on && std::abs(pn[r][0] * at(q)[0] + pn[r][1] * at(q)[1] + pn[r][2] * at(q)[2] - pd[r]) <= onplane;
          }
          if (!on) return false;
        }
        return true;
      });
      if (hits.empty() || (givesway && onplanes)) return true;
    }
    w.keepwhere([&] {
      std::vector<char> drop(w.m.facets.size(), 0);
      std::fill(drop.begin() + std::ptrdiff_t(before), drop.end(), 1);
      return drop;
    }());
    w.m.points.resize(3 * npoints);
    round.folded.resize(foldedbefore);
  }
  return false;
}

// Fills one rim; the patch's facets are appended (none when no triangulation was found). A rim
// that does not lie near one plane but falls into parts that do, split along chords between its
// corners (a hole across an edge of the part: the chord is that edge), is filled part by part
// in their planes, so the patch keeps the edge; `joined` tells whether two points already share
// an edge (a chord must not). A near-planar rim (or part) whose sides cross is not filled: its
// crossing sides are appended to `round.folded`, and neither the rim nor the split it is part of is
// filled this round.
template <class Joined>
bool fillrim(Work &w, const std::vector<int32_t> &corners, const std::vector<int32_t> &beside, int32_t piece,
             const Joined &joined, int depth, FillRound &round) {
  const size_t k = corners.size();
  // The rim's planarity, asked once: it decides the split, the fold check and the spanning.
  double threshold = 0;
  const bool planar = nearplanar(w.m, corners, threshold);
  if (k > 3 && k <= splitlimit && depth < splitdepth && !planar) {
    if (depth == 0 && fillbyplanes(w, corners, beside, piece, joined, depth, round)) return true;
    // The chord that leaves both parts near-planar; else the one that cuts off the near-planar
    // part of most corners (the rest is split further). Of equals, the first.
    size_t bi = 0, bj = 0, bestscore = 0;
    std::vector<int32_t> part;
    auto planarpart = [&](size_t from, size_t to) {  // corners from .. to, round the rim
      part.clear();
      for (size_t i = from;; i = (i + 1) % k) {
        part.push_back(corners[i]);
        if (i == to) break;
      }
      double t = 0;
      // A chord that crosses the rim seen along the part's plane would make the part's patch
      // fold over itself.
      return nearplanar(w.m, part, t, splitplanarshare) && !chordcrosses(w.m, part);
    };
    for (size_t i = 0; i < k; ++i)
      for (size_t j = i + 2; j < k; ++j) {
        if (i == 0 && j == k - 1) continue;
        if (joined(corners[i], corners[j])) continue;
        const bool left = planarpart(i, j), right = planarpart(j, i);
        // A part of three corners lies in a plane whatever the rim: it tells nothing.
        const size_t nl = j - i + 1, nr = k - (j - i) + 1;
        const size_t score = left && right ? 2 * k : left && nl > 3 ? nl : right && nr > 3 ? nr : 0;
        if (score > bestscore) bestscore = score, bi = i, bj = j;
      }
    if (bestscore > 0) {
      // Beside the chord, for each part, lies a corner of the other.
      std::vector<int32_t> lc, lb, rc, rb;
      for (size_t i = bi; i != bj; i = (i + 1) % k) lc.push_back(corners[i]), lb.push_back(beside[i]);
      lc.push_back(corners[bj]), lb.push_back(corners[(bj + 1) % k]);
      for (size_t i = bj; i != bi; i = (i + 1) % k) rc.push_back(corners[i]), rb.push_back(beside[i]);
      rc.push_back(corners[bi]), rb.push_back(corners[(bi + 1) % k]);
      const size_t before = w.m.facets.size(), foldedbefore = round.folded.size();
      if (fillrim(w, lc, lb, piece, joined, depth + 1, round) && fillrim(w, rc, rb, piece, joined, depth + 1, round)) {
        if (depth > 0) return true;
        // The parts are taken only when none of their facets crosses the surface.
        std::vector<char> fresh(w.m.facets.size(), 0);
        std::fill(fresh.begin() + std::ptrdiff_t(before), fresh.end(), 1);
        if (crossingpairs(w.m.points, w.m.facets, &fresh, 1).empty()) return true;
      }
      // A part that is neither near-planar nor falls into such parts, or parts that cross the
      // surface: the rim is filled whole.
      w.keepwhere([&] {
        std::vector<char> drop(w.m.facets.size(), 0);
        std::fill(drop.begin() + std::ptrdiff_t(before), drop.end(), 1);
        return drop;
      }());
      if (round.folded.size() > foldedbefore) return false;
    }
  }
  // Within a split, only near-planar parts are filled.
  double splitthreshold = 0;
  if (depth > 0 && k > 3 && !nearplanar(w.m, corners, splitthreshold, splitplanarshare)) return false;
  if (depth > 0 || planar) {
    const auto crossed = crossedsides(w.m, corners, joined);
    if (!crossed.empty()) {
      round.folded.insert(round.folded.end(), crossed.begin(), crossed.end());
      return false;
    }
  }
  const std::vector<std::array<int32_t, 3>> tris = span(w.m, corners, beside, planar, threshold);
  for (const auto &t : tris) w.add({corners[size_t(t[0])], corners[size_t(t[1])], corners[size_t(t[2])]}, piece);
  return !tris.empty();
}

// Whether the ray from p in a fixed direction (not along any axis or diagonal) crosses the
// facets an odd number of times.
bool inside(const FacetMesh &m, const std::vector<int32_t> &facets, const Point &p) {
  const Kernel::Ray_3 ray(p, Kernel::Vector_3(1.0, 0.0012345678, 0.0023456789));
  bool odd = false;
  for (const int32_t f : facets) {
    const double *a = &m.points[3 * size_t(m.facets[size_t(f)][0])], *b = &m.points[3 * size_t(m.facets[size_t(f)][1])],
                 *c = &m.points[3 * size_t(m.facets[size_t(f)][2])];
    if (std::max({a[0], b[0], c[0]}) < p.x()) continue;
    const Kernel::Triangle_3 t(Point(a[0], a[1], a[2]), Point(b[0], b[1], b[2]), Point(c[0], c[1], c[2]));
    if (!t.is_degenerate() && CGAL::do_intersect(ray, t)) odd = !odd;
  }
  return odd;
}

// Turns every closed shell to face outwards: a shell inside an odd number of others bounds a
// void and faces inwards. With very many shells nesting is not looked for (each faces outwards).
void faceoutwards(Work &w) {
  const SideTable edges = buildsidetable(w.m);
  std::vector<int32_t> piece;
  const int32_t np = pieces(w.m, edges, piece);
  std::vector<std::vector<int32_t>> members(static_cast<size_t>(np));
  for (size_t f = 0; f < w.m.facets.size(); ++f) members[size_t(piece[f])].push_back(int32_t(f));
  std::vector<double> volume(size_t(np), 0);
  for (size_t f = 0; f < w.m.facets.size(); ++f) volume[size_t(piece[f])] += facetvolume(w.m, int32_t(f));
  constexpr int32_t nestinglimit = 64;
  for (int32_t k = 0; k < np; ++k) {
    int depth = 0;
    if (np <= nestinglimit) {
      const double *q = &w.m.points[3 * size_t(w.m.facets[size_t(members[size_t(k)][0])][0])];
      const Point p(q[0], q[1], q[2]);
      for (int32_t j = 0; j < np; ++j)
        if (j != k && std::abs(volume[size_t(j)]) > std::abs(volume[size_t(k)]) && inside(w.m, members[size_t(j)], p))
          ++depth;
    }
    if ((volume[size_t(k)] < 0) == (depth % 2 == 0))
      for (const int32_t f : members[size_t(k)]) w.flip(size_t(f));
  }
}

}  // namespace

namespace {

// The surface with one way of settling its debris carried through: debris out, peeled, oriented,
// filled.
struct Attempt {
  Work w;
  int64_t debris = 0, holes = 0, removed = 0;
  double debrisarea = 0, area = 0;
  bool closed = false, crossing = true;
  int32_t shells = 0;
};

// `between`: the crossings of different pieces in the surface as given.
void carrythrough(Attempt &t, const std::vector<char> &mark, const std::vector<FacetPair> &between, double seconds[5]) {
  auto clock = std::chrono::steady_clock::now();
  Work &w = t.w;
  for (size_t f = 0; f < mark.size(); ++f)
    if (mark[f]) t.debrisarea += w.area(f);
  t.debris = std::count(mark.begin(), mark.end(), char(1));
  w.keepwhere(mark);
  seconds[1] += since(clock);
  for (int round = 0; round < fillrounds; ++round) {
    if (round == 0) t.debris += peel(w, peelrounds);
    t.debris += clearfans(w);

    std::vector<char> conflict;
    orient(w, conflict);
    if (std::any_of(conflict.begin(), conflict.end(), [](char c) { return c != 0; })) {
      t.removed += std::count(conflict.begin(), conflict.end(), char(1));
      w.keepwhere(conflict);
      continue;
    }
    seconds[2] += since(clock);
    const size_t before = w.m.facets.size();
    std::vector<size_t> patchstart;
    // Edges of the surface as it stands, for the chords of a split rim (made when first asked).
    std::vector<uint64_t> edgekeys;
    auto joined = [&](int32_t a, int32_t b) {
      if (edgekeys.empty()) {
        for (const Facet &f : w.m.facets)
          for (int c = 0; c < 3; ++c) {
            const uint32_t p = uint32_t(f[size_t(c)]), q = uint32_t(f[size_t((c + 1) % 3)]);
            edgekeys.push_back(uint64_t(std::min(p, q)) << 32 | std::max(p, q));
          }
        std::sort(edgekeys.begin(), edgekeys.end());
      }
      const uint64_t key = uint64_t(uint32_t(std::min(a, b))) << 32 | uint32_t(std::max(a, b));
      return std::binary_search(edgekeys.begin(), edgekeys.end(), key);
    };
    FillRound fill;
    fill.last = round + 1 == fillrounds;
    std::vector<std::pair<int32_t, int32_t>> &folded = fill.folded;
    for (const Rim &rim : rims(w)) {
      patchstart.push_back(w.m.facets.size());
      if (fillrim(w, rim.corners, rim.beside, rim.piece, joined, 0, fill)) ++t.holes;
    }
    patchstart.push_back(w.m.facets.size());
    if (w.m.facets.size() == before && folded.empty()) {
      seconds[3] += since(clock);
      break;
    }
    // A patch that crosses its piece goes whole, with what it crossed and the ring round that; a
    // patch that crosses another piece is left to the union.
    std::vector<char> fresh(w.m.facets.size(), 0);
    std::fill(fresh.begin() + std::ptrdiff_t(before), fresh.end(), 1);
    std::vector<FacetPair> hits = crossingpairs(w.m.points, w.m.facets, &fresh);
    hits.erase(
        std::remove_if(hits.begin(), hits.end(),
                       [&](const FacetPair &p) { return w.piece[size_t(p.first)] != w.piece[size_t(p.second)]; }),
        hits.end());
    seconds[3] += since(clock);
    if (hits.empty() && folded.empty()) break;
    std::vector<char> drop(w.m.facets.size(), 0), patchhit(patchstart.size(), 0);
    // A rim that winds over itself: the facets on its crossing sides go, with their ring, and the
    // wider hole is filled in the next round.
    if (!folded.empty()) {
      for (auto &[p, q] : folded)
        if (p > q) std::swap(p, q);
      std::sort(folded.begin(), folded.end());
      for (size_t f = 0; f < before; ++f)
        for (int c = 0; c < 3; ++c) {
          const int32_t p = w.m.facets[f][size_t(c)], q = w.m.facets[f][size_t((c + 1) % 3)];
          if (std::binary_search(folded.begin(), folded.end(), std::make_pair(std::min(p, q), std::max(p, q))))
            drop[f] = 1;
        }
    }
    for (const auto &[f, g] : hits)
      for (const int32_t h : {f, g}) {
        if (size_t(h) >= before) {
          const size_t p =
              size_t(std::upper_bound(patchstart.begin(), patchstart.end(), size_t(h)) - patchstart.begin()) - 1;
          patchhit[p] = 1;
        } else {
          drop[size_t(h)] = 1;
        }
      }
    addring(w.m, drop);
    for (size_t p = 0; p + 1 < patchstart.size(); ++p)
      if (patchhit[p])
        for (size_t f = patchstart[p]; f < patchstart[p + 1]; ++f) drop[f] = 1;
    t.removed += std::count(drop.begin(), drop.end(), char(1));
    w.keepwhere(drop);
  }
  for (size_t f = 0; f < w.m.facets.size(); ++f) t.area += w.area(f);
  const SideTable edges = buildsidetable(w.m);
  t.closed = !w.m.facets.empty();
  for (size_t e = 0; e < edges.nedges(); ++e)
    if (edges.count(int32_t(e)) != 2) t.closed = false;
  std::vector<int32_t> shell;
  t.shells = countparts(w, shell);
  if (t.closed) faceoutwards(w);
  // Crossings left: of the facets as given, only those of different pieces can be left (every
  // crossing within a piece lost a facet to the debris); the patches are looked at afresh.
  std::vector<char> alive(mark.size(), 0), patch(w.m.facets.size(), 0);
  for (size_t f = 0; f < w.m.facets.size(); ++f) {
    if (w.origin[f] >= 0) alive[size_t(w.origin[f])] = 1;
    patch[f] = w.added[f];
  }
  t.crossing = std::any_of(between.begin(), between.end(),
                           [&](const FacetPair &p) { return alive[size_t(p.first)] && alive[size_t(p.second)]; }) ||
               !crossingpairs(w.m.points, w.m.facets, &patch, 1).empty();
  seconds[4] += since(clock);
}

}  // namespace

SolidRepairReport makesolid(std::vector<float> &xyz, bool unite) {
  SolidRepairReport r;
  const size_t n = xyz.size() / 9;
  if (n == 0) return r;
  auto clock = std::chrono::steady_clock::now();
  Work w;
  w.m = weld(xyz.data(), int64_t(n), true);
  w.added.assign(w.m.facets.size(), 0);
  w.flipped.assign(w.m.facets.size(), 0);
  w.piece.assign(w.m.facets.size(), 0);
  w.origin.assign(w.m.facets.size(), 0);
  // The parts as given: facets repeated either way round still join what they touch.
  r.pieces = countparts(w, w.piece);
  repeats(w);
  if (w.m.facets.empty()) return r;
  r.built = true;
  countparts(w, w.piece);
  double total = 0;
  for (size_t f = 0; f < w.m.facets.size(); ++f) total += w.area(f);
  r.seconds[0] = since(clock);
  std::iota(w.origin.begin(), w.origin.end(), 0);
  std::vector<FacetPair> between;
  const std::vector<FacetPair> pairs = conflicts(w, between);
  r.seconds[1] = since(clock);

  // Both ways of settling the conflicts, when they differ; the better result is kept: one that
  // keeps its area and its parts, closed, without crossings, with the larger area (a patch is
  // spanned by its rim alone, so wherever it cuts short across a shape that the debris covered,
  // convex or concave, the surface loses area).
  auto good = [&](const Attempt &t) {
    return t.closed && t.shells <= r.pieces && t.area >= 0.9 * (total - t.debrisarea);
  };
  auto better = [&](const Attempt &a, const Attempt &b) {
    if (good(a) != good(b)) return good(a);
    if (a.crossing != b.crossing) return !a.crossing;
    return a.area > b.area;
  };
  std::vector<char> most, smaller;
  markdebris(w, pairs, Settle::mostconflicts, most);
  markdebris(w, pairs, Settle::smallerfirst, smaller);
  Attempt best, other;
  best.w = w;
  double seconds[2][5] = {{0}, {0}};
  if (smaller == most) {
    carrythrough(best, most, between, seconds[0]);
  } else {
    // The two are independent: side by side.
    other.w = w;
    bool failed = false;
    std::thread side([&] {
      try {
        carrythrough(other, smaller, between, seconds[1]);
      } catch (const std::bad_alloc &) {
        failed = true;
      }
    });
    try {
      carrythrough(best, most, between, seconds[0]);
    } catch (...) {
      side.join();
      throw;
    }
    side.join();
    if (failed) throw std::bad_alloc();
    if (better(other, best)) {
      std::swap(best, other);
      std::swap(seconds[0], seconds[1]);
    }
  }
  // Neither way gives a solid: the surface may lie twice over itself, and its outer layer is
  // what bounds the part (the facets under it are debris of the inner layer).
  if (!good(best) || best.crossing) {
    Attempt outer;
    outer.w = w;
    {
      const SideTable edges = buildsidetable(w.m);
      std::vector<int32_t> piece;
      const int32_t np = pieces(w.m, edges, piece);
      const OuterLayer layer = outerlayer(w.m, edges, piece, np);
      std::vector<char> hidden(w.m.facets.size(), 0);
      for (size_t f = 0; f < w.m.facets.size(); ++f)
        if (!layer.kept[f])
          hidden[f] = 1;
        else if (layer.turned[f])
          outer.w.flip(f);
      outer.w.keepwhere(hidden);
    }
    // The walk's way round is the way given from here on.
    std::fill(outer.w.flipped.begin(), outer.w.flipped.end(), 0);
    std::iota(outer.w.origin.begin(), outer.w.origin.end(), 0);
    std::vector<FacetPair> outerbetween;
    std::vector<char> mark;
    markdebris(outer.w, conflicts(outer.w, outerbetween), Settle::smallerfirst, mark);
    double outerseconds[5] = {0, 0, 0, 0, 0};
    carrythrough(outer, mark, outerbetween, outerseconds);
    // The surface given, debris aside, is the outer layer and whatever of the given facets lies
    // outside it: all else lies inside the solid.
    const double lost = outer.closed ? areaoutside(w.m, outer.w.m, outerslack * diagonal(w.m)) : total;
    outer.debrisarea = std::max(0.0, total - outer.area - lost);
    if (better(outer, best)) {
      std::swap(best, outer);
      std::copy(outerseconds, outerseconds + 5, seconds[0]);
    }
  }
  for (int k = 1; k < 5; ++k) r.seconds[k] += seconds[0][k];
  clock = std::chrono::steady_clock::now();
  r.debris = best.debris;
  r.holes = best.holes;
  r.removed = best.removed;
  r.givenarea = total - best.debrisarea;
  r.area = best.area;
  r.closed = best.closed;
  r.crossing = best.crossing;
  r.shells = best.shells;
  std::vector<float> out = floatsof(best.w.m);
  // Shells that cross each other: their union (the area it takes away is inside the solid).
  if (unite && r.closed && r.crossing && r.shells > 1) {
    std::vector<float> united = out;
    if (uniteshells(united)) {
      const SolidRepairReport again = makesolid(united, false);
      if (again.taken && again.closed && !again.crossing) {
        r.united = true;
        r.crossing = false;
        r.shells = again.shells;
        r.holes += again.holes;
        r.removed += again.removed;
        out.swap(united);
      }
    }
  }
  // Taken only when it keeps the area it was given and splits no piece in two.
  r.taken = r.area >= 0.9 * r.givenarea && r.shells <= r.pieces;
  if (r.taken) xyz.swap(out);
  r.seconds[4] += since(clock);
  return r;
}

}  // namespace wf
