// SPDX-License-Identifier: GPL-2.0-or-later
// The displacement file: 1, 3 and 6 components in both forms, and its early ends.
#include "simresults/readvariable.h"

#include "simresults/variablefile.h"
#include "simtest.h"

using namespace wf;
using simtest::Records;
using simtest::SimTest;

namespace {

// Component c of node i.
float value(int c, int i) { return 0.1f * static_cast<float>(c + 1) - 0.37f * static_cast<float>(i); }

std::string binaryvar(int ncomp, int n, int extra = 0) {
  Records r;
  r.text("Displacement of increment 2");
  r.text("part");
  r.i(1);
  r.text("coordinates");
  for (int c = 0; c < ncomp; ++c) {
    std::vector<float> v;
    for (int i = 0; i < n + extra; ++i) v.push_back(value(c, i));
    r.floats(v);
  }
  return r.b;
}

std::string textvar(int ncomp, int n, int perline) {
  std::string s = "Displacement of increment 2\npart\n         1\ncoordinates\n";
  char b[32];
  for (int c = 0; c < ncomp; ++c)
    for (int i = 0; i < n; ++i) {
      std::snprintf(b, sizeof b, " %12.9g", static_cast<double>(value(c, i)));
      s += b;
      s += (i + 1) % perline == 0 || i + 1 == n ? "\n" : "";
    }
  return s;
}

struct ReadVariable : SimTest {
  void SetUp() override {
    SimTest::SetUp();
    std::filesystem::create_directories("results");
    rs.dispfile = "results/job00_2.dis.ens";
    rs.nnodes = 5;
  }
  void expectvalues(const std::vector<double> &v, int ncomp) {
    ASSERT_EQ(v.size(), static_cast<size_t>(ncomp * rs.nnodes));
    for (int i = 0; i < rs.nnodes; ++i)
      for (int c = 0; c < ncomp; ++c)
        EXPECT_EQ(v[static_cast<size_t>(ncomp * i + c)], static_cast<double>(value(c, i)));
  }
};

}  // namespace

TEST_F(ReadVariable, ThreeComponentsInBothForms) {
  rs.resultsbinary = true;
  wft::writefile(rs.dispfile, binaryvar(3, 5));
  rs.nodedisp.assign(3, 9.0);  // an earlier field is replaced
  readvariable(rs, 3);
  expectvalues(rs.nodedisp, 3);
  EXPECT_EQ(console(), "     Variable file   = results/job00_2.dis.ens\n");

  rs.resultsbinary = false;
  for (int perline : {1, 2, 6}) {
    SCOPED_TRACE(perline);
    wft::writefile(rs.dispfile, textvar(3, 5, perline));
    readvariable(rs, 3);
    expectvalues(rs.nodedisp, 3);
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadVariable, OneAndSixComponentsAndOthers) {
  std::vector<double> v;
  for (bool binary : {true, false}) {
    SCOPED_TRACE(binary);
    rs.resultsbinary = binary;
    for (int ncomp : {1, 6}) {
      wft::writefile(rs.dispfile, binary ? binaryvar(ncomp, 5) : textvar(ncomp, 5, 4));
      readvariablevalues(rs, ncomp, v);
      expectvalues(v, ncomp);
    }
    // Any other count reads the header only.
    wft::writefile(rs.dispfile, binary ? binaryvar(0, 5) : textvar(0, 5, 1));
    readvariablevalues(rs, 2, v);
    EXPECT_TRUE(v.empty());
    // The run's one call with other counts leaves the displacements alone.
    rs.nodedisp = {1, 2, 3};
    wft::writefile(rs.dispfile, binary ? binaryvar(1, 5) : textvar(1, 5, 4));
    readvariable(rs, 1);
    EXPECT_EQ(rs.nodedisp, (std::vector<double>{1, 2, 3}));
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(ReadVariable, EarlyEndsAndBrokenRecords) {
  const std::string good = binaryvar(3, 5);
  std::string badtrail = good;
  const int32_t wrong = 7;
  std::memcpy(&badtrail[88 + 88 + 12 + 88 + 4 + 20], &wrong, 4);  // behind the x values
  struct Case {
    const char *what;
    bool binary;
    std::string body;
    int code;
  } cases[] = {
      {"empty", true, "", 362},
      {"cut in the header", true, good.substr(0, 100), 362},
      {"cut in the z values", true, good.substr(0, good.size() - 6), 362},
      {"z values missing", true, good.substr(0, good.size() - 28), 362},
      {"record of another length", true, binaryvar(3, 5, 1), 29},
      {"trailing marker differs", true, badtrail, 29},
      {"text: too few values", false, textvar(3, 5, 1).substr(0, textvar(3, 5, 1).size() - 15), 362},
      {"text: a word among the values", false, textvar(3, 5, 1).replace(80, 3, "xyz"), 29},
      {"text: no part number", false, "desc\npart\n", 362},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    rs.resultsbinary = c.binary;
    wft::writefile(rs.dispfile, c.body);
    EXPECT_THROW(readvariable(rs, 3), RunAborted);
    simtest::Message m = lastmessage();
    EXPECT_EQ(m.code, c.code);
    ASSERT_FALSE(m.vars.empty());
    EXPECT_EQ(m.vars[0], rs.dispfile);
  }
  std::remove(rs.dispfile.c_str());
  EXPECT_THROW(readvariable(rs, 3), RunAborted);
  EXPECT_EQ(lastmessage().code, 30);
  // Without *INPU there is no file name at all.
  rs.dispfile.clear();
  EXPECT_THROW(readvariable(rs, 3), RunAborted);
  EXPECT_EQ(lastmessage().code, 30);
}
