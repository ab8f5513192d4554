// SPDX-License-Identifier: GPL-2.0-or-later
// End-to-end runs of the built program on decks and generated jobs in temporary folders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "testutil.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> tempsignals(const std::string &dir) {
  std::vector<std::string> out;
  fs::path folder = fs::path(dir) / "tmp" / "ProjectKel";
  if (!fs::exists(folder)) return out;
  for (auto &e : fs::directory_iterator(folder)) out.push_back(e.path().string());
  return out;
}

// Binary STL corners: 9 floats per triangle.
std::vector<float> stlcorners(const std::string &path, uint32_t &ntri) {
  std::string b = wft::readfile(path);
  ntri = 0;
  std::vector<float> c;
  if (b.size() < 84) return c;
  std::memcpy(&ntri, b.data() + 80, 4);
  if (b.size() != 84 + 50ull * ntri) return c;
  c.resize(9ull * ntri);
  for (uint32_t t = 0; t < ntri; ++t) std::memcpy(&c[9ull * t], b.data() + 84 + 50ull * t + 12, 36);
  return c;
}

void boxof(const std::vector<float> &c, double lo[3], double hi[3]) {
  for (int k = 0; k < 3; ++k) {
    lo[k] = 1e300;
    hi[k] = -1e300;
  }
  for (size_t i = 0; i < c.size(); ++i) {
    lo[i % 3] = std::min(lo[i % 3], double(c[i]));
    hi[i % 3] = std::max(hi[i % 3], double(c[i]));
  }
}

struct Job : ::testing::Test {
  std::string dir;
  void make(const std::vector<std::string> &args = {}) {
    dir = wft::tempdir("job");
    auto g = wft::rungenjob(dir, args);
    ASSERT_EQ(g.status, 0) << g.out;
  }
  wft::RunResult run(const std::string &deck = "job.deck",
                     const std::map<std::string, std::string> &env = {}) {
    return wft::runwarpforge(deck, dir, env);
  }
  std::vector<std::string> signal() { return wft::splitlines(wft::readfile(dir + "/job.wrpsimsignal")); }
};

}  // namespace

TEST(Run, WrongArgumentsAndMissingDeckStayInTheTemporaryStream) {
  std::string dir = wft::tempdir("args");
  std::string log = dir + "/waypoints.txt";
  auto r = wft::runprogram(WARPFORGE_EXE, {}, dir, {{"WARPFORGE_WAYPOINT_LOG", log}});
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(r.out, " ERROR\n  Code 175\n")) << r.out;
  EXPECT_TRUE(wft::contains(r.out, "\n ABORTING\n"));
  auto sigs = tempsignals(dir);
  ASSERT_EQ(sigs.size(), 1u);
  EXPECT_EQ(fs::path(sigs[0]).extension(), ".simsignal");
  auto lines = wft::splitlines(wft::readfile(sigs[0]));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], R"({"schema": "simsignal-1.0"})");
  EXPECT_EQ(lines[1].rfind(R"({"message": {"type": "error", "code": 175, "variables": [], "tag": "Signal tag )", 0), 0u);
  EXPECT_EQ(wft::readfile(log), "KelSolver.Error 175\n");

  auto two = wft::runprogram(WARPFORGE_EXE, {"a", "b"}, dir);
  EXPECT_EQ(two.status, 255);
  auto missing = wft::runwarpforge("nosuch.deck", dir);
  EXPECT_EQ(missing.status, 255);
  EXPECT_TRUE(wft::contains(missing.out, "  Code 30\n"));
  EXPECT_FALSE(fs::exists(dir + "/nosuch.wrpsimsignal"));
  EXPECT_EQ(tempsignals(dir).size(), 3u);  // each failed run left its own temporary stream
}

TEST(Run, WithoutTheCatalogueCodesStillArrive) {
  std::string dir = wft::tempdir("nocat");
  fs::copy_file(WARPFORGE_EXE, dir + "/warpforge");
  fs::permissions(dir + "/warpforge", fs::perms::owner_all);
  wft::writefile(dir + "/empty.deck", "");
  auto r = wft::runprogram(dir + "/warpforge", {"empty.deck"}, dir);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(r.out, "Loading file: " + dir + "/simsolver.arb...\n")) << r.out;
  EXPECT_FALSE(wft::contains(r.out, "...success"));
  EXPECT_TRUE(wft::contains(r.out, "cannot open file"));
  EXPECT_TRUE(wft::contains(r.out, "  Code 179\n \n")) << r.out;  // an empty message line
  auto lines = wft::splitlines(wft::readfile(dir + "/empty.wrpsimsignal"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(wft::contains(lines[1], R"("code": 179, "variables": [])"));
}

TEST(Run, ArbitraryBytesEndInAnOrderlyAbort) {
  std::string dir = wft::tempdir("junk");
  std::string junk;
  uint32_t s = 99;
  for (int i = 0; i < 4096; ++i) {
    s = s * 1664525u + 1013904223u;
    junk.push_back(static_cast<char>(s >> 24));
  }
  wft::writefile(dir + "/junk.deck", junk);
  auto r = wft::runwarpforge("junk.deck", dir);
  EXPECT_EQ(r.status, 255) << r.out;
  auto sig = wft::readfile(dir + "/junk.wrpsimsignal");
  EXPECT_FALSE(wft::contains(sig, "successful finish"));
}

TEST_F(Job, PlainJobWritesItsFilesAndSignals) {
  make();
  auto r = run();
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(wft::contains(r.out, " STL file = part.stl\n"));
  EXPECT_TRUE(wft::contains(r.out, "\n Finished writing file job_1_warp.stl\n\n CPU wall = 00:00:"));
  uint32_t ntri = 0;
  auto corners = stlcorners(dir + "/job_1_warp.stl", ntri);
  EXPECT_GT(ntri, 0u);
  EXPECT_EQ(corners.size(), 9ull * ntri);
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp_color.3mf"));
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp_color/3D/3dmodel.model"));
  EXPECT_FALSE(fs::exists(dir + "/job_1_warp.stl_wrtu.txt"));

  auto lines = signal();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines.front(), R"({"schema": "simsignal-1.0"})");
  EXPECT_EQ(lines.back(), R"({"information": "successful finish"})");
  double last = -1;
  int files = 0;
  for (const auto &l : lines) {
    if (l.rfind("{\"progress\": ", 0) == 0) {
      double p = std::stod(l.substr(13));
      EXPECT_GT(p, last);  // told only when the whole percentage grows
      EXPECT_LE(p, 0.99);
      last = p;
    }
    if (wft::contains(l, "finished writing file")) ++files;
    EXPECT_FALSE(wft::contains(l, "\"error\"")) << l;
  }
  EXPECT_EQ(files, 2);  // the model member and the package
}

TEST_F(Job, ResultsDoNotDependOnTheThreadCount) {
  make();
  auto one = run("job.deck", {{"OMP_NUM_THREADS", "1"}});
  ASSERT_EQ(one.status, 0) << one.out;
  std::string a = wft::readfile(dir + "/job_1_warp.stl");
  auto two = run("job.deck", {{"OMP_NUM_THREADS", "2"}});
  ASSERT_EQ(two.status, 0) << two.out;
  EXPECT_EQ(a, wft::readfile(dir + "/job_1_warp.stl"));
}

TEST_F(Job, ConstantFieldMovesTheWholeSurfaceByTheFactor) {
  make({"--field", "constant"});
  wft::writefile(dir + "/const.deck", "*INPU\njob\n*IOFF\n-1\n*WARP\n-2.0\n*MAXE\n1000\n*MINE\n999\n*N3DM\n");
  auto r = run("const.deck");
  ASSERT_EQ(r.status, 0) << r.out;
  uint32_t nin = 0, nout = 0;
  auto in = stlcorners(dir + "/part.stl", nin);
  auto out = stlcorners(dir + "/job_1_warp.stl", nout);
  ASSERT_EQ(nin, nout);  // no edge is long enough to split
  const double d[3] = {0.1, -0.2, 0.3};
  for (size_t i = 0; i < in.size(); ++i)
    ASSERT_NEAR(out[i], in[i] - 2.0 * d[i % 3], 1e-4) << "corner value " << i;
  EXPECT_FALSE(fs::exists(dir + "/job_1_warp_color.3mf"));
}

TEST_F(Job, LongEdgesAreSplitAndTheBoxFollowsTheField) {
  make({"--field", "constant"});
  wft::writefile(dir + "/split.deck", "*INPU\njob\n*IOFF\n-1\n*MAXE\n2\n*MINE\n1\n*MAXR\n2\n");
  auto r = run("split.deck");
  ASSERT_EQ(r.status, 0) << r.out;
  uint32_t nin = 0, nout = 0;
  auto in = stlcorners(dir + "/part.stl", nin);
  auto out = stlcorners(dir + "/job_1_warp.stl", nout);
  EXPECT_GT(nout, nin);
  double lo0[3], hi0[3], lo1[3], hi1[3];
  boxof(in, lo0, hi0);
  boxof(out, lo1, hi1);
  const double d[3] = {0.1, -0.2, 0.3};
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(lo1[k], lo0[k] - d[k], 1e-4);
    EXPECT_NEAR(hi1[k], hi0[k] - d[k], 1e-4);
  }
  EXPECT_TRUE(wft::contains(r.out, " Active triangles = "));
}

TEST_F(Job, TextReportNameDependsOnAnEarlierOutput) {
  make();
  wft::writefile(dir + "/wrtu.deck", "*INPU\njob\n*IOFF\n-1\n*WRTU\n*N3DM\n");
  ASSERT_EQ(run("wrtu.deck").status, 0);
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp.stl_wrtu.txt"));
  ASSERT_EQ(run("wrtu.deck").status, 0);
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp_wrtu.txt"));
  auto rows = wft::splitlines(wft::readfile(dir + "/job_1_warp_wrtu.txt"));
  ASSERT_FALSE(rows.empty());
  for (const auto &row : rows) ASSERT_EQ(row.size(), 84u);
}

TEST_F(Job, OutputNamedLikeASurfaceIsRefused) {
  make();
  wft::writefile(dir + "/same.deck", "*INPU\njob\n*IOFF\n-1\n*OUTP\npart.stl  \n");
  auto r = run("same.deck");
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(r.out, "  Code 193\n")) << r.out;
  EXPECT_FALSE(wft::contains(r.out, "Reading part.stl"));
  auto lines = wft::splitlines(wft::readfile(dir + "/same.wrpsimsignal"));
  ASSERT_FALSE(lines.empty());
  EXPECT_TRUE(wft::contains(lines.back(), R"("code": 193, "variables": ["part.stl"])")) << lines.back();
}

TEST_F(Job, NoSelectedSurfaceSkipsTheLoopAndFinishes) {
  make();
  std::string in = wft::readfile(dir + "/job.in");
  size_t p = in.find("*STLM");
  ASSERT_NE(p, std::string::npos);
  size_t rowstart = in.find('\n', p) + 1;
  in.replace(rowstart, 1, "2");  // the one surface becomes type 2
  wft::writefile(dir + "/job.in", in);
  wft::writefile(dir + "/all.deck", "*INPU\njob\n*IOFF\n-1\n*ASTL\n");
  auto r = run("all.deck");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(wft::contains(r.out, "STL file = "));
  auto lines = wft::splitlines(wft::readfile(dir + "/all.wrpsimsignal"));
  EXPECT_EQ(lines.back(), R"({"information": "successful finish"})");
}
