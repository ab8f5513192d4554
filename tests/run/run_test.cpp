// SPDX-License-Identifier: GPL-3.0-or-later
// End-to-end runs of the built program on decks and generated jobs in temporary folders: runs
// that must end in a coded message, never a crash, and leave earlier outputs intact; --help and
// --version. The program installed into a scratch prefix; the layers of the sources; the split of
// a path. (Whole jobs that end as they should, on one and on two threads, are the regression set's.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>

#include "app/driver.h"
#include "shapes.h"
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

std::string makejob(const std::string &tag) {
  const std::string dir = wft::tempdir(tag);
  auto g = wft::rungenjob(dir, {"--tris", "448", "--nodes", "300"});
  EXPECT_EQ(g.status, 0) << g.out;
  return dir;
}

}  // namespace

TEST(Run, WrongArgumentsAndMissingDeckStayInTheTemporaryStream) {
  const std::string dir = wft::tempdir("args"), log = dir + "/waypoints.txt";
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
  EXPECT_TRUE(
      lines[1].starts_with(R"({"message": {"type": "error", "code": 175, "variables": [], "tag": "Signal tag )"));
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

// Installed like a tool: `cmake --install` into a scratch prefix, then the installed program runs
// the sample job from the job's own folder, finds its catalogue through the link in bin/, and
// the manual page tells every card of the README's table.
TEST(Install, ScratchPrefixRunsTheSampleJob) {
  const std::string prefix = wft::tempdir("prefix");
  const auto install = wft::runprogram(CMAKE_EXE, {"--install", WARPFORGE_BUILD_DIR, "--prefix", prefix}, prefix);
  ASSERT_EQ(install.status, 0) << install.out;
  ASSERT_TRUE(fs::is_symlink(prefix + "/bin/warpforge"));
  EXPECT_TRUE(fs::exists(prefix + "/lib/warpforge/simsolver.arb"));
  EXPECT_TRUE(fs::exists(prefix + "/share/doc/warpforge/copyright"));

  const std::string job = wft::tempdir("installedjob");
  ASSERT_EQ(wft::rungenjob(job, {"--tris", "448"}).status, 0);
  const auto run = wft::runprogram(prefix + "/bin/warpforge", {"job.deck"}, job);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(fs::exists(job + "/job_1_warp.stl"));
  EXPECT_TRUE(fs::exists(job + "/job_1_warp_color.3mf"));
  // A coded message has its text: the catalogue was found beside the linked executable.
  wft::writefile(job + "/missing.deck", "*INPU\nnosuchjob\n");
  const auto failed = wft::runprogram(prefix + "/bin/warpforge", {"missing.deck"}, job);
  EXPECT_EQ(failed.status, 255);
  EXPECT_TRUE(wft::contains(failed.out, "nosuchjob.in does not exist")) << failed.out;

  // Every card of the README's table is in the manual page.
  const std::string man = wft::readfile(prefix + "/share/man/man1/warpforge.1");
  const std::vector<std::string> cards = wft::readmecards(wft::readfile(WARPFORGE_SOURCE_DIR "/README.md"));
  for (const std::string &card : cards) EXPECT_TRUE(wft::contains(man, "\\fB" + card)) << card;
  EXPECT_GE(cards.size(), 30u);
}

// The shape of the sources: no include runs upward through the layers, the layers that compute
// never include the Reporter, and every header opens with its licence line and a comment that
// states its contract.
TEST(Sources, IncludesFollowTheLayers) {
  const std::map<std::string, std::set<std::string>> allowed = {
      {"base", {"base"}},
      {"surface", {"base", "surface"}},
      {"simresults", {"base", "simresults"}},
      {"control", {"base", "control", "surface", "simresults"}},
      {"warp", {"base", "warp", "surface", "simresults"}},
      {"repair", {"base", "repair"}},
      {"recheck", {"base", "recheck", "surface", "repair", "warp"}},
      {"outputs", {"base", "outputs", "surface"}},
      {"app", {"app", "base", "control", "surface", "simresults", "warp", "repair", "recheck", "outputs"}}};

  const fs::path src = fs::path(WARPFORGE_SOURCE_DIR) / "src";
  int files = 0;
  for (const auto &entry : fs::recursive_directory_iterator(src)) {
    if (!entry.is_regular_file()) continue;
    const std::string folder = fs::relative(entry.path(), src).begin()->string();
    ASSERT_TRUE(allowed.count(folder)) << "a folder outside the layers: " << folder;
    const std::string text = wft::readfile(entry.path().string());
    ++files;
    // The layers that compute return what they found and never print; app/steps says their lines.
    const bool computes = std::set<std::string>{"surface", "warp", "recheck", "repair", "outputs"}.count(folder) > 0;
    EXPECT_FALSE(computes && wft::contains(text, "base/reporter.h")) << entry.path() << " includes the Reporter";
    // Every '#include "folder/...' names a folder this one may use.
    for (size_t p = text.find("#include \""); p != std::string::npos; p = text.find("#include \"", p + 1)) {
      const size_t q = p + 10, slash = text.find('/', q), close = text.find('"', q);
      if (slash < close) {
        EXPECT_TRUE(allowed.at(folder).count(text.substr(q, slash - q)))
            << entry.path() << " includes " << text.substr(p, close - p + 1);
      }
    }
    if (entry.path().extension() == ".h") {
      const auto lines = wft::splitlines(text);
      ASSERT_GE(lines.size(), 2u) << entry.path();
      EXPECT_EQ(lines[0].rfind("// SPDX-License-Identifier: ", 0), 0u) << entry.path();
      EXPECT_EQ(lines[1].rfind("// ", 0), 0u) << entry.path() << ": no contract comment";
    }
    if (entry.path().extension() == ".cpp" && entry.path().filename() != "main.cpp") {
      fs::path header = entry.path();
      header.replace_extension(".h");
      EXPECT_TRUE(fs::exists(header)) << entry.path() << " has no header of its own";
    }
  }
  EXPECT_GT(files, 50);
}

TEST(SurfaceNames, PathsSplitIntoFolderNameAndExtension) {
  const struct {
    const char *path, *folder, *name, *ext;
  } cases[] = {{"a/b.c/job.in", "a/b.c/", "job", ".in"},
               {"job", "", "job", ""},
               {"/abs/x.y.case", "/abs/", "x.y", ".case"},
               {"dir/", "dir/", "", ""}};
  for (const auto &c : cases) {
    std::string folder, name, ext;
    wf::splitpath(c.path, folder, name, ext);
    EXPECT_EQ(std::tuple(folder, name, ext), std::tuple(c.folder, c.name, c.ext)) << c.path;
  }
}

// The binary writer does not delete what it may not write: a folder, or (for a user other than
// root, who may write it) a write-protected earlier result.
TEST(Robustness, BinaryWriterLeavesWhatItMayNotWrite) {
  const std::string dir = makejob("protected");
  wft::writefile(dir + "/w.deck", "*INPU\njob\n*IOFF\n-1\n*N3DM\n*OUTP\nout.stl\n");
  fs::create_directory(dir + "/out.stl");
  wft::writefile(dir + "/out.stl/keep", "kept");
  auto r = wft::runwarpforge("w.deck", dir);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(wft::readfile(dir + "/w.wrpsimsignal"), R"("code": 31, "variables": ["out.stl)")) << r.out;
  EXPECT_EQ(wft::readfile(dir + "/out.stl/keep"), "kept");

  if (geteuid() == 0) GTEST_SKIP() << "root may write a write-protected file";
  fs::remove_all(dir + "/out.stl");
  wft::writefile(dir + "/out.stl", "earlier result");
  fs::permissions(dir + "/out.stl", fs::perms::owner_read);
  r = wft::runwarpforge("w.deck", dir);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(r.out, "  Code 31\n")) << r.out;
  EXPECT_EQ(wft::readfile(dir + "/out.stl"), "earlier result");
}

TEST(Robustness, HelpAndVersion) {
  const std::string dir = wft::tempdir("help");
  auto help = wft::runprogram(WARPFORGE_EXE, {"--help"}, dir);
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(wft::contains(help.out, "usage: warpforge <control deck>")) << help.out;
  auto version = wft::runprogram(WARPFORGE_EXE, {"--version"}, dir);
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "warpforge 21.1.0.395\n");
  EXPECT_FALSE(fs::exists(dir + "/tmp"));  // no signal stream was opened
}

// Damaged whole jobs end with a result or a coded message, never a crash, a hang or the system's
// out-of-memory kill (bench_damaged times them).
TEST(Robustness, DamagedJobsEndWithAResultOrACodedMessage) {
  for (wft::JobDamage d : {wft::JobDamage::farvertex, wft::JobDamage::nanvertices, wft::JobDamage::count2e30,
                           wft::JobDamage::countneg, wft::JobDamage::maxrefine}) {
    SCOPED_TRACE(wft::jobdamagename(d));
    const std::string dir = wft::tempdir("damaged");
    const std::string deck = wft::damagedjob(dir, d);
    const std::string stem = deck.substr(0, deck.find('.'));
    const auto r = wft::runwarpforge(deck, dir);
    const std::string signal = wft::readfile(dir + "/" + stem + ".wrpsimsignal");
    ASSERT_TRUE(r.status == 0 || r.status == 255) << r.out;
    if (r.status == 0) {
      EXPECT_TRUE(wft::contains(signal, "successful finish"));
    } else {
      EXPECT_TRUE(wft::contains(r.out, "  Code ")) << r.out;
      EXPECT_TRUE(wft::contains(signal, R"({"message": {"type": "error")"));
    }
    if (d == wft::JobDamage::maxrefine) {
      // The refinement grows until its lists would pass their share of the machine's memory.
      EXPECT_EQ(r.status, 255);
      EXPECT_TRUE(wft::contains(r.out, "  Code 32\n")) << r.out;
      EXPECT_TRUE(wft::contains(signal, R"("code": 32, "variables": ["push)")) << signal;
    }
  }
}
