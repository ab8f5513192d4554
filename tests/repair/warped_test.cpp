// SPDX-License-Identifier: GPL-3.0-or-later
// The repair on what it exists for: a part with a defect, warped on the sample job's field with
// refinement that reaches the defect (*MAXE 5.0 *MINE 2.0), read back and repaired by a whole run
// with *TSRD *TSRE, and by the repair component as the client calls it. Each warped input first
// has to show the refinement's debris (edges on more than two facets); the results are judged by
// tests/judge (CGAL, no code shared with the repair) against the intact part warped alike.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "component.h"
#include "judge.h"

using wft::Damage;

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
