// SPDX-License-Identifier: GPL-3.0-or-later
// Repair of broken surfaces, through the repair component as the run calls it (file in, default or
// extended repair, soundness, file out) and through whole runs, judged by tests/judge (CGAL, no
// code shared with the repair): a printable solid, volume and area against the intact part.
// Surfaces made in code, and parts with a defect warped on the sample job's field with
// refinement that reaches the defect (*MAXE 5.0 *MINE 2.0), read back and repaired with *TSRD
// *TSRE: each warped input first has to show the refinement's debris (edges on more than two
// facets), and is judged against the intact part warped alike.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "component.h"
#include "judge.h"

using wft::Damage;
using wft::Facets;
using wft::Repaired;

namespace {

Facets box(float L, int n, float x0 = 0) { return wft::boxpart(x0, 0, 0, L, L, L, n); }

void flip(Facets &s, size_t t) { std::swap_ranges(&s[9 * t + 3], &s[9 * t + 6], &s[9 * t + 6]); }

Repaired repair(const Facets &s, bool extended, float tolerance = 0.01f) {
  return wft::repaircomponent(s, extended, tolerance);
}

// Called sound, and a printable solid to the judge (every edge on two facets running opposite
// ways, no crossing) of the given volume.
void expectsolid(const Repaired &r, double volume, double tolerance = 1e-6) {
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.saneafter, 1);
  const wft::Verdict v = wft::judge(r.facets);
  EXPECT_TRUE(v.printable()) << v.text();
  EXPECT_NEAR(v.volume, volume, tolerance * volume) << v.text();
}

// The repaired part against the intact one: a printable solid, the volume within 1%, the area 3%.
void expectintact(const Repaired &r, const Facets &intact) {
  expectsolid(r, wft::signedvolume(intact), 0.01);
  EXPECT_NEAR(wft::facetarea(r.facets), wft::facetarea(intact), 0.03 * wft::facetarea(intact));
}

}  // namespace

// The usual faults of a warped surface, each repaired by the default repair into the part. (Holes
// alone: the regression job tsrd_repair records the repaired file.)
TEST(Repair, DefaultRepairRestoresThePart) {
  const Facets intact = box(10, 8);
  const auto restored = [&](const char *what, const std::function<void(Facets &)> &hurt) {
    SCOPED_TRACE(what);
    Facets s = intact;
    hurt(s);
    const Repaired r = repair(s, false);
    expectintact(r, intact);
    return r;
  };
  std::mt19937 rng(5);
  restored("reversed facets and an inside-out rim round a hole", [&](Facets &s) {
    for (int k = 0; k < 25; ++k) flip(s, rng() % (s.size() / 9));
    s.erase(s.begin() + 9 * 200, s.begin() + 9 * 201);
    for (size_t t : {198u, 199u, 201u, 202u}) flip(s, t);
  });
  restored("duplicated facets, a flipped copy, zero-area slivers", [](Facets &s) {
    s.insert(s.end(), s.begin() + 9 * 10, s.begin() + 9 * 12);
    Facets copy(s.begin() + 9 * 50, s.begin() + 9 * 51);
    flip(copy, 0);
    s.insert(s.end(), copy.begin(), copy.end());
    const float *p = &s[0];  // a sliver on an edge of the first facet: three collinear corners
    s.insert(s.end(),
             {p[0], p[1], p[2], p[3], p[4], p[5], 0.5f * (p[0] + p[3]), 0.5f * (p[1] + p[4]), 0.5f * (p[2] + p[5])});
  });
  restored("a fin standing on an edge of the surface", [](Facets &s) {
    const float *p = &s[0];
    s.insert(s.end(), {p[0], p[1], p[2], p[3], p[4], p[5], p[0], p[1], p[2] - 3.0f});
  });
  restored("a crack narrower than the tolerance", [](Facets &s) {
    for (size_t k = 0; k < 9 * 128; k += 3)  // the first face (z = 0) lowered a hair
      if (s[k + 2] == 0.0f) s[k + 2] = -0.004f;
  });
  const Repaired r = restored("the whole part inside out", [](Facets &s) {
    for (size_t t = 0; t < s.size() / 9; ++t) flip(s, t);
  });
  EXPECT_EQ(r.sanebefore, 0);
}

// Separate parts stay separate shells, each facing outwards. Parts that touch along a face with
// the same facets there become one part (the facets between them go); parts that overlap are no
// solid for the default repair, which says so, and the extended repair unites them.
TEST(Repair, SeparateOverlappingAndTouchingParts) {
  Facets two = wft::joined(box(10, 4), box(5, 4, 20));
  for (size_t t = two.size() / 18; t < two.size() / 9; ++t) flip(two, t);  // the second part (half) inside out
  expectsolid(repair(two, false), 1000.0 + 125.0);

  const Facets touching = wft::joined(box(10, 4), box(10, 4, 10.0f));
  const Repaired t = repair(touching, false);
  EXPECT_EQ(t.sanebefore, 0);
  expectsolid(t, 2000.0);
  EXPECT_EQ(t.facets.size(), touching.size() - 2 * 9 * 32);  // the two faces between them are gone

  // Touching along a face tessellated differently on the two sides: a union of the parts.
  expectsolid(repair(wft::joined(box(10, 4), box(10, 3, 10.0f)), true), 2000.0);

  const Facets overlapping = wft::joined(box(10, 4), box(10, 4, 4.25f));  // no corner in common
  EXPECT_EQ(repair(overlapping, false).saneafter, 0);                     // not called sound by the default repair
  expectsolid(repair(overlapping, true), 2000.0 - 575.0);
}

namespace {

const std::string refine = "*MAXE\n5.0\n*MINE\n2.0\n";

struct Part : wft::NamedPart {
  double volume = 0;  // of the intact part warped alike (united, for the bridge)
  double area = 0;    // of the intact part warped alike (none for the bridge: its boxes overlap)
};

// The sample field once for all cases, and the parts warped intact.
class WarpedRepair : public ::testing::Test {
 protected:
  static std::string dir;
  static std::vector<Part> parts;
  static void SetUpTestSuite() {
    dir = wft::samplefield("warpedrepair");
    for (const wft::NamedPart &n : wft::repairparts(dir)) parts.push_back({n});
    for (Part &p : parts) {
      const wft::WarpRun w = wft::warpsurface(dir, p.facets, refine);
      // The bridge's two boxes overlap: its volume is their union's, which the warp changes by
      // far less than the tolerance.
      p.volume = p.name == "bridge" ? wft::bridgevolume() : wft::signedvolume(w.warped);
      p.area = p.name == "bridge" ? 0.0 : wft::facetarea(w.warped);
    }
  }
};
std::string WarpedRepair::dir;
std::vector<Part> WarpedRepair::parts;

}  // namespace

TEST_F(WarpedRepair, DamagedPartsComeOutPrintable) {
  for (const Part &p : parts)
    for (Damage d :
         {Damage::onefacet, Damage::twofacets, Damage::side, Damage::sliver, Damage::fin, Damage::reversedcopy}) {
      SCOPED_TRACE(p.name + ": " + wft::damagename(d));
      // The first facet from the fifth on whose damage the refinement reaches.
      wft::WarpRun w;
      size_t overloaded = 0;
      for (size_t at = 5; at < 40 && overloaded == 0; ++at) {
        w = wft::warpsurface(dir, wft::damage(p.facets, d, at), refine + "*TSRD\n*TSRE\n");
        overloaded = wft::overloadededges(w.warped);
      }
      ASSERT_GT(overloaded, 0u) << "the warped surface has no debris";
      EXPECT_EQ(w.status, 0);
      EXPECT_TRUE(wft::contains(w.console, "Starting Tessero default repair..."));
      ASSERT_TRUE(w.repairedwritten) << w.console;
      EXPECT_TRUE(wft::contains(w.console, "Finished repair\n"));
      // The whole run's result, and the component's on the same warped surface as the client
      // calls it: both judged against the intact part.
      const wft::Repaired component = wft::repaircomponent(w.warped, true);
      EXPECT_EQ(component.saneafter, 1);
      for (const std::vector<float> *result : {&std::as_const(w.repaired), &component.facets}) {
        const wft::Verdict v = wft::judge(*result, &w.warped);
        EXPECT_TRUE(v.printable()) << v.text();
        EXPECT_EQ(v.shells, 1u) << v.text();
        EXPECT_EQ(v.newhits, 0u) << v.text();
        EXPECT_NEAR(v.volume, p.volume, 0.01 * p.volume) << v.text();
        // A patch laid over a face that is still there (a flat double layer) keeps the volume
        // but not the area.
        if (p.area > 0) {
          EXPECT_NEAR(v.area, p.area, 0.01 * p.area) << v.text();
        }
      }
    }
}

// A surface that bounds no solid (a hundred scattered facets) is refused.
TEST(RepairRefuses, ScatteredFacets) {
  const wft::Facets s = wft::scatteredfacets(100, 11);
  ASSERT_EQ(wft::judge(s).shells, 100u);
  EXPECT_EQ(wft::repaircomponent(s, true).saneafter, 0);
}
