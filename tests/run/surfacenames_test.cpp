// SPDX-License-Identifier: GPL-3.0-or-later
// The split of a path into folder, name and extension, in-process.
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
