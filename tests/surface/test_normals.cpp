// SPDX-License-Identifier: GPL-2.0-or-later
// Facet normals and the closest-point terms, basic and full, indexed and raw.
#include <gtest/gtest.h>

#include <vector>

#include "surface/normals.h"
#include "surfacefixtures.h"

using namespace wft;
using wf::RunState;

namespace {

// Raw layout: three columns of stlvrt per triangle.
void rawstate(RunState &rs, const Soup &s) {
  rs.stlvrt = s;
  rs.nvrt = static_cast<int32_t>(s.size() / 3);
  rs.ntri = static_cast<int32_t>(s.size() / 9);
}

}  // namespace

TEST(Normals, WorkedExamplesInFullMode) {
  // (0,0,0), (1,0,0), (0,1,0); the same twice as large; reversed; two equal corners.
  Soup s = {0, 0, 0, 1, 0, 0, 0, 1, 0,
            0, 0, 0, 2, 0, 0, 0, 2, 0,
            0, 0, 0, 0, 1, 0, 1, 0, 0,
            1, 2, 3, 1, 2, 3, 4, -5, 6};
  RunState rs;
  rawstate(rs, s);
  std::string out = captured([&] { wf::normals(rs, false, true, false); });
  EXPECT_EQ(out, " Calculating surface normals\n");
  EXPECT_TRUE(rs.fullnormals);
  EXPECT_EQ(rs.nrgtri, std::vector<double>({0, 0, 1, 0, 0, 4, 0, 0, -1, 0, 0, 0}));
  EXPECT_EQ(rs.ugtri, std::vector<double>({1, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(rs.vgtri, std::vector<double>({0, 1, 0, 0, 2, 0, 1, 0, 0, 3, -7, 3}));
  EXPECT_EQ(rs.nnsqgtri, std::vector<double>({1, 16, 1, 0}));
  EXPECT_EQ(rs.uugtri, std::vector<double>({1, 4, 1, 0}));
  EXPECT_EQ(rs.uvgtri, std::vector<double>({0, 0, 0, 0}));
  EXPECT_EQ(rs.vvgtri, std::vector<double>({1, 4, 1, 67}));
  EXPECT_EQ(rs.detgtri, std::vector<double>({1, 16, 1, 0}));
  EXPECT_EQ(rs.dengtri, std::vector<double>({2, 8, 2, 67}));

  // A general triangle: the cross product by its components, det as |uu vv - uv^2|.
  Soup g = {1, 1, 1, 2, 3, 5, -1, 0, 4};
  RunState rg;
  rawstate(rg, g);
  wf::normals(rg, true, true, false);
  // u = (1, 2, 4), v = (-2, -1, 3): n = (2*3 - 4*-1, 4*-2 - 1*3, 1*-1 - 2*-2) = (10, -11, 3)
  EXPECT_EQ(rg.nrgtri, std::vector<double>({10, -11, 3}));
  EXPECT_EQ(rg.nnsqgtri[0], 230);
  EXPECT_EQ(rg.uvgtri[0], 8);
  EXPECT_EQ(rg.detgtri[0], 21 * 14 - 64);  // equals n.n
  EXPECT_EQ(rg.dengtri[0], 21 - 16 + 14);
}

TEST(Normals, IndexedBasicModeLeavesTheFullArrays) {
  Soup s = tetrahedron(3.0);
  RunState rr;
  rawstate(rr, s);
  wf::normals(rr, true, true, false);

  // The same surface through stltri gives the same normals.
  RunState rs;
  rs.stlvrt = {0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 3};  // A, B, C, D
  rs.stltri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
  rs.ntri = 4;
  std::string out = captured([&] { wf::normals(rs, true, false, true); });
  EXPECT_EQ(out, "");
  EXPECT_EQ(rs.nrgtri, rr.nrgtri);
  EXPECT_FALSE(rs.fullnormals);
  EXPECT_TRUE(rs.ugtri.empty());
  EXPECT_TRUE(rs.detgtri.empty());
  // Every face points outwards with twice its area: 9 on the axis faces.
  EXPECT_EQ(std::vector<double>(rs.nrgtri.begin(), rs.nrgtri.begin() + 3),
            std::vector<double>({0, 0, -9}));
  EXPECT_EQ(std::vector<double>(rs.nrgtri.begin() + 9, rs.nrgtri.end()),
            std::vector<double>({9, 9, 9}));

  // Full mode on the indexed surface, then a basic call on a changed surface: the full arrays
  // keep the earlier geometry, the normals follow the new one.
  wf::normals(rs, true, true, true);
  EXPECT_EQ(rs.ugtri, rr.ugtri);
  EXPECT_EQ(rs.dengtri, rr.dengtri);
  std::vector<double> before = rs.uugtri;
  rs.stltri = {1, 2, 3};
  rs.ntri = 1;
  wf::normals(rs, true, false, true);
  EXPECT_EQ(rs.nrgtri, std::vector<double>({0, 0, 9}));
  EXPECT_EQ(rs.uugtri, before);
  EXPECT_TRUE(rs.fullnormals);

  // No triangles: the arrays exist with no columns.
  rs.ntri = 0;
  wf::normals(rs, true, true, true);
  EXPECT_TRUE(rs.nrgtri.empty());
  EXPECT_TRUE(rs.uugtri.empty());
}
