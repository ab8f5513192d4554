// SPDX-License-Identifier: GPL-2.0-or-later
// The solver input file: its five cards among the solver's own, defaults, and the read errors.
#include "control/solverinput.h"

#include "simtest.h"

using namespace wf;
using simtest::SimTest;

namespace {

struct SolverInput : SimTest {
  void readfrom(const std::string &text) {
    wft::writefile("job.in", text);
    rs.inpuflag = true;
    rs.inputfile = "job";
    readsolverinput(rs);
  }
  std::vector<std::string> names() {
    std::vector<std::string> out;
    for (int i = 0; i < rs.stlfiles.n; ++i) out.push_back(rs.stlfiles[static_cast<size_t>(i)]);
    return out;
  }
};

}  // namespace

TEST_F(SolverInput, TheFiveCardsAmongUnknownOnes) {
  readfrom(
      "** solver input\n"
      "*HEAD\n"
      "Bracket *OFNS in a title line\n"
      "*MATE\n"
      "Ti6Al4V, 4430.0\n"
      "*OFNS\n"
      "# digits of the output file numbers\n"
      "7 trailing words\n"
      "*STLF\n"
      "# the parts\n"
      "a.stl\n"
      "\"b c.stl\"\n"
      "support.stl\n"
      "*STLM\n"
      "1, 0, 0, 1.0\n"
      "# a comment inside the rows\n"
      "2 5 6\n"
      "   0.9995\n"
      "3, 0, 0, 0.25\n"
      "*SSSS\n"
      " *STLS  (a blank in column 1: not a card)\n"
      "*STLS\n"
      "2.5, 9\n"
      "*END\n");
  EXPECT_EQ(rs.ofnsdigits, 7);
  EXPECT_EQ(names(), (std::vector<std::string>{"a.stl", "b c.stl", "support.stl"}));
  ASSERT_EQ(rs.stltype.n, 3);
  EXPECT_EQ(rs.stltype[0], 1);
  EXPECT_EQ(rs.stltype[1], 2);  // a row may spread over lines, as a free-form read does
  EXPECT_EQ(rs.stltype[2], 3);
  ASSERT_EQ(rs.stlfraction.n, 3);
  EXPECT_EQ(rs.stlfraction[1], 0.9995f);
  EXPECT_EQ(rs.stlfraction[2], 0.25f);
  EXPECT_TRUE(rs.ssssflag);
  EXPECT_EQ(rs.stlscale, 2.5);
  const std::string out = console();
  EXPECT_TRUE(wft::contains(out, " Reading input file job.in\n")) << out;
  EXPECT_TRUE(wft::contains(out, " STL scaling factor = 2.5\n\n")) << out;
  EXPECT_TRUE(messages().empty());
}

TEST_F(SolverInput, DefaultsAndTheListsWithoutStlm) {
  // Without *INPU only the defaults are set and nothing is read.
  rs.ofnsdigits = 3;
  rs.stlscale = 7;
  rs.ssssflag = true;
  rs.inpuflag = false;
  readsolverinput(rs);
  EXPECT_EQ(rs.ofnsdigits, 5);
  EXPECT_EQ(rs.stlscale, 1.0);
  EXPECT_FALSE(rs.ssssflag);
  EXPECT_EQ(console(), "");

  // Without *STLM every surface gets type 1 and fraction 1.0; a list that runs to the end of
  // the file holds its last name twice.
  readfrom("*STLS\n0.5\n*STLF\nx.stl\ny.stl\n");
  EXPECT_EQ(names(), (std::vector<std::string>{"x.stl", "y.stl", "y.stl"}));
  ASSERT_EQ(rs.stltype.n, 3);
  ASSERT_EQ(rs.stlfraction.n, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(rs.stltype[static_cast<size_t>(i)], 1);
    EXPECT_EQ(rs.stlfraction[static_cast<size_t>(i)], 1.0f);
  }
  EXPECT_EQ(rs.stlscale, 0.5);
  EXPECT_EQ(rs.ofnsdigits, 5);
}

TEST_F(SolverInput, StlmRowsEndAtTheNextCardWhichStillCounts) {
  readfrom("*STLF\np.stl\nq.stl\n*STLM\n1 0 0 1\n2 0 0 0.5\n*STLS\n3.0\n*OFNS\n9\n");
  ASSERT_EQ(rs.stltype.n, 2);
  EXPECT_EQ(rs.stltype[1], 2);
  EXPECT_EQ(rs.stlfraction[1], 0.5f);
  EXPECT_EQ(rs.stlscale, 3.0);
  EXPECT_EQ(rs.ofnsdigits, 9);  // 9 is the largest accepted

  // More than 10 rows grow the lists.
  std::string text = "*STLF\n";
  for (int i = 0; i < 13; ++i) text += "s" + std::to_string(i) + ".stl\n";
  text += "*STLM\n";
  for (int i = 0; i < 13; ++i) text += std::to_string(1 + i % 2) + " 0 0 0.5\n";
  readfrom(text);
  ASSERT_EQ(rs.stltype.n, 13);
  EXPECT_EQ(rs.stltype[12], 1);
  EXPECT_EQ(rs.stltype[11], 2);
}

TEST_F(SolverInput, FailuresAreCodedAndNameTheFile) {
  struct Case {
    const char *text;
    int code;
  } cases[] = {
      {"*OFNS\n10\n", 190},           // more digits than one place holds
      {"*OFNS\n*STLF\na.stl\n", 29},  // no number behind the card
      {"*STLS\nabc\n", 29},
      {"*STLS\n\n", 29},  // an empty value line
      {"*OFNS\n", 28},    // the file ends where the value should stand
      {"*STLS\n# only a comment\n", 28},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_THROW(readfrom(c.text), RunAborted);
    simtest::Message m = lastmessage();
    EXPECT_EQ(m.code, c.code);
    if (c.code != 190) {
      ASSERT_FALSE(m.vars.empty());
      EXPECT_EQ(m.vars[0], "job.in");
    }
  }
  std::remove("job.in");
  rs.inputfile = "job";
  EXPECT_THROW(readsolverinput(rs), RunAborted);
  EXPECT_EQ(lastmessage().code, 30);
  EXPECT_EQ(lastmessage().vars[0], "job.in");
}
