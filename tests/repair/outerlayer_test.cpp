// SPDX-License-Identifier: GPL-3.0-or-later
// The solid repair's parts on surfaces made in code: the outer layer of a surface laid twice over
// itself, the area of a surface left outside a solid, and holes whose rims run over several faces
// of a part (the patch has to make the faces whole again, corners included, and never lie twice
// over the surface).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "judge.h"
#include "repair/crossings.h"
#include "repair/facetmesh.h"
#include "repair/outerhull.h"
#include "repair/solidrepair.h"
#include "shapes.h"

namespace {

using Facets = wft::Facets;

wf::FacetMesh meshof(const Facets &s) { return wf::weld(s.data(), int64_t(s.size() / 9), true); }

// A 10 mm box of twelve facets with a second layer on it: the box again, each face in 2 x 2
// cells, turned inwards, the centres of its faces moved out by `wobble` and the middles of its
// edges in (so the layers cross), and one facet missing (so it is open).
Facets doubledbox(float wobble) {
  Facets copy = wft::boxpart(0, 0, 0, 10, 10, 10, 2);
  for (size_t c = 0; c < copy.size() / 3; ++c) {
    float *p = &copy[3 * c];
    const int middles = int(p[0] == 5.0f) + int(p[1] == 5.0f) + int(p[2] == 5.0f);
    for (int a = 0; a < 3; ++a)
      if (middles > 0 && p[a] != 5.0f) p[a] += (middles == 2 ? wobble : -wobble) * (p[a] == 0.0f ? -1.0f : 1.0f);
  }
  for (size_t t = 0; t < copy.size() / 9; ++t) std::swap_ranges(&copy[9 * t + 3], &copy[9 * t + 6], &copy[9 * t + 6]);
  copy.erase(copy.begin() + 9 * 7, copy.begin() + 9 * 8);
  return wft::joined(wft::boxpart(0, 0, 0, 10, 10, 10, 1), copy);
}

}  // namespace

// The twelve facets of the box stay and nothing of the open layer does, whichever way the layers
// were given: the box keeps its facing, or is turned round when it came turned inwards and the open
// layer outwards.
TEST(OuterLayer, KeepsTheLayerThatClosesOverTheOther) {
  const Facets s = doubledbox(0.01f);
  // The situation: two layers that cross, the second open, no count of crossings bounding a solid.
  const wf::FacetMesh m = meshof(s);
  ASSERT_FALSE(wf::crossingpairs(m.points, m.facets).empty());
  ASSERT_FALSE(wft::judge(s).closed);
  ASSERT_NEAR(wft::signedvolume(s), 0.0, 5.0);

  Facets inwards = s;
  for (size_t t = 0; t < s.size() / 9; ++t)
    std::swap_ranges(&inwards[9 * t + 3], &inwards[9 * t + 6], &inwards[9 * t + 6]);
  for (bool turned : {false, true}) {
    SCOPED_TRACE(turned);
    const wf::FacetMesh mesh = meshof(turned ? inwards : s);
    const wf::SideTable edges = wf::buildsidetable(mesh);
    std::vector<int32_t> piece;
    const wf::OuterLayer layer = wf::outerlayer(mesh, edges, piece, wf::pieces(mesh, edges, piece));
    for (size_t f = 0; f < mesh.facets.size(); ++f) {
      EXPECT_EQ(layer.kept[f] != 0, f < 12) << f;
      EXPECT_EQ(layer.kept[f] && layer.turned[f], turned && f < 12) << f;
    }
    EXPECT_EQ(layer.disagreements, 0);
  }

  // The repair ends on the box: the open layer lies inside it or within reach of its faces.
  std::vector<float> xyz = s;
  const wf::SolidRepairReport r = wf::makesolid(xyz, false);
  ASSERT_TRUE(r.taken);
  const wft::Verdict v = wft::judge(xyz, &s);
  EXPECT_TRUE(v.printable()) << v.text();
  EXPECT_EQ(v.facets, 12u);
  EXPECT_NEAR(v.volume, 1000.0, 1e-3);
}

TEST(OuterLayer, AreaOutsideASolid) {
  // A 10 mm box in 4 x 4 cells a face, against solids that hold all of it, half of it, none.
  const wf::FacetMesh given = meshof(wft::boxpart(0, 0, 0, 10, 10, 10, 4));
  const double slack = 1e-3;
  EXPECT_EQ(wf::areaoutside(given, given, slack), 0.0);
  EXPECT_EQ(wf::areaoutside(given, meshof(wft::boxpart(-1, -1, -1, 12, 12, 12, 1)), slack), 0.0);
  // The lower half: the top and the upper halves of the four sides are outside.
  EXPECT_NEAR(wf::areaoutside(given, meshof(wft::boxpart(0, 0, 0, 10, 10, 5, 1)), slack), 300.0, 1e-6);
  EXPECT_NEAR(wf::areaoutside(given, meshof(wft::boxpart(50, 0, 0, 10, 10, 10, 1)), slack), 600.0, 1e-6);
  // Two overlapping shells hold what lies in either: where they overlap a count of crossings
  // would be even, the winding is not.
  const Facets two = wft::joined(wft::boxpart(0, 0, 0, 10, 10, 10, 1), wft::boxpart(5, 0, 0, 10, 10, 10, 1));
  EXPECT_EQ(wf::areaoutside(meshof(wft::boxpart(1, 1, 1, 13, 8, 8, 3)), meshof(two), slack), 0.0);
  // An empty solid holds nothing.
  EXPECT_NEAR(wf::areaoutside(given, wf::FacetMesh{}, slack), 600.0, 1e-6);
}

namespace {

// A 10 mm box, each face in 4 x 4 cells, without the facets that touch the ball of radius r round
// the point c (its corners within r).
Facets holedbox(const float c[3], float r) {
  const Facets s = wft::boxpart(0, 0, 0, 10, 10, 10, 4);
  Facets out;
  for (size_t t = 0; t < s.size() / 9; ++t) {
    bool near = false;
    for (int k = 0; k < 3; ++k) {
      const float *p = &s[9 * t + 3 * size_t(k)];
      near = near || std::hypot(p[0] - c[0], p[1] - c[1], p[2] - c[2]) < r;
    }
    if (!near) out.insert(out.end(), &s[9 * t], &s[9 * t + 9]);
  }
  return out;
}

bool hascorner(const Facets &s, const float c[3]) {
  for (size_t i = 0; i < s.size() / 3; ++i)
    if (s[3 * i] == c[0] && s[3 * i + 1] == c[1] && s[3 * i + 2] == c[2]) return true;
  return false;
}

}  // namespace

// A hole round a corner (three faces) and a hole round an edge with both its ends (four faces):
// the corners the hole took are made again where the faces' planes meet, so the box comes back
// whole, where a patch spanned by the rim alone would cut the corners off.
TEST(RimFill, HolesRoundCornersOfThePart) {
  const float corner[3] = {10, 10, 10}, edgemiddle[3] = {5, 10, 10}, otherend[3] = {0, 10, 10};
  struct Case {
    const char *name;
    Facets holed;
    size_t cornersgone;
  };
  const Case cases[] = {{"corner", holedbox(corner, 3.0f), 1}, {"edge and both ends", holedbox(edgemiddle, 6.0f), 2}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    // The situation: the box's corners are gone with the hole, and what is left is open.
    EXPECT_EQ(size_t(!hascorner(c.holed, corner)) + size_t(!hascorner(c.holed, otherend)), c.cornersgone);
    const wft::Verdict before = wft::judge(c.holed);
    ASSERT_FALSE(before.closed);
    ASSERT_LT(before.area, 600.0 - 10.0);
    std::vector<float> xyz = c.holed;
    const wf::SolidRepairReport r = wf::makesolid(xyz, false);
    ASSERT_TRUE(r.taken);
    const wft::Verdict v = wft::judge(xyz, &c.holed);
    EXPECT_TRUE(v.printable()) << v.text();
    EXPECT_EQ(v.shells, 1u);
    EXPECT_EQ(v.newhits, 0u);
    EXPECT_NEAR(v.volume, 1000.0, 1e-3) << v.text();
    EXPECT_NEAR(v.area, 600.0, 1e-3) << v.text();
    EXPECT_TRUE(hascorner(xyz, corner) && hascorner(xyz, otherend));
  }
}
