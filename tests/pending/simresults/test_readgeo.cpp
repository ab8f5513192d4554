// SPDX-License-Identifier: GPL-2.0-or-later
// The geometry file in both forms: ids on and off, extents, the padded file names, and broken
// files, which must end in a coded read error naming the file.
#include "simresults/readgeo.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "simtest.h"

using namespace wf;
using ints = std::vector<int32_t>;

namespace {

ints iota(int n) {
  ints v(static_cast<size_t>(n));
  std::iota(v.begin(), v.end(), 1);
  return v;
}

// Two hexahedra sharing a face: 12 nodes.
struct Geo {
  std::string first = "C Binary";
  bool extents = true;
  std::vector<float> xyz[3];
  ints nodeids, elemids;  // empty: "off"
  ints conn = {1, 2, 5, 4, 7, 8, 11, 10, 2, 3, 6, 5, 8, 9, 12, 11};
  int32_t nn = 12, ne = 2;  // the counts written
  Geo() {
    for (int i = 0; i < 12; ++i) {
      xyz[0].push_back(0.1f * static_cast<float>(i % 3));
      xyz[1].push_back(0.3f * static_cast<float>(i / 3 % 2));
      xyz[2].push_back(1.7f * static_cast<float>(i / 6));
    }
  }
  std::string binary() const {
    simtest::Records r;
    for (const char *t : {first.c_str(), "description one", "description two"}) r.text(t);
    r.text(nodeids.empty() ? "node id off" : "node id given");
    r.text(elemids.empty() ? "element id off" : "element id given");
    if (extents) r.text("extents"), r.vals(std::vector<float>{0, 0.2f, 0, 0.3f, 0, 1.7f});
    r.text("part"), r.i(1), r.text("two hexahedra"), r.text("coordinates"), r.i(nn);
    if (!nodeids.empty()) r.vals(nodeids);
    r.vals(xyz[0]), r.vals(xyz[1]), r.vals(xyz[2]), r.text("hexa8"), r.i(ne);
    if (!elemids.empty()) r.vals(elemids);
    r.vals(conn);
    return r.b;
  }
  // Text form: ids on under a word other than "off" and other than that of the binary form.
  std::string text() const {
    std::string s = "description one\ndescription two\n";
    s += std::string(nodeids.empty() ? "node id off\n" : "node id assign\n") +
         (elemids.empty() ? "element id off\n" : "element id given\n");
    if (extents) s += "extents\n 0.0 0.2\n 0.0 0.3\n 0.0 1.7\n";
    s += "part\n         1\ntwo hexahedra\ncoordinates\n" + std::to_string(nn) + "\n";
    char b[32];
    for (int32_t id : nodeids) s += std::to_string(id) + "\n";
    for (const auto &c : xyz)
      for (float v : c) s.append(b, static_cast<size_t>(std::snprintf(b, sizeof b, "%12.9g\n", double(v))));
    s += "hexa8\n" + std::to_string(ne) + "\n";
    for (int32_t id : elemids) s += std::to_string(id) + "\n";
    for (size_t k = 0; k < conn.size(); ++k) s += " " + std::to_string(conn[k]) + (k % 8 == 7 ? "\n" : "");
    return s;
  }
};

struct ReadGeo : simtest::SimTest {
  void SetUp() override {
    SimTest::SetUp();
    std::filesystem::create_directories("results");
    rs.casestem = "job";
    rs.meshfilenumber = 3;
  }
  void read(const Geo &g, const std::string &body) {
    wft::writefile("results/job_3.geo", body);
    readgeo(rs, ".geo");
    std::vector<double> xyz;
    for (size_t i = 0; i < 12; ++i) xyz.insert(xyz.end(), {g.xyz[0][i], g.xyz[1][i], g.xyz[2][i]});
    EXPECT_EQ(rs.nodexyz, xyz);
    EXPECT_EQ(std::pair(rs.nnodes, rs.nelems), std::pair(12, g.ne));
    EXPECT_EQ(rs.elemconn, g.conn);
  }
};

}  // namespace

TEST_F(ReadGeo, BothFormsWithIdsOnAndOff) {
  Geo ids, off, textids, none;
  ids.first = "Fortran Binary";
  ids.nodeids = {10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30, 32};
  ids.elemids = {5, 6};
  off.extents = textids.extents = false;
  textids.nodeids = ids.nodeids;
  textids.elemids = {3, 1};  // the element index is sized by the largest id
  none.conn.clear();  // no elements: an empty element index
  none.ne = 0;
  // Text records padded with NUL characters, as C writers leave them, read as blank-padded.
  std::string nul = off.binary();
  std::fill(nul.begin() + 12, nul.begin() + 84, '\0');                    // behind "C Binary"
  std::fill(nul.begin() + 88 * 3 + 15, nul.begin() + 88 * 3 + 84, '\0');  // behind "node id off"
  ints index32(32);
  for (int i = 0; i < 12; ++i) index32[9 + 2 * static_cast<size_t>(i)] = i + 1;
  struct Case {
    std::string body;
    bool binary;
    const Geo &g;
    ints nodeindex, elemindex;
  } cases[] = {{ids.binary(), true, ids, index32, {0, 0, 0, 0, 1, 2}},
               {off.binary(), true, off, iota(12), iota(2)},
               {nul, true, off, iota(12), iota(2)},
               {textids.text(), false, textids, index32, {2, 0, 1}},
               {none.binary(), true, none, iota(12), {}}};
  for (const Case &c : cases) {
    SCOPED_TRACE(&c - cases);
    read(c.g, c.body);
    EXPECT_EQ(rs.resultsbinary, c.binary);
    EXPECT_EQ(rs.nodeid, c.g.nodeids.empty() ? iota(12) : c.g.nodeids);
    EXPECT_EQ(rs.elemid, c.g.elemids.empty() ? iota(c.g.ne) : c.g.elemids);
    EXPECT_EQ(rs.nodeindex, c.nodeindex);
    EXPECT_EQ(rs.elemindex, c.elemindex);
    EXPECT_EQ(console(), " Mesh file           =   results/job_3.geo\n");
  }

  // Ids that do not ascend: the index reaches the largest id it can hold, never written past.
  Geo g;
  g.nodeids = {5, 2, 9, 1, 0, -3, 12, 11, 10, 8, 7, 2000000000};
  g.elemids = {-1, 4};
  read(g, g.binary());
  EXPECT_LT(rs.nodeindex.size(), 100000000u);
  ASSERT_GE(rs.nodeindex.size(), 12u);
  EXPECT_EQ((ints{rs.nodeindex[4], rs.nodeindex[8], rs.nodeindex[0], rs.nodeindex[11]}), (ints{1, 3, 4, 7}));
  EXPECT_EQ(rs.elemindex, (ints{0, 0, 0, 2}));
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadGeo, FileNamesPaddedAndCloud) {
  // The plain number first, then zero-padded widths 1 to 10, each shadowing the later ones.
  wft::writefile("results/job_00-4.geo", "");
  for (auto [name, number] : {std::pair{"results/job_003.geo", 3}, {"results/job_03.geo", 3},
                              {"results/job_3.geo", 3}, {"results/job_0000000012.geo", 12},
                              {"results/job_-004.geo", -4}}) {
    wft::writefile(name, "");
    EXPECT_EQ(findresultfile(rs, "results/job_", number, ".geo"), name);
  }
  aborts([&] { findresultfile(rs, "results/job_", 7, ".geo"); }, "30 results/job_0000000007.geo");

  // In the cloud layout the mesh lies below the cloud folder, under the fixed stem.
  rs.cloudlayout = true;
  rs.cloudprefix = "out/sim/";
  rs.cloudstem = "kelmechanical";
  rs.meshfilenumber = 2;
  std::filesystem::create_directories("out/sim/results");
  wft::writefile("out/sim/results/kelmechanical_02.geo", Geo().binary());
  console();
  readgeo(rs, ".geo");
  EXPECT_EQ(rs.nnodes, 12);
  EXPECT_EQ(console(), " Mesh file           =   out/sim/results/kelmechanical_02.geo\n");
}

TEST_F(ReadGeo, BrokenFilesEndInCodedReadErrors) {
  const std::string good = Geo().binary();
  auto marker = [&](size_t at, int32_t v) { return std::string(good).replace(at, 4, reinterpret_cast<char *>(&v), 4); };
  Geo big, negative, manyelems, longer, texthuge;
  big.nn = 2000000000;
  negative.nn = -5;
  manyelems.ne = 300000000;
  longer.xyz[1].push_back(1.0f);  // a coordinate record one value longer than the count
  texthuge.nn = 900000000;
  std::string textword = Geo().text(), nomarkers = "C Binary" + std::string(72, ' ') + std::string(400, '\x01');
  textword.replace(textword.find("hexa8"), 5, "hexa8\nabc");
  for (auto [what, body, code] : std::vector<std::tuple<const char *, std::string, const char *>>{
           {"empty", "", "28"},
           {"cut in the header", good.substr(0, 200), "28"},
           {"cut inside a header record", good.substr(0, 90 + 88 * 2), "28"},
           {"cut in the coordinates", good.substr(0, 900), "29"},
           {"cut in the element type line", good.substr(0, good.size() - 150), "28"},
           {"cut in the connectivity", good.substr(0, good.size() - 10), "29"},
           {"trailing marker differs", marker(88 + 84, 81), "29"},
           {"leading marker too short", marker(88, 12), "29"},
           {"negative marker", marker(88, -80), "29"},
           {"record longer than the count", longer.binary(), "29"},
           {"node count beyond the file", big.binary(), "29"},
           {"negative node count", negative.binary(), "29"},
           {"element count beyond the file", manyelems.binary(), "29"},
           {"text: a word among the numbers", textword, "29"},
           {"text: count beyond the file", texthuge.text(), "29"},
           {"C Binary without record markers", nomarkers, "28"}}) {  // read as text: no second line
    SCOPED_TRACE(what);
    wft::writefile("results/job_3.geo", body);
    aborts([&] { readgeo(rs, ".geo"); }, std::string(code) + " results/job_3.geo");
  }
}
