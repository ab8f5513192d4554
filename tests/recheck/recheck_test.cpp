// SPDX-License-Identifier: GPL-2.0-or-later
// Post-warp check with the real surface code and repair component: clean read-back, repair that
// succeeds, fails or needs the extended pass, a repaired file left by an earlier run, *TSRE alone,
// the release of the arrays, and the combined reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "control/messages.h"
#include "control/textio.h"
#include "recheck/readcombined.h"
#include "recheck/recheck.h"
#include "repair/stlfixtures.h"
#include "surface/readstl.h"
#include "surface/surfacemesh.h"
#include "testutil.h"

using namespace wft;
using namespace wf;

namespace {

struct Recheck : ::testing::Test {
  RunState rs;
  std::string dir;
  std::unique_ptr<InFolder> in;
  void SetUp() override {
    dir = tempdir("recheck");
    in = std::make_unique<InFolder>(dir);
    rs.signalunit = std::tmpfile();
    rs.messagecatalogue =
        nlohmann::json::parse(readfile(std::string(WARPFORGE_SOURCE_DIR) + "/data/simsolver.arb"));
    rs.catalogueok = true;
    rs.tsrdflag = true;
    // The job's own list: two surfaces, this pass is the second.
    rs.stlfiles.v = {"part.stl", "other.stl"};
    rs.stlfiles.n = 2;
    rs.stltype.v = {1, 1};
    rs.stltype.n = 2;
    rs.surfwatertight = {-1, -1};
    rs.curstlid = 2;
    rs.outstlpath = "job_2_warp.stl";
  }
  void TearDown() override {
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
  std::string step() {
    ::testing::internal::CaptureStdout();
    try {
      recheckstep(rs);
    } catch (...) {
      std::string out = ::testing::internal::GetCapturedStdout();
      ADD_FAILURE() << "recheckstep threw; console:\n" << out;
      throw;
    }
    return ::testing::internal::GetCapturedStdout();
  }
  void expectjoblist() {
    ASSERT_EQ(rs.stlfiles.n, 2);
    EXPECT_EQ(rs.stlfiles[0], "part.stl");
    EXPECT_EQ(rs.stlfiles[1], "other.stl");
    EXPECT_EQ(rs.stltype.n, 2);
    EXPECT_EQ(rs.surfwatertight.size(), 2u);
    EXPECT_EQ(rs.curstlid, 2);
  }
};

// Our own check of a file: read and prepared like an input surface, status 0 when every edge has
// two triangles.
int owncheck(const std::string &path) {
  RunState rs;
  rs.stlpath = path;
  rs.stlfiles.v = {path};
  rs.stlfiles.n = 1;
  ::testing::internal::CaptureStdout();
  int status = -9;
  bool oriented = false;
  readstl(rs, true);
  preparesurface(rs, status, false, false, oriented);
  ::testing::internal::GetCapturedStdout();
  return status;
}

std::string padded(const std::string &s) {
  std::string p = s;
  p.resize(8192, ' ');
  return p;
}

Mesh opencube() {
  Mesh m = cube();
  m.pop_back();
  return m;
}

}  // namespace

TEST_F(Recheck, CleanSurfaceKeepsItsName) {
  writebinary("job_2_warp.stl", cube());
  std::string out = step();
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp.stl"));
  EXPECT_NE(out.find(" Reading job_2_warp.stl"), std::string::npos) << out;
  EXPECT_NE(out.find("Calculating surface normals"), std::string::npos) << out;
  EXPECT_EQ(out.find("Starting Tessero"), std::string::npos) << out;
  EXPECT_EQ(out.find("Total number"), std::string::npos) << "one file prints no totals";
  EXPECT_FALSE(fileexists("job_2_warp_ls_repair.stl"));
  EXPECT_EQ(rs.nrgtri.size(), 3u * 12u);
  EXPECT_EQ(rs.partvrtstart, (std::vector<int32_t>{1, 37}));
  EXPECT_EQ(rs.parttristart, (std::vector<int32_t>{1, 13}));
  EXPECT_EQ(signals(), "");
  expectjoblist();
}

TEST_F(Recheck, OpenSurfaceIsRepaired) {
  writebinary("job_2_warp.stl", opencube());
  std::string out = step();
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp_ls_repair.stl"));
  EXPECT_NE(out.find("is not watertight"), std::string::npos) << out;
  EXPECT_NE(out.find("has non-manifold edges"), std::string::npos) << out;
  EXPECT_NE(out.find("\nStarting Tessero default repair...\ninfile = job_2_warp.stl\n"
                     "outfile = job_2_warp_ls_repair.stl\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("\nFinished repair\n"), std::string::npos) << out;
  EXPECT_EQ(signals(), "");
  EXPECT_TRUE(fileexists("job_2_warp.stl")) << "the written surface stays";
  EXPECT_TRUE(admeshcheck(dir + "/job_2_warp_ls_repair.stl").sound());
  EXPECT_EQ(owncheck("job_2_warp_ls_repair.stl"), 0);
  EXPECT_TRUE(rs.partvrtstart.empty()) << "freecombined before the repair";
  expectjoblist();
}

TEST_F(Recheck, CornersThatMergeOnReadBack) {
  // A sliver whose two corners were written alike: after the merge one side has length zero.
  Mesh m = cube();
  Tri sliver = m[2];
  for (int d = 0; d < 3; ++d) sliver.c[3 + d] = sliver.c[d];
  m.push_back(sliver);
  writebinary("job_2_warp.stl", m);
  std::string out = step();
  EXPECT_EQ(rtrim(rs.outstlpath), "job_2_warp_ls_repair.stl");
  EXPECT_NE(out.find("Finished repair"), std::string::npos) << out;
  EXPECT_EQ(readbinary("job_2_warp_ls_repair.stl").size(), 12u);
  EXPECT_TRUE(admeshcheck(dir + "/job_2_warp_ls_repair.stl").sound());
  EXPECT_EQ(owncheck("job_2_warp_ls_repair.stl"), 0);
}

TEST_F(Recheck, UnrepairableSurfaceWarnsAndGoesOn) {
  writebinary("job_2_warp.stl",
              Mesh{Tri{{0, 0, 0, 1, 0, 0, 0, 1, 0}}, Tri{{5, 5, 5, 6, 5, 5, 5, 6, 5}}});
  std::string out = step();
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp_ls_repair.stl"));
  EXPECT_FALSE(fileexists("job_2_warp_ls_repair.stl"));
  EXPECT_NE(out.find("\nRepair failed.\n"), std::string::npos) << out;
  EXPECT_NE(out.find("*** CRITICAL WARNING: 1"), std::string::npos) << out;
  std::string sig = signals();
  EXPECT_NE(sig.find("{\"message\": {\"type\": \"critical warning\", \"code\": 1011, "
                     "\"variables\": [\"job_2_warp.stl\"], \"tag\": \"Signal tag "),
            std::string::npos)
      << sig;
  EXPECT_EQ(sig.find("\"code\": 46"), std::string::npos);
  expectjoblist();
}

TEST_F(Recheck, ExtendedRepairOnlyWithTsre) {
  writebinary("job_2_warp.stl", mobius());
  std::string out = step();
  EXPECT_NE(out.find("\nRepair failed.\n"), std::string::npos) << out;
  EXPECT_FALSE(fileexists("job_2_warp_ls_repair.stl"));
  EXPECT_NE(signals().find("\"code\": 1011"), std::string::npos);

  rs.outstlpath = "job_2_warp.stl";
  rs.tsreflag = true;
  out = step();
  EXPECT_NE(out.find("Default repair failed.  Trying extended repair..."), std::string::npos)
      << out;
  EXPECT_NE(out.find("\nFinished repair\n"), std::string::npos) << out;
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp_ls_repair.stl"));
  EXPECT_TRUE(admeshcheck(dir + "/job_2_warp_ls_repair.stl").sound());
  EXPECT_EQ(owncheck("job_2_warp_ls_repair.stl"), 0);
}

TEST_F(Recheck, RepairedFileFromAnEarlierRun) {
  // A sound one is read back in place of the fresh output, and the name stays.
  Mesh earlier = box(0, 0, 0, 4, 4, 4);
  writebinary("job_2_warp_ls_repair.stl", earlier);
  writebinary("job_2_warp.stl", opencube());
  std::string out = step();
  EXPECT_NE(out.find("Detected repaired STL."), std::string::npos) << out;
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp.stl"));
  EXPECT_EQ(readbinary("job_2_warp_ls_repair.stl").size(), earlier.size());
  EXPECT_NEAR(volume(readbinary("job_2_warp_ls_repair.stl")), 64.0, 1e-3);

  // A broken one fails the check; the repair starts from the fresh output and replaces it.
  writebinary("job_2_warp_ls_repair.stl", opencube());
  writebinary("job_2_warp.stl", box(0, 0, 0, 7, 7, 7));
  rs.outstlpath = "job_2_warp.stl";
  out = step();
  EXPECT_NE(out.find("infile = job_2_warp.stl\n"), std::string::npos) << out;
  EXPECT_EQ(rs.outstlpath, padded("job_2_warp_ls_repair.stl"));
  Mesh now = readbinary("job_2_warp_ls_repair.stl");
  EXPECT_EQ(now.size(), 12u);
  EXPECT_NEAR(volume(now), 343.0, 1e-3);
  EXPECT_TRUE(admeshcheck(dir + "/job_2_warp_ls_repair.stl").sound());
}

TEST_F(Recheck, TsreWithoutTsrdDoesNothing) {
  rs.tsrdflag = false;
  rs.tsreflag = true;
  writebinary("job_2_warp.stl", opencube());
  std::string out = step();
  EXPECT_EQ(out, "");
  EXPECT_EQ(rs.outstlpath, "job_2_warp.stl");
  EXPECT_FALSE(fileexists("job_2_warp_ls_repair.stl"));
  expectjoblist();
}

TEST_F(Recheck, MissingOutputEndsTheRunAsTheReaderDoes) {
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(recheckstep(rs), RunAborted);
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(signals().find("\"code\": 30"), std::string::npos);
  expectjoblist();
}

TEST(FreeSurface, ReleasesEveryArrayOfAPass) {
  RunState rs;
  rs.nrawvrt = rs.nvrt = rs.ntri = rs.nedge = 5;
  rs.rawvrt.assign(15, 1);
  rs.stlvrt.assign(15, 1);
  rs.stltri.assign(15, 1);
  rs.triedgesq.assign(15, 1);
  rs.prewarpvertices.assign(15, 1);
  for (auto *v : {&rs.edgevrt, &rs.edgetri, &rs.edgeopp, &rs.edgenbr, &rs.edgesurf, &rs.triedge})
    v->assign(10, 1);
  rs.edgelen.assign(5, 1);
  rs.triactive.assign(5, 1);
  rs.edgelevel.assign(5, 1);
  for (auto *v : {&rs.nrgtri, &rs.ugtri, &rs.vgtri, &rs.nnsqgtri, &rs.uugtri, &rs.uvgtri,
                  &rs.vvgtri, &rs.detgtri, &rs.dengtri})
    v->assign(15, 1);
  rs.fullnormals = true;
  rs.surfwatertight = {-1};
  freesurface(rs);
  for (auto *v : {&rs.rawvrt, &rs.stlvrt, &rs.triedgesq, &rs.prewarpvertices, &rs.edgelen,
                  &rs.nrgtri, &rs.ugtri, &rs.vgtri, &rs.nnsqgtri, &rs.uugtri, &rs.uvgtri,
                  &rs.vvgtri, &rs.detgtri, &rs.dengtri})
    EXPECT_EQ(v->capacity(), 0u);
  for (auto *v : {&rs.stltri, &rs.edgevrt, &rs.edgetri, &rs.edgeopp, &rs.edgenbr, &rs.edgesurf,
                  &rs.triedge})
    EXPECT_EQ(v->capacity(), 0u);
  EXPECT_EQ(rs.triactive.capacity(), 0u);
  EXPECT_EQ(rs.edgelevel.capacity(), 0u);
  EXPECT_EQ(rs.nrawvrt + rs.nvrt + rs.ntri + rs.nedge, 0);
  EXPECT_FALSE(rs.fullnormals);
  EXPECT_EQ(rs.surfwatertight.size(), 1u) << "run-long arrays stay";
}

TEST(ReadCombined, JoinsFilesWithStartsBoxesAndTotals) {
  std::string dir = tempdir("combined");
  InFolder in(dir);
  RunState rs;
  rs.signalunit = std::tmpfile();
  writebinary("a.stl", cube());
  writebinary("b.stl", box(20, -5, 1, 2, 3, 4));
  rs.stlfiles.v = {"a.stl", "b.stl"};
  rs.stlfiles.n = 2;
  ::testing::internal::CaptureStdout();
  readcombined(rs, false);
  std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find(" Total number of vertices  = 72\n Total number of triangles = 24\n\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find(" Total bounding box:\n" + scitext(0.0) + " <= x <= " + scitext(22.0) + "\n" +
                     scitext(-5.0) + " <= y <= " + scitext(10.0) + "\n" + scitext(0.0) +
                     " <= z <= " + scitext(10.0) + "\n\n"),
            std::string::npos)
      << out;
  EXPECT_EQ(rs.partvrtstart, (std::vector<int32_t>{1, 37, 73}));
  EXPECT_EQ(rs.parttristart, (std::vector<int32_t>{1, 13, 25}));
  ASSERT_EQ(rs.partbox.size(), 12u);
  EXPECT_EQ(std::vector<double>(rs.partbox.begin() + 6, rs.partbox.end()),
            (std::vector<double>{20, -5, 1, 22, -2, 5}));
  EXPECT_EQ(rs.nrawvrt, 72);
  EXPECT_EQ(rs.ntri, 24);
  ASSERT_EQ(rs.rawvrt.size(), 216u);
  EXPECT_TRUE(rs.stlvrt.empty());
  // The second file follows the first, three columns per triangle.
  Mesh b = box(20, -5, 1, 2, 3, 4);
  for (int k = 0; k < 9; ++k) EXPECT_EQ(rs.rawvrt[3 * 36 + size_t(k)], double(b[0].c[k]));
  EXPECT_EQ(rs.stlbbox.min[1], -5.0);
  EXPECT_EQ(rs.stlbbox.max[0], 22.0);
  EXPECT_EQ(rs.stlbbox.size[2], 10.0);

  // An empty list: allowed gives an empty set, otherwise message 47 ends the run.
  rs.stlfiles.v.clear();
  rs.stlfiles.n = 0;
  ::testing::internal::CaptureStdout();
  readcombined(rs, true);
  EXPECT_EQ(rs.nrawvrt, 0);
  EXPECT_EQ(rs.partvrtstart, (std::vector<int32_t>{1}));
  EXPECT_THROW(readcombined(rs, false), RunAborted);
  ::testing::internal::GetCapturedStdout();
  std::fflush(rs.signalunit);
  std::rewind(rs.signalunit);
  char buf[512] = {0};
  size_t got = std::fread(buf, 1, sizeof buf - 1, rs.signalunit);
  EXPECT_NE(std::string(buf, got).find("\"code\": 47"), std::string::npos);
  std::fclose(rs.signalunit);
}
