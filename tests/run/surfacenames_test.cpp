// SPDX-License-Identifier: GPL-3.0-or-later
// The names and shares of the passes of the surface loop, in-process.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/driver.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;

TEST(SurfaceNames, PathsSplitIntoFolderNameAndExtension) {
  const struct {
    const char *path, *folder, *name, *ext;
  } cases[] = {{"a/b.c/job.in", "a/b.c/", "job", ".in"},
               {"job", "", "job", ""},
               {"/abs/x.y.case", "/abs/", "x.y", ".case"},
               {"dir/", "dir/", "", ""}};
  for (const auto &c : cases) {
    std::string folder, name, ext;
    splitpath(c.path, folder, name, ext);
    EXPECT_EQ(std::tuple(folder, name, ext), std::tuple(c.folder, c.name, c.ext)) << c.path;
  }
}

// The text report's name depends on an earlier output in the folder the pass starts in: the
// first run of a job gets "job_1_warp.stl_wrtu.txt", a run over its output
// "job_1_warp_wrtu.txt".
TEST(SurfaceNames, ReportNameDependsOnAnEarlierOutput) {
  const std::filesystem::path here = std::filesystem::current_path();
  const std::string dir = wft::tempdir("surfacenames_wrtu");
  std::filesystem::current_path(dir);
  Settings st;
  JobFiles jf;
  jf.inputfile = "job";
  jf.inputfolder = dir;
  jf.stlfiles.start();
  jf.stlfiles.push("part.stl");
  jf.stlids.start();
  jf.stlids.push(1);
  jf.nsurfaces = 1;
  wft::CapturedReporter cap;
  const SurfaceNames first = surfacenames(cap.rep, st, jf, 1);
  EXPECT_EQ(first.outstlpath, "job_1_warp.stl");
  EXPECT_EQ(first.wrtupath, "job_1_warp.stl_wrtu.txt");
  wft::writefile("job_1_warp.stl", "an earlier output");
  const SurfaceNames second = surfacenames(cap.rep, st, jf, 1);
  EXPECT_EQ(second.outstlpath, "job_1_warp.stl");
  EXPECT_EQ(second.wrtupath, "job_1_warp_wrtu.txt");
  std::filesystem::current_path(here);
}
