// SPDX-License-Identifier: GPL-2.0-or-later
// The displacement of one point: average, snap, stored nodes, ring search, Z rules, scan path.
#include <gtest/gtest.h>

#include "warpfixtures.h"

using wft::P3;

namespace {

struct Work {
  std::vector<double> dist2, weights;
  std::vector<int32_t> nodes;
  explicit Work(int n, double d2 = 0, int32_t node = 0) : dist2(n, d2), weights(n, 0.0), nodes(n, node) {}
};

P3 warp(const wf::RunState &rs, P3 p, Work &w) {
  wf::warpvertex(rs, p.data(), w.dist2.data(), w.nodes.data(), w.weights.data(),
                 static_cast<int>(w.dist2.size()));
  return p;
}

P3 identity(const P3 &p) { return p; }
P3 constant(const P3 &) { return {0.1, -0.2, 0.3}; }

}  // namespace

TEST(NodalWarp, InverseDistanceAverageAndSnap) {
  wf::RunState rs;
  wft::setnodes(rs, {{0, 0, 0}, {3, 0, 0}}, [](const P3 &p) { return p[0] == 0 ? P3{3, 0, 0} : P3{0, 3, 0}; });
  Work w(2);
  // Distances 1 and 2: weights 1 and 1/2, u = (2, 1, 0); moved against it.
  EXPECT_EQ(warp(rs, {1, 0, 0}, w), (P3{-1, -1, 0}));
  // Exponent 2: weights 1 and 1/4, u = (2.4, 0.6, 0); warpscale 0.5.
  rs.avgexponent = 2.0;
  rs.warpscale = 0.5;
  wft::derive(rs);
  P3 p = warp(rs, {1, 0, 0}, w);
  EXPECT_DOUBLE_EQ(p[0], 1.0 + 0.5 * (3.0 / 1.25));
  EXPECT_DOUBLE_EQ(p[1], 0.5 * (0.75 / 1.25));
  rs.warpscale = -1.0;
  rs.avgexponent = 1.0;
  // Snap: node 1 within the tolerance is visited before node 2 exactly on the point and wins.
  wft::setnodes(rs, {{1 + 5e-6, 0, 0}, {1, 0, 0}, {5, 0, 0}}, [](const P3 &q) { return P3{q[0], 10 * q[0], 0}; });
  EXPECT_EQ(warp(rs, {1, 0, 0}, w), (P3{1 - (1 + 5e-6), -10 * (1 + 5e-6), 0}));
  // The tolerance is inclusive: a node at exactly snaptol.
  rs.snaptol = 0.5;
  wft::setnodes(rs, {{3, 0, 0}, {1.5, 0, 0}}, [](const P3 &q) { return P3{0, 0, q[0]}; });
  EXPECT_EQ(warp(rs, {1, 0, 0}, w)[2], -1.5);
}

TEST(NodalWarp, WorstStoredNodeIsReplacedAndTiesKept) {
  wf::RunState rs;
  // Around the point 0: squared distances 4, 1, 4, 0.25, 2.25, 2.25.
  wft::setnodes(rs, {{2, 0, 0}, {1, 0, 0}, {-2, 0, 0}, {0.5, 0, 0}, {-1.5, 0, 0}, {1.5, 0, 0}}, identity);
  Work w(3);
  P3 p = warp(rs, {0, 0, 0}, w);
  // Node 4 replaced the first of the two largest (node 1), node 5 then node 3; node 6 ties with
  // the largest held (2.25) and is not taken.
  EXPECT_EQ(w.nodes, (std::vector<int32_t>{4, 2, 5}));
  EXPECT_EQ(w.dist2, (std::vector<double>{0.25, 1.0, 2.25}));
  double w4 = 1 / 0.5, w2 = 1 / 1.0, w5 = 1 / 1.5;
  EXPECT_NEAR(p[0], -(w4 * 0.5 + w2 * 1.0 + w5 * -1.5) / (w4 + w2 + w5), 1e-15);
}

TEST(NodalWarp, RingSearchStartAndStoppingRule) {
  // A point outside the mesh starts in the nearest boundary cell.
  wf::RunState rs;
  wft::setnodes(rs, wft::lattice({0, 0, 0}, {3, 3, 3}), [](const P3 &p) { return P3{0.1 * p[0], 0.1 * p[1], 0.1 * p[2]}; });
  Work w(1);
  EXPECT_EQ(warp(rs, {-100, 1, 1}, w)[1], 0.9);
  EXPECT_EQ(w.nodes[0], 1 + 3 + 9);  // the node (0, 1, 1)
  EXPECT_EQ(warp(rs, {1, 1, 50}, w)[2], 49.8);
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
    wf::RunState rs2;
    rs2.navgnodes = 1;
    wft::setnodes(rs2, xyz, identity);
    ASSERT_EQ(rs2.gridnx * rs2.gridny * rs2.gridnz, 27);
    std::fill(rs2.nodeactive.begin(), rs2.nodeactive.end(), 0);
    rs2.nodeactive[2] = rs2.nodeactive[3] = 255;
    warp(rs2, {0.001 * scale, 0.001 * scale, 0.001 * scale}, w);
    EXPECT_EQ(w.nodes[0], scale == 1.0 ? 3 : 4) << scale;
  }
}

TEST(NodalWarp, TooFewActiveNodesEndsAndAveragesOnlyWhatWasFound) {
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
      {wft::lattice({0, 0, 0}, {3, 3, 3}), {0, 26}, 10, {0.5, 0, 0}, {0.5 - w27 * 6 / (w1 + w27), 0, 0}},
      // No active node at all: the point stays.
      {wft::lattice({0, 0, 0}, {3, 3, 3}), {-1}, 4, {0.5, 0.25, 0.125}, {0.5, 0.25, 0.125}},
      // More wanted than the mesh has: the search ends at the node count.
      {{{0, 0, 0}, {2, 0, 0}}, {}, 5, {0.5, 0, 0}, {0.5 - w2 * 2 / (w1 + w2), 0, 0}},
  };
  for (const Case &c : cases) {
    wf::RunState rs;
    wft::setnodes(rs, c.xyz, field);
    if (!c.active.empty()) std::fill(rs.nodeactive.begin(), rs.nodeactive.end(), 0);
    for (int n : c.active)
      if (n >= 0) rs.nodeactive[n] = 255;
    Work w(c.navg, 1e-6, 14);
    P3 p = warp(rs, c.q, w);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(p[a], c.want[a], 1e-15) << c.navg;
  }
}

TEST(NodalWarp, ZRulesWithAndWithoutReference) {
  // Constant field u = (0.1, -0.2, 0.3), warpscale -1. Under *REFG the reference is z = 1:
  // q = p - warpscale * u lies under it, so x, y stay and z becomes z + (1 - q_z).
  struct Case {
    bool ref, fixz, nrle;
    double buildplane, ztol, z, wantz;
  };
  const Case cases[] = {
      {false, false, false, 0, 0, 0.5, 0.2},
      {false, true, false, 0, 0.5, 0.5, 0.5},         // *FIXZ band is inclusive
      {false, true, false, 0, 0.5, -0.5, -0.5},
      {false, true, false, 0, 0.5, 0.5000001, 0.2000001},
      {false, false, true, 0, 0, 1.7, 1.7},           // *NRLE: no Z displacement
      {true, false, false, 0, 0, 0.2, 0.7},
      {true, true, false, 0.19, 0.05, 0.2, 0.19},     // on the plane: lands on it exactly
      {true, true, false, 0.19, 0.05, 0.3, 0.7},      // outside the band: corrected
      {true, false, true, 0, 0, 0.3, 0.3},
  };
  wf::RunState rs;
  wft::setnodes(rs, wft::lattice({0, 0, 0}, {3, 3, 3}), constant);
  rs.navgnodes = 4;
  rs.ref = wft::planeset(1.0);
  Work w(4);
  for (const Case &c : cases) {
    rs.refgflag = c.ref, rs.fixzflag = c.fixz, rs.norelflag = c.nrle;
    rs.buildplane = c.buildplane, rs.ztol = c.ztol;
    P3 p = warp(rs, {0.5, 0.5, c.z}, w);
    EXPECT_NEAR(p[0], c.ref ? 0.5 : 0.4, 1e-14) << c.z;
    EXPECT_NEAR(p[1], c.ref ? 0.5 : 0.7, 1e-14) << c.z;
    if (c.wantz == c.z || c.wantz == c.buildplane) EXPECT_EQ(p[2], c.wantz) << c.z;
    else EXPECT_NEAR(p[2], c.wantz, 1e-12) << c.z;
  }
}

TEST(ScanPath, ThreeOffsetsWeighNineTimesEach) {
  // Near a corner the three offset points find different closest points: (-0.05,-1.1,0.9) the
  // corner, (0.05,-1,1) and (0.15,-0.9,1.1) their feet on the x side. No mesh is needed.
  wf::RunState rs;
  wft::derive(rs);
  rs.scngflag = true;
  rs.warpscale = 1.0;
  Work w(10);
  rs.scn = wft::queryset({{P3{0, 0, 0}, P3{10, 0, 0}, P3{0, 10, 0}}});
  P3 p = warp(rs, {0.05, -1, 1}, w);
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(p[a], (P3{0.05 + 0.05 / 3, 0, 0})[a], 1e-14);
}
