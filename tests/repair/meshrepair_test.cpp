// SPDX-License-Identifier: GPL-2.0-or-later
// The mesh-repair component on its own: loading in every form, the rules of soundness, the error
// texts, the default repair with saving, and the isolation of a pass (the extended repair and
// the statuses through the repair client are in repairclient_test.cpp).
#include "repair/meshrepair.h"

#include <csignal>
#include <cstdlib>

#include "repair/isolate.h"
#include "repair/stlfixtures.h"

using namespace wft;
using namespace wf;

namespace {

struct Component : InFolderTest {
  MeshRepairContext *ctx = nullptr;
  void SetUp() override {
    InFolderTest::SetUp();
    ASSERT_EQ(meshrepair_initcontext(&ctx), 0);
  }
  void TearDown() override {
    meshrepair_freecontext(ctx);
    InFolderTest::TearDown();
  }
  std::string error() {
    char buf[256];
    meshrepair_lasterror(ctx, buf, sizeof buf);
    return buf;
  }
  MeshRepairMesh *load(const std::string &name, const std::string &bytes) {
    writefile(name, bytes);
    return meshrepair_loadstl(ctx, name.c_str());
  }
  int sane(MeshRepairMesh *m) {
    int r = -1;
    EXPECT_EQ(meshrepair_issane(m, &r), 0);
    return r;
  }
};

}  // namespace

TEST_F(Component, LoadingSoundnessAndErrorTexts) {
  const struct {
    const char *what;  // for a file that is refused (faces 0): part of the error text
    std::string bytes;
    int faces, sane;
  } cases[] = {
      {"closed", stlbytes(cube()), 12, 1},
      {"big-endian", stlbytes(cube(), true), 12, 1},
      {"ASCII", asciibytes(cube()), 12, 1},
      {"bytes after the facets", stlbytes(cube()) + std::string(17, '\0'), 12, 1},
      {"open edge", stlbytes(opencube()), 11, 0},
      {"a facet backwards", stlbytes(edited(cube(), [](Mesh &m) { flip(m[5]); })), 12, 0},
      {"two equal corners", stlbytes(join(cube(), {Tri{{0, 0, 0, 0, 0, 0, 10, 10, 10}}})), 13, 0},
      {"an edge with three facets", stlbytes(join(cube(), {cube()[0]})), 13, 0},
      {"twisted strip", stlbytes(mobius()), 24, 0},
      {"-0 and +0 are one corner",
       stlbytes(edited(cube(),
                       [](Mesh &m) {
                         for (Tri &t : m) t.c[3] = t.c[3] == 0 ? -0.0f : t.c[3];
                       })),
       12, 1},
      {"two closed parts", stlbytes(join(cube(), box(20, 0, 0, 5, 5, 5))), 24, 1},
      {"parts meeting along an edge", stlbytes(join(cube(), box(10, 10, 0, 10, 10, 10))), 24, 0},
      {"'s.stl' is not an STL file", "this is\njust some text\n", 0, 0},
      {"empty mesh", stlbytes({}), 0, 0},
      {"empty mesh", "solid nothing\nendsolid nothing\n", 0, 0},
      {"not a finite number (facet 4)",
       stlbytes(edited(cube(), [](Mesh &m) { m[3].c[4] = std::nanf(""); })), 0, 0},
  };
  for (const auto &c : cases) {
    MeshRepairMesh *m = load("s.stl", c.bytes);
    if (c.faces == 0) {
      EXPECT_EQ(m, nullptr);
      EXPECT_TRUE(contains(error(), c.what)) << error();
      continue;
    }
    ASSERT_NE(m, nullptr) << c.what << ": " << error();
    EXPECT_EQ(meshrepair_facecount(m), c.faces) << c.what;
    EXPECT_EQ(sane(m), c.sane) << c.what;
    meshrepair_free(m);
  }
  EXPECT_NE(meshrepair_initcontext(nullptr), 0);
  EXPECT_EQ(meshrepair_loadstl(ctx, ""), nullptr);
  EXPECT_EQ(error(), "no STL file name given");
  MeshRepairMesh *m = load("c.stl", stlbytes(cube()));
  EXPECT_NE(meshrepair_defaultrepair(m, 0.0f), 0);
  EXPECT_TRUE(contains(error(), "invalid repair tolerance 0")) << error();
  EXPECT_NE(meshrepair_extendedrepair(m, -1.0f), 0);
  EXPECT_TRUE(contains(error(), "invalid repair tolerance -1")) << error();
  meshrepair_free(m);
  // A short buffer gets a cut, terminated text.
  char small[8];
  meshrepair_lasterror(ctx, small, sizeof small);
  EXPECT_EQ(std::string(small), error().substr(0, 7));
}

TEST_F(Component, DefaultRepairMendsCommonFaults) {
  // A flat quad A B C D split along A-C with a closed tetrahedron on B-D: either diagonal of the
  // hole would give an edge three facets, so it can only be closed round a new corner.
  const float A[3] = {0, 0, 0}, B[3] = {4, 0, 0}, C[3] = {4, 4, 0}, D[3] = {0, 4, 0};
  const float E[3] = {2, 2, 3}, F[3] = {3, 3, 5};
  auto tri = [](const float *a, const float *b, const float *c) {
    return Tri{{a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]}};
  };
  auto slide = [](Mesh &m) {
    for (int k = 0; k < 9; k += 3) m[2].c[k] += 0.5f, m[3].c[k] += 0.5f;
  };
  const struct {
    const char *what;
    Mesh mesh;
    bool filled;  // closed by new facets rather than by merging corners
  } cases[] = {
      {"missing top", edited(cube(), [](Mesh &m) { m.erase(m.begin() + 2, m.begin() + 4); }), 0},
      {"corner off within tolerance", edited(cube(), [](Mesh &m) { m[2].c[0] += 0.004f; }), 0},
      {"turned facet", edited(cube(), [](Mesh &m) { flip(m[7]); }), 0},
      {"inside out",
       edited(cube(),
              [](Mesh &m) {
                for (Tri &t : m) flip(t);
              }),
       0},
      {"degenerate and stray facets",
       join(cube(), {Tri{{0, 0, 0, 0, 0, 0, 10, 10, 10}}, lonetriangles()[1]}), 0},
      {"top slid beyond tolerance", edited(cube(), slide), 1},
      {"hole whose diagonals exist",
       {tri(A, B, C), tri(A, C, D), tri(B, D, E), tri(B, E, F), tri(D, F, E), tri(B, F, D)},
       1},
  };
  for (const auto &c : cases) {
    MeshRepairMesh *m = load("in.stl", stlbytes(c.mesh));
    ASSERT_NE(m, nullptr) << c.what;
    EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << c.what << ": " << error();
    EXPECT_EQ(sane(m), 1) << c.what;
    ASSERT_EQ(meshrepair_savestl(m, "out.stl", 0), 0) << error();
    meshrepair_free(m);
    const Mesh out = readbinary("out.stl");
    if (c.filled) {
      EXPECT_GT(out.size(), c.mesh.size()) << c.what;
    } else {
      EXPECT_EQ(out.size(), 12u) << c.what;
      EXPECT_NEAR(volume(out), 1000.0, 1.0) << c.what << ": outward and closed";
    }
    EXPECT_EQ(admeshfaults(dir + "/out.stl"), "") << c.what;
  }
}

TEST(Isolation, TimeCrashAndResult) {
  std::vector<float> xyz;
  for (const Tri &t : cube()) xyz.insert(xyz.end(), t.c.begin(), t.c.end());
  const std::vector<float> before = xyz;
  std::string error;
  auto loopforever = [](stl_file &, float) {
    for (;;) pause();
  };
  auto crash = [](stl_file &, float) { std::abort(); };
  auto dropall = [](stl_file &stl, float) { stl.stats.number_of_facets = 0; };
  EXPECT_EQ(runisolated(xyz, loopforever, 0.01f, error, 0.5), MESHREPAIR_EREPAIR);
  EXPECT_TRUE(contains(error, "did not finish within 0.5 s")) << error;
  EXPECT_EQ(xyz, before);
  EXPECT_EQ(runisolated(xyz, crash, 0.01f, error), MESHREPAIR_EREPAIR);
  EXPECT_TRUE(contains(error, "signal " + std::to_string(SIGABRT))) << error;
  EXPECT_EQ(xyz, before);
  EXPECT_EQ(runisolated(xyz, dropall, 0.01f, error), 0) << error;
  EXPECT_TRUE(xyz.empty());
}
