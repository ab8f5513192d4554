// SPDX-License-Identifier: GPL-3.0-or-later
// The closest point through the index against the linear pass over every triangle: the same
// point to the bit, for points on, near, far from and inside sets of every awkward kind.
#include <gtest/gtest.h>
#include <omp.h>
#include <xmmintrin.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>

#include "shapes.h"
#include "testutil.h"
#include "warp/closestpoint.h"

using namespace wf;

namespace {

using Soup = std::vector<double>;  // 9 doubles per triangle

void addtri(Soup &s, std::initializer_list<double> nine) { s.insert(s.end(), nine); }

QuerySet makeset(Soup corners) {
  double box[6] = {0, 0, 0, 0, 0, 0};
  const int32_t nt = static_cast<int32_t>(corners.size() / 9);
  return makequeryset(std::move(corners), nt, box);
}

// A closed torus round the z axis (tests/shapes.h), nu x nv cells of two triangles.
Soup torus(int nu, int nv, float R, float r) {
  const wft::Facets f = wft::toruspart(0, 0, 0, R, r, nu, nv);
  return Soup(f.begin(), f.end());
}

// Compares the indexed query with the linear pass bit for bit; returns the mismatches.
int compare(const QuerySet &set, const std::vector<std::array<double, 3>> &queries) {
  int bad = 0;
  for (const auto &q : queries) {
    double a[3], b[3];
    closestpoint(q.data(), a, set);
    closestpointlinear(q.data(), b, set);
    if (std::memcmp(a, b, sizeof a) != 0) ++bad;
  }
  return bad;
}

}  // namespace

TEST(ClosestPoint, IndexMatchesTheLinearPassBitForBit) {
  std::mt19937_64 rng(12345);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);

  struct Case {
    const char *name;
    Soup soup;
  };
  std::vector<Case> cases;
  cases.push_back({"torus", torus(60, 30, 10.0, 3.0)});
  {
    // A coplanar grid of unit squares: many points are equally far from several triangles.
    Soup g;
    for (int i = 0; i < 20; ++i)
      for (int j = 0; j < 20; ++j) {
        addtri(g, {double(i), double(j), 0, i + 1.0, double(j), 0, i + 1.0, j + 1.0, 0});
        addtri(g, {double(i), double(j), 0, i + 1.0, j + 1.0, 0, double(i), j + 1.0, 0});
      }
    cases.push_back({"grid", g});
  }
  {
    // Ties and degenerate triangles: duplicates, a triangle repeated in reverse order, a triangle
    // with two equal corners, one collapsed to a point, one with a corner that is not a number, one
    // far beyond single precision.
    Soup t = torus(12, 8, 5.0, 1.0);
    const Soup first(t.begin(), t.begin() + 9 * 20);
    t.insert(t.end(), first.begin(), first.end());
    for (int k = 0; k < 20; ++k)
      addtri(t, {first[9 * k + 6], first[9 * k + 7], first[9 * k + 8], first[9 * k + 3], first[9 * k + 4],
                 first[9 * k + 5], first[9 * k], first[9 * k + 1], first[9 * k + 2]});
    addtri(t, {0, 0, 0, 0, 0, 0, 1, 1, 1});
    addtri(t, {2, 2, 2, 2, 2, 2, 2, 2, 2});
    addtri(t, {std::nan(""), 0, 0, 1, 0, 0, 0, 1, 0});
    addtri(t, {1e39, 0, 0, 1e39, 1, 0, 1e39, 0, 1});  // beyond single precision: a box without bound
    cases.push_back({"ties and degenerate", t});
  }
  {
    Soup r;  // a soup of random triangles of every size
    for (int k = 0; k < 3000; ++k) {
      const double cx = 50 * unit(rng), cy = 50 * unit(rng), cz = 50 * unit(rng);
      const double size = std::pow(10.0, 2 * unit(rng));
      addtri(r, {cx, cy, cz, cx + size * unit(rng), cy + size * unit(rng), cz + size * unit(rng), cx + size * unit(rng),
                 cy + size * unit(rng), cz + size * unit(rng)});
    }
    cases.push_back({"random soup", r});
    // The same far below single precision's normal range, where the program counts subnormal
    // values as zero.
    for (double &v : r) v *= 1e-39;
    cases.push_back({"tiny soup", r});
  }
  cases.push_back({"one triangle", Soup{0, 0, 0, 1, 0, 0, 0, 1, 0}});
  // Corners equal in value but not in bits are two corners: the first triangle's point at the
  // origin comes out as -0.
  cases.push_back({"signed zeros", Soup{-0.0, -0.0, -0.0, -1, -1, -1, -1, -2, -1, 0, 0, 0, 1, 0, 0, 0, 1, 0}});

  const unsigned mode = _mm_getcsr();
  _mm_setcsr(mode | 0x8040);  // as the program runs: flush to zero, denormals are zero
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    const QuerySet set = makeset(c.soup);
    ASSERT_FALSE(set.nodes.empty());
    std::vector<std::array<double, 3>> queries;
    const size_t nt = c.soup.size() / 9;
    for (int k = 0; k < 3000; ++k) {
      const size_t t = rng() % nt;
      const double *p = &c.soup[9 * t];
      const double w0 = std::fabs(unit(rng)), w1 = std::fabs(unit(rng)) * (1 - w0);
      std::array<double, 3> q;
      for (int a = 0; a < 3; ++a) q[static_cast<size_t>(a)] = p[a] + w0 * (p[3 + a] - p[a]) + w1 * (p[6 + a] - p[a]);
      const int kind = k % 5;
      if (kind == 0) queries.push_back(q);                                                    // on a triangle
      if (kind == 1) queries.push_back({q[0] + 1e-3 * unit(rng), q[1], q[2] - 1e-3});         // near
      if (kind == 2) queries.push_back({p[0], p[1], p[2]});                                   // on a corner
      if (kind == 3) queries.push_back({300 * unit(rng), 300 * unit(rng), 300 * unit(rng)});  // far
      if (kind == 4) queries.push_back({0.3 * q[0], 0.3 * q[1], 0.3 * q[2]});                 // inside
    }
    // On the grid's lines and corners points are equally far from several triangles.
    for (int i = 0; i < 200; ++i) queries.push_back({0.5 * (i % 41), 0.5 * (i / 41), 1.0});
    EXPECT_EQ(compare(set, queries), 0);
  }
  _mm_setcsr(mode);
}

// The answer in each region of a triangle, where the comparisons with the linear pass cannot see
// a fault that both make alike; with no usable triangle the point stays.
TEST(ClosestPoint, RegionsAndTheEmptyAnswer) {
  QuerySet set = makeset({0, 0, 0, 2, 0, 0, 0, 2, 0});
  const struct {
    double q[3], want[3];
  } cases[] = {{{0.5, 0.5, 3}, {0.5, 0.5, 0}},  // inside, above
               {{-1, -1, 0}, {0, 0, 0}},        // beyond corner 1
               {{3, -1, 0}, {2, 0, 0}},         // beyond corner 2
               {{2, 2, 0}, {1, 1, 0}},          // beyond the far side
               {{1, -5, 1}, {1, 0, 0}},         // beyond the first side
               {{-4, 1, 0}, {0, 1, 0}},         // beyond the second side
               {{1, 5, 0}, {0, 2, 0}}};         // beyond corner 3
  for (const auto &c : cases) {
    double out[3];
    closestpoint(c.q, out, set);
    EXPECT_EQ(std::vector<double>(out, out + 3), std::vector<double>(c.want, c.want + 3));
  }
  set = makeset({1, 1, 1, 1, 1, 1, 1, 1, 1});  // a point: D is not a number, nothing is taken
  const double q[3] = {5, 6, 7};
  double out[3];
  closestpoint(q, out, set);
  EXPECT_EQ(std::vector<double>(out, out + 3), std::vector<double>(q, q + 3));
}

// A set large enough to be built in pieces on several threads: the index is the same whatever
// the number of threads, and still answers as the linear pass does.
TEST(ClosestPoint, IndexBuiltInPiecesDoesNotDependOnThreads) {
  const Soup big = torus(400, 120, 20.0, 4.0);  // 96,000 triangles
  omp_set_num_threads(1);
  const QuerySet one = makeset(big);
  omp_set_num_threads(2);
  const QuerySet two = makeset(big);
  EXPECT_TRUE(wft::samebits(one.nodes, two.nodes) && wft::samebits(one.leaves, two.leaves));
  EXPECT_EQ(one.fileindex, two.fileindex);

  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::vector<std::array<double, 3>> queries;
  for (int k = 0; k < 300; ++k) {
    const double *p = &big[9 * (rng() % (big.size() / 9))];
    queries.push_back({p[0] + 0.05 * unit(rng), p[1] + 0.05 * unit(rng), p[2] + 0.05 * unit(rng)});
  }
  EXPECT_EQ(compare(two, queries), 0);
}
