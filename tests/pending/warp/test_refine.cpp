// SPDX-License-Identifier: GPL-2.0-or-later
// Refinement: exact records of the two kinds of split, list growth, and the walk's limits.
#include <gtest/gtest.h>

#include "warp/refine.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

// The state that the walk sets up before it splits anything.
void beginrefine(wf::RunState &rs) {
  rs.prewarpvertices = rs.stlvrt;
  rs.vrtcap = rs.nvrt, rs.tricap = rs.ntri, rs.edgecap = rs.nedge;
  rs.edgelevel.assign(rs.nedge, 0);
  rs.triactive.assign(rs.ntri, 1);
}

template <class T>
std::vector<T> part(const std::vector<T> &v, size_t from, size_t to) {
  return std::vector<T>(v.begin() + from, v.begin() + to);
}

// The square inside a mesh [-1, 3] x [-1, 3] x [-1, 1] with the given field.
void squarejob(wf::RunState &rs, const wft::Field &f, double minedge, double maxedge, int maxrefine) {
  wft::setnodes(rs, wft::lattice({-1, -1, -1}, {5, 5, 3}), f);
  wft::squaresurface(rs);
  rs.minedge = minedge, rs.maxedge = maxedge, rs.maxrefine = maxrefine;
}

int32_t count(const std::string &out, const std::string &label) {
  auto at = out.find(" " + label + " triangles = ");
  return at == std::string::npos ? -1 : std::stoi(out.substr(at + label.size() + 14));
}

P3 bend(const P3 &p) { return {0, 0, 0.05 * p[0] * p[0] * p[1]}; }

}  // namespace

TEST(Refine, InteriorSplitRecords) {
  wf::RunState rs;
  wft::squaresurface(rs);
  beginrefine(rs);
  const double before[3] = {1, 1, 0}, after[3] = {1.5, 1.5, 0.5};
  wf::splitedge(rs, 3, before, after, 0);  // the diagonal 1-4: opposite 3 and 2
  ASSERT_EQ(rs.nvrt, 5);
  ASSERT_EQ(rs.ntri, 6);
  ASSERT_EQ(rs.nedge, 9);
  EXPECT_EQ(part(rs.stlvrt, 12, 15), (std::vector<double>{1.5, 1.5, 0.5}));
  EXPECT_EQ(part(rs.prewarpvertices, 12, 15), (std::vector<double>{1, 1, 0}));
  // Triangles (a,c,m), (c,b,m), (d,a,m), (b,d,m); the two old ones dead.
  EXPECT_EQ(part(rs.stltri, 6, 18), (std::vector<int32_t>{1, 3, 5, 3, 4, 5, 2, 1, 5, 4, 2, 5}));
  EXPECT_EQ(part(rs.triactive, 0, 6), (std::vector<uint8_t>{0, 0, 1, 1, 1, 1}));
  // Edges 1, 2, 4, 5 now border the new triangles; 3 keeps its record; 6 to 9 are the halves
  // a-m, m-b and the cross edges m-c, d-m.
  EXPECT_EQ(part(rs.edgevrt, 0, 18), (std::vector<int32_t>{2, 1, 1, 3, 1, 4, 4, 2, 3, 4, 1, 5, 5, 4, 5, 3, 2, 5}));
  EXPECT_EQ(part(rs.edgetri, 0, 18), (std::vector<int32_t>{5, 0, 3, 0, 1, 2, 6, 0, 4, 0, 3, 5, 4, 6, 3, 4, 5, 6}));
  EXPECT_EQ(part(rs.edgeopp, 0, 18), (std::vector<int32_t>{5, 0, 5, 0, 3, 2, 5, 0, 5, 0, 3, 2, 3, 2, 1, 4, 1, 4}));
  EXPECT_EQ(part(rs.edgenbr, 0, 36), (std::vector<int32_t>{6, 9, 0, 0, 8, 6, 0, 0, 2, 5, 4, 1, 9, 7, 0, 0, 7, 8,
                                                           0, 0, 2, 8, 9, 1, 8, 5, 4, 9, 6, 2, 5, 7, 1, 6, 7, 4}));
  EXPECT_EQ(part(rs.edgelevel, 5, 9), std::vector<int32_t>(4, 1));
  // Lengths of the new edges between warped ends.
  const double len[4] = {4.75, 0.75, 2.75, 2.75};
  for (int e = 0; e < 4; ++e) EXPECT_DOUBLE_EQ(rs.edgelen[5 + e], std::sqrt(len[e]));
  // Growth: 4 -> 5 vertices; 2 -> 3 -> ... -> 6 triangles; 5 -> 8 -> 11 edges, all arrays along.
  EXPECT_EQ(std::vector<int32_t>({rs.vrtcap, rs.tricap, rs.edgecap}), std::vector<int32_t>({5, 6, 11}));
  EXPECT_EQ(rs.prewarpvertices.size(), 15u);
  EXPECT_EQ(rs.edgenbr.size(), 44u);
  EXPECT_EQ(part(rs.edgetri, 18, 22), std::vector<int32_t>(4, 0));  // unused columns zero
}

TEST(Refine, BoundarySplitRecords) {
  // The single triangle (0,0,0), (2,0,0), (0,2,0) as (1,3,2), with its three open edges.
  wf::RunState rs;
  rs.nvrt = 3, rs.ntri = 1, rs.nedge = 3;
  rs.stlvrt = {0, 0, 0, 0, 2, 0, 2, 0, 0};
  rs.stltri = {1, 3, 2};
  rs.edgevrt = {2, 1, 1, 3, 3, 2};
  rs.edgetri = {1, 0, 1, 0, 1, 0};
  rs.edgeopp = {3, 0, 2, 0, 1, 0};
  rs.edgenbr = {2, 3, 0, 0, 3, 1, 0, 0, 1, 2, 0, 0};
  rs.edgelen = {2, 2, std::sqrt(8.0)};
  beginrefine(rs);
  const double before[3] = {1, 1, 0}, after[3] = {1, 1, 1};
  wf::splitedge(rs, 3, before, after, 2);  // edge 3 runs 3 -> 2, opposite 1
  ASSERT_EQ(rs.nvrt, 4);
  ASSERT_EQ(rs.ntri, 3);
  ASSERT_EQ(rs.nedge, 6);
  EXPECT_EQ(part(rs.stltri, 3, 9), (std::vector<int32_t>{3, 1, 4, 1, 2, 4}));
  EXPECT_EQ(part(rs.triactive, 0, 3), (std::vector<uint8_t>{0, 1, 1}));
  // Edges 1 and 2 updated, 3 kept, 4 to 6 new: halves 3-4, 4-2, cross 4-1.
  EXPECT_EQ(rs.edgevrt, (std::vector<int32_t>{2, 1, 1, 3, 3, 2, 3, 4, 4, 2, 4, 1, 0, 0, 0, 0}));
  EXPECT_EQ(rs.edgetri, (std::vector<int32_t>{2, 0, 3, 0, 1, 0, 2, 0, 3, 0, 2, 3, 0, 0, 0, 0}));
  EXPECT_EQ(rs.edgeopp, (std::vector<int32_t>{4, 0, 4, 0, 1, 0, 1, 0, 1, 0, 3, 2, 0, 0, 0, 0}));
  EXPECT_EQ(part(rs.edgenbr, 0, 24),
            (std::vector<int32_t>{6, 4, 0, 0, 5, 6, 0, 0, 1, 2, 0, 0, 1, 6, 0, 0, 6, 2, 0, 0, 4, 1, 2, 5}));
  EXPECT_EQ(part(rs.edgelevel, 3, 6), std::vector<int32_t>(3, 3));
  EXPECT_DOUBLE_EQ(rs.edgelen[3], std::sqrt(3.0));  // (2,0,0) to (1,1,1)
}

TEST(Refine, GrowthInSinglePrecision) {
  // 1.2f * 25 is 30.0000019 in single precision.
  const int32_t cases[][2] = {{1, 2}, {3, 4}, {5, 6}, {10, 12}, {25, 31}, {100, 121}, {1000, 1200}};
  for (const auto &c : cases) EXPECT_EQ(wf::growcap(c[0]), c[1]) << c[0];
}

TEST(Refine, EdgeLengthLimitsAndMaxRefine) {
  struct Case {
    double minedge, maxedge;
    int maxrefine, active, total, nvrt;
  };
  const Case cases[] = {
      {0.01, 0.02, 0, 2, 2, 4},   // maxrefine 0: nothing split
      {2.0, 2.0, 5, 4, 6, 5},     // sides of exactly minedge stay; the diagonal is split
      {1.9, 2.0, 5, 4, 6, 5},     // sides of exactly maxedge go by the tolerance: flat, stay
      {1.9, 1.99, 5, 8, 14, 9},   // sides above maxedge are split too, even where flat
      {2.9, 2.95, 5, 2, 2, 4},    // everything at or below minedge
  };
  for (const Case &c : cases) {
    wf::RunState rs;
    squarejob(rs, wft::zerofield, c.minedge, c.maxedge, c.maxrefine);
    std::string out = wft::runwarp(rs);
    EXPECT_EQ(count(out, "Active"), c.active) << c.minedge << " " << c.maxedge;
    EXPECT_EQ(count(out, "Total "), c.total) << c.minedge << " " << c.maxedge;
    EXPECT_EQ(rs.nvrt, c.nvrt);
    EXPECT_EQ(rs.stltri.size(), 3u * c.active);  // compacted
  }
}

TEST(Refine, WalkOrderLongestFirstThenHighestNumber) {
  wf::RunState rs;
  squarejob(rs, wft::zerofield, 1.45, 1.5, 1);
  wft::runwarp(rs);
  // Diagonal, then the sides of equal length from the highest edge number down: 3-4, 2-4,
  // 1-3, 1-2; no edge of level 1 split again.
  EXPECT_EQ(part(rs.stlvrt, 12, rs.stlvrt.size()), (std::vector<double>{1, 1, 0, 2, 1, 0, 1, 2, 0, 1, 0, 0, 0, 1, 0}));
  EXPECT_EQ(rs.ntri, 8);
}

TEST(Refine, ToleranceIsStrictAndMinEdgeNeverLooked) {
  // The deviation of the diagonal's displaced midpoint from the midpoint of its displaced ends.
  wf::RunState probe;
  wft::setnodes(probe, wft::lattice({-1, -1, -1}, {5, 5, 3}), bend);
  std::vector<double> d2(10), w(10);
  std::vector<int32_t> nd(10);
  double a[3] = {0, 0, 0}, b[3] = {2, 2, 0}, m[3] = {1, 1, 0};
  for (double *p : {a, b, m}) wf::warpvertex(probe, p, d2.data(), nd.data(), w.data(), 10);
  double dev = 0;
  for (int k = 0; k < 3; ++k) dev += (m[k] - 0.5 * (a[k] + b[k])) * (m[k] - 0.5 * (a[k] + b[k]));
  ASSERT_GT(dev, 0.0);
  // Only the diagonal is looked at with minedge 2; the side at y = 2 bends too, and a hair below
  // minedge it is split as well.
  struct Case {
    double tolsq, minedge;
    int active;
  };
  const Case cases[] = {{dev, 2.0, 2}, {std::nextafter(dev, 0.0), 2.0, 4}, {1e-12, std::nextafter(2.0, 0.0), 5}};
  for (const Case &c : cases) {
    wf::RunState rs;
    squarejob(rs, bend, c.minedge, 3.0, 1);
    rs.refinetolsq = c.tolsq;
    EXPECT_EQ(count(wft::runwarp(rs), "Active"), c.active) << c.tolsq;
  }
}
