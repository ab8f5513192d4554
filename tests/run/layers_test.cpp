// SPDX-License-Identifier: GPL-3.0-or-later
// The shape of the sources: no include runs upward through the layers, the layers that compute
// never include the Reporter, and every header opens with its licence line and a comment that
// states its contract.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "testutil.h"

namespace fs = std::filesystem;

TEST(Sources, IncludesFollowTheLayers) {
  const std::map<std::string, std::set<std::string>> allowed = {
      {"base", {"base"}},
      {"surface", {"base", "surface"}},
      {"simresults", {"base", "simresults"}},
      {"control", {"base", "control", "surface", "simresults"}},
      {"warp", {"base", "warp", "surface", "simresults"}},
      {"repair", {"base", "repair"}},
      {"recheck", {"base", "recheck", "surface", "repair", "warp"}},
      {"outputs", {"base", "outputs", "surface"}},
      {"app", {"app", "base", "control", "surface", "simresults", "warp", "repair", "recheck", "outputs"}}};

  const fs::path src = fs::path(WARPFORGE_SOURCE_DIR) / "src";
  int files = 0;
  for (const auto &entry : fs::recursive_directory_iterator(src)) {
    if (!entry.is_regular_file()) continue;
    const std::string folder = fs::relative(entry.path(), src).begin()->string();
    ASSERT_TRUE(allowed.count(folder)) << "a folder outside the layers: " << folder;
    const std::string text = wft::readfile(entry.path().string());
    ++files;
    // The layers that compute return what they found and never print; app/steps says their lines.
    const bool computes = std::set<std::string>{"surface", "warp", "recheck", "repair", "outputs"}.count(folder) > 0;
    EXPECT_FALSE(computes && wft::contains(text, "base/reporter.h")) << entry.path() << " includes the Reporter";
    // Every '#include "folder/...' names a folder this one may use.
    for (size_t p = text.find("#include \""); p != std::string::npos; p = text.find("#include \"", p + 1)) {
      const size_t q = p + 10, slash = text.find('/', q), close = text.find('"', q);
      if (slash < close) {
        EXPECT_TRUE(allowed.at(folder).count(text.substr(q, slash - q)))
            << entry.path() << " includes " << text.substr(p, close - p + 1);
      }
    }
    if (entry.path().extension() == ".h") {
      const auto lines = wft::splitlines(text);
      ASSERT_GE(lines.size(), 2u) << entry.path();
      EXPECT_EQ(lines[0].rfind("// SPDX-License-Identifier: ", 0), 0u) << entry.path();
      EXPECT_EQ(lines[1].rfind("// ", 0), 0u) << entry.path() << ": no contract comment";
    }
    if (entry.path().extension() == ".cpp" && entry.path().filename() != "main.cpp") {
      fs::path header = entry.path();
      header.replace_extension(".h");
      EXPECT_TRUE(fs::exists(header)) << entry.path() << " has no header of its own";
    }
  }
  EXPECT_GT(files, 50);
}
