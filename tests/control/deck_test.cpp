// SPDX-License-Identifier: GPL-3.0-or-later
// The control deck: card and line rules, lists, the echo, and the faults with their codes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "control/deck.h"
#include "reporting.h"
#include "testutil.h"

using namespace wf;

namespace {

struct DeckRun {
  Settings settings;
  JobFiles files;
  std::string out, signal;
  bool aborted = false;
  std::vector<int> codes;  // codes of the coded messages, in order
};

// Reads a deck (as job.deck in a fresh folder) with the shipped catalogue; a Fatal is reported
// as main reports it.
std::unique_ptr<DeckRun> readdecktext(const std::string &text) {
  auto r = std::make_unique<DeckRun>();
  const std::string dir = wft::tempdir("deck");
  wft::writefile(dir + "/job.deck", text);
  setenv("CRVT_TSR_SIM_TMP", (dir + "/tmp").c_str(), 1);
  {
    wft::CapturedReporter cap;
    cap.rep.loadcatalogue(WARPFORGE_SOURCE_DIR "/data/simsolver.arb");
    cap.rep.opensignal();
    cap.text();
    try {
      readdeck(cap.rep, {dir + "/job.deck"}, r->settings, r->files);
    } catch (const Fatal &f) {
      if (f.code != 0) cap.rep.post(Severity::error, f.code, f.vars);
      r->aborted = true;
    }
    r->out = cap.text();
  }
  r->signal = wft::readfile(dir + "/job.wrpsimsignal");
  for (const auto &l : wft::splitlines(r->signal)) {
    const auto p = l.find("\"code\": ");
    if (p != std::string::npos) r->codes.push_back(std::stoi(l.substr(p + 8)));
  }
  return r;
}

}  // namespace

TEST(Deck, ListsStripQuotesAndEndAtAStar) {
  auto r = readdecktext("*INPU\njob\n*OUTP\n\"a b.stl\"\n *not-a-card.stl\n# comment\nc.stl\n"
                        "*ISTL\n1\n2\n3\n*O3MF\n*ASTL\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->settings.outfiles.entries(),
            (std::vector<std::string>{"a b.stl", " *not-a-card.stl", "c.stl"}));
  EXPECT_EQ(r->files.stlids.entries(), (std::vector<int32_t>{1, 2, 3}));
  EXPECT_TRUE(r->settings.o3mfflag && r->settings.o3dmflag);  // the package is on by default
  EXPECT_FALSE(r->settings.astlflag);
  EXPECT_TRUE(wft::contains(r->out, " WARNING:  *ASTL is ignored with *ISTL\n"));
  EXPECT_TRUE(wft::contains(r->out, " STL IDs                     = \n                               1\n"));
}

// Quotes come off in pairs, after the trailing blanks; a surface list running to the end of the
// deck keeps its last name twice.
TEST(Deck, SurfaceListRunningToTheEndKeepsItsLastNameTwice) {
  auto r = readdecktext("*INPU\njob\n*STLF\n\"a b\"  \n\"\"\n\"a\"b\"\n\"open\nb.stl");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->files.stlfiles.entries(),
            (std::vector<std::string>{"a b", "", "a\"b", "\"open", "b.stl", "b.stl"}));
  EXPECT_EQ(readdecktext("*STLF\na.stl\n*INPU\njob\n")->files.stlfiles.entries(),
            std::vector<std::string>{"a.stl"});
}

// A comment right behind a card is passed over; behind a blank line at keyword level it is read
// as a keyword and warned about as an unknown card, and the run goes on.
TEST(Deck, CommentAfterABlankLineIsAnUnknownCard) {
  const std::string warning = " WARNING\n Unknown control card #\n";
  auto direct = readdecktext("*INPU\njob\n# a note\n*WARP\n-2\n");
  ASSERT_FALSE(direct->aborted) << direct->out;
  EXPECT_FALSE(wft::contains(direct->out, warning)) << direct->out;
  auto afterblank = readdecktext("*INPU\njob\n\n# a note\n*WARP\n-2\n");
  ASSERT_FALSE(afterblank->aborted) << afterblank->out;
  EXPECT_TRUE(wft::contains(afterblank->out, warning)) << afterblank->out;
  EXPECT_EQ(afterblank->settings.warpscale, -2.0);  // the cards around it are read as before
}

// Every fault is reported before the one abort. A value that cannot be read, or is not finite,
// names the deck and the card; an id list at the end of the deck runs out of room.
TEST(Deck, FaultsPostTheirCodesAndAbort) {
  const struct {
    const char *deck;
    std::vector<int> codes;
    std::string posted;
  } cases[] = {
      {"*WARP\nabc\n", {97}, "/job.deck\", \"*WARP\"]"},
      {"*NINT\n1.5\n", {97}, "/job.deck\", \"*NINT\"]"},
      {"*INPU\njob\n*MINE\nnan\n", {97}, "/job.deck\", \"*MINE\"]"},
      {"*INPU\njob\n*WARP\n1e999\n", {97}, "/job.deck\", \"*WARP\"]"},
      {"*INPU\njob\n*RTOL\n-inf\n", {97}, "/job.deck\", \"*RTOL\"]"},
      {"*INPU\njob\n*SNAP\n", {97}, "/job.deck\", \"*SNAP\"]"},
      {"*INPU\njob\n*ISTL\n1\nx\n*WARP\n1\n", {97}, "/job.deck\", \"*ISTL\"]"},
      {"*INPU\njob\n*ISTL\n1\n2\n", {32}, R"("code": 32, "variables": ["push, tmp, 1"])"},
      {"*INPU\njob\n*SNAP\n0\n*MINE\n-1\n*FORM\nB\n*ZTOL\n-1\n*NINT\n0\n*EINT\n0\n*MAXR\n-1\n"
       "*RTOL\n-0.1\n",
       {176, 181, 182, 183, 184, 185, 187, 188}, R"("code": 188, "variables": [])"},
      {"*INPU\njob\n*MINE\n3.5\n*MAXE\n3\n", {186}, R"("code": 186, "variables": [])"},
      {"*INPU\njob\n*ISTL\n1\n2\n*OUTP\na.stl\nb.stl\na.stl\n", {177, 178},
       R"("code": 178, "variables": ["3", "1"])"},
      {"*INPU\njob\n*ISTL\n0\n*WARP\n1\n", {189}, R"("code": 189, "variables": [])"},
      {"*SCNG\na.stl\n*NINT\n268435456\n*REFG\nr.stl\n", {172},
       R"("code": 172, "variables": ["268435456"])"},
      {"*SCNG\na.stl\nb.stl\n*REFG\nr.stl\n", {180}, R"("code": 180, "variables": [])"},
      {"*SCNG\nscan.stl\n", {198}, R"("code": 198, "variables": [])"},
      {"", {179}, R"("code": 179, "variables": ["Corvanta Tessero Thermo Mechanics"])"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.deck);
    auto r = readdecktext(c.deck);
    EXPECT_TRUE(r->aborted);
    EXPECT_EQ(r->codes, c.codes);
    EXPECT_TRUE(wft::contains(r->signal, c.posted)) << r->signal;
  }
}

// Boundary values that pass; a non-positive repair tolerance is reset with a warning; a scan job
// takes its surface from the reference.
TEST(Deck, BoundaryValuesThatPassAndTheScanJob) {
  auto r = readdecktext("*INPU\njob\n*MINE\n3\n*MAXE\n3\n*RTOL\n0\n*FORM\nd\n*O3DM\n*FIXZ\n*NRLE\n"
                        "*TSRT\n-2\n*NINT\n100000000\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->settings.stlformat, 'd');
  EXPECT_EQ(r->settings.repairtol, 0.01);
  EXPECT_TRUE(wft::contains(
      r->out, " *** WARNING: 1\n Tessero repair tolerance must be positive.  Resetting to default.\n"));
  EXPECT_TRUE(wft::contains(r->out, " Fixing Z displacements for vertices with minimal\n Z coordinates\n"));
  EXPECT_TRUE(wft::contains(r->out, " WARNING:  no Z distortion will be applied during this warp.\n"));

  auto scan = readdecktext("*SCNG\nscan.stl\n*REFG\n\"ref part.stl\"\n*SSTL\n");
  ASSERT_FALSE(scan->aborted) << scan->out;
  EXPECT_EQ(scan->files.stlfiles.entries(), std::vector<std::string>{"ref part.stl"});
  EXPECT_EQ(scan->files.stltype.entries(), std::vector<int32_t>{1});
  EXPECT_TRUE(scan->files.selectbyfraction);
  EXPECT_TRUE(wft::contains(scan->out,
                            "Reference geometries = \n                               \"ref part.stl\"\n"));
}

// Arbitrary bytes end in the orderly abort of the coded checks, with no crash on the way.
TEST(Deck, ArbitraryBytesEndInAnOrderlyAbort) {
  std::string junk;
  for (uint32_t i = 0, s = 12345; i < 20000; ++i) {
    s = s * 1103515245u + 12345u;
    junk.push_back(static_cast<char>(s >> 24));
  }
  for (size_t cut : {size_t(17), size_t(5000), junk.size()})
    EXPECT_TRUE(readdecktext(junk.substr(0, cut))->aborted) << cut;
}
