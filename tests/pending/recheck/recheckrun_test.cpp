// SPDX-License-Identifier: GPL-2.0-or-later
// The post-warp check in a whole run of the program on a sample job with two surfaces, the
// second of them open: the first keeps its output, the second is repaired, and both passes
// find their own surface.
#include <algorithm>
#include <fstream>

#include "repair/stlfixtures.h"

using namespace wft;

TEST(RecheckRun, TwoSurfacesOneRepaired) {
  std::string dir = tempdir("recheckrun");
  // No displacement: the surfaces go through unchanged, so the check sees the input's faults.
  RunResult gen = rungenjob(dir, {"--field", "zero"});
  ASSERT_EQ(gen.status, 0) << gen.out;
  // A second surface: the part without its last triangle.
  Mesh open = readbinary(dir + "/part.stl");
  open.pop_back();
  writebinary(dir + "/open.stl", open);
  std::string in = readfile(dir + "/job.in");
  const std::string one = "*STLF\npart.stl\n*STLM\n1, 1, 0, 1.0\n";
  ASSERT_TRUE(contains(in, one)) << in;
  in.replace(in.find(one), one.size(),
             "*STLF\npart.stl\nopen.stl\n*STLM\n1, 1, 0, 1.0\n1, 1, 0, 1.0\n");
  writefile(dir + "/job.in", in);
  std::ofstream(dir + "/job.deck", std::ios::app) << "*ASTL\n*TSRD\n*O3MF\n";

  RunResult run = runwarpforge("job.deck", dir);
  ASSERT_EQ(run.status, 0) << run.out;
  const std::vector<std::string> lines = splitlines(run.out);
  // Each line once; the padded name reaches the conversion, which gives up on it in both passes.
  const std::pair<const char *, long> counts[] = {
      {" STL file = part.stl", 1},
      {" STL file = open.stl", 1},
      {" Finished writing file job_1_warp.stl", 1},
      {" Finished writing file job_2_warp_ls_repair.stl", 1},
      {"Starting Tessero default repair...", 1},
      {"infile = job_2_warp.stl", 1},
      {"Finished repair", 1},
      {" Calculating surface normals", 3},  // part, job_1_warp.stl read back, open
      {" Warning:  3MF conversion was not successful.", 2}};
  for (const auto &[line, n] : counts)
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), n) << line << "\n" << run.out;

  EXPECT_FALSE(std::filesystem::exists(dir + "/job_1_warp_ls_repair.stl"));
  EXPECT_EQ(admeshfaults(dir + "/job_2_warp_ls_repair.stl"), "");
  std::string signal = readfile(dir + "/job.wrpsimsignal");
  EXPECT_FALSE(contains(signal, "\"code\": 1011")) << signal;
  EXPECT_TRUE(contains(signal, "{\"information\": \"successful finish\"}")) << signal;
}
