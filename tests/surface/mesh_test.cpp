// SPDX-License-Identifier: GPL-3.0-or-later
// From soup to checked mesh: the sort kit against std::stable_sort, tolerance and snap, the
// edge tables against a reference built with a map, the surface checks and the record of the
// preparation (its console lines are tests of the steps, tests/steps).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <tuple>

#include "shapes.h"
#include "surface/normals.h"
#include "surface/preparesurface.h"
#include "surface/sortkit.h"

using namespace wft;
using I = std::vector<int32_t>;
using V = std::vector<double>;

namespace {

const double qnan = std::numeric_limits<double>::quiet_NaN();

I identity(int32_t n) {
  I p(static_cast<size_t>(n));
  std::iota(p.begin(), p.end(), 1);
  return p;
}

// The stable order of the rows in p by a lexicographic less-than.
template <class K>
I stablereference(const std::vector<K> &a, I p, int nc) {
  std::stable_sort(p.begin(), p.end(), [&](int32_t l, int32_t r) {
    const K *x = a.data() + nc * (l - 1), *y = a.data() + nc * (r - 1);
    return std::lexicographical_compare(x, x + nc, y, y + nc);
  });
  return p;
}

// Run numbers along sorted order p: a new run wherever a row differs from the one before.
template <class K>
I runsof(const std::vector<K> &a, const I &p, int nc) {
  I r(p.size(), 1);
  for (size_t i = 1; i < p.size(); ++i)
    r[i] = r[i - 1] + !std::equal(&a[nc * (p[i] - 1)], &a[nc * (p[i] - 1)] + nc, &a[nc * (p[i - 1] - 1)]);
  return r;
}

using Prepared = wf::PreparedSurface;

Prepared prepare(const Soup &s, const wf::Tolerances &rules = {}) { return preparedof(s, rules); }

// Vertices strictly ascending, and every edge table against a reference made from the
// triangles with an ordered map. Meant for triangles with three distinct vertices.
void checkmesh(const Prepared &p) {
  const wf::SurfaceMesh &m = p.mesh;
  const wf::EdgeTable &e = p.edges;
  for (int32_t v = 1; v < m.nvrt; ++v) {
    const double *a = &m.vrt[3 * (v - 1)];
    EXPECT_TRUE(std::lexicographical_compare(a, a + 3, a + 3, a + 6)) << "vertex " << v;
  }
  std::map<std::pair<int32_t, int32_t>, std::vector<std::pair<size_t, int>>> sides;  // (t, k)
  for (size_t t = 0; t < static_cast<size_t>(m.ntri); ++t)
    for (int k = 0; k < 3; ++k) {
      const int32_t a = m.tri[3 * t + k], b = m.tri[3 * t + (k + 1) % 3];
      ASSERT_NE(a, b) << "checkmesh wants proper triangles";
      sides[{std::min(a, b), std::max(a, b)}].push_back({t, k});
    }
  ASSERT_EQ(e.n, static_cast<int32_t>(sides.size()));
  size_t j = 0;
  for (const auto &[key, list] : sides) {
    const auto [lt, lk] = list.back();  // the last side to touch the edge gives its direction
    const int32_t a = m.tri[3 * lt + lk], b = m.tri[3 * lt + (lk + 1) % 3];
    EXPECT_EQ(e.vrt[2 * j], a) << "edge " << j + 1;
    EXPECT_EQ(e.vrt[2 * j + 1], b) << "edge " << j + 1;
    double sq = 0;
    for (int c = 0; c < 3; ++c) sq += std::pow(m.vrt[3 * (b - 1) + c] - m.vrt[3 * (a - 1) + c], 2);
    EXPECT_DOUBLE_EQ(e.len[j], std::sqrt(sq));
    for (size_t i = 0; i < 2; ++i) {  // the first two triangles, or zeros
      const bool has = i < list.size();
      const auto [t, k] = has ? list[i] : std::pair<size_t, int>{0, 0};
      EXPECT_EQ(e.tri[2 * j + i], has ? static_cast<int32_t>(t + 1) : 0) << "edge " << j + 1;
      EXPECT_EQ(e.opp[2 * j + i], has ? m.tri[3 * t + (k + 2) % 3] : 0) << "edge " << j + 1;
      EXPECT_EQ(e.nbr[4 * j + 2 * i], has ? e.triedge[3 * t + (k + 1) % 3] : 0);
      EXPECT_EQ(e.nbr[4 * j + 2 * i + 1], has ? e.triedge[3 * t + (k + 2) % 3] : 0);
    }
    for (const auto &[t, k] : list) EXPECT_EQ(e.triedge[3 * t + k], static_cast<int32_t>(j + 1));
    ++j;
  }
}

}  // namespace

TEST(SortKit, AgainstReference) {
  // n from 0 (no pass), 2 (one pass, copied back), 3 (two passes) up. Few distinct values, so
  // that ties are common: both signs and zeros, subnormal and huge magnitudes, integer
  // extremes. Ties keep the order of the shuffled incoming permutation.
  const V pool = {0.0, -0.0, 1e-310, -1e-310, 1e300, -1e300, 3.5, -3.5, 1.0, 2.0, 1.0 + 0x1p-52};
  const I ipool = {std::numeric_limits<int32_t>::min(), -5, -1, 0, 1, 7, std::numeric_limits<int32_t>::max()};
  std::mt19937 gen(7);
  I longrun, iuniq;
  int32_t nuniq = 0;
  for (int32_t n : {0, 1, 2, 3, 5, 17, 1000, 30000})
    for (int nc : {1, 2, 3, 5}) {
      V a(static_cast<size_t>(nc) * n);
      I ai(a.size());
      for (size_t i = 0; i < a.size(); ++i) a[i] = pool[gen() % pool.size()], ai[i] = ipool[gen() % ipool.size()];
      I p = identity(n);
      std::shuffle(p.begin(), p.end(), gen);
      const I expect = stablereference(a, p, nc);
      wf::dmatsort(a.data(), p.data(), nc, n);
      ASSERT_EQ(p, expect) << "dmatsort n=" << n << " ncols=" << nc;
      wf::uniq_include(a.data(), p.data(), longrun, nc, n, nuniq, iuniq, false);
      EXPECT_EQ(longrun, runsof(a, p, nc));
      EXPECT_EQ(nuniq, n ? longrun.back() : 0);
      p.assign(p.size(), 0);  // imatsort, dvecsort and keysort fill p themselves
      wf::imatsort(ai.data(), p.data(), nc, n);
      ASSERT_EQ(p, stablereference(ai, identity(n), nc)) << "imatsort n=" << n << " ncols=" << nc;
      wf::uniq_include_int(ai.data(), p.data(), longrun, nc, n, nuniq, iuniq, false);
      EXPECT_EQ(longrun, runsof(ai, p, nc));
      EXPECT_EQ(nuniq, n ? longrun.back() : 0);
      p.assign(p.size(), 0);
      wf::dvecsort(a.data(), p.data(), n);
      EXPECT_EQ(p, stablereference(V(a.begin(), a.begin() + n), identity(n), 1)) << "dvecsort n=" << n;
    }
  // keysort: 64-bit keys with many ties, wide and narrow ranges, against the stable reference.
  for (int32_t n : {0, 1, 2, 100, 70000})
    for (uint64_t range : {uint64_t{3}, uint64_t{1} << 20, ~uint64_t{0}}) {
      std::vector<uint64_t> keys(static_cast<size_t>(n));
      for (auto &k : keys) k = (uint64_t{gen()} << 32 | gen()) % range;
      I p(static_cast<size_t>(n), 0);
      ASSERT_TRUE(wf::keysort(keys.data(), p.data(), n));
      EXPECT_EQ(p, stablereference(keys, identity(n), 1)) << "keysort n=" << n << " range=" << range;
    }
}

TEST(SortKit, ValuesThatAreNotNumbers) {
  // [3, NaN, 1]: pass 1 ties 3 with NaN (left first); pass 2 takes 1 before 3, then the rest.
  // dvecsort takes the right value unless right >= left: NaN moves ahead in pass 1, and 1
  // beats NaN in pass 2.
  V a = {3.0, qnan, 1.0}, rows = {qnan, 2.0, qnan, 1.0}, twonan = {qnan, qnan, 0.0};
  I p = identity(3), longrun, iuniq;
  wf::dmatsort(a.data(), p.data(), 1, 3);
  EXPECT_EQ(p, I({3, 1, 2}));
  wf::dvecsort(a.data(), p.data(), 3);
  EXPECT_EQ(p, I({3, 2, 1}));
  p = identity(2);  // a NaN in the first column passes the decision to the next column
  wf::dmatsort(rows.data(), p.data(), 2, 2);
  EXPECT_EQ(p, I({2, 1}));
  int32_t nuniq = 0;  // a NaN never equals itself: two NaN rows are two runs
  p = identity(3);
  wf::uniq_include(twonan.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(longrun, I({1, 2, 3}));
}

// The first rows of the runs (iuniq) are shifted by one run when the first run has more than one
// row, the last entry then left at 0; with a first run of one row they are the plain first rows.
TEST(SortKit, FirstRowsShiftedWhenTheFirstRunRepeats) {
  I longrun, iuniq;
  int32_t nuniq = 0;
  const V repeated = {1.0, 1.0, 2.0, 3.0}, single = {1.0, 2.0, 2.0, 3.0};
  const I p = identity(4);
  wf::uniq_include(repeated.data(), p.data(), longrun, 1, 4, nuniq, iuniq, false);
  EXPECT_EQ(longrun, I({1, 1, 2, 3}));
  EXPECT_EQ(nuniq, 3);
  EXPECT_EQ(iuniq, I({3, 4, 0}));  // the first rows of the runs would be 1, 3, 4
  wf::uniq_include(single.data(), p.data(), longrun, 1, 4, nuniq, iuniq, false);
  EXPECT_EQ(longrun, I({1, 2, 2, 3}));
  EXPECT_EQ(iuniq, I({1, 2, 4}));
  const I pi = identity(3);
  const std::vector<int32_t> rows = {5, 5, 9};
  wf::uniq_include_int(rows.data(), pi.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(iuniq, I({3, 0}));
}

TEST(PrepareSurface, FlippedOpenAndOverloaded) {
  // A tetrahedron with one triangle turned: the counts are right, three edges are inverse.
  Soup s = tetrahedron();
  std::swap_ranges(s.begin() + 12, s.begin() + 15, s.begin() + 15);
  Prepared p = prepare(s);
  EXPECT_EQ(p.check.status, 0);
  EXPECT_TRUE(p.check.watertight);
  EXPECT_FALSE(p.check.oriented);
  EXPECT_EQ(p.counts.inverted, 3);
  EXPECT_EQ(p.counts.good, 6);
  EXPECT_EQ(p.euler, 2);
  checkmesh(p);
  // A single triangle: open edges, no orientation judged.
  p = prepare({0, 0, 0, 1, 0, 0, 0, 1, 0});
  EXPECT_EQ(p.check.status, -1);
  EXPECT_FALSE(p.check.watertight);
  EXPECT_TRUE(p.check.oriented);
  checkmesh(p);
  EXPECT_EQ(p.counts.open, 3);
  EXPECT_EQ(p.counts.good + p.counts.over, 0);
  EXPECT_EQ(p.euler, 1);

  // Three triangles on one edge: the first two are in the tables, the third only in the edge's
  // vertices, its length and triedge (all of which the reference checks).
  p = prepare({0, 0, 0, 4, 0, 0, 1, 3, 0, 4, 0, 0, 0, 0, 0, 1, -3, 0, 1, 0, 3, 0, 0, 0, 4, 0, 0});
  EXPECT_EQ(p.check.status, -1);
  checkmesh(p);
  EXPECT_EQ(p.counts.open, 6);
  EXPECT_EQ(p.counts.good, 0);
  EXPECT_EQ(p.counts.over, 1);
}

// The stages are told in order, each with what is known by then; without a listener the same
// mesh comes out.
TEST(PrepareSurface, StagesInOrder) {
  wf::RawSurface raw = rawof(cube(2.0));
  std::vector<std::tuple<wf::PrepareStage, double, int32_t>> told;
  const Prepared p = wf::preparemesh(raw, {}, [&](wf::PrepareStage stage, const Prepared &sofar) {
    told.emplace_back(stage, sofar.tolerance.tol, sofar.mesh.nvrt);
  });
  ASSERT_EQ(told.size(), 3u);
  EXPECT_EQ(std::get<0>(told[0]), wf::PrepareStage::snap);
  EXPECT_EQ(std::get<0>(told[1]), wf::PrepareStage::merge);
  EXPECT_EQ(std::get<0>(told[2]), wf::PrepareStage::edges);
  EXPECT_EQ(std::get<1>(told[0]), p.tolerance.tol);  // chosen before the snap
  EXPECT_EQ(std::get<2>(told[1]), 0);                // nothing merged before the merge
  EXPECT_EQ(std::get<2>(told[2]), 8);                // merged before the edges
  EXPECT_TRUE(raw.vrt.empty());                      // the soup is consumed
  const Prepared q = prepare(cube(2.0));
  EXPECT_EQ(q.mesh.vrt, p.mesh.vrt);
  EXPECT_EQ(q.mesh.tri, p.mesh.tri);
  EXPECT_EQ(q.edges.n, 18);
  EXPECT_EQ(q.euler, 2);
  EXPECT_TRUE(q.check.watertight && q.check.oriented);
}

TEST(PrepareSurface, MergedCorners) {
  // A tetrahedron and a triangle with two equal corners: the zero side does not count in the
  // minimum edge and is an edge with equal ends and one triangle; the other two sides lie on
  // one edge, which gains one triangle for both (2 + 1).
  Soup s = tetrahedron(2.0);
  s.insert(s.end(), {0, 0, 0, 0, 0, 0, 2, 0, 0});
  Prepared p = prepare(s);
  EXPECT_NEAR(p.mesh.minedgelen, 2.0, 1e-15);
  EXPECT_EQ(p.check.status, -1);
  EXPECT_EQ(p.mesh.nvrt, 4);
  EXPECT_EQ(p.mesh.tri[12], p.mesh.tri[13]);
  const int32_t ez = p.edges.triedge[12] - 1;
  EXPECT_EQ(p.edges.vrt[2 * ez], p.edges.vrt[2 * ez + 1]);
  EXPECT_EQ(p.edges.len[ez], 0.0);
  EXPECT_EQ(I(p.edges.tri.begin() + 2 * ez, p.edges.tri.begin() + 2 * ez + 2), I({5, 0}));
  EXPECT_EQ(p.edges.triedge[13], p.edges.triedge[14]);
  EXPECT_EQ(p.counts.open, 1);
  EXPECT_EQ(p.counts.good, 5);
  EXPECT_EQ(p.counts.over, 1);
  // Alone, such a triangle's shared edge fills its four neighbour slots from its two sides.
  p = prepare({0, 0, 0, 0, 0, 0, 2, 0, 0});
  const int32_t e = p.edges.triedge[1] - 1, z = p.edges.triedge[0];
  EXPECT_EQ(I(p.edges.nbr.begin() + 4 * e, p.edges.nbr.begin() + 4 * e + 4), I({e + 1, z, z, e + 1}));
}

TEST(PrepareSurface, ToleranceAndSnap) {
  // Cube 100 with a minimum edge 10: edge rule 1.0, box rule 1e-4. Box 1e4 with a minimum
  // edge 1e-4: edge rule 1e-5, box rule 1e-2. Either rule can be forced.
  Soup c100 = cube(100.0);
  c100.insert(c100.end(), {0, 0, 0, 10, 0, 0, 0, 10, 0});
  const Soup b1e4 = {0, 0, 0, 1e4, 0, 0, 0, 1e4, 0, 0, 0, 0, 1e-4, 0, 0, 0, 1e-4, 0};
  const std::tuple<const Soup *, bool, bool, double, double> cases[] = {// by edge, by box
                                                                        {&c100, false, false, 10, 1e-4},
                                                                        {&c100, true, false, 10, 1.0},
                                                                        {&c100, false, true, 10, 1e-4},
                                                                        {&b1e4, false, false, 1e-4, 1e-5}};
  for (const auto &[soup, byedge, bybox, minedge, tol] : cases) {
    wf::Tolerances rules;
    rules.tolbyedge = byedge, rules.tolbybox = bybox;
    const Prepared p = prepare(*soup, rules);
    EXPECT_NEAR(p.minedgelen, minedge, 1e-12 * minedge);
    EXPECT_NEAR(p.tolerance.tol, tol, 1e-12 * tol);
    EXPECT_FALSE(p.tolerance.raised());
    EXPECT_EQ(p.tolerance.pitch(), p.tolerance.tol);
  }
  // All corners equal: minimum edge 2D = 0, and the tolerance rises to the machine precision.
  // A large box with a tiny edge: the floor is the integer precision of the largest axis.
  Prepared p = prepare({3, 3, 3, 3, 3, 3, 3, 3, 3});
  EXPECT_EQ(p.mesh.vrt, V({3, 3, 3}));
  EXPECT_EQ(p.minedgelen, 0.0);
  EXPECT_TRUE(p.tolerance.raised());
  EXPECT_EQ(p.tolerance.floor, wf::machineprecision);
  EXPECT_EQ(p.tolerance.pitch(), wf::machineprecision);
  p = prepare({0, 0, 0, 0x1p20, 0, 0, 0, 1e-20, 0});
  EXPECT_TRUE(p.tolerance.raised());
  EXPECT_EQ(p.tolerance.pitch(), 0x1p-43);

  // Box [-32, 32]^3 and a pitch of exactly 1 (box rule, 1/64 of 64): the lattice points are
  // the integers, the box centre is 0, and halves round away from zero.
  wf::Tolerances rules;
  rules.tolbybox = true;
  rules.reltolbox = 1.0 / 64.0;
  p = prepare({-32, -32, -32, 32, 32, 32, 0.5, -0.5, 2.5, -2.5, 0.49, -0.49, 1.5, 0.4, 0.6, 0.1, 0.4, 0.3}, rules);
  EXPECT_EQ(p.tolerance.tol, 1.0);
  EXPECT_EQ(p.mesh.vrt, V({-32, -32, -32, -3, 0, 0, 0, 0, 0, 1, -1, 3, 2, 0, 1, 32, 32, 32}));
  EXPECT_FALSE(std::signbit(p.mesh.vrt[5]));  // -0.49 went through the integer: no -0
  EXPECT_EQ(p.mesh.tri, I({1, 6, 4, 2, 5, 3}));
}
