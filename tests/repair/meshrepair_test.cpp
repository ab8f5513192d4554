// SPDX-License-Identifier: GPL-2.0-or-later
// The mesh-repair component on its own: loading in every form, the error texts, the rules of
// soundness, the default and the extended repair, saving, and the isolation of a pass.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "control/messages.h"
#include "repair/isolate.h"
#include "repair/meshfix.h"
#include "repair/meshrepair.h"
#include "repair/stlfixtures.h"
#include "testutil.h"

using namespace wft;
using namespace wf;

namespace {

struct Component : ::testing::Test {
  MeshRepairContext *ctx = nullptr;
  std::string dir;
  void SetUp() override {
    ASSERT_EQ(meshrepair_initcontext(&ctx), 0);
    ASSERT_NE(ctx, nullptr);
    dir = tempdir("meshrepair");
  }
  void TearDown() override { meshrepair_freecontext(ctx); }
  std::string error() {
    char buf[256];
    meshrepair_lasterror(ctx, buf, sizeof buf);
    return buf;
  }
  MeshRepairMesh *load(const std::string &name) {
    return meshrepair_loadstl(ctx, (dir + "/" + name).c_str());
  }
  int sane(MeshRepairMesh *m) {
    int r = -1;
    EXPECT_EQ(meshrepair_issane(m, &r), 0);
    return r;
  }
  // Writes m, loads it and tells its soundness.
  int sanity(const Mesh &m) {
    writebinary(dir + "/s.stl", m);
    MeshRepairMesh *mesh = load("s.stl");
    EXPECT_NE(mesh, nullptr) << error();
    if (!mesh) return -1;
    int r = sane(mesh);
    meshrepair_free(mesh);
    return r;
  }
};

}  // namespace

TEST_F(Component, VersionAndContext) {
  EXPECT_EQ(meshrepair_getversion(), 2019);
  EXPECT_NE(meshrepair_initcontext(nullptr), 0);
}

TEST_F(Component, LoadsEveryForm) {
  Mesh c = cube();
  writebinary(dir + "/le.stl", c);
  writebinary(dir + "/be.stl", c, true);
  writeascii(dir + "/a.stl", c);
  writebinary(dir + "/tail.stl", c, false, 17);
  for (const char *name : {"le.stl", "be.stl", "a.stl", "tail.stl"}) {
    MeshRepairMesh *m = load(name);
    ASSERT_NE(m, nullptr) << name << ": " << error();
    EXPECT_EQ(meshrepair_facecount(m), 12) << name;
    EXPECT_EQ(sane(m), 1) << name;
    meshrepair_free(m);
  }
}

TEST_F(Component, ErrorTexts) {
  EXPECT_EQ(load("missing.stl"), nullptr);
  EXPECT_NE(error().find("cannot open STL file"), std::string::npos) << error();
  EXPECT_NE(error().find("missing.stl"), std::string::npos) << error();
  EXPECT_NE(error().find("No such file"), std::string::npos) << error();

  writefile(dir + "/garbage.stl", std::string(500, '\x07') + "no mesh in here\0\1\2");
  EXPECT_EQ(load("garbage.stl"), nullptr);
  EXPECT_NE(error().find("is not an STL file"), std::string::npos) << error();

  writefile(dir + "/text.stl", "this is\njust some text\n");
  EXPECT_EQ(load("text.stl"), nullptr);
  EXPECT_NE(error().find("is not an STL file"), std::string::npos) << error();

  writebinary(dir + "/empty.stl", Mesh());
  EXPECT_EQ(load("empty.stl"), nullptr);
  EXPECT_NE(error().find("empty mesh"), std::string::npos) << error();
  writefile(dir + "/emptya.stl", "solid nothing\nendsolid nothing\n");
  EXPECT_EQ(load("emptya.stl"), nullptr);
  EXPECT_NE(error().find("empty mesh"), std::string::npos) << error();

  Mesh c = cube();
  c[3].c[4] = std::nanf("");
  writebinary(dir + "/nan.stl", c);
  EXPECT_EQ(load("nan.stl"), nullptr);
  EXPECT_NE(error().find("not a finite number (facet 4)"), std::string::npos) << error();

  EXPECT_EQ(meshrepair_loadstl(ctx, ""), nullptr);
  EXPECT_NE(error().find("no STL file name"), std::string::npos) << error();

  writebinary(dir + "/c.stl", cube());
  MeshRepairMesh *m = load("c.stl");
  ASSERT_NE(m, nullptr);
  EXPECT_NE(meshrepair_savestl(m, (dir + "/no/such/folder/x.stl").c_str(), 0), 0);
  EXPECT_NE(error().find("cannot write STL file"), std::string::npos) << error();
  EXPECT_NE(meshrepair_savestl(m, (dir + "/x.stl").c_str(), 1), 0);
  EXPECT_NE(error().find("unknown STL save form 1"), std::string::npos) << error();
  EXPECT_NE(meshrepair_defaultrepair(m, 0.0f), 0);
  EXPECT_NE(error().find("invalid repair tolerance"), std::string::npos) << error();
  EXPECT_NE(meshrepair_extendedrepair(m, -1.0f), 0);
  EXPECT_NE(error().find("invalid repair tolerance -1"), std::string::npos) << error();
  meshrepair_free(m);

  // A short buffer gets a cut, terminated text.
  char small[8];
  meshrepair_lasterror(ctx, small, sizeof small);
  EXPECT_EQ(std::string(small), error().substr(0, 7));
}

TEST_F(Component, SoundnessRules) {
  EXPECT_EQ(sanity(cube()), 1);
  Mesh open = cube();
  open.pop_back();
  EXPECT_EQ(sanity(open), 0) << "an open edge";
  Mesh turned = cube();
  flip(turned[5]);
  EXPECT_EQ(sanity(turned), 0) << "a facet running backwards";
  Mesh degenerate = cube();
  degenerate.push_back(Tri{{0, 0, 0, 0, 0, 0, 10, 10, 10}});
  EXPECT_EQ(sanity(degenerate), 0) << "two equal corners";
  Mesh third = cube();
  third.push_back(third[0]);
  EXPECT_EQ(sanity(third), 0) << "an edge with three facets";
  EXPECT_EQ(sanity(Mesh{Tri{{0, 0, 0, 1, 0, 0, 0, 1, 0}}}), 0) << "a lone triangle";
  EXPECT_EQ(sanity(mobius()), 0);
  // -0 and +0 are the same corner.
  Mesh signedzero = cube();
  for (Tri &t : signedzero)
    if (t.c[3] == 0) t.c[3] = -0.0f;  // x of the second corner
  EXPECT_EQ(sanity(signedzero), 1);
  // Two closed parts are sound together.
  Mesh two = cube();
  Mesh other = box(20, 0, 0, 5, 5, 5);
  two.insert(two.end(), other.begin(), other.end());
  EXPECT_EQ(sanity(two), 1);
  // Two parts that meet along one edge: four facets there, which admesh would pair up.
  Mesh touching = cube();
  Mesh diagonal = box(10, 10, 0, 10, 10, 10);
  touching.insert(touching.end(), diagonal.begin(), diagonal.end());
  EXPECT_EQ(sanity(touching), 0);
}

TEST_F(Component, DefaultRepairMendsCommonFaults) {
  struct Case {
    const char *what;
    Mesh mesh;
  };
  std::vector<Case> cases;
  Mesh open = cube();
  open.erase(open.begin() + 2, open.begin() + 4);  // the whole top
  cases.push_back({"missing top", open});
  Mesh gap = cube();
  gap[2].c[0] += 0.004f;  // one corner off by less than the tolerance
  cases.push_back({"near corner", gap});
  Mesh turned = cube();
  flip(turned[7]);
  cases.push_back({"turned facet", turned});
  Mesh inside = cube();
  for (Tri &t : inside) flip(t);
  cases.push_back({"inside out", inside});
  Mesh extra = cube();
  extra.push_back(Tri{{0, 0, 0, 0, 0, 0, 10, 10, 10}});
  extra.push_back(Tri{{50, 50, 50, 51, 50, 50, 50, 51, 50}});
  cases.push_back({"degenerate and stray facets", extra});

  for (const Case &c : cases) {
    writebinary(dir + "/in.stl", c.mesh);
    MeshRepairMesh *m = load("in.stl");
    ASSERT_NE(m, nullptr) << c.what;
    EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << c.what << ": " << error();
    EXPECT_EQ(sane(m), 1) << c.what;
    EXPECT_EQ(meshrepair_facecount(m), 12) << c.what;
    ASSERT_EQ(meshrepair_savestl(m, (dir + "/out.stl").c_str(), 0), 0) << error();
    meshrepair_free(m);
    Mesh out = readbinary(dir + "/out.stl");
    EXPECT_EQ(out.size(), 12u) << c.what;
    EXPECT_NEAR(volume(out), 1000.0, 1.0) << c.what << ": outward and closed";
    AdmeshSummary s = admeshcheck(dir + "/out.stl");
    EXPECT_TRUE(s.sound()) << c.what << ": facets " << s.facets << " disconnected "
                           << s.disconnected << " backwards " << s.backwards;
  }
}

TEST_F(Component, GapBeyondToleranceIsClosedByFilling) {
  Mesh gap = cube();
  for (int i = 2; i <= 3; ++i)
    for (int k = 0; k < 3; ++k) gap[i].c[3 * k] += 0.5f;  // the top slid sideways
  writebinary(dir + "/in.stl", gap);
  MeshRepairMesh *m = load("in.stl");
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(sane(m), 0);
  EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << error();
  EXPECT_EQ(sane(m), 1);
  EXPECT_GT(meshrepair_facecount(m), 12);
  meshrepair_free(m);
}

TEST_F(Component, ExtendedRepairGoesFurther) {
  writebinary(dir + "/strip.stl", mobius());
  MeshRepairMesh *m = load("strip.stl");
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << error();
  EXPECT_EQ(sane(m), 0) << "the default repair cannot orient a twisted strip";
  EXPECT_EQ(meshrepair_extendedrepair(m, 0.01f), 0) << error();
  EXPECT_EQ(sane(m), 1);
  ASSERT_EQ(meshrepair_savestl(m, (dir + "/out.stl").c_str(), 0), 0);
  meshrepair_free(m);
  EXPECT_TRUE(admeshcheck(dir + "/out.stl").sound());
}

TEST_F(Component, LoneTrianglesCannotBeRepaired) {
  Mesh stray{Tri{{0, 0, 0, 1, 0, 0, 0, 1, 0}}, Tri{{5, 5, 5, 6, 5, 5, 5, 6, 5}}};
  writebinary(dir + "/stray.stl", stray);
  MeshRepairMesh *m = load("stray.stl");
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << error();
  EXPECT_EQ(meshrepair_facecount(m), 0);
  EXPECT_EQ(sane(m), 0);
  EXPECT_NE(meshrepair_extendedrepair(m, 0.01f), 0);
  EXPECT_NE(error().find("empty mesh"), std::string::npos) << error();
  EXPECT_NE(meshrepair_savestl(m, (dir + "/out.stl").c_str(), 0), 0);
  EXPECT_NE(error().find("empty mesh"), std::string::npos) << error();
  EXPECT_FALSE(fileexists(dir + "/out.stl"));
  meshrepair_free(m);
}

TEST(MeshFix, HolesAreFilledAgainstTheBoundary) {
  // A cube without two neighbouring sides: one hole of six edges.
  Mesh open = cube(2.0f);
  open.erase(open.begin() + 4, open.begin() + 8);
  std::vector<float> xyz;
  for (const Tri &t : open) xyz.insert(xyz.end(), t.c.begin(), t.c.end());
  stl_file stl;
  ASSERT_TRUE(meshfix::loadfacets(stl, xyz.data(), int64_t(open.size())));
  EXPECT_EQ(meshfix::fillholes(stl), 4);  // a fan over six corners
  meshfix::takefacets(stl, xyz);
  meshfix::freestl(stl);
  meshfix::Soundness s;
  ASSERT_TRUE(meshfix::soundness(xyz.data(), int64_t(xyz.size() / 9), s));
  EXPECT_EQ(s.facets, 12);
  EXPECT_TRUE(s.sound()) << s.connected3 << " " << s.backwards << " " << s.degenerate;
}

TEST(MeshFix, HoleWhoseDiagonalsExistIsClosedRoundACentre) {
  // A flat quad A B C D split along A-C, and a closed tetrahedron on B-D: either diagonal of
  // the hole would give an edge three facets.
  const float A[3] = {0, 0, 0}, B[3] = {4, 0, 0}, C[3] = {4, 4, 0}, D[3] = {0, 4, 0};
  const float E[3] = {2, 2, 3}, F[3] = {3, 3, 5};
  auto tri = [](const float *a, const float *b, const float *c) {
    return Tri{{a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]}};
  };
  Mesh m = {tri(A, B, C), tri(A, C, D), tri(B, D, E), tri(B, E, F), tri(D, F, E), tri(B, F, D)};
  std::vector<float> xyz;
  for (const Tri &t : m) xyz.insert(xyz.end(), t.c.begin(), t.c.end());
  stl_file stl;
  ASSERT_TRUE(meshfix::loadfacets(stl, xyz.data(), int64_t(m.size())));
  EXPECT_EQ(meshfix::fillholes(stl), 4);
  meshfix::takefacets(stl, xyz);
  meshfix::freestl(stl);
  meshfix::Soundness s;
  ASSERT_TRUE(meshfix::soundness(xyz.data(), int64_t(xyz.size() / 9), s));
  EXPECT_EQ(s.overloaded, 0);
  EXPECT_TRUE(s.sound()) << s.connected3 << " " << s.backwards << " " << s.degenerate;
  // The new corner is the centre of the quad.
  bool centre = false;
  for (size_t k = 0; k + 2 < xyz.size(); k += 3)
    if (xyz[k] == 2 && xyz[k + 1] == 2 && xyz[k + 2] == 0) centre = true;
  EXPECT_TRUE(centre);
}

namespace {
void loopforever(stl_file &, float) {
  for (;;) pause();
}
void crash(stl_file &, float) { std::abort(); }
void dropall(stl_file &stl, float) { stl.stats.number_of_facets = 0; }
}  // namespace

TEST(Isolation, TimeCrashAndResult) {
  std::vector<float> xyz;
  for (const Tri &t : cube()) xyz.insert(xyz.end(), t.c.begin(), t.c.end());
  const std::vector<float> before = xyz;
  std::string error;
  EXPECT_EQ(runisolated(xyz, loopforever, 0.01f, error, 0.5), MESHREPAIR_EREPAIR);
  EXPECT_NE(error.find("did not finish within 0.5 s"), std::string::npos) << error;
  EXPECT_EQ(xyz, before);
  EXPECT_EQ(runisolated(xyz, crash, 0.01f, error), MESHREPAIR_EREPAIR);
  EXPECT_NE(error.find("signal " + std::to_string(SIGABRT)), std::string::npos) << error;
  EXPECT_EQ(xyz, before);
  EXPECT_EQ(runisolated(xyz, dropall, 0.01f, error), 0) << error;
  EXPECT_TRUE(xyz.empty());
}
