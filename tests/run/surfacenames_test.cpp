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
// "job_1_warp_wrtu.txt". The first pass looks in the case folder, the later ones in the folder
// of the solver input file, which the first pass enters.
TEST(SurfaceNames, ReportNameDependsOnAnEarlierOutput) {
  const std::string dir = wft::tempdir("surfacenames_wrtu");
  std::filesystem::create_directory(dir + "/case");
  Settings st;
  JobFiles jf;
  jf.inputfile = "job";
  jf.inputfolder = dir;
  jf.stlfiles.start();
  jf.stlfiles.push("part.stl");
  jf.stlids.start();
  jf.stlids.push(1);
  jf.nsurfaces = 1;
  RunFolders folders;
  folders.cases = Folder(dir + "/case");
  folders.surfaces = Folder(dir);
  wft::writefile(dir + "/job_1_warp.stl", "an earlier output, not seen from the case folder");
  wft::CapturedReporter cap;
  const SurfaceNames first = surfacenames(cap.rep, st, jf, folders, 1);
  EXPECT_EQ(first.outstlpath, "job_1_warp.stl");
  EXPECT_EQ(first.wrtupath, "job_1_warp.stl_wrtu.txt");
  EXPECT_TRUE(folders.insurfaces);
  const SurfaceNames second = surfacenames(cap.rep, st, jf, folders, 1);
  EXPECT_EQ(second.outstlpath, "job_1_warp.stl");
  EXPECT_EQ(second.wrtupath, "job_1_warp_wrtu.txt");
  // The names stay as the job gives them: nothing of the folders goes into them.
  EXPECT_EQ(second.stlpath, "part.stl");
}
