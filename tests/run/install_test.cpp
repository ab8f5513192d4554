// SPDX-License-Identifier: GPL-3.0-or-later
// Installed like a tool: `cmake --install` into a scratch prefix, then the installed program runs
// the sample job from the job's own folder, finds its catalogue through the link in bin/, and
// the manual page tells every card of the README's table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "testutil.h"

namespace fs = std::filesystem;

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
