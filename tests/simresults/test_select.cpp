// SPDX-License-Identifier: GPL-2.0-or-later
// The choice of the increment and its mesh, and of the surfaces the loop processes.
#include "control/solverinput.h"

#include "simtest.h"

using namespace wf;
using simtest::SimTest;

namespace {

struct Select : SimTest {
  // Three increments at times 1, 2, 3 with file numbers 10, 20, 30; four meshes.
  void timesets(std::vector<double> meshtimes) {
    rs.ninc = 3;
    rs.resulttimes = {1.0, 2.0, 3.0};
    rs.resultnums = {10, 20, 30};
    rs.nmesh = static_cast<int32_t>(meshtimes.size());
    rs.meshtimes = meshtimes;
    rs.meshnums.clear();
    for (size_t m = 0; m < meshtimes.size(); ++m) rs.meshnums.push_back(static_cast<int32_t>(100 * (m + 1)));
  }
  // Surfaces with their types and fractions.
  void surfaces(std::vector<int32_t> types, std::vector<float> fractions) {
    rs.stlfiles.clear();
    rs.stltype.clear();
    rs.stlfraction.clear();
    for (size_t j = 0; j < types.size(); ++j) {
      rs.stlfiles.v.push_back("s" + std::to_string(j + 1) + ".stl");
      rs.stltype.v.push_back(types[j]);
      rs.stlfraction.v.push_back(fractions[j]);
    }
    rs.stlfiles.n = rs.stltype.n = rs.stlfraction.n = static_cast<int32_t>(types.size());
  }
  std::vector<int32_t> ids() {
    return std::vector<int32_t>(rs.stlids.v.begin(), rs.stlids.v.begin() + rs.stlids.n);
  }
};

}  // namespace

TEST_F(Select, IncrementOffsetsAndTheMeshAtTheirTime) {
  // Meshes at 0, 2, 2 and 5: equal times keep the first, a time equal to t counts.
  timesets({0.0, 2.0, 2.0, 5.0});
  struct Case {
    int off;
    int result, mesh;
  } cases[] = {{1, 10, 100}, {2, 20, 200}, {3, 30, 200}, {-1, 30, 200}, {-2, 20, 200}, {-3, 10, 100}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.off);
    rs.incoffset = c.off;
    selectincrement(rs);
    EXPECT_EQ(rs.resultfilenumber, c.result);
    EXPECT_EQ(rs.meshfilenumber, c.mesh);
  }
  // The mesh list need not be in time order: the largest time not after t wins.
  timesets({2.5, 0.5, 1.5});
  rs.incoffset = -2;
  selectincrement(rs);
  EXPECT_EQ(rs.meshfilenumber, 300);
  EXPECT_TRUE(messages().empty());
}

TEST_F(Select, OffsetsOutOfRangeAndNoMeshYet) {
  timesets({0.0});
  for (int off : {0, 4, -4, 1000, -2147483647 - 1}) {
    SCOPED_TRACE(off);
    rs.incoffset = off;
    EXPECT_THROW(selectincrement(rs), RunAborted);
    simtest::Message m = lastmessage();
    EXPECT_EQ(m.code, 194);
    EXPECT_EQ(m.vars, (std::vector<std::string>{"1", "3"}));
  }
  // One increment: the default offset -2 is out of range.
  rs.ninc = 1;
  rs.incoffset = -2;
  EXPECT_THROW(selectincrement(rs), RunAborted);
  EXPECT_EQ(lastmessage().vars, (std::vector<std::string>{"1", "1"}));

  // Every mesh is later than the chosen increment.
  timesets({1.5, 4.0});
  rs.incoffset = 1;
  EXPECT_THROW(selectincrement(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 195);
  EXPECT_EQ(lastmessage().vars, (std::vector<std::string>{"1"}));
  timesets({});
  rs.incoffset = -1;
  EXPECT_THROW(selectincrement(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 195);
  EXPECT_EQ(lastmessage().vars, (std::vector<std::string>{"3"}));
}

TEST_F(Select, SelectionByTypeAndFraction) {
  surfaces({1, 2, 2, 3}, {0.1f, 0.9995f, 0.999f, 1.0f});
  EXPECT_TRUE(surfaceselected(rs, 1));
  EXPECT_FALSE(surfaceselected(rs, 2));
  rs.sstlflag = true;
  EXPECT_TRUE(surfaceselected(rs, 2));   // fraction above 0.999
  EXPECT_FALSE(surfaceselected(rs, 3));  // 0.999 itself is not
  EXPECT_TRUE(surfaceselected(rs, 4));
  EXPECT_FALSE(surfaceselected(rs, 0));
  EXPECT_FALSE(surfaceselected(rs, 5));
  // Surfaces beyond the *STLM rows count as processed by default.
  rs.stltype.n = rs.stlfraction.n = 1;
  rs.sstlflag = false;
  EXPECT_TRUE(surfaceselected(rs, 3));
}

TEST_F(Select, WholeJobAndSingleSurface) {
  rs.ninc = 3;
  rs.incoffset = -2;
  surfaces({2, 1, 1}, {1, 1, 1});
  selectsurfaces(rs);  // neither *ASTL nor *ISTL: the first selected surface only
  EXPECT_EQ(rs.nsurfaces, 1);
  EXPECT_EQ(ids(), (std::vector<int32_t>{1}));
  rs.astlflag = true;
  selectsurfaces(rs);
  EXPECT_EQ(rs.nsurfaces, 2);
  EXPECT_EQ(ids(), (std::vector<int32_t>{1, 2}));
  EXPECT_TRUE(messages().empty());

  surfaces({}, {});
  EXPECT_THROW(selectsurfaces(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 191);
}

TEST_F(Select, AstlWithSstlWarnsAndDropsAtTheLastIncrement) {
  rs.ninc = 3;
  rs.astlflag = rs.sstlflag = true;
  surfaces({1, 2, 2, 1}, {1, 1, 0.5f, 1});
  // Not at the last increment: the unselected surface is named, the rest goes on with *SSTL.
  rs.incoffset = -2;
  selectsurfaces(rs);
  auto m = messages();
  ASSERT_EQ(m.size(), 1u);
  EXPECT_EQ(m[0].code, 1036);
  EXPECT_EQ(m[0].type, "critical warning");
  EXPECT_EQ(m[0].vars, (std::vector<std::string>{"s3.stl"}));
  EXPECT_TRUE(rs.sstlflag);
  EXPECT_EQ(rs.nsurfaces, 3);

  // At the last increment (-1 or ninc) the selected surface of type 2 is dropped as well.
  for (int off : {-1, 3}) {
    SCOPED_TRACE(off);
    rs.sstlflag = true;
    rs.incoffset = off;
    const size_t before = messages().size();
    selectsurfaces(rs);
    m = messages();
    ASSERT_EQ(m.size(), before + 2);
    EXPECT_EQ(m[before].code, 1036);
    EXPECT_EQ(m[before + 1].code, 1037);
    EXPECT_EQ(m[before + 1].type, "critical warning");
    EXPECT_EQ(m[before + 1].vars, (std::vector<std::string>{"s2.stl"}));
    EXPECT_FALSE(rs.sstlflag);
    EXPECT_EQ(rs.nsurfaces, 2);
    EXPECT_EQ(ids(), (std::vector<int32_t>{1, 2}));
  }
  EXPECT_EQ(rs.ncritical, 5);

  // *SSTL together with *SSSS is refused.
  rs.sstlflag = rs.ssssflag = true;
  EXPECT_THROW(selectsurfaces(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 371);
}

TEST_F(Select, ChosenIds) {
  rs.ninc = 3;
  rs.istlflag = true;
  surfaces({1, 2, 1, 1}, {1, 1, 1, 1});
  rs.stlids.v = {3, 1};
  rs.stlids.n = 2;
  rs.incoffset = -1;
  selectsurfaces(rs);
  EXPECT_EQ(rs.nsurfaces, 2);
  EXPECT_EQ(ids(), (std::vector<int32_t>{3, 1}));

  rs.stlids.v = {4};
  rs.stlids.n = 1;
  EXPECT_THROW(selectsurfaces(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 192);
  EXPECT_EQ(lastmessage().vars, (std::vector<std::string>{"3"}));

  // With *SSTL the surface of type 2 is number 2; it is refused at the last increment only.
  rs.sstlflag = true;
  rs.stlids.v = {1, 2};
  rs.stlids.n = 2;
  rs.incoffset = -2;
  selectsurfaces(rs);
  EXPECT_EQ(rs.nsurfaces, 2);
  rs.incoffset = 3;
  EXPECT_THROW(selectsurfaces(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 370);
  EXPECT_EQ(lastmessage().vars, (std::vector<std::string>{"s2.stl"}));

  // A job without *INPU has no increments: offset 0 counts as the last one.
  rs.ninc = 0;
  rs.incoffset = 0;
  EXPECT_THROW(selectsurfaces(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 370);
}
