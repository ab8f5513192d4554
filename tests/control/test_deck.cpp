// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "control/deck.h"
#include "control/messages.h"
#include "testutil.h"

using namespace wf;

namespace {

struct DeckRun {
  RunState rs;
  std::string out;
  std::string signal;
  bool aborted = false;
  std::vector<int> codes;  // codes of the coded messages, in order
};

// Reads a deck in-process; the deck lands in a fresh folder as job.deck.
std::unique_ptr<DeckRun> readdecktext(const std::string &text) {
  auto r = std::make_unique<DeckRun>();
  std::string dir = wft::tempdir("deck");
  std::string path = dir + "/job.deck";
  wft::writefile(path, text);
  r->rs.args = {path};
  testing::internal::CaptureStdout();
  try {
    readdeck(r->rs);
  } catch (const RunAborted &) {
    r->aborted = true;
  }
  r->out = testing::internal::GetCapturedStdout();
  if (r->rs.signalunit) std::fflush(r->rs.signalunit);
  r->signal = wft::readfile(dir + "/job.wrpsimsignal");
  for (const auto &l : wft::splitlines(r->signal)) {
    auto p = l.find("\"code\": ");
    if (p != std::string::npos) r->codes.push_back(std::stoi(l.substr(p + 8)));
  }
  return r;
}

}  // namespace

TEST(Deck, DefaultsAndTheEcho) {
  auto r = readdecktext("*INPU\njob\n");
  ASSERT_FALSE(r->aborted) << r->out;
  const RunState &rs = r->rs;
  EXPECT_EQ(rs.warpscale, -1.0);
  EXPECT_EQ(rs.navgnodes, 10);
  EXPECT_EQ(rs.stlformat, 'b');
  EXPECT_EQ(rs.incoffset, -2);
  EXPECT_TRUE(rs.o3dmflag);
  EXPECT_TRUE(rs.inpuflag);
  EXPECT_EQ(rs.inputfile, "job");
  for (const char *line : {" Warpage scaling factor      = -1\n", " # of weighted average nodes = 10\n",
                           " Snapping tolerance          = 1e-05\n", " STL output format           = b\n",
                           " Increment offset            = -2\n", " Exporting all stl files\n",
                           " Input file                  = job\n", " Output files                = \n",
                           " Build ID    : 21.1.0.395\n"})
    EXPECT_TRUE(wft::contains(r->out, line)) << line << "\n" << r->out;
  EXPECT_TRUE(r->codes.empty());
}

TEST(Deck, CardsCountByFiveCharactersAndUnknownCardsWarn) {
  auto r = readdecktext("*WARPAGE\n 2.5 trailing\n*warp\n3.0\n# comment\n*NINT\n\n  4\n*N3DM\n*INPU\n\"my job\"\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->rs.warpscale, 2.5);
  EXPECT_EQ(r->rs.navgnodes, 4);  // blank lines before a value are passed over
  EXPECT_FALSE(r->rs.o3dmflag);
  EXPECT_EQ(r->rs.inputfile, "my job");
  EXPECT_TRUE(wft::contains(r->out, " WARNING\n Unknown control card *warp\n while reading file "));
  // The value line of the unknown card is read as a keyword in its turn.
  EXPECT_TRUE(wft::contains(r->out, " Unknown control card 3.0\n"));
}

TEST(Deck, CommentBehindABlankLineIsTakenAsACard) {
  auto r = readdecktext("*INPU\njob\n\n# note\n");
  ASSERT_FALSE(r->aborted);
  EXPECT_TRUE(wft::contains(r->out, " Unknown control card #\n"));
}

TEST(Deck, ListsStripQuotesAndEndAtAStar) {
  auto r = readdecktext("*INPU\njob\n*OUTP\n\"a b.stl\"\n *not-a-card.stl\n# comment\nc.stl\n*ISTL\n1\n2\n3\n*O3MF\n");
  ASSERT_FALSE(r->aborted) << r->out;
  ASSERT_EQ(r->rs.outfiles.n, 3);
  EXPECT_EQ(r->rs.outfiles[0], "a b.stl");
  EXPECT_EQ(r->rs.outfiles[1], " *not-a-card.stl");
  EXPECT_EQ(r->rs.outfiles[2], "c.stl");
  ASSERT_EQ(r->rs.stlids.n, 3);
  EXPECT_EQ(r->rs.stlids[2], 3);
  EXPECT_TRUE(r->rs.o3mfflag);
  EXPECT_TRUE(wft::contains(r->out, " STL IDs                     = \n                               1\n"));
}

TEST(Deck, SurfaceListRunningToTheEndKeepsItsLastNameTwice) {
  auto r = readdecktext("*INPU\njob\n*STLF\na.stl\nb.stl");
  ASSERT_FALSE(r->aborted) << r->out;
  ASSERT_EQ(r->rs.stlfiles.n, 3);
  EXPECT_EQ(r->rs.stlfiles[1], "b.stl");
  EXPECT_EQ(r->rs.stlfiles[2], "b.stl");
  auto r2 = readdecktext("*STLF\na.stl\n*INPU\njob\n");
  ASSERT_EQ(r2->rs.stlfiles.n, 1);
}

TEST(Deck, IdListAtTheEndOfTheDeckRunsOutOfRoom) {
  auto r = readdecktext("*INPU\njob\n*ISTL\n1\n2\n");
  EXPECT_TRUE(r->aborted);
  ASSERT_EQ(r->codes, std::vector<int>{32});
  EXPECT_TRUE(wft::contains(r->signal, R"("variables": ["push, tmp, 1"])") || wft::contains(r->signal, R"("variables": [])"));
  auto bad = readdecktext("*INPU\njob\n*ISTL\n1\nx\n*WARP\n1\n");
  EXPECT_TRUE(bad->aborted);
  EXPECT_EQ(bad->codes, std::vector<int>{97});
}

TEST(Deck, UnreadableOrMissingValueIsMessage97) {
  for (const char *deck : {"*WARP\nabc\n", "*NINT\n1.5\n", "*INPU\njob\n*SNAP\n"}) {
    auto r = readdecktext(deck);
    EXPECT_TRUE(r->aborted) << deck;
    EXPECT_EQ(r->codes, std::vector<int>{97}) << deck;
  }
}

TEST(Deck, ValidationReportsEveryFaultBeforeOneAbort) {
  auto r = readdecktext("*INPU\njob\n*SNAP\n0\n*MINE\n-1\n*FORM\nB\n*ZTOL\n-1\n*NINT\n0\n*EINT\n0\n*MAXR\n-1\n*RTOL\n-0.1\n");
  EXPECT_TRUE(r->aborted);
  EXPECT_EQ(r->codes, (std::vector<int>{176, 181, 182, 183, 184, 185, 187, 188}));
  EXPECT_TRUE(wft::contains(r->out, " WARNING:  *ZTOL has no effect without *FIXZ\n"));
}

TEST(Deck, BoundaryValuesThatPass) {
  auto r = readdecktext("*INPU\njob\n*MINE\n3\n*MAXE\n3\n*RTOL\n0\n*FORM\nd\n*O3DM\n*FIXZ\n*NRLE\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->rs.stlformat, 'd');
  EXPECT_TRUE(wft::contains(r->out, " Fixing Z displacements for vertices with minimal\n Z coordinates\n"));
  EXPECT_TRUE(wft::contains(r->out, " WARNING:  no Z distortion will be applied during this warp.\n"));
  auto big = readdecktext("*INPU\njob\n*MINE\n3.5\n*MAXE\n3\n");
  EXPECT_EQ(big->codes, std::vector<int>{186});
}

TEST(Deck, OutputNamesAgainstIds) {
  auto r = readdecktext("*INPU\njob\n*ISTL\n1\n2\n*OUTP\na.stl\nb.stl\na.stl\n");
  EXPECT_TRUE(r->aborted);
  EXPECT_EQ(r->codes, (std::vector<int>{177, 178}));
  EXPECT_TRUE(wft::contains(r->signal, R"("variables": ["3", "1"])") || wft::contains(r->signal, R"("code": 178, "variables": [])"));
  auto noout = readdecktext("*INPU\njob\n*ISTL\n1\n2\n*ASTL\n");
  EXPECT_FALSE(noout->aborted);
  EXPECT_FALSE(noout->rs.astlflag);
  EXPECT_TRUE(wft::contains(noout->out, " WARNING:  *ASTL is ignored with *ISTL\n"));
  auto zero = readdecktext("*INPU\njob\n*ISTL\n0\n*WARP\n1\n");
  EXPECT_EQ(zero->codes, std::vector<int>{189});
}

TEST(Deck, JobSourcesAndTheReferenceSurface) {
  auto empty = readdecktext("");
  EXPECT_TRUE(empty->aborted);
  EXPECT_EQ(empty->codes, std::vector<int>{179});
  auto scan = readdecktext("*SCNG\nscan.stl\n*REFG\n\"ref part.stl\"\n");
  ASSERT_FALSE(scan->aborted) << scan->out;
  ASSERT_EQ(scan->rs.stlfiles.n, 1);
  EXPECT_EQ(scan->rs.stlfiles[0], "ref part.stl");
  EXPECT_EQ(scan->rs.stltype[0], 1);
  EXPECT_TRUE(wft::contains(scan->out, "Reference geometries = \n                               \"ref part.stl\"\n"));
  auto two = readdecktext("*SCNG\na.stl\nb.stl\n*REFG\nr.stl\n");
  EXPECT_EQ(two->codes, std::vector<int>{180});
  auto noref = readdecktext("*SCNG\nscan.stl\n");
  EXPECT_EQ(noref->codes, std::vector<int>{198});
}

TEST(Deck, NonPositiveRepairToleranceIsReset) {
  auto r = readdecktext("*INPU\njob\n*TSRT\n-2\n");
  ASSERT_FALSE(r->aborted);
  EXPECT_EQ(r->rs.repairtol, 0.01);
  EXPECT_TRUE(wft::contains(r->out, " *** WARNING: 1\n Tessero repair tolerance must be positive.  Resetting to default.\n"));
}

TEST(Deck, ArbitraryBytesNeverCrash) {
  std::string junk;
  uint32_t s = 12345;
  for (int i = 0; i < 20000; ++i) {
    s = s * 1103515245u + 12345u;
    char c = static_cast<char>(s >> 24);
    junk.push_back(c);
  }
  for (size_t cut : {size_t(0), size_t(17), size_t(5000), junk.size()}) {
    auto r = readdecktext(junk.substr(0, cut));
    EXPECT_TRUE(r->aborted);  // no *INPU: ends with the coded checks
  }
}
