// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement of a point and of a surface: the node grid, the ring search of the weighted
// average, and the refinement walk, whose midpoints computed ahead in waves must give exactly the
// walk that displaces each when reached. (The weights, the scan path and the grid's filing are
// in every regression job's surfaces.)
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <set>
#include <tuple>

#include "base/memory.h"
#include "reporting.h"
#include "shapes.h"
#include "surface/preparesurface.h"
#include "testutil.h"
#include "warp/nodegrid.h"
#include "warp/refine.h"
#include "warp/warpfield.h"
#include "warp/warpstl.h"

using namespace wf;
using P3 = std::array<double, 3>;
using wft::samebits;

namespace {

using Field = std::function<P3(const P3 &)>;

// Nodes with their displacements from a field, all active, filed in their grid.
struct Nodes {
  Simulation sim;
  NodeGrid grid;
  WarpParams params;
  Nodes(const std::vector<P3> &xyz, const Field &u, int navg = WarpParams().navg) {
    params.navg = navg;
    sim.nnodes = static_cast<int32_t>(xyz.size());
    for (const P3 &p : xyz) {
      const P3 d = u(p);
      sim.nodexyz.insert(sim.nodexyz.end(), p.begin(), p.end());
      sim.nodedisp.insert(sim.nodedisp.end(), d.begin(), d.end());
    }
    sim.nodeactive.assign(xyz.size(), 255);
    grid = gridlayout(sim.nodexyz.data(), sim.nnodes);
    filenodes(grid, sim.nodexyz.data(), sim.nnodes);
  }
  WarpField field(const QuerySet *ref = nullptr) const {
    return {.sim = &sim, .grid = &grid, .ref = ref, .params = params};
  }
  P3 warp(P3 p, WarpWork &w, const QuerySet *ref = nullptr) const {
    warpvertex(field(ref), p.data(), w);
    return p;
  }
};

// A lattice of n[0] x n[1] x n[2] nodes from lo with unit spacing, i fastest.
std::vector<P3> lattice(const P3 &lo, const std::array<int, 3> &n) {
  std::vector<P3> out;
  for (int k = 0; k < n[2]; ++k)
    for (int j = 0; j < n[1]; ++j)
      for (int i = 0; i < n[0]; ++i) out.push_back({lo[0] + i, lo[1] + j, lo[2] + k});
  return out;
}

P3 identity(const P3 &p) { return p; }

}  // namespace

// The cell counts, the cell rule where no job's nodes go, and a flat box refused. (The filing of
// the nodes, ascending within a cell, is in every regression job's surfaces.)
TEST(NodeGrid, CellRulesAndFlatBoxesAreRefused) {
  // Box [1,4] x [-1,1] x [0,2] with 12 nodes: 3 x 2 x 2 cells of 1 (cube roots of 27 and 8).
  const std::vector<double> xyz = {4, 1,  2, 3, 1, 2, 1,   -1,   0,   1.5, -0.5, 0.5, 3, 0, 0, 2,   -1,   1,
                                   3, -1, 0, 1, 0, 1, 1.9, -0.1, 0.9, 2,   0,    0,   1, 1, 2, 3.5, -0.5, 1.5};
  const NodeGrid g = gridlayout(xyz.data(), 12);
  EXPECT_EQ((std::array<int32_t, 3>{g.nx, g.ny, g.nz}), (std::array<int32_t, 3>{3, 2, 2}));
  // The cell rule: the high face and beyond go to the last cell, below to the first; a zero
  // size sends the origin itself (0/0) and what lies below it to the first, what lies above to
  // the last; a value that is not a number goes to the first.
  EXPECT_EQ(gridcell(4.0, 1.0, 1.0, 3), 3);
  EXPECT_EQ(gridcell(-7.0, 1.0, 1.0, 3), 1);
  EXPECT_EQ(gridcell(1.0, 1.0, 0.0, 3), 1);
  EXPECT_EQ(gridcell(2.0, 1.0, 0.0, 3), 3);
  EXPECT_EQ(gridcell(std::nan(""), 1.0, 1.0, 3), 1);

  // A box flat but for a hair in one direction asks for cells out of all proportion to the
  // nodes: refused with the grid's allocation message instead of tried.
  std::vector<double> flat;
  for (int n = 0; n < 200; ++n) flat.insert(flat.end(), {double(n % 20), double(n / 20), n == 7 ? 1e-12 : 0.0});
  NodeGrid f = gridlayout(flat.data(), 200);
  EXPECT_GT(int64_t{f.nx} * f.ny * f.nz, maxgridcells(200));
  EXPECT_EQ(wft::fatalof([&] { filenodes(f, flat.data(), 200); }), "32 initgrid, nncell, 1");
}

TEST(NodalWarp, RingSearchStartAndStoppingRule) {
  // A point outside the mesh starts in the nearest boundary cell.
  Nodes n(lattice({0, 0, 0}, {3, 3, 3}), [](const P3 &p) { return P3{0.1 * p[0], 0.1 * p[1], 0.1 * p[2]}; });
  n.params.navg = 1;
  WarpWork w(1);
  EXPECT_EQ(n.warp({-100, 1, 1}, w)[1], 0.9);
  EXPECT_EQ(w.nodes[0], 1 + 3 + 9);  // the node (0, 1, 1)
  EXPECT_EQ(n.warp({1, 1, 50}, w)[2], 49.8);
  EXPECT_EQ(w.nodes[0], 1 + 1 + 3 + 18);  // the node (1, 1, 2)
  // 27 nodes in [0, 0.15]^3 times scale: 3 x 3 x 3 cells. Active are only A in ring 1 and the
  // nearer B in ring 2 of the point's cell. The held squared distance is compared with the ring
  // length: at scale 1, 0.0288 < 1 * 0.05 ends the search with A; at scale 100, 288 is not below
  // 1 * 5 and ring 2 finds B.
  for (double scale : {1.0, 100.0}) {
    std::vector<P3> xyz(27, P3{0.14, 0.14, 0.14});
    xyz[0] = {0, 0, 0}, xyz[1] = {0.15, 0.15, 0.15};
    xyz[2] = {0.099, 0.099, 0.099};  // A, cell (2,2,2)
    xyz[3] = {0.11, 0.001, 0.001};   // B, cell (3,1,1)
    for (P3 &p : xyz)
      for (double &c : p) c *= scale;
    Nodes m(xyz, identity, 1);
    ASSERT_EQ(m.grid.nx * m.grid.ny * m.grid.nz, 27);
    std::fill(m.sim.nodeactive.begin(), m.sim.nodeactive.end(), 0);
    m.sim.nodeactive[2] = m.sim.nodeactive[3] = 255;
    m.warp({0.001 * scale, 0.001 * scale, 0.001 * scale}, w);
    EXPECT_EQ(w.nodes[0], scale == 1.0 ? 3 : 4) << scale;
  }
}

// The end of the rings where none can change the answer, and the parts of rings outside the box
// of the largest held distance: every point, near, far (up to 3e10 away, where the plain search
// walks every ring of the grid), on a node (active or not) or not finite, gets the nodes, in the
// positions and with the distances, that the plain search gets, and so the same point; and so it
// does with the nodes read packed (packnodes) instead of from the grid's lists.
TEST(NodalWarp, RingBoundKeepsEveryAnswer) {
  std::vector<P3> xyz = lattice({0, 0, 0}, {24, 14, 18});
  uint32_t seed = 7;
  auto next = [&seed] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
  for (P3 &p : xyz)
    for (double &c : p) c += double(next() % 1000) * 1e-3 - 0.5;
  Nodes n(xyz, [](const P3 &p) { return P3{std::sin(p[0]), std::cos(p[1]), p[2] * 0.01}; });
  for (size_t i = 0; i < n.sim.nodeactive.size(); ++i) n.sim.nodeactive[i] = next() % 5 ? 255 : 0;
  std::vector<P3> queries;
  for (double d : {0.0, 3.0, 40.0, 1e4, 3e10})
    for (int k = 0; k < 20; ++k) {
      const P3 dir{double(next() % 2001) - 1000.0, double(next() % 2001) - 1000.0, double(next() % 2001) - 1000.0};
      const double len = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]) + 1e-9;
      queries.push_back({11.5 + d * dir[0] / len, 6.5 + d * dir[1] / len, 8.5 + d * dir[2] / len});
    }
  // Points on nodes, active (the snap takes it: its displacement is in every regression job) and
  // not (never taken).
  int oninactive = 0;
  for (size_t k = 0; k < 40; ++k) {
    queries.push_back(xyz[k * 97 % xyz.size()]);
    oninactive += n.sim.nodeactive[k * 97 % xyz.size()] == 0;
  }
  ASSERT_TRUE(oninactive > 0 && oninactive < 40);
  queries.push_back({NAN, 1, 1});
  queries.push_back({INFINITY, 2, 3});
  queries.push_back({-INFINITY, -INFINITY, 0});
  ASSERT_GT(std::abs(queries[90][0] - 11.5) + std::abs(queries[90][1] - 6.5) + std::abs(queries[90][2] - 8.5), 1e9);
  const RingNodes ring = packnodes(n.sim, n.grid);
  ASSERT_EQ(ring.size(), xyz.size());
  for (int navg : {1, 4, 10}) {
    WarpWork bounded(navg), plain(navg), packed(navg);
    for (const P3 &q : queries) {
      n.params.navg = navg;
      n.params.ringbound = true;
      const P3 a = n.warp(q, bounded);
      WarpField f = n.field();
      f.ringnodes = ring.data();
      P3 c = q;
      warpvertex(f, c.data(), packed);
      n.params.ringbound = false;
      const P3 b = n.warp(q, plain);
      const std::string at = std::to_string(q[0]) + " " + std::to_string(q[1]) + " " + std::to_string(q[2]);
      EXPECT_TRUE(samebits(a, b) && samebits(c, b)) << at;
      EXPECT_TRUE(bounded.nodes == plain.nodes && packed.nodes == plain.nodes) << at;
      EXPECT_TRUE(samebits(bounded.dist2, plain.dist2) && samebits(packed.dist2, plain.dist2)) << at;
    }
  }
}

TEST(NodalWarp, TooFewActiveNodesAveragesOnlyWhatWasFound) {
  // The work arrays hold stale very near entries that must not enter the average.
  auto field = [](const P3 &p) { return p == P3{1, 1, 1} ? P3{100, 100, 100} : P3{p[0] + p[1] + p[2], 0, 0}; };
  struct Case {
    std::vector<P3> xyz;
    std::vector<int> active;  // empty: all
    int navg;
    P3 q, want;
  };
  const double w1 = 1 / 0.5, w27 = 1 / std::sqrt(10.25), w2 = 1 / 1.5;
  const Case cases[] = {
      // Two active of 27, ten wanted: the search ends when the grid is covered.
      {lattice({0, 0, 0}, {3, 3, 3}), {0, 26}, 10, {0.5, 0, 0}, {0.5 - w27 * 6 / (w1 + w27), 0, 0}},
      // No active node at all: the point stays.
      {lattice({0, 0, 0}, {3, 3, 3}), {-1}, 4, {0.5, 0.25, 0.125}, {0.5, 0.25, 0.125}},
      // More wanted than the mesh has: the search ends at the node count.
      {{{0, 0, 0}, {2, 0, 0}}, {}, 5, {0.5, 0, 0}, {0.5 - w2 * 2 / (w1 + w2), 0, 0}},
  };
  for (const Case &c : cases) {
    Nodes n(c.xyz, field, c.navg);
    if (!c.active.empty()) std::fill(n.sim.nodeactive.begin(), n.sim.nodeactive.end(), 0);
    for (int a : c.active)
      if (a >= 0) n.sim.nodeactive[static_cast<size_t>(a)] = 255;
    WarpWork w(c.navg);
    std::fill(w.dist2.begin(), w.dist2.end(), 1e-6);
    std::fill(w.nodes.begin(), w.nodes.end(), 14);
    const P3 p = n.warp(c.q, w);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(p[static_cast<size_t>(a)], c.want[static_cast<size_t>(a)], 1e-15) << c.navg;
  }
}

namespace {

// The cube and sheet of tests/shapes.h (or the cube alone), prepared as a run prepares a surface.
PreparedSurface cubeandsheet(int n, bool sheet = true) { return wft::preparedof(wft::cubeandsheet(10.0, n, sheet)); }

struct Refined {
  SurfaceMesh mesh;
  EdgeTable edges;
  RefineCounts counts;
  std::vector<int32_t> percents;
};

Refined refine(const WarpField &field, RefineParams params, bool ahead, int threads, bool sheet = true) {
  Refined r;
  PreparedSurface prep = cubeandsheet(4, sheet);
  r.mesh = std::move(prep.mesh);
  r.edges = std::move(prep.edges);
  r.edges.triedge.clear();
  r.mesh.prewarp = r.mesh.vrt;
  omp_set_num_threads(threads);
  warpvertices(field, r.mesh);
  params.ahead = ahead;
  params.keepedges = true;
  r.counts =
      refinesurface(field, params, r.mesh, r.edges, [&](int32_t, int32_t, int32_t p) { r.percents.push_back(p); });
  omp_set_num_threads(2);
  return r;
}

// The edge table of a refined mesh (its active triangles) built anew, as the preparation builds it.
EdgeCounts rebuildedges(Refined &r, EdgeTable &rebuilt) {
  SurfaceMesh &mesh = r.mesh;
  mesh.ntri = r.counts.active;
  std::vector<double> sidesq(3 * size_t(mesh.ntri));
  for (size_t t = 0; t < size_t(mesh.ntri); ++t)
    for (int k = 0; k < 3; ++k) {
      const double *a = &mesh.vrt[3 * size_t(mesh.tri[3 * t + size_t(sidea[k])] - 1)];
      const double *b = &mesh.vrt[3 * size_t(mesh.tri[3 * t + size_t(sideb[k])] - 1)];
      sidesq[3 * t + size_t(k)] =
          (a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]);
    }
  return buildedges(mesh, sidesq, rebuilt);
}

// A displacement that bends the cube and sheet enough to split their edges over several levels.
P3 swirl(const P3 &p) { return P3{0.02 * p[1] * p[1], 0.3 * std::sin(p[0] / 3), 0.01 * p[0] * p[2]}; }
RefineParams splitting(int32_t maxrefine) {
  return {.maxrefine = maxrefine, .minedge = 0.3, .maxedge = 2.0, .refinetolsq = 1e-4};
}

}  // namespace

// The midpoints computed ahead, wave by wave, on one or two threads, against the walk that
// displaces each midpoint when it reaches it: the same splits, numbering, coordinates and
// progress, with boundary and interior edges split over several levels.
TEST(Refine, WavesGiveExactlyTheSerialWalk) {
  Nodes n(lattice({-2, -2, -2}, {26, 15, 15}), swirl, 6);
  const RefineParams params = splitting(4);
  const Refined serial = refine(n.field(), params, false, 1);
  // It split down to the level limit, and every list grew well past its first capacity.
  const PreparedSurface prep = cubeandsheet(4);
  const SurfaceMesh &first = prep.mesh;
  const EdgeTable &firstedges = prep.edges;
  int32_t deepest = 0;
  for (int32_t l : serial.edges.level) deepest = std::max(deepest, l);
  EXPECT_EQ(deepest, params.maxrefine);
  EXPECT_GT(serial.counts.total, 3 * first.ntri);
  EXPECT_GT(serial.mesh.nvrt, 3 * first.nvrt);
  EXPECT_GT(serial.edges.n, 3 * firstedges.n);
  // The edge list grows from the incremented count (n0, then growcapacity(cap + 1) each time),
  // not from its capacity as the other lists do; here the two rules part.
  int32_t bycount = firstedges.n, bycapacity = firstedges.n;
  while (bycount < serial.edges.cap) bycount = growcapacity(bycount + 1);
  while (bycapacity < serial.edges.cap) bycapacity = growcapacity(bycapacity);
  EXPECT_EQ(bycount, serial.edges.cap);
  EXPECT_NE(bycapacity, serial.edges.cap);
  for (int threads : {1, 2}) {
    SCOPED_TRACE(threads);
    const Refined waves = refine(n.field(), params, true, threads);
    EXPECT_EQ(std::tie(waves.counts.active, waves.counts.total, waves.mesh.tri, waves.edges.vrt, waves.edges.tri,
                       waves.edges.nbr, waves.percents),
              std::tie(serial.counts.active, serial.counts.total, serial.mesh.tri, serial.edges.vrt, serial.edges.tri,
                       serial.edges.nbr, serial.percents));
    EXPECT_TRUE(samebits(waves.mesh.vrt, serial.mesh.vrt) && samebits(waves.mesh.prewarp, serial.mesh.prewarp) &&
                samebits(waves.edges.len, serial.edges.len));
  }
  // Progress was told, and never past 99 before the end of the step.
  EXPECT_FALSE(serial.percents.empty());
  EXPECT_LE(serial.percents.back(), 99);
}

// A closed surface whose triangles all run one way stays closed and one way round through the
// walk: the table rebuilt from the refined triangles has every edge on two triangles running
// opposite ways, and the walk's own table holds each of its edges, and besides them only the
// edges that were split (one for each vertex the walk made).
TEST(Refine, ClosedSurfaceStaysClosed) {
  Nodes n(lattice({-2, -2, -2}, {15, 15, 15}), swirl, 6);
  const RefineParams params = splitting(4);
  const SurfaceMesh before = cubeandsheet(4, false).mesh;
  ASSERT_EQ(before.ntri, 6 * 2 * 16);
  for (int threads : {1, 2}) {
    SCOPED_TRACE(threads);
    Refined r = refine(n.field(), params, true, threads, false);
    // It split: far more triangles, some edges down to the level limit.
    ASSERT_GT(r.counts.active, 4 * before.ntri);
    EXPECT_EQ(*std::max_element(r.edges.level.begin(), r.edges.level.begin() + r.edges.n), params.maxrefine);
    EdgeTable rebuilt;
    const EdgeCounts c = rebuildedges(r, rebuilt);
    EXPECT_EQ(c.open, 0);
    EXPECT_EQ(c.over, 0);
    EXPECT_EQ(countinverted(r.mesh, rebuilt), 0);
    // Euler: a closed surface of genus 0 has V - E + F = 2.
    EXPECT_EQ(int64_t(r.mesh.nvrt) - rebuilt.n + r.mesh.ntri, 2);
    std::set<std::pair<int32_t, int32_t>> walked, made;
    for (size_t e = 0; e < size_t(r.edges.n); ++e)
      walked.emplace(std::minmax(r.edges.vrt[2 * e], r.edges.vrt[2 * e + 1]));
    for (size_t e = 0; e < size_t(rebuilt.n); ++e)
      made.emplace(std::minmax(rebuilt.vrt[2 * e], rebuilt.vrt[2 * e + 1]));
    EXPECT_EQ(walked.size(), size_t(r.edges.n));
    EXPECT_TRUE(std::includes(walked.begin(), walked.end(), made.begin(), made.end()));
    EXPECT_EQ(walked.size() - made.size(), size_t(r.mesh.nvrt - before.nvrt));
  }
}

// An edge on the open rim of a surface, split, turns its two children against their neighbours:
// after one level of splits the table rebuilt from the refined cube and sheet has inversely
// oriented edges, where the cube alone has none (Refine.ClosedSurfaceStaysClosed) and a split
// of an interior edge keeps the orientation.
TEST(Refine, OpenRimChildrenComeOutReversed) {
  Nodes n(lattice({-2, -2, -2}, {26, 15, 15}), swirl, 6);
  const RefineParams params = splitting(1);  // the edges of the surface as read only
  Refined r = refine(n.field(), params, false, 1, true);
  ASSERT_GT(r.counts.active, 2 * 7 * 2 * 16);  // it split
  EdgeTable rebuilt;
  const EdgeCounts c = rebuildedges(r, rebuilt);
  EXPECT_GT(c.open, 0);  // the sheet's rim
  EXPECT_GT(countinverted(r.mesh, rebuilt), 0);
}

// With an STL scale other than 1 the build plane stays in the units of the surface as read, and
// prewarp keeps the scale. A cube raised to z = 1 .. 11, every node displaced by (0, 0, 1), *FIXZ
// with a small tolerance, no refinement: at scale 1 the bottom lies on the build plane and keeps
// its z; at scale 2 it lies at z = 2, off the plane (z = 1), and moves like the rest.
TEST(WarpStl, StlScaleLeavesTheBuildPlaneAndPrewarpAsRead) {
  Nodes n(lattice({-2, -2, -2}, {26, 26, 26}), [](const P3 &) { return P3{0, 0, 1}; });
  n.params.fixz = true;
  n.params.ztol = 1e-3;
  const RefineParams none{.maxrefine = 0};
  for (double scale : {1.0, 2.0}) {
    SCOPED_TRACE(scale);
    PreparedSurface prep = cubeandsheet(2, false);
    SurfaceMesh &mesh = prep.mesh;
    for (size_t k = 2; k < mesh.vrt.size(); k += 3) mesh.vrt[k] += 1.0;
    mesh.box.min[2] += 1.0;
    mesh.box.max[2] += 1.0;
    const std::vector<double> asread(mesh.vrt.begin(), mesh.vrt.begin() + 3 * size_t(mesh.nvrt));
    warpstl(n.field(), false, 0.0, WarpScales{scale, 1.0}, none, mesh, prep.edges);
    ASSERT_EQ(mesh.vrt.size() / 3, asread.size() / 3);
    int bottom = 0;
    for (size_t i = 0; i < asread.size() / 3; ++i) {
      const double *raw = &asread[3 * i], *v = &mesh.vrt[3 * i], *pre = &mesh.prewarp[3 * i];
      for (int a = 0; a < 3; ++a) EXPECT_EQ(pre[a], raw[a] * scale);  // not divided back
      for (int a = 0; a < 2; ++a) EXPECT_NEAR(v[a], raw[a], 1e-12);   // x and y as read
      // On the build plane z is kept as it is; anywhere else it moves by -1 in scaled units.
      const bool onplane = raw[2] == 1.0 && scale == 1.0;
      bottom += raw[2] == 1.0;
      EXPECT_NEAR(v[2], onplane ? 1.0 : (raw[2] * scale - 1.0) / scale, onplane ? 0.0 : 1e-12);
    }
    EXPECT_EQ(bottom, 9);  // the 3 x 3 corners of the bottom face
  }
}
