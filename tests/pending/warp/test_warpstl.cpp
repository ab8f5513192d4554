// SPDX-License-Identifier: GPL-2.0-or-later
// The whole warp of a surface in process, and a constant field through the built program.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstring>
#include <map>
#include <set>

#include "control/messages.h"
#include "testutil.h"
#include "warpfixtures.h"

using wft::P3;

TEST(WarpStl, NodeCountChecks) {
  const std::string warning =
      "\n WARNING:  number of nodes for weighted averaging is\n"
      "           greater than 10% of the total number of\n           nodes\n\n";
  const std::string start = " Displacing original STL vertices ...\n";
  struct Case {
    int navg, nnodes;
    bool inpu, aborts;
    std::string head;
  };
  const Case cases[] = {{28, 27, true, true, ""},          // more than the mesh: code 174
                        {3, 27, true, false, warning + start},  // 3 > 2.7
                        {2, 20, true, false, start},            // 2 is not above 2.0
                        {28, 27, false, false, start}};         // no simulation deck: no checks
  for (const Case &c : cases) {
    wf::RunState rs;
    std::vector<P3> xyz;
    for (int n = 0; n < c.nnodes; ++n) xyz.push_back({double(n), double(n % 3), double(n % 5)});
    wft::setnodes(rs, xyz, wft::zerofield);
    wft::squaresurface(rs);
    rs.navgnodes = c.navg;
    rs.inpuflag = c.inpu;
    testing::internal::CaptureStdout();
    if (c.aborts) EXPECT_THROW(wf::warpstl(rs), wf::RunAborted);
    else wf::warpstl(rs);
    std::string out = testing::internal::GetCapturedStdout();
    if (c.aborts) EXPECT_NE(out.find("174"), std::string::npos) << out;
    else EXPECT_EQ(out.find(c.head), 0u) << out;
  }
}

TEST(WarpStl, BuildPlaneFromSurfaceOrReference) {
  for (bool ref : {false, true}) {
    wf::RunState rs;
    wft::setnodes(rs, wft::lattice({-1, -1, -1}, {5, 5, 3}), [](const P3 &) { return P3{0, 0, 0.5}; });
    wft::squaresurface(rs);
    rs.stlbbox.min[2] = -7.0;  // the raw box, not the vertices, gives the plane
    rs.refgflag = ref;
    rs.ref = wft::planeset(3.0);
    rs.refminz = 0.0;
    rs.fixzflag = true;
    rs.maxrefine = 0;
    wft::runwarp(rs);
    EXPECT_EQ(rs.buildplane, ref ? 0.0 : -7.0);
    // On the plane under *REFG and *FIXZ the vertices land on it exactly; off it they move.
    for (int v = 0; v < 4; ++v) EXPECT_EQ(rs.stlvrt[3 * v + 2], ref ? 0.0 : -0.5);
  }
}

TEST(WarpStl, ScalingOfLengthsAndVertices) {
  wf::RunState rs;
  wft::setnodes(rs, wft::lattice({-1, -1, -1}, {5, 5, 3}), wft::zerofield);
  wft::squaresurface(rs);
  rs.stlscale = 2.0, rs.unitscale = 10.0;
  rs.minedge = 3.0, rs.maxedge = 5.0, rs.maxrefine = 1;  // scaled sides 4 stay, diagonal 5.66 splits
  wft::runwarp(rs);
  ASSERT_EQ(rs.nvrt, 5);
  // stlvrt back in file units times unitscale; prewarpvertices keeps the STL scaling.
  EXPECT_EQ(std::vector<double>(rs.stlvrt.begin() + 9, rs.stlvrt.end()), (std::vector<double>{20, 20, 0, 10, 10, 0}));
  EXPECT_EQ(std::vector<double>(rs.prewarpvertices.begin() + 9, rs.prewarpvertices.end()),
            (std::vector<double>{40, 40, 0, 20, 20, 0}));
}

TEST(WarpStl, ClosedSurfaceStaysClosedWithConsistentTablesOnAnyThreadCount) {
  auto field = [](const P3 &p) {  // shrinkage growing with height and a curl of the top
    return P3{-0.002 * p[0] * p[2], -0.002 * p[1] * p[2] + 0.01 * std::sin(p[0]),
              -0.003 * p[2] - 0.0005 * (p[0] * p[0] + p[1] * p[1])};
  };
  std::vector<double> result[3];
  for (int threads : {1, 2, 3}) {
    wf::RunState rs;
    wft::setnodes(rs, wft::lattice({-2, -2, -1}, {15, 15, 14}), field);
    wft::cubesurface(rs, 10.0, 12);
    rs.maxedge = 1.5, rs.minedge = 0.2;
    omp_set_num_threads(threads);
    std::string out = wft::runwarp(rs);
    result[threads - 1] = rs.stlvrt;
    if (threads > 1) continue;
    EXPECT_NE(out.find(" Progress = "), std::string::npos);
    ASSERT_GT(rs.ntri, 864);
    // Every directed side of the live triangles appears once and its reverse once.
    std::map<std::pair<int, int>, int> sides;
    std::set<std::array<int, 3>> tris;
    for (int t = 0; t < rs.ntri; ++t) {
      const int32_t *c = &rs.stltri[3 * t];
      for (int k = 0; k < 3; ++k) ++sides[{c[k], c[(k + 1) % 3]}];
      tris.insert({c[0], c[1], c[2]}), tris.insert({c[1], c[2], c[0]}), tris.insert({c[2], c[0], c[1]});
    }
    int bad = 0;
    for (const auto &[s, n] : sides) bad += n != 1 || !sides.count({s.second, s.first});
    EXPECT_EQ(bad, 0);
    // Each edge record still a side names live triangles V1 O1 V2 and O2 V1 V2, and its four
    // neighbours run round them.
    auto ends = [&](int e) { return std::pair<int, int>{rs.edgevrt[2 * e - 2], rs.edgevrt[2 * e - 1]}; };
    auto same = [&](int n, int x, int y) { return ends(n) == std::pair{x, y} || ends(n) == std::pair{y, x}; };
    int checked = 0;
    for (int e = 1; e <= rs.nedge; ++e) {
      auto [v1, v2] = ends(e);
      if (!sides.count({v1, v2})) continue;
      ++checked;
      int o1 = rs.edgeopp[2 * e - 2], o2 = rs.edgeopp[2 * e - 1];
      const int32_t *nb = &rs.edgenbr[4 * e - 4];
      EXPECT_TRUE(tris.count({v1, o1, v2}) && tris.count({o2, v1, v2})) << e;
      EXPECT_TRUE(same(nb[0], v1, o1) && same(nb[1], o1, v2) && same(nb[2], v2, o2) && same(nb[3], o2, v1)) << e;
    }
    EXPECT_EQ(checked, rs.ntri * 3 / 2);
  }
  omp_set_num_threads(omp_get_num_procs());
  EXPECT_TRUE(result[0] == result[1]);
  EXPECT_TRUE(result[0] == result[2]);
}

TEST(WarpStl, ScanJobWithoutSimulation) {
  // No mesh; the scan at z = 1 pulls (or with warpscale -1 pushes) every vertex, the Z rules do
  // not apply, and the diagonal is split with its midpoint pulled too.
  for (double scale : {1.0, -1.0}) {
    wf::RunState rs;
    wft::derive(rs);
    rs.scngflag = rs.norelflag = rs.fixzflag = true;
    rs.warpscale = scale;
    rs.scn = wft::planeset(1.0);
    wft::squaresurface(rs);
    rs.minedge = 1.0, rs.maxedge = 2.5, rs.maxrefine = 1;
    wft::runwarp(rs);
    ASSERT_EQ(rs.nvrt, 5);
    EXPECT_EQ(rs.ntri, 4);
    const double want[15] = {0, 0, 1, 0, 2, 1, 2, 0, 1, 2, 2, 1, 1, 1, 1};
    for (int k = 0; k < 15; ++k) EXPECT_NEAR(rs.stlvrt[k], k % 3 == 2 ? scale : want[k], 1e-12) << k;
  }
}

TEST(EndToEnd, ConstantFieldMovesEveryVertexByWarpscaleTimesDisplacement) {
  std::string dir = wft::tempdir("warpjob");
  wft::RunResult g = wft::rungenjob(dir, {"--field", "constant"});
  ASSERT_EQ(g.status, 0) << g.out;
  wft::RunResult r = wft::runwarpforge("job.deck", dir);
  ASSERT_EQ(r.status, 0) << r.out;
  auto corners = [](const std::string &path) {  // nine floats per triangle of a binary STL
    std::string data = wft::readfile(path);
    uint32_t n = 0;
    if (data.size() >= 84) std::memcpy(&n, data.data() + 80, 4);
    std::vector<float> out(data.size() >= 84 + 50ull * n ? 9ull * n : 0);
    for (size_t t = 0; t < out.size() / 9; ++t) std::memcpy(&out[9 * t], data.data() + 84 + 50 * t + 12, 36);
    return out;
  };
  std::vector<float> in = corners(dir + "/part.stl"), out = corners(dir + "/job_1_warp.stl");
  ASSERT_FALSE(in.empty());
  ASSERT_EQ(in.size(), out.size());  // flat field: nothing refined, the order kept
  const double shift[3] = {-0.1, 0.2, -0.3};  // warpscale -1 times (0.1, -0.2, 0.3)
  double worst = 0;
  for (size_t k = 0; k < in.size(); ++k)
    worst = std::max(worst, std::fabs(double(out[k]) - double(in[k]) - shift[k % 3]));
  EXPECT_LT(worst, 1e-4);
  EXPECT_TRUE(wft::contains(r.out, " Active triangles = " + std::to_string(in.size() / 9) + "\n"));
}
