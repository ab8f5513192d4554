// SPDX-License-Identifier: GPL-2.0-or-later
// The case file: both numbering forms with their console lines, early ends, and the cloud layout.
#include "simresults/readcase.h"

#include "simtest.h"

using namespace wf;
using ReadCase = simtest::SimTest;

TEST_F(ReadCase, ImplicitAndExplicitNumbering) {
  // The increment line's first 19 columns are skipped; numbers on the "filename numbers:" and
  // "time values:" lines are not taken; each time value takes a line of its own.
  wft::writefile("job.case",
                 "FORMAT\ntype: ensight gold\nGEOMETRY\nmodel: 2 results/job_*.geo\nTIME\n"
                 "time set:              1\nnumber of steps:       3\nfilename start number: 5\n"
                 "anything 19 columns2\ntime values:\n0.5 9.0 9.0\n\n1.5\n2.5e0\n"
                 "time set: 2\nnumber of steps: 4\nfilename numbers: 99 98\n1 2\n\n4, 8\n"
                 "time values: 7\n0\n0\n1.5\n2\n");
  readcase(rs, "job.case");
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{5, 7, 9}));
  EXPECT_EQ(rs.resulttimes, (std::vector<double>{0.5, 1.5, 2.5}));
  EXPECT_EQ(rs.meshnums, (std::vector<int32_t>{1, 2, 4, 8}));
  EXPECT_EQ(rs.meshtimes, (std::vector<double>{0, 0, 1.5, 2}));
  EXPECT_EQ(std::tuple(rs.ninc, rs.nmesh, rs.cloudlayout, rs.cloudprefix), std::tuple(3, 4, false, "."));
  EXPECT_EQ(console(),
            " Reading case file job.case\n Number of increments = 3\n Implicit result indexing\n"
            " Start number = 5\n Increment = 2\n Number of meshes     = 4\n Explicit mesh indexing\n");

  // Leading zeros, an empty second set and an increment of 0 are all accepted.
  wft::writefile("a.case",
                 "time set: 1\nnumber of steps: 2\nfilename numbers:\n007 10\ntime values:\n1\n2\n"
                 "time set: 2\nnumber of steps: 0\nfilename start number: 1\nfilename increment: 0\n"
                 "time values:\n");
  readcase(rs, "a.case");
  EXPECT_EQ(rs.resultnums, (std::vector<int32_t>{7, 10}));
  EXPECT_TRUE(rs.nmesh == 0 && rs.meshnums.empty() && rs.meshtimes.empty());
  EXPECT_TRUE(wft::contains(console(), " Explicit result indexing\n Number of meshes     = 0\n"
                                       " Implicit mesh indexing\n Start number = 1\n Increment = 0\n"));
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadCase, EarlyEndsAndBadNumbersNameTheFile) {
  const std::string set = "time set: 1\nnumber of steps: ", imp = set + "1\nfilename start number: ";
  for (const auto &[text, code] : std::vector<std::pair<std::string, std::string>>{
           {"", "28"}, {imp + "1\nfilename increment: 1\ntime values:\n1\n", "28"},  // one set only
           {set + "2\nfilename numbers:\n1\n", "28"},                               // too few numbers
           {set + "2\nfilename numbers:\n1\ntime values:\n1\n2\n", "29"}, {set + "many\n", "29"},
           {set + "-1\n", "29"}, {set + "2000000000\nfilename numbers:\n", "29"},  // no room for them
           {imp + "1\n", "28"}, {imp + "x\nfilename increment: 1\n", "29"},
           {imp + "1\nfilename increment: 1\ntime values:\nlate\n", "29"}}) {
    SCOPED_TRACE(text);
    wft::writefile("bad.case", text);
    aborts([&] { readcase(rs, "bad.case"); }, code + " bad.case");
  }
}

TEST_F(ReadCase, MissingCaseAndTheCloudDescriptor) {
  // No case file and no descriptor: the three lines, then message 30.
  aborts([&] { readcase(rs, "job.case"); }, "30 job.case");
  EXPECT_TRUE(wft::contains(console(), " Could not find case file \"job.case\".\n"
                                       " Checking for *.awskel file for cloud solves...\n\n"));

  // With a descriptor (named by the text before the last "_mechanical"; no word: ".awskel") the
  // case is read from the cloud folder under the fixed stem, with the suffix form of the name.
  const std::string body =
      "time set: 1\nnumber of steps: 1\nfilename start number: 4\nfilename increment: 1\n"
      "time values:\n7\ntime set: 2\nnumber of steps: 1\nfilename numbers:\n3\ntime values:\n0\n";
  std::filesystem::create_directories("cloud/run/sim");
  wft::writefile("cloud/run/sim/kelmechanical.case", body);
  wft::writefile("cloud/run/sim/kelmechanical_c.case", body);
  wft::writefile("p_mechanical.awskel", R"({"outputDir": "cloud/run", "other": 1})");
  wft::writefile(".awskel", R"({"outputDir": "cloud/run"})");
  for (auto [given, read] : {std::pair{"p_mechanical_mechanical.case", "kelmechanical.case"},
                             {"p_mechanical_mechanical_c.case", "kelmechanical_c.case"},
                             {"other.case", "kelmechanical.case"}}) {
    readcase(rs, given);
    EXPECT_EQ(std::tuple(rs.cloudlayout, rs.cloudprefix, rs.cloudstem, rs.resultnums[0]),
              std::tuple(true, "cloud/run/sim/", "kelmechanical", 4)) << given;
    EXPECT_TRUE(wft::contains(console(), " Reading case file cloud/run/sim/" + std::string(read) + "\n"));
  }
  // An existing case file is read as it is, and the cloud state is reset.
  wft::writefile("here.case", body);
  readcase(rs, "here.case");
  EXPECT_EQ(std::tuple(rs.cloudlayout, rs.cloudprefix), std::tuple(false, "."));

  // A descriptor without "outputDir", or no JSON at all: an empty folder part, not found.
  for (const char *json : {R"({"somethingElse": "x"})", "not json {"}) {
    wft::writefile("q.awskel", json);
    aborts([&] { readcase(rs, "q_mechanical.case"); }, "30 /sim/kelmechanical.case");
  }
}
