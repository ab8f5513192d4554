// SPDX-License-Identifier: GPL-2.0-or-later
// The displacement of one point: the weighted average, the snap, the stored nodes and their
// replacement, the ring search and its stopping rule, searches with too few active nodes,
// the Z rules with and without the reference, and the scan path.
#include <gtest/gtest.h>

#include <cmath>

#include "warp/warpstl.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

struct Work {
  std::vector<double> dist2, weights;
  std::vector<int32_t> nodes;
  explicit Work(int n) : dist2(n, 0.0), weights(n, 0.0), nodes(n, 0) {}
};

P3 warp(const wf::RunState &rs, P3 p, Work &w) {
  wf::warpvertex(rs, p.data(), w.dist2.data(), w.nodes.data(), w.weights.data(),
                 static_cast<int>(w.dist2.size()));
  return p;
}


void nodes(wf::RunState &rs, const std::vector<P3> &xyz, const wft::Field &f) {
  testing::internal::CaptureStdout();
  wft::setnodes(rs, xyz, f);
  testing::internal::GetCapturedStdout();
}

P3 constant(const P3 &) { return {0.1, -0.2, 0.3}; }

}  // namespace

TEST(NodalWarp, InverseDistanceAverage) {
  wf::RunState rs;
  wft::derive(rs);
  // Two nodes on the x axis; the grid is a single cell.
  nodes(rs, {{0, 0, 0}, {3, 0, 0}}, [](const P3 &p) { return p[0] == 0 ? P3{3, 0, 0} : P3{0, 3, 0}; });
  Work w(2);
  // Distances 1 and 2: weights 1 and 1/2, u = (2, 1, 0); moved against it.
  P3 p = warp(rs, {1, 0, 0}, w);
  EXPECT_DOUBLE_EQ(p[0], -1.0);
  EXPECT_DOUBLE_EQ(p[1], -1.0);
  EXPECT_DOUBLE_EQ(p[2], 0.0);
  // Exponent 2: weights 1 and 1/4, u = (2.4, 0.6, 0); warpscale 0.5.
  rs.avgexponent = 2.0;
  rs.warpscale = 0.5;
  wft::derive(rs);
  p = warp(rs, {1, 0, 0}, w);
  EXPECT_DOUBLE_EQ(p[0], 1.0 + 0.5 * (3.0 / 1.25));
  EXPECT_DOUBLE_EQ(p[1], 0.5 * (0.75 / 1.25));
}

TEST(NodalWarp, SnapTakesFirstNodeWithinTolerance) {
  wf::RunState rs;
  wft::derive(rs);
  // Node 1 lies within the tolerance, node 2 exactly on the point: node 1 is visited first.
  nodes(rs, {{1 + 5e-6, 0, 0}, {1, 0, 0}, {5, 0, 0}},
        [](const P3 &p) { return P3{p[0], 10 * p[0], 0}; });
  Work w(3);
  P3 p = warp(rs, {1, 0, 0}, w);
  EXPECT_EQ(p[0], 1 - (1 + 5e-6));
  EXPECT_EQ(p[1], -10 * (1 + 5e-6));
  // The tolerance is inclusive: a node at exactly snaptol.
  wf::RunState rs2;
  wft::derive(rs2);
  rs2.snaptol = 0.5;
  wft::derive(rs2);
  nodes(rs2, {{3, 0, 0}, {1.5, 0, 0}}, [](const P3 &p) { return P3{0, 0, p[0]}; });
  p = warp(rs2, {1, 0, 0}, w);
  EXPECT_EQ(p[2], -1.5);
}

TEST(NodalWarp, WorstStoredNodeIsReplacedAndTiesKept) {
  wf::RunState rs;
  wft::derive(rs);
  // On the x axis around the point 0: squared distances 4, 1, 4, 0.25, 2.25, 2.25.
  nodes(rs, {{2, 0, 0}, {1, 0, 0}, {-2, 0, 0}, {0.5, 0, 0}, {-1.5, 0, 0}, {1.5, 0, 0}},
        [](const P3 &p) { return P3{p[0], 0, 0}; });
  Work w(3);
  warp(rs, {0, 0, 0}, w);
  // Node 4 replaced the first of the two largest (node 1), node 5 then node 3; node 6 ties
  // with the largest held (2.25) and is not taken.
  EXPECT_EQ(w.nodes, (std::vector<int32_t>{4, 2, 5}));
  EXPECT_EQ(w.dist2, (std::vector<double>{0.25, 1.0, 2.25}));
  // The average of exactly these three.
  P3 p = warp(rs, {0, 0, 0}, w);
  double w4 = 1 / 0.5, w2 = 1 / 1.0, w5 = 1 / 1.5;
  EXPECT_NEAR(p[0], -(w4 * 0.5 + w2 * 1.0 + w5 * -1.5) / (w4 + w2 + w5), 1e-15);
}

TEST(NodalWarp, StoppingRuleComparesSquaredDistanceWithLength) {
  // 27 nodes in the cube [0, 0.15]^3: 3 x 3 x 3 cells of 0.05. Active are only A in ring 1 and
  // B in ring 2 of the point's cell; B is the nearer one.
  auto build = [](double scale, wf::RunState &rs) {
    std::vector<P3> xyz(27, P3{0.14, 0.14, 0.14});
    xyz[0] = {0, 0, 0};
    xyz[1] = {0.15, 0.15, 0.15};
    xyz[2] = {0.099, 0.099, 0.099};  // A, cell (2,2,2)
    xyz[3] = {0.11, 0.001, 0.001};   // B, cell (3,1,1)
    for (P3 &p : xyz)
      for (double &c : p) c *= scale;
    nodes(rs, xyz, [](const P3 &p) { return P3{p[0], p[1], p[2]}; });
    std::fill(rs.nodeactive.begin(), rs.nodeactive.end(), 0);
    rs.nodeactive[2] = rs.nodeactive[3] = 255;
  };
  Work w(1);
  {
    // Cells of 0.05: after ring 1 the held distance 0.0288 is below 1 * 0.05, and the search
    // ends with A although B is nearer.
    wf::RunState rs;
  wft::derive(rs);
    rs.navgnodes = 1;
    build(1.0, rs);
    ASSERT_EQ(rs.gridnx * rs.gridny * rs.gridnz, 27);
    warp(rs, {0.001, 0.001, 0.001}, w);
    EXPECT_EQ(w.nodes[0], 3);
  }
  {
    // The same geometry 100 times larger: 288 is not below 1 * 5, ring 2 is searched, B found.
    wf::RunState rs;
  wft::derive(rs);
    rs.navgnodes = 1;
    build(100.0, rs);
    warp(rs, {0.1, 0.1, 0.1}, w);
    EXPECT_EQ(w.nodes[0], 4);
  }
}

TEST(NodalWarp, PointOutsideStartsInBoundaryCell) {
  wf::RunState rs;
  wft::derive(rs);
  nodes(rs, wft::lattice({0, 0, 0}, 1.0, {3, 3, 3}),
        [](const P3 &p) { return P3{0.1 * p[0], 0.1 * p[1], 0.1 * p[2]}; });
  Work w(1);
  P3 p = warp(rs, {-100, 1, 1}, w);
  EXPECT_EQ(w.nodes[0], 1 + 3 + 9);  // the node (0, 1, 1)
  EXPECT_DOUBLE_EQ(p[0], -100.0);
  EXPECT_DOUBLE_EQ(p[1], 0.9);
  p = warp(rs, {1, 1, 50}, w);
  EXPECT_EQ(w.nodes[0], 1 + 1 + 3 + 18);  // the node (1, 1, 2)
  EXPECT_DOUBLE_EQ(p[2], 49.8);
}

TEST(NodalWarp, TooFewActiveNodesEndsAndAveragesOnlyWhatWasFound) {
  auto field = [](const P3 &p) {
    return p[0] == 1 && p[1] == 1 && p[2] == 1 ? P3{100, 100, 100} : P3{p[0] + p[1] + p[2], 0, 0};
  };
  {
    // Two active nodes of 27, ten wanted: the search ends when the grid is covered.
    wf::RunState rs;
  wft::derive(rs);
    nodes(rs, wft::lattice({0, 0, 0}, 1.0, {3, 3, 3}), field);
    std::fill(rs.nodeactive.begin(), rs.nodeactive.end(), 0);
    rs.nodeactive[0] = rs.nodeactive[26] = 255;
    Work w(10);
    // Stale values that must not enter the average: the centre node, very near.
    std::fill(w.dist2.begin(), w.dist2.end(), 1e-6);
    std::fill(w.nodes.begin(), w.nodes.end(), 14);
    P3 p = warp(rs, {0.5, 0, 0}, w);
    double w1 = 1 / 0.5, w27 = 1 / std::sqrt(10.25);
    EXPECT_NEAR(p[0], 0.5 - (w27 * 6.0) / (w1 + w27), 1e-15);
    EXPECT_EQ(p[1], 0.0);
    EXPECT_EQ(p[2], 0.0);
  }
  {
    // No active node at all: the point stays.
    wf::RunState rs;
  wft::derive(rs);
    nodes(rs, wft::lattice({0, 0, 0}, 1.0, {3, 3, 3}), field);
    std::fill(rs.nodeactive.begin(), rs.nodeactive.end(), 0);
    Work w(4);
    P3 p = warp(rs, {0.5, 0.25, 0.125}, w);
    EXPECT_EQ(p, (P3{0.5, 0.25, 0.125}));
  }
  {
    // More wanted than the mesh has (possible without a simulation deck check): the search ends
    // at the node count and the two found make the average.
    wf::RunState rs;
  wft::derive(rs);
    nodes(rs, {{0, 0, 0}, {2, 0, 0}}, [](const P3 &p) { return P3{p[0], 0, 0}; });
    Work w(5);
    std::fill(w.dist2.begin(), w.dist2.end(), 1e-6);
    std::fill(w.nodes.begin(), w.nodes.end(), 1);
    P3 p = warp(rs, {0.5, 0, 0}, w);
    double w1 = 1 / 0.5, w2 = 1 / 1.5;
    EXPECT_NEAR(p[0], 0.5 - (w2 * 2.0) / (w1 + w2), 1e-15);
  }
}

TEST(NodalWarp, ZRulesWithoutReference) {
  wf::RunState rs;
  wft::derive(rs);
  nodes(rs, wft::lattice({0, 0, 0}, 1.0, {3, 3, 3}), constant);
  rs.navgnodes = 4;
  Work w(4);
  P3 p = warp(rs, {0.5, 0.5, 0.5}, w);
  EXPECT_NEAR(p[0], 0.4, 1e-15);
  EXPECT_NEAR(p[1], 0.7, 1e-15);
  EXPECT_NEAR(p[2], 0.2, 1e-15);
  // *FIXZ: within ztol of the build plane (inclusive) the Z displacement is zero.
  rs.fixzflag = true;
  rs.buildplane = 0.0;
  rs.ztol = 0.5;
  p = warp(rs, {0.5, 0.5, 0.5}, w);
  EXPECT_EQ(p[2], 0.5);
  EXPECT_NEAR(p[0], 0.4, 1e-15);
  p = warp(rs, {0.5, 0.5, -0.5}, w);
  EXPECT_EQ(p[2], -0.5);
  p = warp(rs, {0.5, 0.5, 0.5000001}, w);
  EXPECT_NEAR(p[2], 0.2000001, 1e-12);
  // *NRLE: no Z displacement anywhere; X and Y still move.
  rs.fixzflag = false;
  rs.norelflag = true;
  p = warp(rs, {0.5, 0.5, 1.7}, w);
  EXPECT_EQ(p[2], 1.7);
  EXPECT_NEAR(p[1], 0.7, 1e-15);
}

TEST(NodalWarp, ReferenceCorrection) {
  wf::RunState rs;
  wft::derive(rs);
  nodes(rs, wft::lattice({0, 0, 0}, 1.0, {3, 3, 3}), constant);
  rs.navgnodes = 4;
  rs.refgflag = true;
  rs.ref = wft::planeset(1.0);
  Work w(4);
  // q = p - warpscale * u = (0.6, 0.3, 0.5); its closest point on z = 1 is straight above, so
  // x and y keep their place and z becomes z - warpscale * (1 - 0.5).
  P3 p = warp(rs, {0.5, 0.5, 0.2}, w);
  EXPECT_NEAR(p[0], 0.5, 1e-14);
  EXPECT_NEAR(p[1], 0.5, 1e-14);
  EXPECT_NEAR(p[2], 0.7, 1e-14);
  // With *FIXZ a point at the build plane lands on it exactly.
  rs.fixzflag = true;
  rs.buildplane = 0.19;
  rs.ztol = 0.05;
  p = warp(rs, {0.5, 0.5, 0.2}, w);
  EXPECT_EQ(p[2], 0.19);
  p = warp(rs, {0.5, 0.5, 0.3}, w);  // outside the band: corrected as before
  EXPECT_NEAR(p[2], 0.3 + (1 - 0.6), 1e-14);
  // With *NRLE the Z coordinate stays.
  rs.norelflag = true;
  p = warp(rs, {0.5, 0.5, 0.3}, w);
  EXPECT_EQ(p[2], 0.3);
}

TEST(ScanPath, PullTowardsScannedSurface) {
  // No mesh at all: the scan path needs none, and the Z rules do not apply to it.
  wf::RunState rs;
  wft::derive(rs);
  rs.scngflag = true;
  rs.norelflag = true;
  rs.fixzflag = true;
  rs.warpscale = 1.0;
  rs.scn = wft::planeset(1.0);
  Work w(10);
  P3 p = warp(rs, {0.3, 0.4, 0.0}, w);
  EXPECT_NEAR(p[0], 0.3, 1e-14);
  EXPECT_NEAR(p[1], 0.4, 1e-14);
  EXPECT_NEAR(p[2], 1.0, 1e-14);
  rs.warpscale = -1.0;
  p = warp(rs, {0.3, 0.4, 0.0}, w);
  EXPECT_NEAR(p[2], -1.0, 1e-14);
}

TEST(ScanPath, ThreeOffsetsWeighNineTimesEach) {
  // Near the corner of a triangle the three offset points find different closest points:
  // (-0.05,-1.1,0.9) the corner, (0.05,-1,1) and (0.15,-0.9,1.1) their feet on the x side.
  wf::RunState rs;
  wft::derive(rs);
  rs.scngflag = true;
  rs.warpscale = 1.0;
  rs.scn = wft::queryset({{P3{0, 0, 0}, P3{10, 0, 0}, P3{0, 10, 0}}});
  Work w(1);
  P3 p = warp(rs, {0.05, -1, 1}, w);
  EXPECT_NEAR(p[0], 0.05 + 0.05 / 3, 1e-14);
  EXPECT_NEAR(p[1], 0.0, 1e-14);
  EXPECT_NEAR(p[2], 0.0, 1e-14);
}
