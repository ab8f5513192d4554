// SPDX-License-Identifier: GPL-3.0-or-later
// End-to-end runs of the built program on decks and generated jobs in temporary folders.
#include <gtest/gtest.h>

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
  EXPECT_EQ(lines[1].rfind(R"({"message": {"type": "error", "code": 175, "variables": [], "tag": "Signal tag )", 0),
            0u);
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
