// SPDX-License-Identifier: GPL-2.0-or-later
// Closest point on a triangle set: every region of the minimisation against a plain geometric
// construction, the first of equal distances, degenerate and empty sets.
#include <gtest/gtest.h>

#include <random>

#include "warp/warpstl.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

P3 sub(const P3 &a, const P3 &b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const P3 &a, const P3 &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
P3 cross(const P3 &a, const P3 &b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
P3 onsegment(const P3 &p, const P3 &a, const P3 &b) {
  P3 ab = sub(b, a);
  double t = dot(sub(p, a), ab) / dot(ab, ab);
  t = t < 0 ? 0 : (t > 1 ? 1 : t);
  return {a[0] + t * ab[0], a[1] + t * ab[1], a[2] + t * ab[2]};
}

// The closest point by construction: the foot in the plane when it lies inside, else the
// nearest of the three sides.
P3 reference(const P3 &p, const P3 &a, const P3 &b, const P3 &c) {
  P3 n = cross(sub(b, a), sub(c, a));
  double nn = dot(n, n);
  double h = dot(sub(p, a), n) / nn;
  P3 f = {p[0] - h * n[0], p[1] - h * n[1], p[2] - h * n[2]};
  double l1 = dot(cross(sub(b, f), sub(c, f)), n), l2 = dot(cross(sub(c, f), sub(a, f)), n),
         l3 = dot(cross(sub(a, f), sub(b, f)), n);
  if (l1 >= 0 && l2 >= 0 && l3 >= 0) return f;
  P3 best = onsegment(p, a, b);
  for (const P3 &q : {onsegment(p, b, c), onsegment(p, c, a)})
    if (dot(sub(q, p), sub(q, p)) < dot(sub(best, p), sub(best, p))) best = q;
  return best;
}

P3 closest(const P3 &q, const wf::TriData &set) {
  P3 out;
  wf::closestpoint(q.data(), out.data(), set.ntri, set);
  return out;
}

void expectnear(const P3 &got, const P3 &want, double tol, const std::string &what) {
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(got[a], want[a], tol) << what << " axis " << a;
}

}  // namespace

TEST(ClosestPoint, EveryRegionOfTheUnitTriangle) {
  // With corner (0,0,0) and edges along x and y, s = x and t = y of the query.
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

TEST(ClosestPoint, BranchesOfThinAndObtuseTriangles) {
  // Triangles and queries that reach the branches a right triangle cannot: the side between
  // corners 2 and 3 from beyond corner 3 or 2, and the both-negative case with d < 0.
  struct Case {
    P3 a, b, c, q;
  };
  const Case cases[] = {
      {{0, 0, 0}, {0.5, 1.4, 0}, {-0.2, 0.9, 0}, {-2, 3.5, 1}},
      {{0, 0, 0}, {-1.1, 1.9, 0}, {-0.1, 1.6, 0}, {0, 2.2, 1}},
      {{0, 0, 0}, {-0.5, -0.8, 0}, {-1.9, -1.4, 0}, {-0.4, -4, 1}},
      {{0, 0, 0}, {-0.8, 0.4, 0}, {-1.8, -1.5, 0}, {-2.9, 1.5, 1}},
      {{0, 0, 0}, {-0.5, 1.1, 0}, {0.8, -1.2, 0}, {-3, -0.2, 1}},
      {{0, 0, 0}, {-0.9, 0, 0}, {1.6, 0.3, 0}, {-3.5, -4, 1}},
      {{0, 0, 0}, {1, 0, 0}, {-0.5, 1, 0}, {0.2, -1.1, 1.5}},
  };
  for (const Case &c : cases) {
    wf::TriData set = wft::queryset({{c.a, c.b, c.c}});
    expectnear(closest(c.q, set), reference(c.q, c.a, c.b, c.c), 1e-12, "thin triangle");
  }
}

TEST(ClosestPoint, RandomQueriesAgreeWithConstruction) {
  std::mt19937 gen(11);
  std::uniform_real_distribution<double> u(-3, 3);
  for (int tri = 0; tri < 40; ++tri) {
    P3 a = {u(gen), u(gen), u(gen)}, b = {u(gen), u(gen), u(gen)}, c = {u(gen), u(gen), u(gen)};
    wf::TriData set = wft::queryset({{a, b, c}});
    for (int k = 0; k < 100; ++k) {
      P3 q = {2 * u(gen), 2 * u(gen), 2 * u(gen)};
      expectnear(closest(q, set), reference(q, a, b, c), 1e-9, "random");
    }
  }
}

TEST(ClosestPoint, NearestTriangleAndFirstOfEqualDistances) {
  // Two parallel triangles at z = 1 and z = -1, and a farther one first in the list.
  wf::TriData set = wft::queryset({{P3{0, 0, 5}, P3{1, 0, 5}, P3{0, 1, 5}},
                                   {P3{0, 0, 1}, P3{1, 0, 1}, P3{0, 1, 1}},
                                   {P3{0, 0, -1}, P3{1, 0, -1}, P3{0, 1, -1}}});
  // Halfway between the lower two: equal distances, the earlier triangle wins.
  expectnear(closest({0.2, 0.2, 0}, set), {0.2, 0.2, 1}, 0, "tie");
  expectnear(closest({0.2, 0.2, -0.5}, set), {0.2, 0.2, -1}, 0, "nearer later");
  expectnear(closest({0.2, 0.2, 3.5}, set), {0.2, 0.2, 5}, 0, "nearest first");
  // Only the triangles up to ntri are looked at.
  P3 out;
  wf::closestpoint(std::array<double, 3>{0.2, 0.2, -0.5}.data(), out.data(), 2, set);
  expectnear(out, {0.2, 0.2, 1}, 0, "ntri limits the set");
}

TEST(ClosestPoint, DegenerateAndEmptySets) {
  // A triangle with two equal corners has no area and gives no point; the next one is used.
  wf::TriData set = wft::queryset({{P3{0, 0, 0}, P3{0, 0, 0}, P3{0, 1, 0}},
                                   {P3{0, 0, 3}, P3{1, 0, 3}, P3{0, 1, 3}}});
  expectnear(closest({0.1, 0.1, 0.1}, set), {0.1, 0.1, 3}, 1e-15, "degenerate skipped");
  // Nothing to project on: the point stays.
  wf::TriData empty;
  expectnear(closest({1, 2, 3}, empty), {1, 2, 3}, 0, "empty");
}
