// SPDX-License-Identifier: GPL-2.0-or-later
// Post-warp check with the real surface code and repair component: repair that succeeds, fails or
// needs the extended pass, a repaired file left by an earlier run, *TSRD off, the release of the
// arrays, and the combined reader (a clean and an open surface in a whole run: recheckrun_test).
#include "recheck/recheck.h"

#include <tuple>

#include "control/textio.h"
#include "recheck/readcombined.h"
#include "repair/stlfixtures.h"

using namespace wft;
using namespace wf;

namespace {

const std::string repaired = "job_2_warp_ls_repair.stl";

struct Recheck : InFolderTest {
  void SetUp() override {
    InFolderTest::SetUp();
    rs.tsrdflag = true;
    setlist({"part.stl", "other.stl"}, {1, 1}, {-1, -1});  // the job's list; this is pass 2
    rs.curstlid = 2;
    rs.outstlpath = "job_2_warp.stl";
  }
  std::string step() {
    return console([&] { recheckstep(rs); });
  }
  void expectjoblist() {
    EXPECT_EQ(rs.stlfiles.v, (std::vector<std::string>{"part.stl", "other.stl"}));
    EXPECT_EQ(std::make_tuple(rs.stlfiles.n, rs.stltype.n, rs.surfwatertight.size(), rs.curstlid),
              std::make_tuple(2, 2, size_t(2), 2));
  }
};

std::string padded(std::string s) {
  s.resize(8192, ' ');
  return s;
}

}  // namespace

TEST_F(Recheck, FailedSurfaceIsRepairedOrWarnedAbout) {
  // A sliver whose two corners were written alike has a side of length zero after the merge.
  Mesh sliver = join(cube(), {cube()[2]});
  for (int d = 0; d < 3; ++d) sliver[12].c[3 + d] = sliver[12].c[d];
  const Mesh twoboxes = join(cube(), box(20, 0, 0, 5, 5, 5));
  const struct {
    const char *what;
    Mesh output, earlier;  // earlier: a repaired file left by an earlier run, if any
    bool tsre;
    std::string name;  // of the output after the step
    int facets;        // of the repaired file after the step: 0 none, -1 any
    std::string shown;
  } cases[] = {
      {"sliver", sliver, {}, false, repaired, 12, "\nFinished repair\n"},
      {"strip with *TSRE", mobius(), {}, true, repaired, -1, "\nFinished repair\n"},
      // Beyond the default repair: message 1011, and the run goes on (a failure is tolerated).
      {"strip", mobius(), {}, false, repaired, 0, "*** CRITICAL WARNING: 1\n"},
      // A sound repaired file is read back in place of the fresh output, and the name stays.
      {"sound earlier repair", opencube(), twoboxes, false, "job_2_warp.stl", 24,
       "Detected repaired STL."},
      // A broken one fails the check; the repair starts from the fresh output and replaces it.
      {"broken earlier repair", twoboxes, opencube(), false, repaired, 24, "\nFinished repair\n"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove(repaired);
    if (!c.earlier.empty()) writebinary(repaired, c.earlier);
    writebinary("job_2_warp.stl", c.output);
    rs.outstlpath = "job_2_warp.stl";
    rs.tsreflag = c.tsre;
    const size_t seen = signals().size();
    std::string out = step();
    const std::string sig = signals().substr(seen);
    const bool repair = c.name == repaired;
    EXPECT_EQ(rs.outstlpath, padded(c.name));
    EXPECT_TRUE(contains(out, c.shown)) << out;
    EXPECT_EQ(contains(out, "has non-manifold edges"), repair) << out;
    EXPECT_EQ(contains(out,
                       "\nStarting Tessero default repair...\ninfile = job_2_warp.stl\n"
                       "outfile = job_2_warp_ls_repair.stl\n"),
              repair)
        << out;
    EXPECT_EQ(contains(out, "Default repair failed.  Trying extended repair..."), c.tsre) << out;
    EXPECT_EQ(rs.partvrtstart.empty(), repair) << "freecombined before a repair";
    EXPECT_TRUE(fileexists("job_2_warp.stl")) << "the written surface stays";
    expectjoblist();
    EXPECT_EQ(contains(sig, "\"code\": 1011"), c.facets == 0) << sig;
    EXPECT_EQ(fileexists(repaired), c.facets != 0);
    if (c.facets > 0) EXPECT_EQ(readbinary(repaired).size(), size_t(c.facets));
    if (repair && c.facets != 0) {  // a repaired file passes our own check
      rs.outstlpath = repaired;
      EXPECT_FALSE(contains(step(), "Starting Tessero"));
    }
  }
}

TEST_F(Recheck, OffWithoutTsrdAndFatalWithoutOutput) {
  rs.tsrdflag = false;
  rs.tsreflag = true;
  writebinary("job_2_warp.stl", opencube());
  EXPECT_EQ(step(), "");
  EXPECT_EQ(rs.outstlpath, "job_2_warp.stl");
  EXPECT_FALSE(fileexists("job_2_warp_ls_repair.stl"));

  // A missing output ends the run as the reader does, the job's list put back.
  rs.tsrdflag = true;
  std::filesystem::remove("job_2_warp.stl");
  EXPECT_THROW(step(), RunAborted);
  EXPECT_TRUE(contains(signals(), "\"code\": 30")) << signals();
  expectjoblist();
}

TEST(FreeSurface, ReleasesTheArraysOfAPass) {
  // One array of each kind: raw corners, triangles, edges, flags, and the normals.
  RunState rs;
  rs.nrawvrt = rs.nvrt = rs.ntri = rs.nedge = 5;
  rs.rawvrt.assign(15, 1);
  rs.stltri.assign(15, 1);
  rs.edgevrt.assign(10, 1);
  rs.triactive.assign(5, 1);
  rs.fullnormals = true;
  rs.surfwatertight = {-1};
  freesurface(rs);
  EXPECT_EQ(
      rs.rawvrt.capacity() + rs.stltri.capacity() + rs.edgevrt.capacity() + rs.triactive.capacity(),
      0u);
  EXPECT_EQ(rs.nrawvrt + rs.nvrt + rs.ntri + rs.nedge, 0);
  EXPECT_FALSE(rs.fullnormals);
  EXPECT_EQ(rs.surfwatertight.size(), 1u) << "run-long arrays stay";
}

TEST_F(InFolderTest, ReadCombinedJoinsFilesWithStartsBoxesAndTotals) {
  const Mesh b = box(20, -5, 1, 2, 3, 4);
  writebinary("a.stl", cube());
  writebinary("b.stl", b);
  setlist({"a.stl"}, {}, {});
  std::string out = console([&] { readcombined(rs, false); });
  EXPECT_FALSE(contains(out, "Total")) << "one file prints no totals\n" << out;
  setlist({"a.stl", "b.stl"}, {}, {});
  out = console([&] { readcombined(rs, false); });
  EXPECT_TRUE(contains(out, " Total number of vertices  = 72\n Total number of triangles = 24\n\n"))
      << out;
  EXPECT_TRUE(contains(out, " Total bounding box:\n" + scitext(0.0) + " <= x <= " + scitext(22.0) +
                                "\n" + scitext(-5.0) + " <= y <= " + scitext(10.0) + "\n" +
                                scitext(0.0) + " <= z <= " + scitext(10.0) + "\n\n"))
      << out;
  EXPECT_EQ(rs.partvrtstart, (std::vector<int32_t>{1, 37, 73}));
  EXPECT_EQ(rs.parttristart, (std::vector<int32_t>{1, 13, 25}));
  ASSERT_EQ(rs.partbox.size(), 12u);
  EXPECT_EQ(std::vector<double>(rs.partbox.begin() + 6, rs.partbox.end()),
            (std::vector<double>{20, -5, 1, 22, -2, 5}));
  EXPECT_EQ(std::make_pair(rs.nrawvrt, rs.ntri), std::make_pair(72, 24));
  ASSERT_EQ(rs.rawvrt.size(), 216u);
  EXPECT_TRUE(rs.stlvrt.empty());
  // The second file follows the first, three columns per triangle.
  for (int k = 0; k < 9; ++k) EXPECT_EQ(rs.rawvrt[3 * 36 + size_t(k)], double(b[0].c[k]));

  // An empty list: allowed gives an empty set, otherwise message 47 ends the run.
  setlist({}, {}, {});
  console([&] { readcombined(rs, true); });
  EXPECT_EQ(rs.nrawvrt, 0);
  EXPECT_EQ(rs.partvrtstart, (std::vector<int32_t>{1}));
  EXPECT_THROW(console([&] { readcombined(rs, false); }), RunAborted);
  EXPECT_TRUE(contains(signals(), "\"code\": 47")) << signals();
}
