// SPDX-License-Identifier: GPL-2.0-or-later
// The whole warp of a surface in process: the node-count checks, the console lines, a closed
// surface refined into a closed surface with consistent tables, results that do not depend on
// the number of threads, a constant field, and a scan job without a simulation.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <map>
#include <set>

#include "control/messages.h"
#include "warp/warpstl.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

P3 printfield(const P3 &p) {
  // Shrinkage growing with height and a curl of the top.
  return {-0.002 * p[0] * p[2], -0.002 * p[1] * p[2] + 0.01 * std::sin(p[0]),
          -0.003 * p[2] - 0.0005 * (p[0] * p[0] + p[1] * p[1])};
}

// A cube part of side 10 standing on z = 0, inside a mesh of spacing 1.
void cubejob(wf::RunState &rs, int n, const wft::Field &f) {
  wft::derive(rs);
  testing::internal::CaptureStdout();
  wft::setnodes(rs, wft::lattice({-2, -2, -1}, 1.0, {15, 15, 14}), f);
  wft::preparesoup(rs, wft::cubesoup(10.0, n));
  testing::internal::GetCapturedStdout();
}

std::string runwarp(wf::RunState &rs) {
  testing::internal::CaptureStdout();
  wf::warpstl(rs);
  return testing::internal::GetCapturedStdout();
}

// Every directed side of the live triangles appears once and its reverse once.
void expectclosedoriented(const wf::RunState &rs) {
  std::map<std::pair<int, int>, int> sides;
  for (int t = 0; t < rs.ntri; ++t)
    for (int k = 0; k < 3; ++k) ++sides[{rs.stltri[3 * t + k], rs.stltri[3 * t + (k + 1) % 3]}];
  int bad = 0;
  for (const auto &[s, count] : sides)
    if (count != 1 || !sides.count({s.second, s.first})) ++bad;
  EXPECT_EQ(bad, 0);
}

}  // namespace

TEST(WarpStl, NodeCountChecks) {
  auto job = [](wf::RunState &rs, int navg, int nnodes, bool inpu) {
    wft::derive(rs);
    testing::internal::CaptureStdout();
    std::vector<P3> xyz;
    for (int n = 0; n < nnodes; ++n) xyz.push_back({double(n), double(n % 3), double(n % 5)});
    wft::setnodes(rs, xyz, [](const P3 &) { return P3{0, 0, 0}; });
    testing::internal::GetCapturedStdout();
    wft::squaresurface(rs);
    rs.navgnodes = navg;
    rs.inpuflag = inpu;
  };
  const std::string warning =
      "\n WARNING:  number of nodes for weighted averaging is\n"
      "           greater than 10% of the total number of\n           nodes\n\n";
  {
    wf::RunState rs;
    job(rs, 28, 27, true);
    testing::internal::CaptureStdout();
    EXPECT_THROW(wf::warpstl(rs), wf::RunAborted);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("174"), std::string::npos);
  }
  {
    wf::RunState rs;
    job(rs, 3, 27, true);  // 3 > 2.7
    std::string out = runwarp(rs);
    EXPECT_EQ(out.find(warning + " Displacing original STL vertices ...\n"), 0u) << out;
  }
  {
    wf::RunState rs;
    job(rs, 2, 20, true);  // 2 is not above 2.0
    std::string out = runwarp(rs);
    EXPECT_EQ(out.find(" Displacing original STL vertices ...\n"), 0u) << out;
  }
  {
    wf::RunState rs;
    job(rs, 28, 27, false);  // no simulation deck: no checks at all
    std::string out = runwarp(rs);
    EXPECT_EQ(out.find("WARNING"), std::string::npos);
    EXPECT_EQ(rs.nvrt, 4);
  }
}

TEST(WarpStl, ClosedSurfaceStaysClosedWithConsistentTables) {
  wf::RunState rs;
  cubejob(rs, 3, printfield);
  rs.maxedge = 2.0;
  rs.minedge = 0.3;
  rs.refinetol = 0.0005;
  wft::derive(rs);
  std::string out = runwarp(rs);
  EXPECT_GT(rs.ntri, 108);
  expectclosedoriented(rs);
  // Every edge record whose two ends still form a side of the surface names two live triangles
  // that hold it with the stated opposite vertices, and its four neighbours run round them.
  std::set<std::pair<int, int>> livesides;
  for (int t = 0; t < rs.ntri; ++t)
    for (int k = 0; k < 3; ++k) livesides.insert({rs.stltri[3 * t + k], rs.stltri[3 * t + (k + 1) % 3]});
  // Live triangles by number: the compaction has renumbered, so compare by corner sets.
  std::set<std::array<int, 3>> livetris;
  for (int t = 0; t < rs.ntri; ++t)
    livetris.insert({rs.stltri[3 * t], rs.stltri[3 * t + 1], rs.stltri[3 * t + 2]});
  auto ends = [&](int e) { return std::pair<int, int>{rs.edgevrt[2 * (e - 1)], rs.edgevrt[2 * (e - 1) + 1]}; };
  int checked = 0;
  for (int e = 1; e <= rs.nedge; ++e) {
    auto [v1, v2] = ends(e);
    if (!livesides.count({v1, v2})) continue;
    ++checked;
    int o1 = rs.edgeopp[2 * (e - 1)], o2 = rs.edgeopp[2 * (e - 1) + 1];
    // T1 holds V1, O1, V2 in cyclic order and T2 holds O2, V1, V2: both as live triangles.
    auto cyclic = [&](int x, int y, int z) {
      return livetris.count({x, y, z}) || livetris.count({y, z, x}) || livetris.count({z, x, y});
    };
    EXPECT_TRUE(cyclic(v1, o1, v2)) << "edge " << e;
    EXPECT_TRUE(cyclic(o2, v1, v2)) << "edge " << e;
    auto same = [&](int n, int x, int y) {
      auto [a, b] = ends(n);
      return (a == x && b == y) || (a == y && b == x);
    };
    const int32_t *nb = rs.edgenbr.data() + 4 * (e - 1);
    EXPECT_TRUE(same(nb[0], v1, o1)) << "edge " << e;
    EXPECT_TRUE(same(nb[1], o1, v2)) << "edge " << e;
    EXPECT_TRUE(same(nb[2], v2, o2)) << "edge " << e;
    EXPECT_TRUE(same(nb[3], o2, v1)) << "edge " << e;
  }
  EXPECT_EQ(checked, rs.ntri * 3 / 2);
  // Progress was told as the walk went on.
  EXPECT_NE(out.find(" Progress = "), std::string::npos);
}

TEST(WarpStl, ResultDoesNotDependOnThreadCount) {
  std::vector<double> result[3];
  int nthreads[3] = {1, 2, 3};
  for (int run = 0; run < 3; ++run) {
    wf::RunState rs;
    cubejob(rs, 12, printfield);
    rs.maxedge = 1.5;
    rs.minedge = 0.2;
    wft::derive(rs);
    omp_set_num_threads(nthreads[run]);
    runwarp(rs);
    result[run] = rs.stlvrt;
  }
  omp_set_num_threads(omp_get_num_procs());
  ASSERT_GT(result[0].size(), 3u * 866);
  EXPECT_TRUE(result[0] == result[1]);
  EXPECT_TRUE(result[0] == result[2]);
}

TEST(WarpStl, ScanJobWithoutSimulation) {
  wf::RunState rs;
  wft::derive(rs);
  rs.scngflag = true;
  rs.warpscale = 1.0;
  rs.scn = wft::planeset(1.0);
  wft::squaresurface(rs);
  rs.minedge = 1.0;
  rs.maxedge = 2.5;  // the diagonal is split, its midpoint also pulled onto the scan
  rs.maxrefine = 1;
  std::string out = runwarp(rs);
  ASSERT_EQ(rs.nvrt, 5);
  for (int v = 0; v < rs.nvrt; ++v) EXPECT_NEAR(rs.stlvrt[3 * v + 2], 1.0, 1e-12) << v;
  EXPECT_NEAR(rs.stlvrt[12], 1.0, 1e-12);
  EXPECT_NEAR(rs.stlvrt[13], 1.0, 1e-12);
  EXPECT_EQ(rs.ntri, 4);
}

TEST(WarpStl, BuildPlaneFromSurfaceOrReference) {
  for (bool ref : {false, true}) {
    wf::RunState rs;
    wft::derive(rs);
    testing::internal::CaptureStdout();
    wft::setnodes(rs, wft::lattice({-1, -1, -1}, 1.0, {5, 5, 3}),
                  [](const P3 &) { return P3{0, 0, 0.5}; });
    testing::internal::GetCapturedStdout();
    wft::squaresurface(rs);
    rs.stlbbox.min[2] = -7.0;  // the raw box, not the vertices, gives the plane
    rs.refgflag = ref;
    rs.ref = wft::planeset(3.0);
    rs.refminz = 0.0;
    rs.fixzflag = true;
    rs.maxrefine = 0;
    runwarp(rs);
    EXPECT_EQ(rs.buildplane, ref ? 0.0 : -7.0);
    // On the plane under *REFG and *FIXZ the vertices land on it exactly; off it they move.
    for (int v = 0; v < 4; ++v) EXPECT_EQ(rs.stlvrt[3 * v + 2], ref ? 0.0 : -0.5);
  }
}
