// SPDX-License-Identifier: GPL-3.0-or-later
// Whole runs that must end in a coded message, never a crash, and leave earlier outputs intact;
// the command line's --help and --version; results that do not depend on the thread count.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "shapes.h"
#include "testutil.h"

namespace fs = std::filesystem;

namespace {

std::string makejob(const std::string &tag) {
  const std::string dir = wft::tempdir(tag);
  auto g = wft::rungenjob(dir, {"--tris", "448", "--nodes", "300"});
  EXPECT_EQ(g.status, 0) << g.out;
  return dir;
}

}  // namespace

// Eleven surfaces and two output names: the third pass has no name of its own.
TEST(Robustness, ShortOutputListNamesTheSurface) {
  const std::string dir = makejob("shortoutp");
  std::string in = "*STLF\n";
  for (int i = 1; i <= 11; ++i) {
    fs::copy_file(dir + "/part.stl", dir + "/s" + std::to_string(i) + ".stl");
    in += "s" + std::to_string(i) + ".stl\n";
  }
  wft::writefile(dir + "/job.in", in + "*END\n");
  wft::writefile(dir + "/short.deck",
                 "*INPU\njob\n*IOFF\n-1\n*ASTL\n*N3DM\n*MINE\n9\n*MAXE\n10\n*OUTP\no1.stl\no2.stl\n");
  const auto r = wft::runwarpforge("short.deck", dir);
  EXPECT_EQ(r.status, 255) << r.out;
  EXPECT_TRUE(wft::contains(r.out, "  Code 196\n")) << r.out;
  EXPECT_TRUE(wft::contains(wft::readfile(dir + "/short.wrpsimsignal"), R"("code": 196, "variables": ["s3.stl"])"));
  EXPECT_TRUE(fs::exists(dir + "/o1.stl") && fs::exists(dir + "/o2.stl"));
  // Console lines reach the file line by line: the last one before the end is there.
  EXPECT_TRUE(wft::contains(r.out, "\n ABORTING\n"));
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

// The vertex loop and the midpoints of the refinement run on all threads; what a run writes
// does not depend on how many.
TEST(Robustness, OutputsDoNotDependOnTheThreadCount) {
  const std::string dir = makejob("threads");
  wft::writefile(dir + "/t.deck", "*INPU\njob\n*IOFF\n-1\n*MINE\n1.5\n*MAXE\n4\n*OVTK\n*N3DM\n");
  std::string stl[3], vtk[3];
  for (int threads : {1, 2}) {
    const auto r = wft::runwarpforge("t.deck", dir, {{"OMP_NUM_THREADS", std::to_string(threads)}});
    ASSERT_EQ(r.status, 0) << r.out;
    stl[threads] = wft::readfile(dir + "/job_1_warp.stl");
    vtk[threads] = wft::readfile(dir + "/job_1_warp.vtk");
  }
  EXPECT_GT(stl[1].size(), 84u + 50u * 448u);  // refined
  EXPECT_EQ(stl[1], stl[2]);
  EXPECT_EQ(vtk[1], vtk[2]);
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

// *STLS without a number in the solver input: no coded message exists for it; the run ends as a
// failure of the I/O layer, with status 255, its text on the error stream, no message, no signal
// line and no ABORTING.
TEST(Robustness, SolverInputWithoutANumberFailsInTheIoLayer) {
  const std::string dir = makejob("iolayer");
  std::string in = wft::readfile(dir + "/job.in");
  in.replace(in.find("*STLS\n1.0"), 9, "*STLS\nabc");
  ASSERT_TRUE(wft::contains(in, "*STLS\nabc\n"));
  wft::writefile(dir + "/job.in", in);
  const auto r = wft::runwarpforge("job.deck", dir);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(wft::contains(r.out, "I/O error: job.in: no number on the line after *STLS")) << r.out;
  EXPECT_FALSE(wft::contains(r.out, "Code"));
  EXPECT_FALSE(wft::contains(r.out, "ABORTING"));
  const std::string signal = wft::readfile(dir + "/job.wrpsimsignal");
  EXPECT_FALSE(wft::contains(signal, "message"));
  EXPECT_FALSE(wft::contains(signal, "successful finish"));
}
