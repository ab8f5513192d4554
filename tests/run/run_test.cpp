// SPDX-License-Identifier: GPL-3.0-or-later
// End-to-end runs of the built program on decks and generated jobs in temporary folders.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>

#include "repair/solidcheck.h"
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

// The lowest and highest corner value per axis.
std::array<std::pair<double, double>, 3> boxof(const std::vector<float> &c) {
  std::array<std::pair<double, double>, 3> b;
  b.fill({1e300, -1e300});
  for (size_t i = 0; i < c.size(); ++i)
    b[i % 3] = {std::min(b[i % 3].first, double(c[i])), std::max(b[i % 3].second, double(c[i]))};
  return b;
}

struct Job : ::testing::Test {
  std::string dir;
  void make(const std::vector<std::string> &args = {}) {
    dir = wft::tempdir("job");
    auto g = wft::rungenjob(dir, args);
    ASSERT_EQ(g.status, 0) << g.out;
  }
  wft::RunResult run(const std::string &deck = "job.deck") { return wft::runwarpforge(deck, dir); }
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

TEST_F(Job, PlainJobWritesItsFilesAndSignals) {
  make();
  auto r = run();
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(wft::contains(r.out, " STL file = part.stl\n"));
  EXPECT_TRUE(wft::contains(r.out, "\n Finished writing file job_1_warp.stl\n\n CPU wall = 00:00:"));
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp_color.3mf"));
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp_color/3D/3dmodel.model"));
  EXPECT_FALSE(fs::exists(dir + "/job_1_warp.stl_wrtu.txt"));

  auto lines = wft::splitlines(wft::readfile(dir + "/job.wrpsimsignal"));
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

TEST_F(Job, DeckCardsReachTheWarpRefinementAndOutputs) {
  // Twice the constant field, long edges split, the text report instead of the coloured package.
  make({"--field", "constant"});
  wft::writefile(dir + "/split.deck",
                 "*INPU\njob\n*IOFF\n-1\n*WARP\n-2.0\n*MAXE\n2\n*MINE\n1\n*MAXR\n2\n"
                 "*WRTU\n*N3DM\n");
  auto r = run("split.deck");
  ASSERT_EQ(r.status, 0) << r.out;
  const auto before = wft::binarystlfacets(wft::readfile(dir + "/part.stl"));
  const auto after = wft::binarystlfacets(wft::readfile(dir + "/job_1_warp.stl"));
  EXPECT_GT(after.size(), before.size());
  const auto in = boxof(before), out = boxof(after);
  const double d[3] = {0.1, -0.2, 0.3};
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(out[k].first, in[k].first - 2.0 * d[k], 1e-4);
    EXPECT_NEAR(out[k].second, in[k].second - 2.0 * d[k], 1e-4);
  }
  EXPECT_TRUE(fs::exists(dir + "/job_1_warp.stl_wrtu.txt"));
  EXPECT_FALSE(fs::exists(dir + "/job_1_warp_color.3mf"));
}

TEST_F(Job, NoSelectedSurfaceSkipsTheLoopAndFinishes) {
  make();
  std::string in = wft::readfile(dir + "/job.in");
  size_t p = in.find("*STLM");
  ASSERT_NE(p, std::string::npos);
  size_t rowstart = in.find('\n', p) + 1;
  in[rowstart] = '2';  // the one surface becomes type 2
  wft::writefile(dir + "/job.in", in);
  wft::writefile(dir + "/all.deck", "*INPU\njob\n*IOFF\n-1\n*ASTL\n");
  auto r = run("all.deck");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(wft::contains(r.out, "STL file = "));
  auto lines = wft::splitlines(wft::readfile(dir + "/all.wrpsimsignal"));
  EXPECT_EQ(lines.back(), R"({"information": "successful finish"})");
}

// Broken parts through a whole run with the read-back check and both repairs: the written
// surface is warped and refined (which reverses the children of rim edges), and the repaired
// file must be a printable solid of about the part's volume.
TEST_F(Job, BrokenPartsComeOutRepairedAndPrintable) {
  struct Case {
    const char *name;
    std::vector<float> soup;
    double volume;
  };
  std::vector<Case> cases;
  std::vector<float> holes = wft::boxfacets(20, 6, 0);
  holes.erase(holes.begin() + 9 * 100, holes.begin() + 9 * 103);
  holes.erase(holes.begin() + 9 * 20, holes.begin() + 9 * 21);
  cases.push_back({"holes", holes, 8000});
  // Closed parts that overlap pass the run's own check; one with a hole does not, and the repair
  // then has to unite them as well.
  std::vector<float> overlap = wft::boxfacets(20, 6, 0), other = wft::boxfacets(20, 6, 8.5f);
  other.erase(other.begin() + 9 * 150, other.begin() + 9 * 151);
  overlap.insert(overlap.end(), other.begin(), other.end());
  cases.push_back({"overlapping parts, one with a hole", overlap, 8000 + 8000 - 11.5 * 400});
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    make();
    wft::writefile(dir + "/part.stl", wft::binarystlbytes(c.soup));
    wft::writefile(dir + "/check.deck", "*INPU\njob\n*IOFF\n-1\n*N3DM\n*TSRD\n*TSRE\n*MINE\n4.0\n*MAXE\n8.0\n");
    const auto r = run("check.deck");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(wft::contains(r.out, "Finished repair")) << r.out;
    const std::vector<float> repaired = wft::binarystlfacets(wft::readfile(dir + "/job_1_warp_ls_repair.stl"));
    ASSERT_FALSE(repaired.empty());
    const wf::SolidCheck s = wf::checksolid(repaired.data(), int64_t(repaired.size() / 9));
    EXPECT_TRUE(s.printable()) << s.told << " " << s.closed << " " << s.crossing << " " << s.volume;
    EXPECT_NEAR(s.volume, c.volume, 0.02 * c.volume);  // the field moves the part a little
  }
}
