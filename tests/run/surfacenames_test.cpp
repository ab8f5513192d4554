// SPDX-License-Identifier: GPL-3.0-or-later
// The names and shares of the passes of the surface loop, in-process.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/driver.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;

TEST(SurfaceNames, ProgressNamesAndTheSelectionWalk) {
  const std::string dir = wft::tempdir("names");
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir);
  wft::CapturedReporter cap;
  Settings st;
  JobFiles jf;
  jf.inputfile = "job";
  jf.inputfolder = dir;
  jf.nsurfaces = 3;
  jf.stlfiles.start();
  jf.stltype.start();
  jf.stlfraction.start();
  jf.stlids.start();
  const char *names[] = {"a.stl", "skip.stl", "b.stl", "c.stl"};
  const int types[] = {1, 2, 1, 2};
  const float fractions[] = {1.0f, 0.5f, 1.0f, 0.9995f};
  for (int j = 0; j < 4; ++j) {
    jf.stlfiles.push(names[j]);
    jf.stltype.push(types[j]);
    jf.stlfraction.push(fractions[j]);
  }
  for (int id : {1, 2, 3}) jf.stlids.push(id);
  jf.selectbyfraction = true;  // the fourth entry is selected through its fraction
  wft::writefile(dir + "/job_2_warp.stl", "earlier output");
  std::vector<int> bases;
  std::vector<std::string> stls, outs, wrtus;
  for (int i = 1; i <= 3; ++i) {
    const SurfaceNames n = surfacenames(cap.rep, st, jf, i);
    bases.push_back(n.progressbase);
    stls.push_back(n.stlpath);
    outs.push_back(n.outstlpath);
    wrtus.push_back(n.wrtupath);
    EXPECT_DOUBLE_EQ(n.progressshare, 1.0 / 3);
  }
  EXPECT_EQ(bases, (std::vector<int>{0, 33, 66}));
  EXPECT_EQ(stls, (std::vector<std::string>{"a.stl", "b.stl", "c.stl"}));
  EXPECT_EQ(outs, (std::vector<std::string>{"job_1_warp.stl", "job_2_warp.stl", "job_3_warp.stl"}));
  // An earlier output of that name changes the report's name.
  EXPECT_EQ(wrtus, (std::vector<std::string>{"job_1_warp.stl_wrtu.txt", "job_2_warp_wrtu.txt",
                                             "job_3_warp.stl_wrtu.txt"}));
  EXPECT_EQ(cap.text(), " STL file = a.stl\n STL file = b.stl\n STL file = c.stl\n");

  // Output names: equal to a surface (trailing blanks do not count), or missing for a pass.
  st.outpflag = true;
  st.outfiles.start();
  st.outfiles.push("c.stl   ");
  EXPECT_EQ(wft::fatalof([&] { surfacenames(cap.rep, st, jf, 1); }), "193 c.stl");
  st.outfiles[0] = "first.stl";
  EXPECT_EQ(wft::fatalof([&] { surfacenames(cap.rep, st, jf, 2); }), "196 b.stl");
  jf.stlids[2] = 4;  // beyond the selected surfaces
  EXPECT_EQ(wft::fatalof([&] { surfacenames(cap.rep, Settings(), jf, 3); }), "197 4");
  std::filesystem::current_path(cwd);
}

TEST(SurfaceNames, PathsSplitIntoFolderNameAndExtension) {
  const struct {
    const char *path, *folder, *name, *ext;
  } cases[] = {{"a/b.c/job.in", "a/b.c/", "job", ".in"}, {"job", "", "job", ""},
               {"/abs/x.y.case", "/abs/", "x.y", ".case"}, {"dir/", "dir/", "", ""}};
  for (const auto &c : cases) {
    std::string drive = "x", folder, name, ext;
    splitpath(c.path, drive, folder, name, ext);
    EXPECT_EQ(drive, "");
    EXPECT_EQ(std::tuple(folder, name, ext), std::tuple(c.folder, c.name, c.ext)) << c.path;
  }
}
