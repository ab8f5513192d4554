// SPDX-License-Identifier: GPL-2.0-or-later
// The sample-job generator: its job reads back through the readers of the run in both forms, its
// surface is closed and outward, and its options are checked.
#include <array>
#include <cmath>
#include <cstring>
#include <map>

#include "control/solverinput.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "simtest.h"

using namespace wf;

namespace {

struct GenJob : simtest::SimTest {
  // Writes a job into a subfolder (once), makes that folder current, and loads it in the run's order.
  void load(RunState &r, const std::string &sub, const std::vector<std::string> &args) {
    const std::string folder = dir + "/" + sub;
    if (std::filesystem::create_directories(folder)) {
      wft::RunResult g = wft::rungenjob(folder, args);
      ASSERT_EQ(g.status, 0) << g.out;
    }
    std::filesystem::current_path(folder);
    r.inpuflag = true;
    r.inputfile = r.casestem = "job";
    r.incoffset = -1;
    readsolverinput(r);
    readcase(r, "job.case");
    selectincrement(r);
    readgeo(r, ".geo");
    r.dispfile = findresultfile(r, "results/job00_", r.resultfilenumber, ".dis.ens");
    readvariable(r, 3);
  }
};

}  // namespace

TEST_F(GenJob, JobReadsBackAlikeInBothForms) {
  const std::vector<std::string> args = {"--nodes", "3000", "--increments", "4"};
  load(rs, "bin", args);
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{1, 2, 3, 4}));
  EXPECT_EQ(std::tuple(rs.nmesh, rs.meshfilenumber, rs.resultsbinary), std::tuple(4, 4, true));
  EXPECT_TRUE(rs.nnodes > 2000 && rs.nnodes < 6000) << rs.nnodes;  // the default is about 1500

  std::vector<std::string> textargs = args;
  textargs.insert(textargs.end(), {"--text", "--explicit"});
  RunState rt;  // a fresh run on the text job
  rt.signalunit = rs.signalunit;
  console();
  load(rt, "text", textargs);
  const std::string out = console();
  EXPECT_TRUE(wft::contains(out, " Explicit result indexing\n") && wft::contains(out, " Explicit mesh indexing\n"));
  EXPECT_EQ(std::tuple(rt.resultnums, rt.resultsbinary, rt.nnodes), std::tuple(rs.resultnums, false, rs.nnodes));
  EXPECT_EQ(rt.elemconn, rs.elemconn);
  size_t off = 0;
  for (size_t k = 0; k < rs.nodexyz.size(); ++k)
    off += std::fabs(rt.nodexyz[k] - rs.nodexyz[k]) > 1e-4 || std::fabs(rt.nodedisp[k] - rs.nodedisp[k]) > 1e-5;
  EXPECT_EQ(off, 0u);

  for (const std::vector<std::string> &bad : {std::vector<std::string>{"--field", "wobble"}, {"--nodes", "0"},
                                              {"--nodes"}, {"--bogus"}, {"--increments", "x"}, {"a", "b"}, {}}) {
    wft::RunResult r = wft::runprogram(GENJOB_EXE, bad, dir);
    EXPECT_TRUE(r.status == 2 && wft::contains(r.out, "usage: genjob")) << r.out;
  }
}

TEST_F(GenJob, SurfaceIsClosedOutwardAndOnThePlate) {
  load(rs, "job", {"--tris", "20000"});
  const std::string stl = wft::readfile("part.stl");
  uint32_t count = 0;
  std::memcpy(&count, stl.data() + 80, 4);
  ASSERT_EQ(stl.size(), 84u + 50u * count);  // binary, not "solid" text
  EXPECT_TRUE(count > 15000u && count < 25000u) << count;
  std::map<std::array<float, 3>, int> ids;
  std::map<std::pair<int, int>, int> directed;
  double volume = 0, zmin = 1e300;
  for (uint32_t t = 0; t < count; ++t) {
    float f[12];
    std::memcpy(f, stl.data() + 84 + 50 * size_t(t), 48);
    int v[3];
    double p[3][3], e[2][3], n[3];
    for (int c = 0; c < 3; ++c) {
      v[c] = ids.emplace(std::array{f[3 + 3 * c], f[4 + 3 * c], f[5 + 3 * c]}, int(ids.size())).first->second;
      for (int d = 0; d < 3; ++d) p[c][d] = f[3 + 3 * c + d];
      zmin = std::min(zmin, p[c][2]);
    }
    for (int c = 0; c < 3; ++c) ++directed[{v[c], v[(c + 1) % 3]}];
    for (int d = 0; d < 3; ++d) e[0][d] = p[1][d] - p[0][d], e[1][d] = p[2][d] - p[0][d];
    for (int d = 0; d < 3; ++d) n[d] = e[0][(d + 1) % 3] * e[1][(d + 2) % 3] - e[0][(d + 2) % 3] * e[1][(d + 1) % 3];
    volume += (p[0][0] * n[0] + p[0][1] * n[1] + p[0][2] * n[2]) / 6.0;  // signed, with the origin
    EXPECT_GT(n[0] * f[0] + n[1] * f[1] + n[2] * f[2], 0.0);            // stored normal agrees
  }
  // Every edge once in each direction (closed, manifold, consistently wound), genus 0, outward.
  size_t bad = 0;
  for (const auto &[e, k] : directed) bad += k != 1 || directed.count({e.second, e.first}) != 1;
  EXPECT_EQ(bad, 0u);
  EXPECT_EQ(static_cast<long long>(ids.size() + count) - static_cast<long long>(directed.size() / 2), 2);
  EXPECT_NEAR(volume, 800.0 * 20.0, 1e-6 * 16000.0);
  EXPECT_EQ(zmin, 0.0);
}
