// SPDX-License-Identifier: GPL-2.0-or-later
// The per-surface names and progress of the surface loop, in-process.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "control/deck.h"
#include "control/messages.h"
#include "control/run.h"
#include "testutil.h"

using namespace wf;

TEST(SurfaceNames, ProgressNamesAndTheSelectionWalk) {
  std::string dir = wft::tempdir("names");
  auto cwd = std::filesystem::current_path();
  ASSERT_EQ(chdir(dir.c_str()), 0);
  RunState rs;
  rs.inputfile = "job";
  rs.inputfolder = dir;
  rs.nsurfaces = 3;
  startlist(rs.stlfiles);
  startlist(rs.stltype);
  startlist(rs.stlfraction);
  startlist(rs.stlids);
  const char *names[] = {"a.stl", "skip.stl", "b.stl", "c.stl"};
  const int types[] = {1, 2, 1, 2};
  const float fractions[] = {1.0f, 0.5f, 1.0f, 0.9995f};
  for (int j = 0; j < 4; ++j) {
    pushname(rs, rs.stlfiles, names[j]);
    pushint(rs, rs.stltype, types[j]);
    pushreal(rs, rs.stlfraction, fractions[j]);
  }
  for (int id : {1, 2, 3}) pushint(rs, rs.stlids, id);
  rs.sstlflag = true;  // the fourth entry is selected through its fraction
  wft::writefile(dir + "/job_2_warp.stl", "earlier output");
  testing::internal::CaptureStdout();
  std::vector<int> bases;
  std::vector<std::string> stls, outs, wrtus;
  for (int i = 1; i <= 3; ++i) {
    surfacenames(rs, i);
    bases.push_back(rs.progressbase);
    stls.push_back(rs.stlpath);
    outs.push_back(rs.outstlpath);
    wrtus.push_back(rs.wrtupath);
  }
  // An output name that equals a surface (trailing blanks do not count) ends the run.
  rs.outpflag = true;
  startlist(rs.outfiles);
  pushname(rs, rs.outfiles, "c.stl   ");
  EXPECT_THROW(surfacenames(rs, 1), RunAborted);
  std::string out = testing::internal::GetCapturedStdout();
  std::filesystem::current_path(cwd);
  EXPECT_EQ(bases, (std::vector<int>{0, 33, 66}));
  EXPECT_DOUBLE_EQ(rs.progressshare, 1.0 / 3);
  EXPECT_EQ(stls, (std::vector<std::string>{"a.stl", "b.stl", "c.stl"}));
  EXPECT_EQ(outs, (std::vector<std::string>{"job_1_warp.stl", "job_2_warp.stl", "job_3_warp.stl"}));
  EXPECT_EQ(wrtus, (std::vector<std::string>{"job_1_warp.stl_wrtu.txt", "job_2_warp_wrtu.txt",
                                             "job_3_warp.stl_wrtu.txt"}));
  EXPECT_TRUE(wft::contains(out, " STL file = b.stl\n"));
  EXPECT_TRUE(wft::contains(out, "  Code 193\n"));
}
