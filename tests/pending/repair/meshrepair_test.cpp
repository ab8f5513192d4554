// SPDX-License-Identifier: GPL-2.0-or-later
// The mesh-repair component on its own: loading, the rules of soundness, the error texts, the
// default repair with saving, and the isolation of a pass (the extended repair, the open cube
// and the load and save failures are in repairclient_test.cpp, through the client).
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
  MeshRepairMesh *load(const std::string &bytes) {
    writefile("s.stl", bytes);
    return meshrepair_loadstl(ctx, "s.stl");
  }
  int sane(MeshRepairMesh *m) {
    int r = -1;
    EXPECT_EQ(meshrepair_issane(m, &r), 0);
    return r;
  }
};

}  // namespace

TEST_F(Component, LoadingSoundnessDefaultRepairAndErrorTexts) {
  // A flat quad A B C D split along A-C with a closed tetrahedron B D E F on B-D: either
  // diagonal of the hole would give an edge three facets, so only a new corner can close it.
  const Mesh wedged = {Tri{{0, 0, 0, 4, 0, 0, 4, 4, 0}}, Tri{{0, 0, 0, 4, 4, 0, 0, 4, 0}},
                       Tri{{4, 0, 0, 0, 4, 0, 2, 2, 3}}, Tri{{4, 0, 0, 2, 2, 3, 3, 3, 5}},
                       Tri{{0, 4, 0, 3, 3, 5, 2, 2, 3}}, Tri{{4, 0, 0, 3, 3, 5, 0, 4, 0}}};
  auto slide = [](Mesh &m) {
    for (int k = 0; k < 9; k += 3) m[2].c[k] += 0.5f, m[3].c[k] += 0.5f;
  };
  enum { CUBE = 1, FILLED };  // mended: back to the closed, outward cube, or by new facets
  const struct {
    const char *what;  // for a file that is refused (faces 0): part of the error text
    std::string bytes;
    int faces, sane;
    int mended = 0;  // by the default repair; 0: not tried
  } cases[] = {
      {"big-endian", stlbytes(cube(), true), 12, 1},
      {"ASCII", asciibytes(cube()), 12, 1},
      {"bytes after the facets", stlbytes(cube()) + std::string(17, '\0'), 12, 1},
      {"a facet backwards", stlbytes(edited(cube(), [](Mesh &m) { flip(m[5]); })), 12, 0, CUBE},
      {"two equal corners", stlbytes(join(cube(), {Tri{{0, 0, 0, 0, 0, 0, 10, 10, 10}}})), 13, 0,
       CUBE},
      {"a stray facet", stlbytes(join(cube(), {Tri{{5, 5, 5, 6, 5, 5, 5, 6, 5}}})), 13, 0, CUBE},
      {"an edge with three facets", stlbytes(join(cube(), {cube()[0]})), 13, 0},
      {"-0 and +0 are one corner",
       stlbytes(edited(cube(),
                       [](Mesh &m) {
                         for (Tri &t : m) t.c[3] = t.c[3] == 0 ? -0.0f : t.c[3];
                       })),
       12, 1},
      {"inside out",
       stlbytes(edited(cube(),
                       [](Mesh &m) {
                         for (Tri &t : m) flip(t);
                       })),
       12, 1, CUBE},
      {"two closed parts", stlbytes(join(cube(), box(20, 0, 0, 5, 5, 5))), 24, 1},
      {"parts meeting along an edge", stlbytes(join(cube(), box(10, 10, 0, 10, 10, 10))), 24, 0},
      {"missing top",
       stlbytes(edited(cube(), [](Mesh &m) { m.erase(m.begin() + 2, m.begin() + 4); })), 10, 0,
       CUBE},
      {"corner off within tolerance",
       stlbytes(edited(cube(), [](Mesh &m) { m[2].c[0] += 0.004f; })), 12, 0, CUBE},
      {"top slid beyond tolerance", stlbytes(edited(cube(), slide)), 12, 0, FILLED},
      {"hole whose diagonals exist", stlbytes(wedged), 6, 0, FILLED},
      {"'s.stl' is not an STL file", "this is\njust some text\n", 0, 0},
      {"'s.stl' is not an STL file", std::string(300, '\x01'), 0, 0},  // too short for its count
      {"empty mesh", stlbytes({}), 0, 0},
      {"empty mesh", "solid nothing\nendsolid nothing\n", 0, 0},
      {"not a finite number (facet 4)",
       stlbytes(edited(cube(), [](Mesh &m) { m[3].c[4] = std::nanf(""); })), 0, 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    MeshRepairMesh *m = load(c.bytes);
    if (c.faces == 0) {
      EXPECT_EQ(m, nullptr);
      EXPECT_TRUE(contains(error(), c.what)) << error();
      continue;
    }
    ASSERT_NE(m, nullptr) << error();
    EXPECT_EQ(meshrepair_facecount(m), c.faces);
    EXPECT_EQ(sane(m), c.sane);
    if (c.mended) {
      EXPECT_EQ(meshrepair_defaultrepair(m, 0.01f), 0) << error();
      EXPECT_EQ(sane(m), 1);
      ASSERT_EQ(meshrepair_savestl(m, "out.stl", 0), 0) << error();
      const Mesh out = readbinary("out.stl");
      if (c.mended == FILLED) {
        EXPECT_GT(out.size(), size_t(c.faces));
      } else {
        EXPECT_EQ(out.size(), 12u);
        EXPECT_NEAR(volume(out), 1000.0, 1.0) << "outward and closed";
      }
      EXPECT_EQ(admeshfaults(dir + "/out.stl"), "");
    }
    meshrepair_free(m);
  }
  EXPECT_NE(meshrepair_initcontext(nullptr), 0);
  EXPECT_EQ(meshrepair_loadstl(ctx, ""), nullptr);
  EXPECT_EQ(error(), "no STL file name given");
  MeshRepairMesh *m = load(stlbytes(cube()));
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

TEST(Isolation, TimeCrashAndResult) {
  std::vector<float> xyz;
  for (const Tri &t : cube()) xyz.insert(xyz.end(), t.c.begin(), t.c.end());
  const std::vector<float> before = xyz;
  std::string error;
  auto loopforever = [](stl_file &, float) {
    for (;;) pause();
  };
  auto crash = [](stl_file &, float) { std::abort(); };
  EXPECT_EQ(runisolated(xyz, loopforever, 0.01f, error, 0.5), MESHREPAIR_EREPAIR);
  EXPECT_TRUE(contains(error, "did not finish within 0.5 s")) << error;
  EXPECT_EQ(xyz, before);
  EXPECT_EQ(runisolated(xyz, crash, 0.01f, error), MESHREPAIR_EREPAIR);
  EXPECT_TRUE(contains(error, "signal " + std::to_string(SIGABRT))) << error;
  EXPECT_EQ(xyz, before);
}
