// SPDX-License-Identifier: GPL-2.0-or-later
// The node grid: cell counts, offsets, the order of nodes within a cell, and the cell rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "warp/initgrid.h"
#include "warpfixtures.h"

using wft::P3;

namespace {

P3 zero(const P3 &) { return {0, 0, 0}; }

int32_t first(const wf::RunState &rs, int i, int j, int k) {
  size_t c = (static_cast<size_t>(k - 1) * rs.gridny + (j - 1)) * rs.gridnx + (i - 1);
  return rs.j0cellnodes[2 * c];
}
int32_t last(const wf::RunState &rs, int i, int j, int k) {
  size_t c = (static_cast<size_t>(k - 1) * rs.gridny + (j - 1)) * rs.gridnx + (i - 1);
  return rs.j0cellnodes[2 * c + 1];
}

}  // namespace

TEST(NodeGrid, CellRuleClampsAndHandlesZeroSize) {
  // origin 0, size 0.5, 4 cells
  EXPECT_EQ(wf::gridcell(0.0, 0.0, 0.5, 4), 1);
  EXPECT_EQ(wf::gridcell(0.49, 0.0, 0.5, 4), 1);
  EXPECT_EQ(wf::gridcell(0.5, 0.0, 0.5, 4), 2);
  EXPECT_EQ(wf::gridcell(1.99, 0.0, 0.5, 4), 4);
  EXPECT_EQ(wf::gridcell(2.0, 0.0, 0.5, 4), 4);    // the high face belongs to the last cell
  EXPECT_EQ(wf::gridcell(-0.01, 0.0, 0.5, 4), 1);  // below the grid: first cell
  EXPECT_EQ(wf::gridcell(-1e30, 0.0, 0.5, 4), 1);
  EXPECT_EQ(wf::gridcell(1e30, 0.0, 0.5, 4), 4);   // far beyond: last cell
  EXPECT_EQ(wf::gridcell(3.0, 3.0, 0.0, 1), 1);    // zero size, on the origin (0/0)
  EXPECT_EQ(wf::gridcell(5.0, 3.0, 0.0, 1), 1);    // zero size, off the origin (inf)
  EXPECT_EQ(wf::gridcell(1.0, 3.0, 0.0, 1), 1);    // zero size, below (-inf)
  EXPECT_EQ(wf::gridcell(std::numeric_limits<double>::quiet_NaN(), 0.0, 1.0, 3), 1);
}

TEST(NodeGrid, OffsetsAndOrderWithinCells) {
  wf::RunState rs;
  // Unit box, 8 nodes: 2 x 2 x 2 cells of 0.5.
  std::vector<P3> xyz = {{0.9, 0.9, 0.9}, {0.1, 0.1, 0.1}, {0.2, 0.1, 0.1}, {0, 0, 0},
                         {1, 1, 1},       {0.6, 0.1, 0.1}, {0.1, 0.6, 0.1}, {0.1, 0.1, 0.6}};
  testing::internal::CaptureStdout();
  wft::setnodes(rs, xyz, zero);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "  Number of nodal partitions = 2 x 2 x 2\n\n");
  EXPECT_EQ(rs.gridnx, 2);
  EXPECT_EQ(rs.gridny, 2);
  EXPECT_EQ(rs.gridnz, 2);
  for (int a = 0; a < 3; ++a) {
    EXPECT_EQ(rs.gridorigin[a], 0.0);
    EXPECT_EQ(rs.gridcellsize[a], 0.5);
  }
  EXPECT_EQ(rs.jcellnodes, (std::vector<int32_t>{2, 3, 4, 6, 7, 8, 1, 5}));
  // cell (1,1,1): nodes 2, 3, 4; (2,1,1): 6; (1,2,1): 7; (2,2,1): empty; (1,1,2): 8;
  // (2,1,2), (1,2,2): empty; (2,2,2): 1 and 5 (the high corner).
  EXPECT_EQ(first(rs, 1, 1, 1), 1);
  EXPECT_EQ(last(rs, 1, 1, 1), 3);
  EXPECT_EQ(first(rs, 2, 1, 1), 4);
  EXPECT_EQ(last(rs, 2, 1, 1), 4);
  EXPECT_EQ(first(rs, 1, 2, 1), 5);
  EXPECT_EQ(last(rs, 1, 2, 1), 5);
  EXPECT_EQ(first(rs, 2, 2, 1), 6);
  EXPECT_EQ(last(rs, 2, 2, 1), 5);
  EXPECT_EQ(first(rs, 1, 1, 2), 6);
  EXPECT_EQ(last(rs, 1, 1, 2), 6);
  EXPECT_EQ(first(rs, 2, 1, 2), 7);
  EXPECT_EQ(last(rs, 2, 1, 2), 6);
  EXPECT_EQ(first(rs, 1, 2, 2), 7);
  EXPECT_EQ(last(rs, 1, 2, 2), 6);
  EXPECT_EQ(first(rs, 2, 2, 2), 7);
  EXPECT_EQ(last(rs, 2, 2, 2), 8);
}

TEST(NodeGrid, CountsFollowTheBoxShape) {
  wf::RunState rs;
  // Box 4 x 2 x 1 with 64 nodes: cube roots of 512, 64 and 8.
  std::vector<P3> xyz;
  for (int n = 0; n < 64; ++n)
    xyz.push_back({4.0 * ((n * 37) % 64) / 63.0, 2.0 * ((n * 11) % 64) / 63.0, (n % 8) / 7.0});
  xyz[0] = {0, 0, 0};
  xyz[1] = {4, 2, 1};
  testing::internal::CaptureStdout();
  wft::setnodes(rs, xyz, zero);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "  Number of nodal partitions = 8 x 4 x 2\n\n");
  ASSERT_EQ(rs.jcellnodes.size(), 64u);
  ASSERT_EQ(rs.j0cellnodes.size(), 2u * 64);
  // Every node stands exactly once, in the cell that the rule gives it, ascending in its cell.
  std::vector<int> seen(65, 0);
  for (int k = 1; k <= rs.gridnz; ++k)
    for (int j = 1; j <= rs.gridny; ++j)
      for (int i = 1; i <= rs.gridnx; ++i) {
        for (int32_t pos = first(rs, i, j, k); pos <= last(rs, i, j, k); ++pos) {
          int32_t n = rs.jcellnodes[pos - 1];
          ++seen[n];
          const double *p = rs.nodexyz.data() + 3 * (n - 1);
          EXPECT_EQ(wf::gridcell(p[0], 0, 0.5, 8), i);
          EXPECT_EQ(wf::gridcell(p[1], 0, 0.5, 4), j);
          EXPECT_EQ(wf::gridcell(p[2], 0, 0.5, 2), k);
          if (pos > first(rs, i, j, k)) EXPECT_LT(rs.jcellnodes[pos - 2], n);
        }
      }
  for (int n = 1; n <= 64; ++n) EXPECT_EQ(seen[n], 1) << "node " << n;
  // Offsets run on without gaps, i fastest.
  EXPECT_EQ(first(rs, 1, 1, 1), 1);
  EXPECT_EQ(last(rs, 8, 4, 2), 64);
}

TEST(NodeGrid, DegenerateMeshes) {
  {
    // Flat in z: every count ends at 1 (zero denominators), and size 0 along z.
    wf::RunState rs;
    testing::internal::CaptureStdout();
    wft::setnodes(rs, wft::lattice({0, 0, 5}, 1.0, {4, 3, 1}), zero);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(rs.gridnx, 1);
    EXPECT_EQ(rs.gridny, 1);
    EXPECT_EQ(rs.gridnz, 1);
    EXPECT_EQ(rs.gridcellsize[2], 0.0);
    EXPECT_EQ(rs.gridorigin[2], 5.0);
    EXPECT_EQ(rs.j0cellnodes, (std::vector<int32_t>{1, 12}));
    std::vector<int32_t> all(12);
    for (int n = 0; n < 12; ++n) all[n] = n + 1;
    EXPECT_EQ(rs.jcellnodes, all);
  }
  {
    wf::RunState rs;
    testing::internal::CaptureStdout();
    wft::setnodes(rs, {{1, 2, 3}}, zero);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(rs.gridnx * rs.gridny * rs.gridnz, 1);
    EXPECT_EQ(rs.gridorigin[1], 2.0);
    EXPECT_EQ(rs.jcellnodes, std::vector<int32_t>{1});
    EXPECT_EQ(rs.j0cellnodes, (std::vector<int32_t>{1, 1}));
  }
  {
    // No nodes at all: one empty cell, no crash.
    wf::RunState rs;
    testing::internal::CaptureStdout();
    wft::setnodes(rs, {}, zero);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(rs.gridnx * rs.gridny * rs.gridnz, 1);
    EXPECT_TRUE(rs.jcellnodes.empty());
    EXPECT_EQ(rs.j0cellnodes, (std::vector<int32_t>{1, 0}));
  }
}

TEST(NodeGrid, PerfectCubeCountsAreExact) {
  // 15^3 nodes in a cube: the cube root of 3375 is 15, not one cell less.
  wf::RunState rs;
  testing::internal::CaptureStdout();
  wft::setnodes(rs, wft::lattice({0, 0, 0}, 1.0, {15, 15, 15}), zero);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "  Number of nodal partitions = 15 x 15 x 15\n\n");
  // Cells of 14/15: lattice coordinate c goes to cell floor(c * 15 / 14) + 1, the high face to
  // cell 15; so cell 15 holds only the last node, and cell 14 (of each axis) coordinate 13.
  EXPECT_EQ(first(rs, 15, 15, 15), last(rs, 15, 15, 15));
  EXPECT_EQ(rs.jcellnodes[first(rs, 15, 15, 15) - 1], 3375);
  EXPECT_EQ(first(rs, 14, 14, 14), last(rs, 14, 14, 14));
  EXPECT_EQ(rs.jcellnodes[first(rs, 14, 14, 14) - 1], 1 + 13 + 13 * 15 + 13 * 225);
  EXPECT_EQ(first(rs, 1, 1, 1), 1);
  EXPECT_EQ(last(rs, 1, 1, 1), 1);
}
