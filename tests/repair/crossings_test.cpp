// SPDX-License-Identifier: GPL-3.0-or-later
// The search for crossing facets against every pair tested alone (the exact test itself is the
// repair's and the judge's): the grid, the big facets tested against every box, and the search
// about flagged facets, which lays its grid over them alone.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "repair/crossings.h"

using wf::Facet;
using wf::FacetPair;

namespace {

// Small facets scattered in a 10 mm cube, many crossing; some share a corner or an edge with the
// facet before; tiny ones in a cluster near one corner; a few span the cube (big: tested against every box); one has
// its corners on a line and one a corner that is not a number (no part of any pair).
struct Soup {
  std::vector<double> points;
  std::vector<Facet> facets;
};
Soup scattered(unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> at(0, 10), step(-1.5, 1.5);
  Soup s;
  auto point = [&](double x, double y, double z) {
    s.points.insert(s.points.end(), {x, y, z});
    return int32_t(s.points.size() / 3 - 1);
  };
  for (int t = 0; t < 220; ++t) {
    const double x = at(rng), y = at(rng), z = at(rng);
    const int32_t a = point(x, y, z);
    Facet f = {a, point(x + step(rng), y + step(rng), z + step(rng)), point(x + step(rng), y, z + step(rng))};
    if (t % 7 == 3) f[0] = s.facets.back()[1];                              // a corner shared
    if (t % 11 == 5) f[0] = s.facets.back()[2], f[1] = s.facets.back()[1];  // an edge shared
    s.facets.push_back(f);
  }
  std::uniform_real_distribution<double> near(0.5, 1.5), tiny(-0.05, 0.05);
  for (int t = 0; t < 60; ++t) {
    const double x = near(rng), y = near(rng), z = near(rng);
    s.facets.push_back(
        {point(x, y, z), point(x + tiny(rng), y + tiny(rng), z), point(x, y + tiny(rng), z + tiny(rng))});
  }
  for (int t = 0; t < 3; ++t)
    s.facets.push_back({point(-1, -1, at(rng)), point(11, -1, at(rng)), point(at(rng), 11, at(rng))});
  s.facets.push_back({point(1, 1, 1), point(2, 2, 2), point(3, 3, 3)});
  s.facets.push_back({point(5, 5, 5), point(NAN, 5, 6), point(5, 6, 5)});
  return s;
}

// Every pair that crosses when the two facets are searched alone.
std::vector<FacetPair> pairwise(const Soup &s) {
  std::vector<FacetPair> out;
  for (int32_t f = 0; f < int32_t(s.facets.size()); ++f)
    for (int32_t g = f + 1; g < int32_t(s.facets.size()); ++g)
      if (!wf::crossingpairs(s.points, {s.facets[size_t(f)], s.facets[size_t(g)]}).empty()) out.emplace_back(f, g);
  return out;
}

}  // namespace

// Flags scattered over the cube, gathered in one corner of it, on the tiny cluster with a big facet, and on one
// facet that crosses nothing; on one and two
// threads. Under a limit of one the answer is empty exactly when there is no pair.
TEST(Crossings, SearchFindsThePairsOfEveryPairAlone) {
  const Soup s = scattered(17);
  const size_t n = s.facets.size();
  const std::vector<FacetPair> all = pairwise(s);
  // The situation: many crossings, big facets among them, none with the degenerate two.
  ASSERT_GT(all.size(), 60u);
  ASSERT_TRUE(std::any_of(all.begin(), all.end(), [&](const FacetPair &p) { return size_t(p.second) + 5 >= n; }));
  ASSERT_TRUE(std::none_of(all.begin(), all.end(), [&](const FacetPair &p) { return size_t(p.second) + 2 >= n; }));
  std::vector<std::vector<char>> flags(4, std::vector<char>(n, 0));
  for (size_t t = 0; t < n; ++t) {
    flags[0][t] = t % 9 == 0;
    flags[1][t] = s.points[3 * size_t(s.facets[t][0])] < 2.5 && s.points[3 * size_t(s.facets[t][0]) + 1] < 2.5;
  }
  for (size_t t = 220; t < 280; ++t) flags[2][t] = 1;  // the tiny cluster,
  flags[2][n - 4] = 1;                                 // and a big facet, whose pairs lie far from it
  size_t lonely = 0;                                   // a facet that crosses nothing: an empty answer
  while (std::any_of(all.begin(), all.end(),
                     [&](const FacetPair &p) { return size_t(p.first) == lonely || size_t(p.second) == lonely; }))
    ++lonely;
  ASSERT_LT(lonely, n - 5);
  flags[3][lonely] = 1;
  for (int threads : {1, 2}) {
    SCOPED_TRACE(threads);
    omp_set_num_threads(threads);
    EXPECT_EQ(wf::crossingpairs(s.points, s.facets), all);
    for (const std::vector<char> &among : flags) {
      std::vector<FacetPair> want;
      for (const FacetPair &p : all)
        if (among[size_t(p.first)] || among[size_t(p.second)]) want.push_back(p);
      EXPECT_EQ(wf::crossingpairs(s.points, s.facets, &among), want) << &among - flags.data();
      EXPECT_EQ(wf::crossingpairs(s.points, s.facets, &among, 1).empty(), want.empty()) << &among - flags.data();
    }
  }
  omp_set_num_threads(2);
}
