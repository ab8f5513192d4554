// SPDX-License-Identifier: GPL-2.0-or-later
// The warp through the built program on generated jobs: a constant field moves the whole
// surface by warpscale times the displacement, with and without refinement; a scan job pulls
// the surface onto the scan.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "testutil.h"
#include "warp/warpstl.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

// Corners of a binary STL, nine floats per triangle.
std::vector<float> readstlcorners(const std::string &path) {
  std::string data = wft::readfile(path);
  std::vector<float> out;
  if (data.size() < 84) return out;
  uint32_t n = 0;
  std::memcpy(&n, data.data() + 80, 4);
  if (data.size() < 84 + 50ull * n) return out;
  out.resize(9ull * n);
  for (uint32_t t = 0; t < n; ++t) std::memcpy(&out[9ull * t], data.data() + 84 + 50ull * t + 12, 36);
  return out;
}

void writestlcorners(const std::string &path, const std::vector<float> &c) {
  std::string data(80, ' ');
  uint32_t n = static_cast<uint32_t>(c.size() / 9);
  data.append(reinterpret_cast<const char *>(&n), 4);
  for (uint32_t t = 0; t < n; ++t) {
    float normal[3] = {0, 0, 0};
    data.append(reinterpret_cast<const char *>(normal), 12);
    data.append(reinterpret_cast<const char *>(&c[9ull * t]), 36);
    data.append(2, '\0');
  }
  wft::writefile(path, data);
}

double area(const std::vector<float> &c) {
  double sum = 0;
  for (size_t t = 0; t + 9 <= c.size(); t += 9) {
    double u[3], v[3];
    for (int a = 0; a < 3; ++a) u[a] = c[t + 3 + a] - c[t + a], v[a] = c[t + 6 + a] - c[t + a];
    double n0 = u[1] * v[2] - u[2] * v[1], n1 = u[2] * v[0] - u[0] * v[2], n2 = u[0] * v[1] - u[1] * v[0];
    sum += 0.5 * std::sqrt(n0 * n0 + n1 * n1 + n2 * n2);
  }
  return sum;
}

std::string job(const std::vector<std::string> &args) {
  std::string dir = wft::tempdir("warpjob");
  wft::RunResult g = wft::rungenjob(dir, args);
  EXPECT_EQ(g.status, 0) << g.out;
  return dir;
}

void setdeckvalue(const std::string &dir, const std::string &card, const std::string &value) {
  std::string deck = wft::readfile(dir + "/job.deck");
  size_t at = deck.find(card + "\n");
  ASSERT_NE(at, std::string::npos) << card;
  size_t vs = at + card.size() + 1, ve = deck.find('\n', vs);
  deck.replace(vs, ve - vs, value);
  wft::writefile(dir + "/job.deck", deck);
}

}  // namespace

TEST(EndToEnd, ConstantFieldMovesEveryVertexByWarpscaleTimesDisplacement) {
  std::string dir = job({"--field", "constant"});
  wft::RunResult r = wft::runwarpforge("job.deck", dir);
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<float> in = readstlcorners(dir + "/part.stl");
  std::vector<float> out = readstlcorners(dir + "/job_1_warp.stl");
  ASSERT_FALSE(in.empty());
  // Flat field: nothing to refine, the triangles keep their order.
  ASSERT_EQ(in.size(), out.size());
  const double shift[3] = {-0.1, 0.2, -0.3};  // warpscale -1 times (0.1, -0.2, 0.3)
  double worst = 0;
  for (size_t k = 0; k < in.size(); ++k)
    worst = std::max(worst, std::fabs(double(out[k]) - double(in[k]) - shift[k % 3]));
  EXPECT_LT(worst, 1e-4);
  EXPECT_TRUE(wft::contains(r.out, " Active triangles = " + std::to_string(in.size() / 9) + "\n"));
}

TEST(EndToEnd, ConstantFieldWithRefinementKeepsTheShape) {
  std::string dir = job({"--field", "constant"});
  setdeckvalue(dir, "*MAXE", "1.5");
  setdeckvalue(dir, "*MINE", "1.0");
  wft::RunResult r = wft::runwarpforge("job.deck", dir);
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<float> in = readstlcorners(dir + "/part.stl");
  std::vector<float> out = readstlcorners(dir + "/job_1_warp.stl");
  ASSERT_GT(out.size(), 4 * in.size());  // sides of 2.5 and more are split at least twice
  // Every written corner, moved back, lies on the surface that was read.
  std::vector<std::array<P3, 3>> tris;
  for (size_t t = 0; t < in.size(); t += 9)
    tris.push_back({P3{in[t], in[t + 1], in[t + 2]}, P3{in[t + 3], in[t + 4], in[t + 5]},
                    P3{in[t + 6], in[t + 7], in[t + 8]}});
  wf::TriData surface = wft::queryset(tris);
  double worst = 0;
  for (size_t k = 0; k < out.size(); k += 3) {
    double q[3] = {out[k] + 0.1, out[k + 1] - 0.2, out[k + 2] + 0.3}, c[3];
    wf::closestpoint(q, c, surface.ntri, surface);
    worst = std::max(worst, std::sqrt((c[0] - q[0]) * (c[0] - q[0]) + (c[1] - q[1]) * (c[1] - q[1]) +
                                      (c[2] - q[2]) * (c[2] - q[2])));
  }
  EXPECT_LT(worst, 1e-4);
  EXPECT_NEAR(area(out), area(in), 1e-6 * area(in));
}

TEST(EndToEnd, ScanJobPullsSurfaceOntoScan) {
  std::string dir = job({"--field", "zero"});
  std::vector<float> part = readstlcorners(dir + "/part.stl");
  ASSERT_FALSE(part.empty());
  std::vector<float> scan = part;
  for (size_t k = 2; k < scan.size(); k += 3) scan[k] += 0.5f;
  writestlcorners(dir + "/scan.stl", scan);
  wft::writefile(dir + "/scan.deck", "*REFG\npart.stl\n*SCNG\nscan.stl\n*WARP\n1.0\n*MAXR\n0\n");
  wft::RunResult r = wft::runwarpforge("scan.deck", dir);
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(wft::contains(r.out, " Processing reference geometry\n"));
  EXPECT_TRUE(wft::contains(r.out, " Processing scanned geometry\n"));
  std::vector<float> out = readstlcorners(dir + "/_1_warp.stl");
  ASSERT_EQ(out.size(), part.size());
  // Corners inside the top face (z = 40, away from its rim) rise by the scan's 0.5.
  double top = 0;
  for (size_t k = 2; k < part.size(); k += 3) top = std::max(top, double(part[k]));
  int inside = 0;
  for (size_t k = 0; k < part.size(); k += 3) {
    if (part[k + 2] != top || part[k] < 0.5 || part[k] > 39.5 || part[k + 1] < 0.5 ||
        part[k + 1] > 19.5)
      continue;
    ++inside;
    EXPECT_NEAR(out[k + 2], top + 0.5, 1e-4);
    EXPECT_NEAR(out[k], part[k], 1e-4);
    EXPECT_NEAR(out[k + 1], part[k + 1], 1e-4);
  }
  EXPECT_GT(inside, 0);
}
