// SPDX-License-Identifier: GPL-2.0-or-later
// The sample-job generator: its job reads back through the readers of the run, its surface is
// closed and outward, and its options do what they say.
#include <cmath>
#include <map>
#include <set>
#include <tuple>

#include "control/solverinput.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "simtest.h"

using namespace wf;
using simtest::SimTest;

namespace {

struct GenJob : SimTest {
  // Writes a job into a subfolder and makes that folder current.
  void generate(const std::string &sub, const std::vector<std::string> &args) {
    const std::string folder = dir + "/" + sub;
    std::filesystem::create_directories(folder);
    wft::RunResult r = wft::rungenjob(folder, args);
    ASSERT_EQ(r.status, 0) << r.out;
    std::filesystem::current_path(folder);
  }
  // The run's own order: solver input, case, increment, mesh, displacements.
  void load(int incoffset) { load(rs, incoffset); }
  static void load(RunState &rs, int incoffset) {
    rs.inpuflag = true;
    rs.inputfile = "job";
    rs.casestem = "job";
    rs.incoffset = incoffset;
    readsolverinput(rs);
    readcase(rs, "job.case");
    selectincrement(rs);
    readgeo(rs, ".geo");
    rs.dispfile = findresultfile(rs, "results/job00_", rs.resultfilenumber, ".dis.ens");
    readvariable(rs, 3);
  }
  void bbox(double lo[3], double hi[3]) {
    for (int c = 0; c < 3; ++c) lo[c] = 1e300, hi[c] = -1e300;
    for (int i = 0; i < rs.nnodes; ++i)
      for (int c = 0; c < 3; ++c) {
        lo[c] = std::min(lo[c], rs.nodexyz[3 * static_cast<size_t>(i) + c]);
        hi[c] = std::max(hi[c], rs.nodexyz[3 * static_cast<size_t>(i) + c]);
      }
  }
};

double norm(const double *u) { return std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]); }

}  // namespace

TEST_F(GenJob, DefaultJobReadsBackConsistently) {
  generate("job", {});
  for (const char *f : {"job.deck", "job.in", "job.case", "part.stl", "results/job_1.geo",
                        "results/job_3.geo", "results/job00_1.dis.ens", "results/job00_3.dis.ens"})
    EXPECT_TRUE(std::filesystem::exists(f)) << f;
  const std::string deck = wft::readfile("job.deck");
  EXPECT_TRUE(wft::contains(deck, "*INPU\njob\n")) << deck;

  load(-1);
  EXPECT_EQ(rs.stlfiles.n, 1);
  EXPECT_EQ(rs.stlfiles[0], "part.stl");
  EXPECT_EQ(rs.stltype[0], 1);
  EXPECT_EQ(rs.stlscale, 1.0);
  EXPECT_EQ(rs.ninc, 3);
  EXPECT_EQ(rs.nmesh, 3);
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{1, 2, 3}));
  for (int i = 1; i < rs.ninc; ++i) EXPECT_LT(rs.resulttimes[i - 1], rs.resulttimes[i]);
  EXPECT_EQ(rs.resultfilenumber, 3);
  EXPECT_EQ(rs.meshfilenumber, 3);
  EXPECT_TRUE(rs.resultsbinary);

  // A small mesh, each node used by an element, on the plate at z = 0.
  EXPECT_GT(rs.nnodes, 500);
  EXPECT_LT(rs.nnodes, 5000);
  std::set<int32_t> used(rs.elemconn.begin(), rs.elemconn.end());
  EXPECT_EQ(used.size(), static_cast<size_t>(rs.nnodes));
  EXPECT_EQ(*used.begin(), 1);
  EXPECT_EQ(*used.rbegin(), rs.nnodes);
  double lo[3], hi[3];
  bbox(lo, hi);
  EXPECT_EQ(lo[0], 0.0);
  EXPECT_EQ(lo[1], 0.0);
  EXPECT_EQ(lo[2], 0.0);
  EXPECT_EQ(hi[0], 40.0);
  EXPECT_EQ(hi[1], 20.0);
  EXPECT_EQ(hi[2], 40.0);

  // Printing distortion: nothing moves on the plate, the top moves, the overhang tip sags.
  ASSERT_EQ(rs.nodedisp.size(), 3u * static_cast<size_t>(rs.nnodes));
  double topmax = 0, tipuz = 0, wallztop = 0;
  for (int i = 0; i < rs.nnodes; ++i) {
    const double *p = &rs.nodexyz[3 * static_cast<size_t>(i)];
    const double *u = &rs.nodedisp[3 * static_cast<size_t>(i)];
    if (p[2] == 0.0) EXPECT_EQ(norm(u), 0.0);
    if (p[2] == 40.0) topmax = std::max(topmax, norm(u));
    if (p[0] == 40.0 && p[2] == 40.0) tipuz = u[2];
    if (p[0] == 0.0 && p[2] == 40.0) wallztop = u[2];
  }
  EXPECT_GT(topmax, 0.05);
  EXPECT_LT(topmax, 2.0);
  EXPECT_LT(tipuz, wallztop - 0.1);

  // The distortion grows with the increments.
  std::vector<double> last = rs.nodedisp;
  rs.nodedisp.clear();
  load(1);
  EXPECT_EQ(rs.resultfilenumber, 1);
  double sum1 = 0, sum3 = 0;
  for (size_t k = 0; k < last.size(); ++k) sum1 += std::fabs(rs.nodedisp[k]), sum3 += std::fabs(last[k]);
  EXPECT_NEAR(sum3 / sum1, 3.0, 1e-3);
}

TEST_F(GenJob, SurfaceIsClosedOutwardAndOnThePlate) {
  generate("job", {"--tris", "20000"});
  const std::string stl = wft::readfile("part.stl");
  ASSERT_GE(stl.size(), 84u);
  EXPECT_NE(stl.substr(0, 5), "solid");
  uint32_t count = 0;
  std::memcpy(&count, stl.data() + 80, 4);
  ASSERT_EQ(stl.size(), 84u + 50u * count);
  EXPECT_GT(count, 15000u);
  EXPECT_LT(count, 25000u);

  using V = std::tuple<float, float, float>;
  std::map<V, int> ids;
  std::map<std::pair<int, int>, int> directed;
  double volume = 0, zmin = 1e300;
  for (uint32_t t = 0; t < count; ++t) {
    float f[12];
    std::memcpy(f, stl.data() + 84 + 50 * static_cast<size_t>(t), 48);
    int v[3];
    double p[3][3];
    for (int c = 0; c < 3; ++c) {
      V key{f[3 + 3 * c], f[4 + 3 * c], f[5 + 3 * c]};
      v[c] = ids.emplace(key, static_cast<int>(ids.size())).first->second;
      for (int d = 0; d < 3; ++d) p[c][d] = f[3 + 3 * c + d];
      zmin = std::min(zmin, p[c][2]);
    }
    for (int c = 0; c < 3; ++c) ++directed[{v[c], v[(c + 1) % 3]}];
    // Signed volume of the tetrahedron with the origin.
    volume += (p[0][0] * (p[1][1] * p[2][2] - p[1][2] * p[2][1]) -
               p[0][1] * (p[1][0] * p[2][2] - p[1][2] * p[2][0]) +
               p[0][2] * (p[1][0] * p[2][1] - p[1][1] * p[2][0])) / 6.0;
    // The stored normal agrees with the winding.
    const double e1[3] = {p[1][0] - p[0][0], p[1][1] - p[0][1], p[1][2] - p[0][2]};
    const double e2[3] = {p[2][0] - p[0][0], p[2][1] - p[0][1], p[2][2] - p[0][2]};
    const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                         e1[0] * e2[1] - e1[1] * e2[0]};
    EXPECT_GT(n[0] * f[0] + n[1] * f[1] + n[2] * f[2], 0.0);
  }
  // Every edge once in each direction: closed, manifold and consistently wound.
  size_t bad = 0;
  for (const auto &[e, k] : directed)
    if (k != 1 || directed.count({e.second, e.first}) != 1) ++bad;
  EXPECT_EQ(bad, 0u);
  // Euler characteristic of a closed surface of genus 0: V - E + F = 2.
  EXPECT_EQ(static_cast<long long>(ids.size()) - static_cast<long long>(directed.size() / 2) + count, 2);
  EXPECT_NEAR(volume, 800.0 * 20.0, 1e-6 * 16000.0);  // outward: positive volume
  EXPECT_EQ(zmin, 0.0);
}

TEST_F(GenJob, TextExplicitConstantAgreesWithBinary) {
  const std::vector<std::string> args = {"--nodes", "3000", "--increments", "4", "--field", "constant"};
  generate("bin", args);
  load(-1);
  const int32_t nnodes = rs.nnodes, nelems = rs.nelems;
  const std::vector<double> xyz = rs.nodexyz;
  const std::vector<int32_t> conn = rs.elemconn;
  EXPECT_GT(nnodes, 1500);
  EXPECT_LT(nnodes, 6000);
  console();

  std::vector<std::string> textargs = args;
  textargs.insert(textargs.end(), {"--text", "--explicit"});
  generate("text", textargs);
  RunState rt;  // a fresh run on the text job
  rt.signalunit = rs.signalunit;
  load(rt, -2);
  const std::string out = console();
  EXPECT_TRUE(wft::contains(out, " Explicit result indexing\n")) << out;
  EXPECT_TRUE(wft::contains(out, " Explicit mesh indexing\n")) << out;
  EXPECT_EQ(rt.ninc, 4);
  EXPECT_EQ(rt.resultfilenumber, 3);
  EXPECT_FALSE(rt.resultsbinary);
  EXPECT_EQ(rt.nnodes, nnodes);
  EXPECT_EQ(rt.nelems, nelems);
  EXPECT_EQ(rt.elemconn, conn);
  for (size_t k = 0; k < xyz.size(); ++k) EXPECT_NEAR(rt.nodexyz[k], xyz[k], 1e-4) << k;
  // Every node displaced by exactly (0.1, -0.2, 0.3) in single precision.
  size_t off = 0;
  for (int i = 0; i < rt.nnodes; ++i) {
    const double *u = &rt.nodedisp[3 * static_cast<size_t>(i)];
    if (u[0] != static_cast<double>(0.1f) || u[1] != static_cast<double>(-0.2f) ||
        u[2] != static_cast<double>(0.3f))
      ++off;
  }
  EXPECT_EQ(off, 0u);
}

TEST_F(GenJob, ZeroFieldSizesAndBadOptions) {
  generate("zero", {"--field", "zero", "--increments", "1", "--nodes", "40000", "--tris", "100000"});
  load(-1);
  EXPECT_EQ(rs.ninc, 1);
  EXPECT_GT(rs.nnodes, 28000);
  EXPECT_LT(rs.nnodes, 52000);
  for (double u : rs.nodedisp) ASSERT_EQ(u, 0.0);
  uint32_t count = 0;
  std::memcpy(&count, wft::readfile("part.stl").data() + 80, 4);
  EXPECT_GT(count, 75000u);
  EXPECT_LT(count, 125000u);

  for (const std::vector<std::string> &bad :
       {std::vector<std::string>{"--field", "wobble"}, {"--nodes", "0"}, {"--nodes"}, {"--bogus"},
        {"--increments", "x"}, {"second-folder"}}) {
    wft::RunResult r = wft::rungenjob(dir, bad);
    EXPECT_EQ(r.status, 2) << bad[0];
    EXPECT_TRUE(wft::contains(r.out, "usage: genjob")) << r.out;
  }
  wft::RunResult none = wft::runprogram(GENJOB_EXE, {}, dir);
  EXPECT_EQ(none.status, 2);
}
