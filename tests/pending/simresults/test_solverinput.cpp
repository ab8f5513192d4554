// SPDX-License-Identifier: GPL-2.0-or-later
// The solver input file (its five cards among the solver's own, defaults, read errors), and the
// choice of the increment, its mesh, and the surfaces the loop processes.
#include "control/solverinput.h"

#include "simtest.h"

using namespace wf;
using simtest::strings;
using ints = std::vector<int32_t>;

namespace {

template <class T>
std::vector<T> items(const List<T> &l) { return {l.v.begin(), l.v.begin() + l.n}; }
template <class T>
void setlist(List<T> &l, std::vector<T> v) { l.n = static_cast<int32_t>(v.size()), l.v = std::move(v); }

struct SolverInput : simtest::SimTest {
  void readfrom(const std::string &text) {
    wft::writefile("job.in", text);
    rs.inpuflag = true;
    rs.inputfile = "job";
    readsolverinput(rs);
  }
  // Surfaces s1.stl, s2.stl, ... with their types and fractions.
  void surfaces(ints types, std::vector<float> fractions) {
    strings names;
    for (size_t j = 1; j <= types.size(); ++j) names.push_back("s" + std::to_string(j) + ".stl");
    setlist(rs.stlfiles, names), setlist(rs.stltype, types), setlist(rs.stlfraction, fractions);
  }
};

}  // namespace

TEST_F(SolverInput, TheFiveCardsAmongUnknownOnes) {
  readfrom("** solver input\n*HEAD\nBracket *OFNS in a title line\n*MATE\nTi6Al4V, 4430.0\n"
           "*OFNS\n# digits of the output file numbers\n7 trailing words\n"
           "*STLF\n# the parts\na.stl\n\"b c.stl\"\nsupport.stl\n"
           "*STLM\n1, 0, 0, 1.0\n# a comment inside the rows\n2 5 6\n   0.9995\n3, 0, 0, 0.25\n"
           "*SSSS\n *STLS  (a blank in column 1: not a card)\n*STLS\n2.5, 9\n*END\n");
  EXPECT_EQ(std::tuple(rs.ofnsdigits, rs.ssssflag, rs.stlscale), std::tuple(7, true, 2.5));
  EXPECT_EQ(items(rs.stlfiles), (strings{"a.stl", "b c.stl", "support.stl"}));
  EXPECT_EQ(items(rs.stltype), (ints{1, 2, 3}));  // a row may spread over lines
  EXPECT_EQ(items(rs.stlfraction), (std::vector<float>{1.0f, 0.9995f, 0.25f}));
  EXPECT_EQ(console(), " Reading input file job.in\n STL scaling factor = 2.5\n\n");

  readfrom("*OFNS\n9\n");  // the largest accepted
  EXPECT_EQ(rs.ofnsdigits, 9);
  // Without *STLM every surface gets type 1 and fraction 1.0 (a list that runs to the end of
  // the file holds its last name twice); the defaults stand for the cards not given.
  readfrom("*STLF\nx.stl\ny.stl\n");
  EXPECT_EQ(items(rs.stltype), (ints{1, 1, 1}));
  EXPECT_EQ(items(rs.stlfraction), (std::vector<float>{1, 1, 1}));
  EXPECT_EQ(std::tuple(rs.ofnsdigits, rs.ssssflag, rs.stlscale), std::tuple(5, false, 1.0));
  console();
  rs.inpuflag = false;  // without *INPU: the defaults, nothing read
  rs.ofnsdigits = 3;
  readsolverinput(rs);
  EXPECT_EQ(rs.ofnsdigits, 5);
  EXPECT_EQ(console(), "");
  EXPECT_TRUE(messages().empty());
}

TEST_F(SolverInput, FailuresAreCodedAndNameTheFile) {
  for (auto [text, code] : {std::pair{"*OFNS\n*STLF\na.stl\n", "29"},  // no number behind the card
                            {"*STLS\nabc\n", "29"}, {"*STLS\n\n", "29"},
                            {"*OFNS\n", "28"},  // the file ends where the value should stand
                            {"*STLS\n# only a comment\n", "28"}})
    aborts([&] { readfrom(text); }, code + std::string(" job.in"));
  aborts([&] { readfrom("*OFNS\n10\n"); }, "190");  // more digits than one place holds
  std::remove("job.in");
  aborts([&] { readsolverinput(rs); }, "30 job.in");
}

TEST_F(SolverInput, IncrementAndTheLatestMeshAtItsTime) {
  // Three increments at times 1, 2, 3; meshes at 0, 2, 2 and 5: equal times keep the first, a
  // time equal to t counts.
  rs.ninc = 3;
  rs.resulttimes = {1.0, 2.0, 3.0};
  rs.resultnums = {10, 20, 30};
  auto meshes = [&](std::vector<double> times) {
    rs.nmesh = static_cast<int32_t>(times.size());
    rs.meshtimes = times;
    rs.meshnums = {100, 200, 300, 400};
    rs.meshnums.resize(times.size());
  };
  meshes({0.0, 2.0, 2.0, 5.0});
  for (auto [off, result, mesh] : {std::tuple{1, 10, 100}, {2, 20, 200}, {3, 30, 200},
                                   {-1, 30, 200}, {-2, 20, 200}, {-3, 10, 100}}) {
    rs.incoffset = off;
    selectincrement(rs);
    EXPECT_EQ(std::pair(rs.resultfilenumber, rs.meshfilenumber), std::pair(result, mesh)) << off;
  }
  meshes({2.5, 0.5, 1.5});  // not in time order: the largest time not after t wins
  rs.incoffset = -2;
  selectincrement(rs);
  EXPECT_EQ(rs.meshfilenumber, 300);
  EXPECT_TRUE(messages().empty());

  for (int off : {0, 4, -4, -2147483647 - 1}) {
    rs.incoffset = off;
    aborts([&] { selectincrement(rs); }, "194 1 3");
  }
  meshes({1.5, 4.0});  // every mesh is later than the chosen increment
  rs.incoffset = 1;
  aborts([&] { selectincrement(rs); }, "195 1");
  meshes({});
  rs.incoffset = -1;
  aborts([&] { selectincrement(rs); }, "195 3");
  rs.ninc = 1;  // one increment: the default offset -2 is out of range
  rs.incoffset = -2;
  aborts([&] { selectincrement(rs); }, "194 1 1");
}

TEST_F(SolverInput, SurfacesOfTheLoop) {
  // Types 3, 1, 2, 1: s2 and s4 always count; s1 (above 0.999 in single precision) only with
  // *SSTL, s3 (0.999 itself) never. With *SSTL s1, s2, s4 are numbered 1 to 3, else s2, s4.
  // The last increment is offset -1 or ninc; with no increments (no *INPU) also offset 0.
  struct Case {
    bool astl, istl, sstl;
    int ninc, off;
    ints chosen, want;  // want empty: the run aborts with the last message
    strings said;
    bool sstlafter;
  };
  const strings warn = {"critical warning 1036 s3.stl"}, drop = {warn[0], "critical warning 1037 s1.stl"};
  const Case cases[] = {
      {false, false, false, 3, -2, {}, {1}, {}, false},  // the first selected surface only
      {true, false, false, 3, -2, {}, {1, 2}, {}, false},
      {true, false, true, 3, -2, {}, {1, 2, 3}, warn, true},
      {true, false, true, 3, -1, {}, {1, 2}, drop, false},
      {true, false, true, 3, 3, {}, {1, 2}, drop, false},
      {false, true, false, 3, -1, {2, 1}, {2, 1}, {}, false},
      {false, true, false, 3, -1, {3}, {}, {"error 192 2"}, false},
      {false, true, true, 3, -2, {1, 2}, {1, 2}, {}, true},  // refused at the last increment only
      {false, true, true, 3, 3, {2, 1}, {}, {"error 370 s1.stl"}, true},
      {false, true, true, 0, 0, {1}, {}, {"error 370 s1.stl"}, true},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(&c - cases);
    surfaces({3, 1, 2, 1}, {0.9995f, 0.1f, 0.999f, 1});
    setlist(rs.stlids, c.chosen);
    rs.astlflag = c.astl, rs.istlflag = c.istl, rs.sstlflag = c.sstl, rs.ninc = c.ninc, rs.incoffset = c.off;
    if (c.want.empty()) {
      EXPECT_THROW(selectsurfaces(rs), RunAborted);
    } else {
      selectsurfaces(rs);
    }
    EXPECT_EQ(messages(), c.said);
    if (c.want.empty()) continue;
    EXPECT_EQ(std::pair(rs.nsurfaces, items(rs.stlids)), std::pair(int32_t(c.want.size()), c.want));
    EXPECT_EQ(rs.sstlflag, c.sstlafter);
  }
  rs.stltype.n = rs.stlfraction.n = 1;  // beyond the *STLM rows: processed by default
  rs.sstlflag = false;
  const ints got = {surfaceselected(rs, 0), surfaceselected(rs, 3), surfaceselected(rs, 5)};
  EXPECT_EQ(got, (ints{0, 1, 0}));
  rs.sstlflag = rs.ssssflag = true;  // *SSTL together with *SSSS is refused
  aborts([&] { selectsurfaces(rs); }, "371");
  surfaces({}, {});
  aborts([&] { selectsurfaces(rs); }, "191");
}
