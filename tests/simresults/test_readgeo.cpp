// SPDX-License-Identifier: GPL-2.0-or-later
// The geometry file in both forms: ids on and off, extents, the padded file names, and broken
// files, which must end in a coded read error naming the file.
#include "simresults/readgeo.h"

#include <cstdio>

#include "simtest.h"

using namespace wf;
using simtest::Records;
using simtest::SimTest;

namespace {

constexpr int32_t kTrue = -2147483647 - 1;  // write the true count

// Two hexahedra sharing a face: 12 nodes.
struct Geo {
  std::string first = "C Binary";
  bool extents = true;
  std::vector<float> x, y, z;
  std::vector<int32_t> nodeids, elemids;  // empty: "off"
  std::vector<int32_t> conn;
  int32_t nnodes = kTrue, nelems = kTrue;  // the counts written
  Geo() {
    for (int k = 0; k < 2; ++k)
      for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 3; ++i) {
          x.push_back(0.1f * static_cast<float>(i));
          y.push_back(0.3f * static_cast<float>(j));
          z.push_back(1.7f * static_cast<float>(k));
        }
    conn = {1, 2, 5, 4, 7, 8, 11, 10, 2, 3, 6, 5, 8, 9, 12, 11};
  }
  int32_t nn() const { return nnodes != kTrue ? nnodes : static_cast<int32_t>(x.size()); }
  int32_t ne() const { return nelems != kTrue ? nelems : static_cast<int32_t>(conn.size() / 8); }

  std::string binary() const {
    Records r;
    r.text(first);
    r.text("description one");
    r.text("description two");
    r.text(nodeids.empty() ? "node id off" : "node id given");
    r.text(elemids.empty() ? "element id off" : "element id given");
    if (extents) {
      r.text("extents");
      r.floats({0, 0.2f, 0, 0.3f, 0, 1.7f});
    }
    r.text("part");
    r.i(1);
    r.text("two hexahedra");
    r.text("coordinates");
    r.i(nn());
    if (!nodeids.empty()) r.ints(nodeids);
    r.floats(x);
    r.floats(y);
    r.floats(z);
    r.text("hexa8");
    r.i(ne());
    if (!elemids.empty()) r.ints(elemids);
    r.ints(conn);
    return r.b;
  }

  std::string text() const {
    auto num = [](float v) {
      char b[32];
      std::snprintf(b, sizeof b, "%12.9g", static_cast<double>(v));
      return std::string(b);
    };
    std::string s = "description one\ndescription two\n";
    s += nodeids.empty() ? "node id off\n" : "node id assign\n";  // any word but off: ids stand
    s += elemids.empty() ? "element id off\n" : "element id given\n";
    if (extents) s += "extents\n 0.0 0.2\n 0.0 0.3\n 0.0 1.7\n";
    s += "part\n         1\ntwo hexahedra\ncoordinates\n" + std::to_string(nn()) + "\n";
    for (int32_t id : nodeids) s += std::to_string(id) + "\n";
    for (const auto *c : {&x, &y, &z})
      for (float v : *c) s += num(v) + "\n";
    s += "hexa8\n" + std::to_string(ne()) + "\n";
    for (int32_t id : elemids) s += std::to_string(id) + "\n";
    for (size_t e = 0; e < conn.size() / 8; ++e) {
      for (int c = 0; c < 8; ++c) s += " " + std::to_string(conn[8 * e + c]);
      s += "\n";
    }
    return s;
  }
};

struct ReadGeo : SimTest {
  void SetUp() override {
    SimTest::SetUp();
    std::filesystem::create_directories("results");
    rs.casestem = "job";
    rs.meshfilenumber = 3;
  }
  void expectmesh(const Geo &g) {
    ASSERT_EQ(rs.nnodes, 12);
    ASSERT_EQ(rs.nodexyz.size(), 36u);
    for (size_t i = 0; i < 12; ++i) {
      EXPECT_EQ(rs.nodexyz[3 * i], static_cast<double>(g.x[i]));
      EXPECT_EQ(rs.nodexyz[3 * i + 1], static_cast<double>(g.y[i]));
      EXPECT_EQ(rs.nodexyz[3 * i + 2], static_cast<double>(g.z[i]));
    }
    EXPECT_EQ(rs.nelems, 2);
    EXPECT_EQ(rs.elemconn, g.conn);
  }
};

std::vector<int32_t> iota(int n) {
  std::vector<int32_t> v;
  for (int i = 1; i <= n; ++i) v.push_back(i);
  return v;
}

}  // namespace

TEST_F(ReadGeo, BinaryWithIdsAndExtents) {
  Geo g;
  g.first = "Fortran Binary";
  for (int i = 0; i < 12; ++i) g.nodeids.push_back(10 + 2 * i);
  g.elemids = {5, 6};
  wft::writefile("results/job_3.geo", g.binary());
  readgeo(rs, ".geo");
  expectmesh(g);
  EXPECT_TRUE(rs.resultsbinary);
  EXPECT_EQ(rs.nodeid, g.nodeids);
  EXPECT_EQ(rs.elemid, g.elemids);
  ASSERT_EQ(rs.nodeindex.size(), 32u);  // up to the last id
  EXPECT_EQ(rs.nodeindex[9], 1);
  EXPECT_EQ(rs.nodeindex[10], 0);
  EXPECT_EQ(rs.nodeindex[31], 12);
  EXPECT_EQ(rs.elemindex, (std::vector<int32_t>{0, 0, 0, 0, 1, 2}));
  EXPECT_EQ(console(), " Mesh file           =   results/job_3.geo\n");
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadGeo, BinaryIdsOffAndTextForms) {
  Geo g;
  g.extents = false;
  wft::writefile("results/job_3.geo", g.binary());
  readgeo(rs, ".geo");
  expectmesh(g);
  EXPECT_TRUE(rs.resultsbinary);
  EXPECT_EQ(rs.nodeid, iota(12));
  EXPECT_EQ(rs.elemid, iota(2));
  EXPECT_EQ(rs.nodeindex, iota(12));

  // Text records padded with NUL characters, as C writers leave them, read as blank-padded.
  std::string nul = g.binary();
  for (size_t at : {4u + 8u, 88u * 3 + 4 + 11})  // behind "C Binary" and "node id off"
    std::fill(nul.begin() + static_cast<long>(at), nul.begin() + static_cast<long>(88 * (at / 88) + 84), '\0');
  wft::writefile("results/job_3.geo", nul);
  readgeo(rs, ".geo");
  expectmesh(g);
  EXPECT_TRUE(rs.resultsbinary);

  // Text, ids off, with extents.
  Geo t;
  wft::writefile("results/job_3.geo", t.text());
  readgeo(rs, ".geo");
  expectmesh(t);
  EXPECT_FALSE(rs.resultsbinary);
  EXPECT_EQ(rs.nodeid, iota(12));

  // Text, ids on, without extents.
  t.extents = false;
  t.nodeids = iota(12);
  t.nodeids[11] = 40;
  t.elemids = {3, 1};
  wft::writefile("results/job_3.geo", t.text());
  readgeo(rs, ".geo");
  expectmesh(t);
  EXPECT_FALSE(rs.resultsbinary);
  EXPECT_EQ(rs.nodeid, t.nodeids);
  EXPECT_EQ(rs.nodeindex.size(), 40u);
  EXPECT_EQ(rs.nodeindex[39], 12);
  EXPECT_EQ(rs.elemindex, (std::vector<int32_t>{2, 0, 1}));
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadGeo, IdsThatDoNotAscendStayInBounds) {
  Geo g;
  g.nodeids = {5, 2, 9, 1, 0, -3, 12, 11, 10, 8, 7, 2000000000};
  g.elemids = {-1, 4};
  wft::writefile("results/job_3.geo", g.binary());
  readgeo(rs, ".geo");
  expectmesh(g);
  // The index reaches the largest id it can hold; stray ids are left out, never written past.
  EXPECT_LT(rs.nodeindex.size(), 100000000u);
  ASSERT_GE(rs.nodeindex.size(), 12u);
  EXPECT_EQ(rs.nodeindex[4], 1);
  EXPECT_EQ(rs.nodeindex[8], 3);
  EXPECT_EQ(rs.nodeindex[0], 4);
  EXPECT_EQ(rs.nodeindex[11], 7);
  EXPECT_EQ(rs.elemindex, (std::vector<int32_t>{0, 0, 0, 2}));

  // No elements: an empty element index.
  Geo e;
  e.conn.clear();
  wft::writefile("results/job_3.geo", e.binary());
  readgeo(rs, ".geo");
  EXPECT_EQ(rs.nelems, 0);
  EXPECT_TRUE(rs.elemindex.empty());
}

TEST_F(ReadGeo, FileNamesPaddedAndCloud) {
  // The plain number first, then zero-padded widths 1 to 10.
  wft::writefile("results/job_003.geo", Geo().binary());
  EXPECT_EQ(findresultfile(rs, "results/job_", 3, ".geo"), "results/job_003.geo");
  wft::writefile("results/job_03.geo", Geo().binary());
  EXPECT_EQ(findresultfile(rs, "results/job_", 3, ".geo"), "results/job_03.geo");
  wft::writefile("results/job_3.geo", Geo().binary());
  EXPECT_EQ(findresultfile(rs, "results/job_", 3, ".geo"), "results/job_3.geo");
  wft::writefile("results/job_0000000012.geo", Geo().binary());
  EXPECT_EQ(findresultfile(rs, "results/job_", 12, ".geo"), "results/job_0000000012.geo");
  wft::writefile("results/job_00-4.geo", "");
  wft::writefile("results/job_-004.geo", "");
  EXPECT_EQ(findresultfile(rs, "results/job_", -4, ".geo"), "results/job_-004.geo");

  rs.meshfilenumber = 3;
  readgeo(rs, ".geo");
  EXPECT_TRUE(wft::contains(console(), "=   results/job_3.geo\n"));

  EXPECT_THROW(findresultfile(rs, "results/job_", 7, ".geo"), RunAborted);
  EXPECT_EQ(lastmessage().code, 30);
  EXPECT_EQ(lastmessage().vars[0], "results/job_0000000007.geo");

  // In the cloud layout the mesh lies below the cloud folder, under the fixed stem.
  rs.cloudlayout = true;
  rs.cloudprefix = "out/sim/";
  rs.cloudstem = "kelmechanical";
  rs.meshfilenumber = 2;
  std::filesystem::create_directories("out/sim/results");
  wft::writefile("out/sim/results/kelmechanical_02.geo", Geo().binary());
  readgeo(rs, ".geo");
  EXPECT_EQ(rs.nnodes, 12);
  EXPECT_TRUE(wft::contains(console(), "=   out/sim/results/kelmechanical_02.geo\n"));
}

TEST_F(ReadGeo, BrokenFilesEndInCodedReadErrors) {
  const std::string good = Geo().binary();
  auto withmarker = [](std::string b, size_t at, int32_t v) {
    std::memcpy(&b[at], &v, 4);
    return b;
  };
  Geo big;
  big.nnodes = 2000000000;
  Geo negative;
  negative.nnodes = -5;
  Geo manyelems;
  manyelems.nelems = 300000000;
  Geo longer;  // a coordinate record one value longer than the count
  longer.y.push_back(1.0f);
  Geo textbad;
  std::string textbadbody = textbad.text();
  textbadbody.replace(textbadbody.find("hexa8"), 5, "hexa8\nabc");
  Geo texthuge;
  texthuge.nnodes = 900000000;
  std::string nomarkers = "C Binary";
  nomarkers.resize(80, ' ');
  nomarkers += std::string(400, '\x01');

  struct Case {
    const char *what;
    std::string body;
    int code;
  } cases[] = {
      {"empty", "", 28},
      {"cut in the header", good.substr(0, 200), 28},
      {"cut inside a header record", good.substr(0, 90 + 88 * 2), 28},
      {"cut in the coordinates", good.substr(0, 900), 29},
      {"cut in the element type line", good.substr(0, good.size() - 150), 28},
      {"cut in the connectivity", good.substr(0, good.size() - 10), 29},
      {"trailing marker differs", withmarker(good, 88 + 84, 81), 29},
      {"leading marker too short", withmarker(good, 88, 12), 29},
      {"negative marker", withmarker(good, 88, -80), 29},
      {"record longer than the count", longer.binary(), 29},
      {"node count beyond the file", big.binary(), 29},
      {"negative node count", negative.binary(), 29},
      {"element count beyond the file", manyelems.binary(), 29},
      {"text: a word among the numbers", textbadbody, 29},
      {"text: cut in the header", textbad.text().substr(0, 40), 28},
      {"text: count beyond the file", texthuge.text(), 29},
      {"C Binary without record markers", nomarkers, 28},  // read as text: no second line
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    wft::writefile("results/job_3.geo", c.body);
    EXPECT_THROW(readgeo(rs, ".geo"), RunAborted);
    simtest::Message m = lastmessage();
    EXPECT_EQ(m.code, c.code);
    ASSERT_FALSE(m.vars.empty());
    EXPECT_EQ(m.vars[0], "results/job_3.geo");
  }
}
