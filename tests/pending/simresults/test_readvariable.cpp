// SPDX-License-Identifier: GPL-2.0-or-later
// The displacement file: 1, 3 and 6 components in both forms, and its early ends.
#include "simresults/readvariable.h"

#include "simresults/variablefile.h"
#include "simtest.h"

using namespace wf;

namespace {

// Component c of node i.
float value(int c, int i) { return 0.1f * static_cast<float>(c + 1) - 0.37f * static_cast<float>(i); }

// Five nodes, ncomp components; binary records (one value more than the nodes with extra), or
// text with perline values to a line.
std::string varfile(bool binary, int ncomp, int perline = 1, int extra = 0) {
  simtest::Records r;
  std::string s = "Displacement of increment 2\npart\n         1\ncoordinates\n";
  r.text("Displacement of increment 2"), r.text("part"), r.i(1), r.text("coordinates");
  char b[32];
  for (int c = 0; c < ncomp; ++c) {
    std::vector<float> v;
    for (int i = 0; i < 5 + extra; ++i) {
      v.push_back(value(c, i));
      s.append(b, static_cast<size_t>(std::snprintf(b, sizeof b, " %12.9g", double(v.back()))));
      if ((i + 1) % perline == 0 || i == 4) s += "\n";
    }
    r.vals(v);
  }
  return binary ? r.b : s;
}

struct ReadVariable : simtest::SimTest {
  void SetUp() override {
    SimTest::SetUp();
    std::filesystem::create_directories("results");
    rs.dispfile = "results/job00_2.dis.ens";
    rs.nnodes = 5;
  }
};

}  // namespace

TEST_F(ReadVariable, OneThreeAndSixComponentsInBothForms) {
  for (auto [binary, perline] : {std::pair{true, 1}, {false, 1}, {false, 2}, {false, 6}}) {
    SCOPED_TRACE(perline);
    rs.resultsbinary = binary;
    for (int ncomp : {1, 3, 6}) {  // node-major, whatever the line breaks of the text
      std::vector<double> v, want;
      for (int i = 0; i < 5; ++i)
        for (int c = 0; c < ncomp; ++c) want.push_back(value(c, i));
      wft::writefile(rs.dispfile, varfile(binary, ncomp, perline));
      readvariablevalues(rs, ncomp, v);
      EXPECT_EQ(v, want) << ncomp;
      if (ncomp != 3) continue;
      rs.nodedisp.assign(3, 9.0);  // an earlier field is replaced
      console();
      readvariable(rs, 3);
      EXPECT_EQ(rs.nodedisp, want);
      EXPECT_EQ(console(), "     Variable file   = results/job00_2.dis.ens\n");
    }
    // Any other count reads the header only; the run's one call then leaves the displacements.
    std::vector<double> v = {1};
    readvariablevalues(rs, 2, v);
    EXPECT_TRUE(v.empty());
    rs.nodedisp = {1, 2, 3};
    readvariable(rs, 1);
    EXPECT_EQ(rs.nodedisp, (std::vector<double>{1, 2, 3}));
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadVariable, EarlyEndsAndBrokenRecords) {
  const std::string good = varfile(true, 3), text = varfile(false, 3);
  for (auto [what, binary, body, code] : std::vector<std::tuple<const char *, bool, std::string, const char *>>{
           {"empty", true, "", "362"},
           {"cut in the header", true, good.substr(0, 100), "362"},
           {"cut in the z values", true, good.substr(0, good.size() - 6), "362"},
           {"record of another length", true, varfile(true, 3, 1, 1), "29"},
           {"text: too few values", false, text.substr(0, text.size() - 15), "362"},
           {"text: a word among the values", false, std::string(text).replace(80, 3, "xyz"), "29"},
           {"text: no part number", false, "desc\npart\n", "362"}}) {
    SCOPED_TRACE(what);
    rs.resultsbinary = binary;
    wft::writefile(rs.dispfile, body);
    aborts([&] { readvariable(rs, 3); }, code + (" " + rs.dispfile));
  }
  std::remove(rs.dispfile.c_str());
  aborts([&] { readvariable(rs, 3); }, "30 " + rs.dispfile);
  rs.dispfile.clear();  // without *INPU there is no file name at all
  aborts([&] { readvariable(rs, 3); }, "30");
}
