// SPDX-License-Identifier: GPL-2.0-or-later
// Refinement: the split of an interior and of a boundary edge with their exact records, the
// growth of the lists, and the walk with its order, level and length limits and tolerance.
#include <gtest/gtest.h>

#include <cmath>

#include "surface/surfacemesh.h"
#include "warp/refine.h"
#include "warp/warpstl.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

// The state that the walk sets up before it splits anything.
void beginrefine(wf::RunState &rs) {
  rs.prewarpvertices = rs.stlvrt;
  rs.vrtcap = rs.nvrt;
  rs.tricap = rs.ntri;
  rs.edgecap = rs.nedge;
  rs.edgelevel.assign(rs.nedge, 0);
  rs.triactive.assign(rs.ntri, 1);
}

// The single triangle (0,0,0), (2,0,0), (0,2,0) as (1,3,2), with its three open edges.
void trianglesurface(wf::RunState &rs) {
  rs.nvrt = 3;
  rs.stlvrt = {0, 0, 0, 0, 2, 0, 2, 0, 0};
  rs.ntri = 1;
  rs.stltri = {1, 3, 2};
  rs.nedge = 3;
  rs.edgevrt = {2, 1, 1, 3, 3, 2};
  rs.edgetri = {1, 0, 1, 0, 1, 0};
  rs.edgeopp = {3, 0, 2, 0, 1, 0};
  rs.edgenbr = {2, 3, 0, 0, 3, 1, 0, 0, 1, 2, 0, 0};
  rs.edgelen = {2, 2, std::sqrt(8.0)};
  wft::setbox(rs.stlbbox, rs.stlvrt);
}

// A mesh round the square, [-1, 3] x [-1, 3] x [-1, 1], with the given field.
void squaremesh(wf::RunState &rs, const wft::Field &f) {
  testing::internal::CaptureStdout();
  wft::setnodes(rs, wft::lattice({-1, -1, -1}, 1.0, {5, 5, 3}), f);
  testing::internal::GetCapturedStdout();
}

P3 zerofield(const P3 &) { return {0, 0, 0}; }

std::string runwarp(wf::RunState &rs) {
  testing::internal::CaptureStdout();
  wf::warpstl(rs);
  return testing::internal::GetCapturedStdout();
}

int32_t activecount(const std::string &out) {
  auto at = out.find(" Active triangles = ");
  return at == std::string::npos ? -1 : std::stoi(out.substr(at + 20));
}
int32_t totalcount(const std::string &out) {
  auto at = out.find(" Total  triangles = ");
  return at == std::string::npos ? -1 : std::stoi(out.substr(at + 20));
}

}  // namespace

TEST(Refine, FixturesMatchEdgeEquivalencing) {
  // The hand-built tables are those that the edge equivalencing makes of the same triangles.
  for (int which = 0; which < 2; ++which) {
    wf::RunState hand, built;
    if (which == 0) {
      wft::squaresurface(hand);
      built.stltri = {1, 3, 4, 1, 4, 2};
      built.triedgesq = {4, 4, 8, 8, 4, 4};
    } else {
      trianglesurface(hand);
      built.stltri = {1, 3, 2};
      built.triedgesq = {4, 8, 4};
    }
    built.nvrt = hand.nvrt;
    built.ntri = hand.ntri;
    built.stlvrt = hand.stlvrt;
    built.stlfiles.v = {"s.stl"};
    built.stlfiles.n = 1;
    int status = 0;
    testing::internal::CaptureStdout();
    wf::equiedges(built, status);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(built.nedge, hand.nedge);
    EXPECT_EQ(built.edgevrt, hand.edgevrt);
    EXPECT_EQ(built.edgetri, hand.edgetri);
    EXPECT_EQ(built.edgeopp, hand.edgeopp);
    EXPECT_EQ(built.edgenbr, hand.edgenbr);
    for (int e = 0; e < hand.nedge; ++e) EXPECT_DOUBLE_EQ(built.edgelen[e], hand.edgelen[e]);
  }
}

TEST(Refine, InteriorSplitRecords) {
  wf::RunState rs;
  wft::squaresurface(rs);
  beginrefine(rs);
  const double before[3] = {1, 1, 0}, after[3] = {1.5, 1.5, 0.5};
  // The diagonal 1-4: a = 1, b = 4, opposite 3 and 2.
  wf::splitedge(rs, 3, before, after, 0);
  ASSERT_EQ(rs.nvrt, 5);
  ASSERT_EQ(rs.ntri, 6);
  ASSERT_EQ(rs.nedge, 9);
  EXPECT_EQ(std::vector<double>(rs.stlvrt.begin() + 12, rs.stlvrt.begin() + 15),
            (std::vector<double>{1.5, 1.5, 0.5}));
  EXPECT_EQ(std::vector<double>(rs.prewarpvertices.begin() + 12, rs.prewarpvertices.begin() + 15),
            (std::vector<double>{1, 1, 0}));
  // Triangles (a,c,m), (c,b,m), (d,a,m), (b,d,m); the two old ones dead.
  EXPECT_EQ(std::vector<int32_t>(rs.stltri.begin() + 6, rs.stltri.begin() + 18),
            (std::vector<int32_t>{1, 3, 5, 3, 4, 5, 2, 1, 5, 4, 2, 5}));
  EXPECT_EQ(std::vector<uint8_t>(rs.triactive.begin(), rs.triactive.begin() + 6),
            (std::vector<uint8_t>{0, 0, 1, 1, 1, 1}));
  // Edges 1, 2, 4, 5 (the neighbours) now border the new triangles and the new vertex; edge 3
  // keeps its record; 6 to 9 are the halves a-m, m-b and the cross edges m-c, d-m.
  auto upto = [](const std::vector<int32_t> &v, size_t n) {
    return std::vector<int32_t>(v.begin(), v.begin() + n);
  };
  EXPECT_EQ(upto(rs.edgevrt, 18),
            (std::vector<int32_t>{2, 1, 1, 3, 1, 4, 4, 2, 3, 4, 1, 5, 5, 4, 5, 3, 2, 5}));
  EXPECT_EQ(upto(rs.edgetri, 18),
            (std::vector<int32_t>{5, 0, 3, 0, 1, 2, 6, 0, 4, 0, 3, 5, 4, 6, 3, 4, 5, 6}));
  EXPECT_EQ(upto(rs.edgeopp, 18),
            (std::vector<int32_t>{5, 0, 5, 0, 3, 2, 5, 0, 5, 0, 3, 2, 3, 2, 1, 4, 1, 4}));
  EXPECT_EQ(upto(rs.edgenbr, 36),
            (std::vector<int32_t>{6, 9, 0, 0, 8, 6, 0, 0, 2, 5, 4, 1, 9, 7, 0, 0, 7, 8, 0, 0,
                                  2, 8, 9, 1, 8, 5, 4, 9, 6, 2, 5, 7, 1, 6, 7, 4}));
  for (int e = 6; e <= 9; ++e) EXPECT_EQ(rs.edgelevel[e - 1], 1);
  // Lengths of the new edges between warped ends.
  EXPECT_DOUBLE_EQ(rs.edgelen[5], std::sqrt(4.75));
  EXPECT_DOUBLE_EQ(rs.edgelen[6], std::sqrt(0.75));
  EXPECT_DOUBLE_EQ(rs.edgelen[7], std::sqrt(2.75));
  EXPECT_DOUBLE_EQ(rs.edgelen[8], std::sqrt(2.75));
  // Growth: 4 -> 5 vertices; 2 -> 3 -> 4 -> 5 -> 6 triangles; 5 -> 8 -> 11 edges.
  EXPECT_EQ(rs.vrtcap, 5);
  EXPECT_EQ(rs.tricap, 6);
  EXPECT_EQ(rs.edgecap, 11);
  EXPECT_EQ(rs.stlvrt.size(), 15u);
  EXPECT_EQ(rs.prewarpvertices.size(), 15u);
  EXPECT_EQ(rs.stltri.size(), 18u);
  EXPECT_EQ(rs.triactive.size(), 6u);
  EXPECT_EQ(rs.edgenbr.size(), 44u);
  EXPECT_EQ(rs.edgelevel.size(), 11u);
  // New edge columns beyond the count are zero in the triangle and opposite tables.
  EXPECT_EQ(std::vector<int32_t>(rs.edgetri.begin() + 18, rs.edgetri.end()),
            std::vector<int32_t>(4, 0));
  EXPECT_EQ(std::vector<int32_t>(rs.edgeopp.begin() + 18, rs.edgeopp.end()),
            std::vector<int32_t>(4, 0));
}

TEST(Refine, BoundarySplitRecords) {
  wf::RunState rs;
  trianglesurface(rs);
  beginrefine(rs);
  const double before[3] = {1, 1, 0}, after[3] = {1, 1, 1};
  // Edge 3 runs 3 -> 2 in its one triangle, opposite 1.
  wf::splitedge(rs, 3, before, after, 2);
  ASSERT_EQ(rs.nvrt, 4);
  ASSERT_EQ(rs.ntri, 3);
  ASSERT_EQ(rs.nedge, 6);
  EXPECT_EQ(std::vector<int32_t>(rs.stltri.begin() + 3, rs.stltri.begin() + 9),
            (std::vector<int32_t>{3, 1, 4, 1, 2, 4}));
  EXPECT_EQ(std::vector<uint8_t>(rs.triactive.begin(), rs.triactive.begin() + 3),
            (std::vector<uint8_t>{0, 1, 1}));
  // Edges 1 and 2 (the neighbours) updated, 3 kept, 4 to 6 new: halves 3-4, 4-2, cross 4-1.
  EXPECT_EQ(rs.edgevrt, (std::vector<int32_t>{2, 1, 1, 3, 3, 2, 3, 4, 4, 2, 4, 1, 0, 0, 0, 0}));
  EXPECT_EQ(rs.edgetri, (std::vector<int32_t>{2, 0, 3, 0, 1, 0, 2, 0, 3, 0, 2, 3, 0, 0, 0, 0}));
  EXPECT_EQ(rs.edgeopp, (std::vector<int32_t>{4, 0, 4, 0, 1, 0, 1, 0, 1, 0, 3, 2, 0, 0, 0, 0}));
  EXPECT_EQ(std::vector<int32_t>(rs.edgenbr.begin(), rs.edgenbr.begin() + 24),
            (std::vector<int32_t>{6, 4, 0, 0, 5, 6, 0, 0, 1, 2, 0, 0, 1, 6, 0, 0, 6, 2, 0, 0,
                                  4, 1, 2, 5}));
  for (int e = 4; e <= 6; ++e) EXPECT_EQ(rs.edgelevel[e - 1], 3);
  EXPECT_DOUBLE_EQ(rs.edgelen[3], std::sqrt(3.0));  // (2,0,0) to (1,1,1)
}

TEST(Refine, GrowthInSinglePrecision) {
  EXPECT_EQ(wf::growcap(1), 2);
  EXPECT_EQ(wf::growcap(3), 4);
  EXPECT_EQ(wf::growcap(5), 6);
  EXPECT_EQ(wf::growcap(10), 12);
  EXPECT_EQ(wf::growcap(25), 31);    // 1.2f * 25 is 30.0000019 in single precision
  EXPECT_EQ(wf::growcap(100), 121);
  EXPECT_EQ(wf::growcap(1000), 1200);
  // A push at capacity grows all arrays of the family together, and keeps what was there.
  wf::RunState rs;
  wft::squaresurface(rs);
  beginrefine(rs);
  const int32_t corners[3] = {1, 2, 3};
  wf::pushtri(rs, corners, 3);
  EXPECT_EQ(rs.tricap, 3);
  EXPECT_EQ(rs.stltri.size(), 9u);
  EXPECT_EQ(rs.triactive.size(), 3u);
  EXPECT_EQ(rs.stltri[3], 1);
  EXPECT_EQ(rs.stltri[5], 2);
  EXPECT_EQ(rs.stltri[8], 3);
  EXPECT_EQ(rs.triactive[2], 1);
}

TEST(Refine, MaxRefineZeroSplitsNothing) {
  wf::RunState rs;
  wft::derive(rs);
  squaremesh(rs, zerofield);
  wft::squaresurface(rs);
  rs.maxrefine = 0;
  rs.minedge = 0.01;
  rs.maxedge = 0.02;
  std::string out = runwarp(rs);
  EXPECT_EQ(activecount(out), 2);
  EXPECT_EQ(totalcount(out), 2);
  EXPECT_EQ(rs.nvrt, 4);
  EXPECT_NE(out.find(" Number of vertices = 4\n"), std::string::npos);
  EXPECT_NE(out.find(" Refining STL edges ...\n\n"), std::string::npos);
}

TEST(Refine, EdgeLengthLimits) {
  struct Case {
    double minedge, maxedge;
    int active, total, nvrt;
  };
  const Case cases[] = {
      {2.0, 2.0, 4, 6, 5},      // sides of exactly minedge stay; the diagonal is split
      {1.9, 2.0, 4, 6, 5},      // sides of exactly maxedge go by the tolerance: flat, stay
      {1.9, 1.99, 8, 14, 9},    // sides above maxedge are split too, even where flat
      {2.9, 2.95, 2, 2, 4},     // everything at or below minedge
  };
  for (const Case &c : cases) {
    wf::RunState rs;
    wft::derive(rs);
    squaremesh(rs, zerofield);
    wft::squaresurface(rs);
    rs.minedge = c.minedge;
    rs.maxedge = c.maxedge;
    std::string out = runwarp(rs);
    EXPECT_EQ(activecount(out), c.active) << c.minedge << " " << c.maxedge;
    EXPECT_EQ(totalcount(out), c.total) << c.minedge << " " << c.maxedge;
    EXPECT_EQ(rs.nvrt, c.nvrt);
    EXPECT_EQ(rs.ntri, c.active);
    EXPECT_EQ(rs.stltri.size(), 3u * c.active);
  }
}

TEST(Refine, WalkOrderLongestFirstThenHighestNumber) {
  wf::RunState rs;
  wft::derive(rs);
  squaremesh(rs, zerofield);
  wft::squaresurface(rs);
  rs.minedge = 1.45;
  rs.maxedge = 1.5;
  rs.maxrefine = 1;
  runwarp(rs);
  ASSERT_EQ(rs.nvrt, 9);
  // Diagonal, then the sides of equal length from the highest edge number down: 3-4, 2-4 (as
  // 4-2), 1-3, 1-2 (as 2-1).
  std::vector<double> mids(rs.stlvrt.begin() + 12, rs.stlvrt.end());
  EXPECT_EQ(mids, (std::vector<double>{1, 1, 0, 2, 1, 0, 1, 2, 0, 1, 0, 0, 0, 1, 0}));
  // No edge below level 1 split again: 2 + 4 + 4 * 2 triangles made, 8 live.
  EXPECT_EQ(rs.ntri, 8);
}

TEST(Refine, ToleranceIsStrict) {
  auto field = [](const P3 &p) { return P3{0, 0, 0.05 * p[0] * p[0] * p[1]}; };
  // The deviation of the diagonal's displaced midpoint from the midpoint of its displaced ends.
  wf::RunState probe;
  wft::derive(probe);
  squaremesh(probe, field);
  std::vector<double> d2(10), w(10);
  std::vector<int32_t> nd(10);
  double a[3] = {0, 0, 0}, b[3] = {2, 2, 0}, m[3] = {1, 1, 0};
  for (double *p : {a, b, m}) wf::warpvertex(probe, p, d2.data(), nd.data(), w.data(), 10);
  double dev = 0;
  for (int k = 0; k < 3; ++k) {
    double mk = 0.5 * (a[k] + b[k]);
    dev += (m[k] - mk) * (m[k] - mk);
  }
  ASSERT_GT(dev, 0.0);
  for (int strictly = 0; strictly < 2; ++strictly) {
    wf::RunState rs;
    wft::derive(rs);
    squaremesh(rs, field);
    wft::squaresurface(rs);
    rs.minedge = 2.0;  // only the diagonal is looked at
    rs.maxedge = 3.0;
    rs.maxrefine = 1;
    rs.refinetolsq = strictly ? std::nextafter(dev, 0.0) : dev;
    std::string out = runwarp(rs);
    EXPECT_EQ(activecount(out), strictly ? 4 : 2);
  }
}

TEST(Refine, ScalingOfLengthsAndVertices) {
  wf::RunState rs;
  wft::derive(rs);
  squaremesh(rs, zerofield);
  wft::squaresurface(rs);
  rs.stlscale = 2.0;
  rs.unitscale = 10.0;
  // Scaled sides are 4 (flat: stay), the scaled diagonal 5.66 is above maxedge.
  rs.minedge = 3.0;
  rs.maxedge = 5.0;
  rs.maxrefine = 1;
  std::string out = runwarp(rs);
  EXPECT_EQ(activecount(out), 4);
  ASSERT_EQ(rs.nvrt, 5);
  // stlvrt back in file units times unitscale; prewarpvertices keeps the STL scaling.
  EXPECT_EQ(std::vector<double>(rs.stlvrt.begin() + 9, rs.stlvrt.end()),
            (std::vector<double>{20, 20, 0, 10, 10, 0}));
  EXPECT_EQ(std::vector<double>(rs.prewarpvertices.begin() + 9, rs.prewarpvertices.end()),
            (std::vector<double>{40, 40, 0, 20, 20, 0}));
  EXPECT_EQ(rs.stlvrt.size(), 15u);
}

TEST(Refine, EdgeOfMinimumLengthStaysWhereFieldIsCurved) {
  // The side at y = 2 bends under this field, yet at exactly minedge it is never looked at;
  // a hair below minedge it is split.
  auto field = [](const P3 &p) { return P3{0, 0, 0.05 * p[0] * p[0] * p[1]}; };
  for (double minedge : {2.0, std::nextafter(2.0, 0.0)}) {
    wf::RunState rs;
    wft::derive(rs);
    squaremesh(rs, field);
    wft::squaresurface(rs);
    rs.minedge = minedge;
    rs.maxedge = 3.0;
    rs.maxrefine = 1;
    rs.refinetolsq = 1e-12;
    std::string out = runwarp(rs);
    // The diagonal always splits (4 live); the bent side adds one more.
    EXPECT_EQ(activecount(out), minedge == 2.0 ? 4 : 5) << minedge;
  }
}
