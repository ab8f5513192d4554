// SPDX-License-Identifier: GPL-2.0-or-later
// The post-warp check in whole runs of the program on a sample job with two surfaces, the
// second of them open: the first keeps its output, the second is repaired, and both passes
// find their own surface.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "repair/stlfixtures.h"
#include "testutil.h"

using namespace wft;

namespace {

// Count of the lines of text that equal `line`.
int count(const std::string &text, const std::string &line) {
  int n = 0;
  for (const std::string &l : splitlines(text))
    if (l == line) ++n;
  return n;
}

}  // namespace

TEST(RecheckRun, TwoSurfacesOneRepaired) {
  std::string dir = tempdir("recheckrun");
  // No displacement: the surfaces go through unchanged, so the check sees the input's faults.
  RunResult gen = rungenjob(dir, {"--field", "zero"});
  ASSERT_EQ(gen.status, 0) << gen.out;
  // A second surface: the part without its last triangle.
  Mesh part = readbinary(dir + "/part.stl");
  Mesh open = part;
  open.pop_back();
  writebinary(dir + "/open.stl", open);
  std::string in = readfile(dir + "/job.in");
  size_t at = in.find("*STLF\npart.stl\n*STLM\n1, 1, 0, 1.0\n");
  ASSERT_NE(at, std::string::npos) << in;
  in.replace(at, 34, "*STLF\npart.stl\nopen.stl\n*STLM\n1, 1, 0, 1.0\n1, 1, 0, 1.0\n");
  writefile(dir + "/job.in", in);
  std::ofstream(dir + "/job.deck", std::ios::app) << "*ASTL\n*TSRD\n*O3MF\n";

  RunResult run = runwarpforge("job.deck", dir);
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(count(run.out, " STL file = part.stl"), 1) << run.out;
  EXPECT_EQ(count(run.out, " STL file = open.stl"), 1) << run.out;
  EXPECT_EQ(count(run.out, " Finished writing file job_1_warp.stl"), 1) << run.out;
  EXPECT_EQ(count(run.out, " Finished writing file job_2_warp_ls_repair.stl"), 1) << run.out;
  EXPECT_EQ(count(run.out, "Starting Tessero default repair..."), 1) << run.out;
  EXPECT_EQ(count(run.out, "infile = job_2_warp.stl"), 1) << run.out;
  EXPECT_EQ(count(run.out, "Finished repair"), 1) << run.out;
  // The padded name reaches the conversion, which gives up on it in both passes.
  EXPECT_EQ(count(run.out, " Warning:  3MF conversion was not successful."), 2) << run.out;

  EXPECT_TRUE(std::filesystem::exists(dir + "/job_2_warp.stl"));
  EXPECT_FALSE(std::filesystem::exists(dir + "/job_1_warp_ls_repair.stl"));
  AdmeshSummary s = admeshcheck(dir + "/job_2_warp_ls_repair.stl");
  EXPECT_TRUE(s.sound()) << s.facets << " " << s.disconnected << " " << s.backwards;
  EXPECT_TRUE(admeshcheck(dir + "/job_1_warp.stl").sound());

  std::string signal = readfile(dir + "/job.wrpsimsignal");
  EXPECT_EQ(signal.find("\"code\": 1011"), std::string::npos) << signal;
  EXPECT_NE(signal.find("{\"information\": \"successful finish\"}"), std::string::npos);
}
