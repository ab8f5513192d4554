// SPDX-License-Identifier: GPL-2.0-or-later
// The node grid (counts, offsets, order in a cell, the cell rule) and the closest point.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "warpfixtures.h"

using wft::P3;

TEST(NodeGrid, CellRuleClampsAndHandlesZeroSize) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    double c, o, s;
    int n, want;
  };
  // The high face and beyond go to the last cell, below to the first; zero size gives 0/0 or
  // +-inf, NaN the first cell.
  const Case cases[] = {{0.49, 0, 0.5, 4, 1}, {0.5, 0, 0.5, 4, 2}, {2.0, 0, 0.5, 4, 4}, {-0.01, 0, 0.5, 4, 1},
                        {-1e30, 0, 0.5, 4, 1}, {1e30, 0, 0.5, 4, 4}, {3, 3, 0, 1, 1},     {5, 3, 0, 1, 1},
                        {1, 3, 0, 1, 1},       {nan, 0, 1, 3, 1}};
  for (const Case &c : cases) EXPECT_EQ(wf::gridcell(c.c, c.o, c.s, c.n), c.want) << c.c;
}

TEST(NodeGrid, OffsetsAndOrderWithinCells) {
  wf::RunState rs;
  // Box [1,4] x [-1,1] x [0,2] with 12 nodes: 3 x 2 x 2 cells of 1 (cube roots of 27 and 8).
  std::string out = wft::setnodes(rs, {{4, 1, 2}, {2.5, 0.5, 1.5}, {1, -1, 0}, {1.5, -0.5, 0.5},
                                       {3, 0, 0}, {2, -1, 1}, {3.9, -0.1, 0.1}, {1.2, 0.2, 1.2},
                                       {1.1, -0.9, 0.1}, {2.2, 0.9, 0.3}, {1, 1, 2}, {3.5, -1, 1.9}},
                                  wft::zerofield);
  EXPECT_EQ(out, "  Number of nodal partitions = 3 x 2 x 2\n\n");
  EXPECT_EQ(std::vector<double>(rs.gridorigin, rs.gridorigin + 3),
            (std::vector<double>{1, -1, 0}));
  EXPECT_EQ(std::vector<double>(rs.gridcellsize, rs.gridcellsize + 3), std::vector<double>(3, 1.0));
  // Cells i fastest: (1,1,1) 3 4 9; (3,1,1) 7; (2,2,1) 10; (3,2,1) 5; (2,1,2) 6; (3,1,2) 12;
  // (1,2,2) 8 11; (2,2,2) 2; (3,2,2) 1 on the high faces; the others empty.
  EXPECT_EQ(rs.jcellnodes, (std::vector<int32_t>{3, 4, 9, 7, 10, 5, 6, 12, 8, 11, 2, 1}));
  EXPECT_EQ(rs.j0cellnodes, (std::vector<int32_t>{1, 3, 4, 3, 4, 4, 5, 4, 5, 5, 6, 6,
                                                  7, 6, 7, 7, 8, 8, 9, 10, 11, 11, 12, 12}));
}

TEST(NodeGrid, CountsFollowTheBoxShape) {
  std::vector<P3> box;  // 4 x 2 x 1 with 64 nodes: cube roots of 512, 64 and 8
  for (int n = 0; n < 64; ++n)
    box.push_back({4.0 * ((n * 37) % 64) / 63.0, 2.0 * ((n * 11) % 64) / 63.0, (n % 8) / 7.0});
  box[0] = {0, 0, 0}, box[1] = {4, 2, 1};
  const std::pair<std::vector<P3>, const char *> cases[] = {
      {box, "8 x 4 x 2"},
      {wft::lattice({0, 0, 0}, {15, 15, 15}), "15 x 15 x 15"},  // exact cube root
      {wft::lattice({0, 0, 5}, {4, 3, 1}), "1 x 1 x 1"},        // flat: 0 / 0
      {{}, "1 x 1 x 1"}};                                       // no nodes
  for (const auto &[xyz, line] : cases) {
    wf::RunState rs;
    EXPECT_EQ(wft::setnodes(rs, xyz, wft::zerofield),
              std::string("  Number of nodal partitions = ") + line + "\n\n");
    EXPECT_EQ(rs.j0cellnodes.back(), static_cast<int32_t>(xyz.size()));  // every node filed
  }
}

namespace {

P3 sub(const P3 &a, const P3 &b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const P3 &a, const P3 &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
P3 cross(const P3 &a, const P3 &b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
P3 onsegment(const P3 &p, const P3 &a, const P3 &b) {
  P3 ab = sub(b, a);
  double t = std::clamp(dot(sub(p, a), ab) / dot(ab, ab), 0.0, 1.0);
  return {a[0] + t * ab[0], a[1] + t * ab[1], a[2] + t * ab[2]};
}

// The closest point by construction: the foot in the plane when inside, else the nearest side.
P3 reference(const P3 &p, const P3 &a, const P3 &b, const P3 &c) {
  P3 n = cross(sub(b, a), sub(c, a));
  double h = dot(sub(p, a), n) / dot(n, n);
  P3 f = {p[0] - h * n[0], p[1] - h * n[1], p[2] - h * n[2]};
  if (dot(cross(sub(b, f), sub(c, f)), n) >= 0 && dot(cross(sub(c, f), sub(a, f)), n) >= 0 &&
      dot(cross(sub(a, f), sub(b, f)), n) >= 0)
    return f;
  P3 best = onsegment(p, a, b);
  for (const P3 &q : {onsegment(p, b, c), onsegment(p, c, a)})
    if (dot(sub(q, p), sub(q, p)) < dot(sub(best, p), sub(best, p))) best = q;
  return best;
}

P3 closest(const P3 &q, const wf::TriData &set, int ntri = -1) {
  P3 out;
  wf::closestpoint(q.data(), out.data(), ntri < 0 ? set.ntri : ntri, set);
  return out;
}

void expectnear(const P3 &got, const P3 &want, double tol, const std::string &what) {
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(got[a], want[a], tol) << what << " axis " << a;
}

}  // namespace

TEST(ClosestPoint, EveryRegionOfTheUnitTriangle) {
  // Corner (0,0,0) and edges along x and y: s = x and t = y of the query.
  wf::TriData set = wft::queryset({{P3{0, 0, 0}, P3{1, 0, 0}, P3{0, 1, 0}}});
  struct Case {
    P3 q, want;
    const char *region;
  };
  const Case cases[] = {
      {{0.25, 0.25, 2}, {0.25, 0.25, 0}, "inside"},
      {{1, 1, -1}, {0.5, 0.5, 0}, "beyond the long side"},
      {{0.2, 1.5, 0}, {0, 1, 0}, "beyond the long side, past its end"},
      {{1.5, 0.2, 0}, {1, 0, 0}, "beyond the long side, clamped at the other end"},
      {{-0.5, 1.8, 0}, {0, 1, 0}, "s < 0 beyond the long side"},
      {{-1, 0.5, 3}, {0, 0.5, 0}, "s < 0 only"},
      {{-1, -1, 0}, {0, 0, 0}, "both negative"},
      {{-1.6, -0.1, 0}, {0, 0, 0}, "both negative, other side"},
      {{0.5, -1, 0}, {0.5, 0, 0}, "t < 0 only"},
      {{2, -0.5, 0}, {1, 0, 0}, "t < 0 beyond the long side"},
  };
  for (const Case &c : cases) expectnear(closest(c.q, set), c.want, 1e-15, c.region);
}

TEST(ClosestPoint, RandomTrianglesAgreeWithConstruction) {
  std::mt19937 gen(11);
  std::uniform_real_distribution<double> u(-3, 3);
  for (int tri = 0; tri < 200; ++tri) {  // mostly obtuse: every branch is reached
    P3 a = {u(gen), u(gen), u(gen)}, b = {u(gen), u(gen), u(gen)}, c = {u(gen), u(gen), u(gen)};
    wf::TriData set = wft::queryset({{a, b, c}});
    for (int k = 0; k < 50; ++k) {
      P3 q = {2 * u(gen), 2 * u(gen), 2 * u(gen)};
      expectnear(closest(q, set), reference(q, a, b, c), 1e-9, "random");
    }
  }
}

TEST(ClosestPoint, FirstOfEqualDistancesAndDegenerateSets) {
  // A farther triangle first, then two at z = 1 and z = -1; a zero-area one gives no point.
  wf::TriData set = wft::queryset({{P3{0, 0, 5}, P3{1, 0, 5}, P3{0, 1, 5}},
                                   {P3{0, 0, 0}, P3{0, 0, 0}, P3{0, 1, 0}},
                                   {P3{0, 0, 1}, P3{1, 0, 1}, P3{0, 1, 1}},
                                   {P3{0, 0, -1}, P3{1, 0, -1}, P3{0, 1, -1}}});
  expectnear(closest({0.2, 0.2, 0}, set), {0.2, 0.2, 1}, 0, "tie: the earlier wins");
  expectnear(closest({0.2, 0.2, -0.5}, set), {0.2, 0.2, -1}, 0, "nearer later");
  expectnear(closest({0.2, 0.2, 3.5}, set), {0.2, 0.2, 5}, 0, "nearest first");
  expectnear(closest({0.2, 0.2, -0.5}, set, 3), {0.2, 0.2, 1}, 0, "ntri limits the set");
  expectnear(closest({1, 2, 3}, wf::TriData{}), {1, 2, 3}, 0, "empty set: the point stays");
}
