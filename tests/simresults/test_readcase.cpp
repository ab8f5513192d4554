// SPDX-License-Identifier: GPL-2.0-or-later
// The case file: both numbering forms, the console lines, early ends, and the cloud layout.
#include "simresults/readcase.h"

#include "simtest.h"

using namespace wf;
using simtest::SimTest;

namespace {

using ReadCase = SimTest;

const char *kImplicitThenExplicit =
    "# comment\n"
    "FORMAT\n"
    "type: ensight gold\n"
    "GEOMETRY\n"
    "model: 2 results/job_*.geo\n"
    "  time set: 7 (not at column 1)\n"
    "TIME\n"
    "time set:              1\n"
    "number of steps:       3\n"
    "filename start number: 5\n"
    "anything 19 columns2\n"
    "time values:\n"
    "0.5 9.0 9.0\n"
    "\n"
    "1.5\n"
    "2.5e0\n"
    "time set:              2\n"
    "number of steps:       4\n"
    "filename numbers: 99 98\n"
    "1 2\n"
    "\n"
    "4, 8\n"
    "time values:\n"
    "0\n0\n1.5\n2\n";

}  // namespace

TEST_F(ReadCase, ImplicitAndExplicitNumbering) {
  wft::writefile("job.case", kImplicitThenExplicit);
  readcase(rs, "job.case");
  EXPECT_EQ(rs.ninc, 3);
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{5, 7, 9}));
  EXPECT_EQ(rs.resulttimes, (std::vector<double>{0.5, 1.5, 2.5}));  // one value per line
  EXPECT_EQ(rs.nmesh, 4);
  EXPECT_EQ(rs.meshnums, (std::vector<int32_t>{1, 2, 4, 8}));  // not those of the keyword line
  EXPECT_EQ(rs.meshtimes, (std::vector<double>{0, 0, 1.5, 2}));
  EXPECT_FALSE(rs.cloudlayout);
  EXPECT_EQ(rs.cloudprefix, ".");
  EXPECT_EQ(console(),
            " Reading case file job.case\n"
            " Number of increments = 3\n"
            " Implicit result indexing\n"
            " Start number = 5\n"
            " Increment = 2\n"
            " Number of meshes     = 4\n"
            " Explicit mesh indexing\n");
}

TEST_F(ReadCase, ExplicitResultsImplicitMeshesAndEmptySets) {
  wft::writefile("a.case",
                 "time set: 1\nnumber of steps: 2\nfilename numbers:\n007 10\n"
                 "time values: 3 4\n1\n2\n"
                 "time set: 2\nnumber of steps: 0\nfilename start number: 1\n"
                 "filename increment: 0\ntime values:\n");
  readcase(rs, "a.case");
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{7, 10}));
  EXPECT_EQ(rs.resulttimes, (std::vector<double>{1, 2}));
  EXPECT_EQ(rs.nmesh, 0);
  EXPECT_TRUE(rs.meshnums.empty());
  EXPECT_TRUE(rs.meshtimes.empty());
  const std::string out = console();
  EXPECT_TRUE(wft::contains(out, " Explicit result indexing\n")) << out;
  EXPECT_TRUE(wft::contains(out, " Implicit mesh indexing\n Start number = 1\n Increment = 0\n")) << out;
}

TEST_F(ReadCase, EarlyEndsAndBadNumbersNameTheFile) {
  struct Case {
    const char *text;
    int code;
  } cases[] = {
      // Only one time set: the search for the second runs into the end.
      {"time set: 1\nnumber of steps: 1\nfilename start number: 1\nfilename increment: 1\n"
       "time values:\n1\n",
       28},
      {"time set: 1\nnumber of steps: 2\nfilename numbers:\n1\n", 28},  // too few numbers
      {"time set: 1\nnumber of steps: 2\nfilename numbers:\n1\ntime values:\n1\n2\n", 29},
      {"time set: 1\nnumber of steps: 2\nfilename numbers: 1 2\n", 28},
      {"time set: 1\nnumber of steps:\n", 29},
      {"time set: 1\nnumber of steps: many\n", 29},
      {"time set: 1\nnumber of steps: -1\n", 29},
      {"time set: 1\nnumber of steps: 2000000000\nfilename numbers:\n", 29},  // no room for them
      {"time set: 1\nnumber of steps: 1\nfilename start number: 1\n", 28},
      {"time set: 1\nnumber of steps: 1\nfilename start number: x\nfilename increment: 1\n", 29},
      {"time set: 1\nnumber of steps: 1\nfilename start number: 1\nfilename increment: 1\n"
       "time values:\nlate\n",
       29},
      {"", 28},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    wft::writefile("bad.case", c.text);
    EXPECT_THROW(readcase(rs, "bad.case"), RunAborted);
    simtest::Message m = lastmessage();
    EXPECT_EQ(m.code, c.code);
    ASSERT_FALSE(m.vars.empty());
    EXPECT_EQ(m.vars[0], "bad.case");
  }
}

TEST_F(ReadCase, PrefixBefore) {
  EXPECT_EQ(prefixbefore("job.case", "_mechanical"), "");
  EXPECT_EQ(prefixbefore("_mechanical.case", "_mechanical"), "");
  EXPECT_EQ(prefixbefore("a_mechanical_b_mechanical.case", "_mechanical"), "a_mechanical_b");
  EXPECT_EQ(prefixbefore("dir/x_mechanical_c.case", "_mechanical"), "dir/x");
}

TEST_F(ReadCase, MissingCaseAndTheCloudDescriptor) {
  // No case file and no descriptor: the three lines, then message 30.
  EXPECT_THROW(readcase(rs, "job.case"), RunAborted);
  EXPECT_EQ(lastmessage().code, 30);
  EXPECT_EQ(lastmessage().vars[0], "job.case");
  std::string out = console();
  EXPECT_TRUE(wft::contains(out,
                            " Could not find case file \"job.case\".\n"
                            " Checking for *.awskel file for cloud solves...\n\n"))
      << out;

  // A descriptor beside the job: the case is read from the cloud folder under the fixed stem,
  // whatever the stem of the name given, with the suffix form of that name.
  const std::string body =
      "time set: 1\nnumber of steps: 1\nfilename start number: 4\nfilename increment: 1\n"
      "time values:\n7\ntime set: 2\nnumber of steps: 1\nfilename numbers:\n3\ntime values:\n0\n";
  std::filesystem::create_directories("cloud/run/sim");
  wft::writefile("cloud/run/sim/kelmechanical.case", body);
  wft::writefile("cloud/run/sim/kelmechanical_c.case", body);
  wft::writefile("part7.awskel", R"({"outputDir": "cloud/run", "other": 1})");
  readcase(rs, "part7_mechanical.case");
  EXPECT_TRUE(rs.cloudlayout);
  EXPECT_EQ(rs.cloudprefix, "cloud/run/sim/");
  EXPECT_EQ(rs.cloudstem, "kelmechanical");
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{4}));
  EXPECT_EQ(rs.meshnums, (std::vector<int32_t>{3}));
  out = console();
  EXPECT_TRUE(wft::contains(out, " Reading case file cloud/run/sim/kelmechanical.case\n")) << out;

  readcase(rs, "part7_mechanical_c.case");
  out = console();
  EXPECT_TRUE(wft::contains(out, " Reading case file cloud/run/sim/kelmechanical_c.case\n")) << out;

  // A name without the word looks for ".awskel".
  wft::writefile(".awskel", R"({"outputDir": "cloud/run"})");
  readcase(rs, "other.case");
  EXPECT_TRUE(rs.cloudlayout);

  // An existing case file is read as it is, and the cloud state is reset.
  wft::writefile("here.case", body);
  readcase(rs, "here.case");
  EXPECT_FALSE(rs.cloudlayout);
  EXPECT_EQ(rs.cloudprefix, ".");

  // A descriptor without "outputDir", or no JSON at all: the name has an empty folder part and
  // is not found.
  for (const char *json : {R"({"somethingElse": "x"})", "not json {"}) {
    SCOPED_TRACE(json);
    wft::writefile("q.awskel", json);
    EXPECT_THROW(readcase(rs, "q_mechanical.case"), RunAborted);
    EXPECT_EQ(lastmessage().code, 30);
    EXPECT_EQ(lastmessage().vars[0], "/sim/kelmechanical.case");
  }
}
