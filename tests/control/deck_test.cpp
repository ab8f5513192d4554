// SPDX-License-Identifier: GPL-3.0-or-later
// The control deck: card and line rules, lists, the echo, and the faults with their codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "app/steps.h"
#include "base/text.h"
#include "base/textio.h"
#include "control/deck.h"
#include "control/deckcards.h"
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
      readdeckstep(cap.rep, {dir + "/job.deck"}, r->settings, r->files);
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

// Lists: quotes stripped, a list ends at a card. The notes on cards that act together follow the
// echo of the values (whose lines are the regression set's), before the validation; *ASTL is
// cleared once the deck has passed.
TEST(Deck, ListsStripQuotesAndEndAtAStar) {
  auto r = readdecktext(
      "*INPU\njob\n*OUTP\n\"a b.stl\"\n *not-a-card.stl\n# comment\nc.stl\n"
      "*ISTL\n1\n2\n3\n*O3MF\n*ASTL\n*ZTOL\n0.5\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->settings.outfiles.entries(), (std::vector<std::string>{"a b.stl", " *not-a-card.stl", "c.stl"}));
  EXPECT_EQ(r->files.stlids.entries(), (std::vector<int32_t>{1, 2, 3}));
  EXPECT_TRUE(r->settings.o3mfflag && r->settings.o3dmflag);  // the package is on by default
  EXPECT_FALSE(r->settings.astlflag);
  EXPECT_TRUE(readdecktext("*INPU\njob\n*ASTL\n")->settings.astlflag);
  EXPECT_TRUE(wft::contains(r->out,
                            " Increment offset            = -2\n WARNING:  *ZTOL has no effect without *FIXZ\n\n"
                            " WARNING:  *ASTL is ignored with *ISTL\n\n"
                            " STL IDs                     = \n                               1\n"))
      << r->out;
}

// Quotes come off in pairs, after the trailing blanks; a surface list running to the end of the
// deck keeps its last name twice.
TEST(Deck, SurfaceListRunningToTheEndKeepsItsLastNameTwice) {
  auto r = readdecktext("*INPU\njob\n*STLF\n\"a b\"  \n\"\"\n\"a\"b\"\n\"open\nb.stl");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->files.stlfiles.entries(), (std::vector<std::string>{"a b", "", "a\"b", "\"open", "b.stl", "b.stl"}));
  EXPECT_EQ(readdecktext("*STLF\na.stl\n*INPU\njob\n")->files.stlfiles.entries(), std::vector<std::string>{"a.stl"});
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

// Every fault is reported before the one abort, with its variables. A value that cannot be read,
// or is not finite, names the deck and the card; an id list at the end of the deck runs out of
// room. (Faults without variables, and their order, are the next test's.)
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
      {"*INPU\njob\n*ISTL\n1\n2\n*OUTP\na.stl\nb.stl\na.stl\n", {177, 178}, R"("code": 178, "variables": ["3", "1"])"},
      {"*SCNG\na.stl\n*NINT\n268435456\n*REFG\nr.stl\n", {172}, R"("code": 172, "variables": ["268435456"])"},
      {"", {179}, R"("code": 179, "variables": ["Corvanta Tessero Thermo Mechanics"])"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.deck);
    auto r = readdecktext(c.deck);
    EXPECT_TRUE(r->aborted);
    EXPECT_EQ(r->codes, c.codes);
    EXPECT_TRUE(wft::contains(r->signal, c.posted)) << r->signal;
  }
}

// Boundary values that pass; a non-positive repair tolerance is reset with a warning. (A scan job
// takes its surface from the reference: the regression job scng.)
TEST(Deck, BoundaryValuesThatPass) {
  auto r = readdecktext(
      "*INPU\njob\n*MINE\n3\n*MAXE\n3\n*RTOL\n0\n*FORM\nd\n*O3DM\n*FIXZ\n*NRLE\n*TSRT\n-2\n*NINT\n100000000\n");
  ASSERT_FALSE(r->aborted) << r->out;
  EXPECT_EQ(r->settings.stlformat, 'd');
  EXPECT_EQ(r->settings.repairtol, 0.01);
  EXPECT_TRUE(
      wft::contains(r->out, " *** WARNING: 1\n Tessero repair tolerance must be positive.  Resetting to default.\n"));
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

namespace {

// The validation's coded messages and lines, in the order they reach the console: "code N" for a
// message, else the start of the line.
std::vector<std::string> validationevents(const std::string &out) {
  const std::vector<std::pair<std::string, std::string>> lines = {
      {" Exporting all stl files", "Exporting all stl files"}, {" STL IDs                     = ", "STL IDs"},
      {" Input file                  = ", "Input file"},       {" Output files                = ", "Output files"},
      {" Reference geometries = ", "Reference geometries"},    {" Scanned geometries = ", "Scanned geometries"}};
  std::vector<std::string> events;
  for (const std::string &l : wft::splitlines(out)) {
    if (l.rfind("  Code ", 0) == 0) events.push_back("code " + l.substr(7));
    for (const auto &[start, name] : lines)
      if (l.rfind(start, 0) == 0) events.push_back(name);
  }
  return events;
}

}  // namespace

// Several faults in one deck: every check runs, and the messages and the lines between them come
// in one fixed order (the checks of single cards interleaved with those across cards). Between
// them the three decks have every two neighbours of that order at once.
TEST(Deck, SeveralFaultsAtOnceKeepTheirOrder) {
  const struct {
    const char *deck;
    std::vector<std::string> events;
  } cases[] = {
      {"*SCNG\na.stl\nb.stl\n*ISTL\n0\n2\n*OUTP\nx.stl\n\"x.stl\"\ny.stl\n*ZTOL\n-1\n*MAXR\n-1\n"
       "*NINT\n268435456\n*EINT\n0\n*SNAP\n0\n*MINE\n5\n*MAXE\n4\n*RTOL\n-1\n*FORM\nB\n*ASTL\n",
       {"code 176", "code 177", "code 178", "STL IDs", "Scanned geometries", "code 180", "code 198", "code 181",
        "code 172", "code 183", "code 184", "code 186", "code 187", "code 188", "code 189"}},
      {"*REFG\na.stl\nb.stl\n*MAXE\n-2\n*MINE\n-1\n*SNAP\n0\n*EINT\n0\n*NINT\n0\n*MAXR\n-1\n",
       {"Exporting all stl files", "code 179", "Reference geometries", "code 180", "code 181", "code 182", "code 183",
        "code 184", "code 185", "code 186"}},
      {"*SCNG\ns1.stl\ns2.stl\n*REFG\nr1.stl\nr2.stl\n*INPU\njob\n*OUTP\no.stl\n*ISTL\n3\n*MINE\n0\n",
       {"STL IDs", "Input file", "Output files", "Reference geometries", "code 180", "Scanned geometries", "code 180",
        "code 185"}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.deck);
    auto r = readdecktext(c.deck);
    EXPECT_TRUE(r->aborted);
    EXPECT_EQ(validationevents(r->out), c.events) << r->out;
    // The signal stream has the same messages in the same order.
    std::string codes, consolecodes;
    for (int code : r->codes) codes += " code " + std::to_string(code);
    for (const std::string &e : c.events)
      if (e.starts_with("code ")) consolecodes += " " + e;
    EXPECT_EQ(codes, consolecodes);
  }
}

// Every card of the table is in the README's card table, and every card there is in the table.
TEST(Deck, ReadmeListsTheCardsOfTheTable) {
  std::vector<std::string> readme = wft::readmecards(wft::readfile(WARPFORGE_SOURCE_DIR "/README.md")), table;
  for (const DeckCard &card : deckcards()) table.emplace_back(card.keyword);
  std::sort(readme.begin(), readme.end());
  std::sort(table.begin(), table.end());
  EXPECT_EQ(readme, table);
  EXPECT_GE(table.size(), 30u);
}
