// SPDX-License-Identifier: GPL-3.0-or-later
// The folders of a run: a job whose case, solver input and surfaces lie in other folders than the
// one the program is started in reads and writes the same files as the same job run from its own
// folder, and names them alike.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "testutil.h"

namespace fs = std::filesystem;

namespace {

// Every regular file below folder, by its path relative to it, except the job's inputs, its
// results, the signal stream and the temporary folder.
std::map<std::string, std::string> madebelow(const std::string &folder) {
  static const std::set<std::string> inputs = {"job.in",  "job.case", "job.deck",        "part.stl",
                                               "ref.stl", "run.deck", "run.wrpsimsignal"};
  std::map<std::string, std::string> files;
  for (const auto &e : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(e.path(), folder).string();
    if (!e.is_regular_file() || inputs.count(name) || name.rfind("results/", 0) == 0 || name.rfind("tmp/", 0) == 0)
      continue;
    files[name] = wft::readfile(e.path().string());
  }
  return files;
}

std::set<std::string> names(const std::map<std::string, std::string> &files) {
  std::set<std::string> out;
  for (const auto &f : files) out.insert(f.first);
  return out;
}

// The console from the first line of the simulation's load on, the clocks masked.
std::string fromload(const std::string &out) {
  const size_t p = out.find("Mesh file");
  std::string text = p == std::string::npos ? out : out.substr(p);
  text = wft::maskafter(text, "CPU wall = ", "0123456789:. days", "CPU wall = <wall>");
  return wft::maskafter(text, "elapsed time: ", "0123456789", "elapsed time: <ms>");
}

// The job of genjob in its own folder, started from there (own), and the same job spread over
// <apart>/input (solver input, surface) and <apart>/sim (case, results, reference geometry),
// started from <apart>.
struct Jobs : ::testing::Test {
  std::string own, apart;
  wft::RunResult inown, fromapart;  // the last run of each

  void SetUp() override {
    own = wft::tempdir("folders_own");
    ASSERT_EQ(wft::rungenjob(own, {"--tris", "448"}).status, 0);
    fs::copy_file(own + "/part.stl", own + "/ref.stl");
    apart = wft::tempdir("folders_apart");
    fs::create_directories(apart + "/input");
    fs::create_directories(apart + "/sim");
    fs::copy_file(own + "/job.in", apart + "/input/job.in");
    fs::copy_file(own + "/part.stl", apart + "/input/part.stl");
    fs::copy_file(own + "/job.case", apart + "/sim/job.case");
    fs::copy_file(own + "/ref.stl", apart + "/sim/ref.stl");
    fs::copy(own + "/results", apart + "/sim/results", fs::copy_options::recursive);
  }

  void run(const std::string &options) {
    wft::writefile(own + "/run.deck", "*INPU\njob\n" + options);
    wft::writefile(apart + "/run.deck", "*INPU\n\"input/job\"\n*CASE\n\"sim/job.case\"\n" + options);
    inown = wft::runwarpforge("run.deck", own);
    ASSERT_EQ(inown.status, 0) << inown.out;
    fromapart = wft::runwarpforge("run.deck", apart);
    ASSERT_EQ(fromapart.status, 0) << fromapart.out;
  }

  // The outputs of the spread job stand beside its solver input with the bytes of those of the
  // job in its own folder, nothing is written elsewhere, and both consoles name the files alike.
  void expectsame() {
    const std::map<std::string, std::string> made = madebelow(own), madeapart = madebelow(apart + "/input");
    ASSERT_FALSE(made.empty());
    EXPECT_EQ(names(madeapart), names(made));
    for (const auto &[name, bytes] : made) {
      if (!madeapart.count(name)) continue;
      // The package carries the times of its members' files, its size does not depend on them;
      // the plain 3MF file holds fresh UUIDs.
      if (name.size() > 10 && name.substr(name.size() - 10) == "_color.3mf")
        EXPECT_EQ(madeapart.at(name).size(), bytes.size()) << name;
      else if (fs::path(name).extension() == ".3mf")
        EXPECT_FALSE(madeapart.at(name).empty()) << name;
      else
        EXPECT_TRUE(madeapart.at(name) == bytes) << name;
    }
    EXPECT_TRUE(madebelow(apart + "/sim").empty());
    for (const auto &e : fs::directory_iterator(apart)) {
      const std::string name = e.path().filename().string();
      EXPECT_TRUE(name == "input" || name == "sim" || name == "tmp" || name == "run.deck" || name == "run.wrpsimsignal")
          << "written into the start folder: " << name;
    }
    EXPECT_EQ(fromload(fromapart.out), fromload(inown.out));
    EXPECT_TRUE(wft::contains(fromapart.out, "\n STL file = part.stl\n")) << fromapart.out;
  }
};

}  // namespace

TEST_F(Jobs, SpreadOverFoldersTheyWriteWhatTheyWriteInTheirOwnFolder) {
  run("*IOFF\n-1\n*REFG\nref.stl\n*OUTP\npart_warp.stl\n*WRTU\n*OVTK\n*O3MF\n*MINE\n3.0\n*MAXE\n8.0\n");
  expectsame();
  EXPECT_TRUE(wft::contains(fromapart.out, "\n Reading ref.stl\n")) << fromapart.out;
  EXPECT_TRUE(fs::exists(apart + "/input/part_warp_color/3D/3dmodel.model"));
}

// The first pass looks for an earlier output in the case folder, before it enters the folder of
// the solver input: a second run of the job in its own folder finds the first run's output and
// names its text report after the stem; spread over two folders, it does not. The read-back of
// the written surface follows the folders too.
TEST_F(Jobs, TheFirstPassLooksForAnEarlierOutputInTheCaseFolder) {
  const std::string options = "*IOFF\n-1\n*OUTP\npart_warp.stl\n*WRTU\n*TSRD\n*MINE\n3.0\n*MAXE\n8.0\n";
  run(options);
  expectsame();
  EXPECT_TRUE(wft::contains(fromapart.out, "\n Reading part_warp.stl\n")) << fromapart.out;
  run(options);
  EXPECT_TRUE(fs::exists(own + "/part_warp_wrtu.txt"));
  EXPECT_FALSE(fs::exists(apart + "/input/part_warp_wrtu.txt"));
  EXPECT_EQ(wft::readfile(apart + "/input/part_warp.stl_wrtu.txt"), wft::readfile(own + "/part_warp_wrtu.txt"));
}
