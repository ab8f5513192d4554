// SPDX-License-Identifier: GPL-2.0-or-later
// The repair client: the console lines and statuses of repairsurface on real and on substituted
// component operations, and repairsurfaces with its skips, names, extended choice and messages.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "control/messages.h"
#include "repair/repairclient.h"
#include "repair/repairops.h"
#include "repair/stlfixtures.h"
#include "testutil.h"

using namespace wft;
using namespace wf;

namespace {

int nfree = 0, nfreecontext = 0;

struct Client : ::testing::Test {
  RunState rs;
  std::string dir;
  std::unique_ptr<InFolder> in;
  void SetUp() override {
    dir = tempdir("client");
    in = std::make_unique<InFolder>(dir);
    rs.signalunit = std::tmpfile();
    rs.messagecatalogue =
        nlohmann::json::parse(readfile(std::string(WARPFORGE_SOURCE_DIR) + "/data/simsolver.arb"));
    rs.catalogueok = true;
    nfree = nfreecontext = 0;
  }
  void TearDown() override {
    repairops() = componentops();
    std::fclose(rs.signalunit);
    in.reset();
  }
  std::string signals() {
    std::fflush(rs.signalunit);
    std::rewind(rs.signalunit);
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0) s.append(buf, n);
    return s;
  }
  std::vector<std::string> repair(const std::string &infile, const std::string &outfile,
                                  int extended, int &status, double tolerance = 0.01) {
    ::testing::internal::CaptureStdout();
    status = repairsurface(rs, infile, outfile, tolerance, extended);
    return splitlines(::testing::internal::GetCapturedStdout());
  }
  std::string runsurfaces(bool tolerate, bool checkorient) {
    ::testing::internal::CaptureStdout();
    try {
      repairsurfaces(rs, tolerate, checkorient);
    } catch (...) {
      ::testing::internal::GetCapturedStdout();
      throw;
    }
    return ::testing::internal::GetCapturedStdout();
  }
  void surfaces(const std::vector<std::string> &files, const std::vector<int32_t> &watertight,
                const std::vector<int32_t> &types) {
    rs.stlfiles.v = files;
    rs.stlfiles.n = int32_t(files.size());
    rs.surfwatertight = watertight;
    rs.stltype.v = types;
    rs.stltype.n = int32_t(types.size());
  }
};

Mesh opencube() {
  Mesh m = cube();
  m.pop_back();
  return m;
}

// Lines from the first one that equals `from`.
std::vector<std::string> from(const std::vector<std::string> &lines, const std::string &first) {
  for (size_t i = 0; i < lines.size(); ++i)
    if (lines[i] == first) return std::vector<std::string>(lines.begin() + long(i), lines.end());
  return {};
}

}  // namespace

TEST_F(Client, RepairedSurfaceLinesAndFile) {
  writebinary("part.stl", opencube());
  int status = 99;
  auto lines = repair("part.stl", "part_ls_repair.stl", 0, status);
  EXPECT_EQ(status, 0);
  std::vector<std::string> expected = {"Starting Tessero default repair...",
                                       "infile = part.stl",
                                       "outfile = part_ls_repair.stl",
                                       "Version 2019",
                                       "Loading mesh...",
                                       "facecount: 11",
                                       "Status: 0",
                                       "Repairing mesh with tolerance 0.01 ...",
                                       "facecount: 12",
                                       "Status: 1",
                                       "Saving repaired STL...",
                                       "Finished repair"};
  EXPECT_EQ(lines, expected);
  EXPECT_TRUE(admeshcheck(dir + "/part_ls_repair.stl").sound());
}

TEST_F(Client, UnsoundAfterDefaultRepair) {
  writebinary("strip.stl", mobius());
  int status = 0;
  auto lines = repair("strip.stl", "strip_ls_repair.stl", 0, status);
  EXPECT_EQ(status, -3);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "Status: 0");
  EXPECT_EQ(lines.back(), "Repair failed.");
  EXPECT_FALSE(fileexists("strip_ls_repair.stl"));

  // Only the low byte of the flag counts.
  lines = repair("strip.stl", "strip_ls_repair.stl", 0x100, status);
  EXPECT_EQ(status, -3);
  EXPECT_EQ(lines.back(), "Repair failed.");

  lines = repair("strip.stl", "strip_ls_repair.stl", 1, status);
  EXPECT_EQ(status, 0);
  std::vector<std::string> tail = {"Status: 0", "Default repair failed.  Trying extended repair...",
                                   "Status: 1", "Saving repaired STL...", "Finished repair"};
  auto got = from(lines, "Repairing mesh with tolerance 0.01 ...");
  ASSERT_EQ(got.size(), tail.size() + 2) << testing::PrintToString(lines);
  EXPECT_EQ(std::vector<std::string>(got.begin() + 2, got.end()), tail);
  EXPECT_TRUE(admeshcheck(dir + "/strip_ls_repair.stl").sound());
}

TEST_F(Client, ComponentErrorsEndInFatalError) {
  int status = 0;
  auto lines = repair("nothere.stl", "nothere_ls_repair.stl", 0, status);
  EXPECT_EQ(status, -1);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[lines.size() - 2], "Loading mesh...");
  EXPECT_EQ(lines.back(),
            "fatal error: cannot open STL file 'nothere.stl': No such file or directory");

  writefile("junk.stl", std::string(300, '\x01'));
  lines = repair("junk.stl", "junk_ls_repair.stl", 0, status);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(lines.back(), "fatal error: 'junk.stl' is not an STL file");

  writebinary("part.stl", opencube());
  lines = repair("part.stl", "no/folder/part_ls_repair.stl", 0, status);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(lines[lines.size() - 2], "Saving repaired STL...");
  EXPECT_NE(lines.back().find("fatal error: cannot write STL file"), std::string::npos);
}

TEST_F(Client, SubstitutedOperations) {
  writebinary("part.stl", opencube());
  RepairOps ops = componentops();
  ops.free = [](MeshRepairMesh *m) {
    ++nfree;
    meshrepair_free(m);
  };
  ops.freecontext = [](MeshRepairContext *c) {
    ++nfreecontext;
    meshrepair_freecontext(c);
  };
  int status = 0;

  RepairOps older = ops;
  older.getversion = [] { return 2018; };
  repairops() = older;
  auto lines = repair("part.stl", "out.stl", 0, status);
  EXPECT_EQ(status, -1);
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[3], "Version 2018");
  EXPECT_EQ(lines[4], "fatal error: invalid version");

  RepairOps noinit = ops;
  noinit.initcontext = [](MeshRepairContext **) { return 7; };
  repairops() = noinit;
  lines = repair("part.stl", "out.stl", 0, status);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(lines.back(), "fatal error: could not init dll: 7");

  RepairOps nocontext = ops;
  nocontext.initcontext = [](MeshRepairContext **c) {
    *c = nullptr;
    return 0;
  };
  repairops() = nocontext;
  lines = repair("part.stl", "out.stl", 0, status);
  EXPECT_EQ(lines.back(), "fatal error: no context");

  // A failing soundness call after the repair still prints its result first.
  static int calls;
  calls = 0;
  RepairOps badcheck = ops;
  badcheck.issane = [](MeshRepairMesh *m, int *r) {
    int s = meshrepair_issane(m, r);
    return ++calls == 2 ? 5 : s;
  };
  repairops() = badcheck;
  lines = repair("part.stl", "out.stl", 0, status);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(lines[lines.size() - 2], "Status: 1");
  EXPECT_EQ(lines.back(), "fatal error: ");

  // Handles are released on every way out, the successful one included.
  nfree = nfreecontext = 0;
  repairops() = ops;
  lines = repair("part.stl", "out.stl", 0, status);
  EXPECT_EQ(status, 0);
  lines = repair("missing.stl", "out.stl", 0, status);
  EXPECT_EQ(status, -1);
  writebinary("strip.stl", mobius());
  lines = repair("strip.stl", "out2.stl", 0, status);
  EXPECT_EQ(status, -3);
  EXPECT_EQ(nfree, 2);
  EXPECT_EQ(nfreecontext, 3);
}

TEST_F(Client, NumbersFollowTheConsoleMode) {
  writebinary("part.stl", opencube());
  rs.conhex = true;
  int status = 0;
  auto lines = repair("part.stl", "out.stl", 0, status, 0.0123456789);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lines[3], "Version 7E3");
  EXPECT_EQ(lines[5], "facecount: B");
  EXPECT_EQ(lines[7], "Repairing mesh with tolerance 0.0123457 ...");
  EXPECT_EQ(lines[8], "facecount: C");
}

TEST_F(Client, SurfacesSkipsNamesAndMessages) {
  writebinary("a.stl", cube());
  writebinary("b.stl", opencube());
  surfaces({"a.stl", "b.stl"}, {-1, 0}, {1, 1});
  std::string out = runsurfaces(false, false);
  EXPECT_EQ(rtrim(rs.stlfiles[0]), "a.stl");
  EXPECT_EQ(rtrim(rs.stlfiles[1]), "b_ls_repair.stl");
  EXPECT_FALSE(fileexists("a_ls_repair.stl"));
  EXPECT_TRUE(admeshcheck(dir + "/b_ls_repair.stl").sound());
  EXPECT_EQ(signals(), "");

  // With the orientation asked for, a watertight surface that is not oriented is repaired.
  surfaces({"a.stl", "b.stl"}, {-1, -1}, {1, 1});
  rs.surforiented = {0, -1};
  runsurfaces(false, true);
  EXPECT_EQ(rtrim(rs.stlfiles[0]), "a_ls_repair.stl");
  EXPECT_EQ(rtrim(rs.stlfiles[1]), "b.stl");

  // A file that does not exist keeps its whole name before the suffix; a critical warning.
  surfaces({"gone.stl"}, {0}, {1});
  out = runsurfaces(true, false);
  EXPECT_EQ(rtrim(rs.stlfiles[0]), "gone.stl_ls_repair.stl");
  EXPECT_NE(out.find("*** CRITICAL WARNING: 1"), std::string::npos) << out;
  EXPECT_NE(out.find("Code 1011"), std::string::npos) << out;
  std::string sig = signals();
  EXPECT_NE(sig.find("{\"message\": {\"type\": \"critical warning\", \"code\": 1011, "
                     "\"variables\": [\"gone.stl\"]"),
            std::string::npos)
      << sig;

  // Not tolerated: message 46 after the loop, and the run ends.
  surfaces({"gone.stl", "b.stl"}, {0, 0}, {1, 1});
  EXPECT_THROW(runsurfaces(false, false), RunAborted);
  sig = signals();
  EXPECT_NE(sig.find("\"code\": 46"), std::string::npos) << sig;
  EXPECT_LT(sig.rfind("\"code\": 1011"), sig.find("\"code\": 46"));
  EXPECT_EQ(rtrim(rs.stlfiles[1]), "b_ls_repair.stl") << "the loop finishes first";
}

TEST_F(Client, ExtendedByTypeOrCard) {
  writebinary("strip.stl", mobius());
  surfaces({"strip.stl"}, {0}, {1});
  runsurfaces(true, false);
  EXPECT_FALSE(fileexists("strip_ls_repair.stl"));
  EXPECT_NE(signals().find("\"code\": 1011"), std::string::npos);

  surfaces({"strip.stl"}, {0}, {3});
  runsurfaces(true, false);
  EXPECT_TRUE(fileexists("strip_ls_repair.stl"));
  std::remove("strip_ls_repair.stl");

  rs.tsreflag = true;
  surfaces({"strip.stl"}, {0}, {1});
  std::string out = runsurfaces(true, false);
  EXPECT_NE(out.find("Default repair failed.  Trying extended repair..."), std::string::npos);
  EXPECT_TRUE(admeshcheck(dir + "/strip_ls_repair.stl").sound());
}

TEST_F(Client, NamesWithoutExtension) {
  writebinary("plain", opencube());
  std::filesystem::create_directory("sub.d");
  writebinary("sub.d/plain", opencube());
  surfaces({"plain", "sub.d/plain"}, {0, 0}, {1, 1});
  runsurfaces(true, false);
  EXPECT_EQ(rtrim(rs.stlfiles[0]), "plain_ls_repair.stl");
  EXPECT_TRUE(fileexists("plain_ls_repair.stl"));
  // The extension is cut at the last dot of the whole path, folders included.
  EXPECT_EQ(rtrim(rs.stlfiles[1]), "sub_ls_repair.stl");
}
