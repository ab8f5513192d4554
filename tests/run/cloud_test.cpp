// SPDX-License-Identifier: GPL-3.0-or-later
// A cloud job: the case file and the mesh files below the folder its descriptor names, the
// displacements still under results/ of the case folder.
#include <gtest/gtest.h>

#include <filesystem>

#include "testutil.h"

namespace fs = std::filesystem;

TEST(CloudJob, TakesTheDisplacementsFromTheCaseFolder) {
  const std::string plain = wft::tempdir("plainjob"), cloud = wft::tempdir("cloudjob");
  for (const std::string &dir : {plain, cloud}) ASSERT_EQ(wft::rungenjob(dir).status, 0);
  // The cloud job: its case and meshes moved to cloud/run/sim under the fixed stem, the
  // descriptor beside the deck; the displacement files stay where they were.
  const std::string sim = cloud + "/cloud/run/sim";
  fs::create_directories(sim + "/results");
  fs::rename(cloud + "/job.case", sim + "/kelmechanical.case");
  int meshes = 0;
  for (const auto &e : fs::directory_iterator(cloud + "/results"))
    if (e.path().extension() == ".geo") {
      const std::string name = e.path().filename().string();  // job_<n>.geo
      fs::rename(e.path(), sim + "/results/kelmechanical" + name.substr(3));
      ++meshes;
    }
  ASSERT_GT(meshes, 0);
  wft::writefile(cloud + "/.awskel", R"({"outputDir": "cloud/run"})");
  ASSERT_FALSE(fs::exists(cloud + "/job.case"));
  ASSERT_TRUE(fs::exists(cloud + "/results/job00_1.dis.ens"));

  const wft::RunResult a = wft::runwarpforge("job.deck", plain), b = wft::runwarpforge("job.deck", cloud);
  ASSERT_EQ(a.status, 0) << a.out;
  ASSERT_EQ(b.status, 0) << b.out;
  EXPECT_TRUE(wft::contains(b.out,
                            " Could not find case file \"job.case\".\n"
                            " Checking for *.awskel file for cloud solves...\n\n"
                            " Reading case file cloud/run/sim/kelmechanical.case\n"))
      << b.out;
  // Deliberately so: had the displacements been looked for beside the meshes, the run would
  // have found none.
  EXPECT_EQ(wft::readfile(cloud + "/job_1_warp.stl"), wft::readfile(plain + "/job_1_warp.stl"));
}
