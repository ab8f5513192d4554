// SPDX-License-Identifier: GPL-3.0-or-later
// Holes whose rims run over several faces of a part, made in code: the patch has to make the
// faces whole again, corners included, and never lie twice over the surface.
#include <gtest/gtest.h>

#include <cmath>

#include "judge.h"
#include "repair/solidrepair.h"
#include "shapes.h"

namespace {

using Facets = wft::Facets;

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
